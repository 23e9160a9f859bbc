#include "zx_container_wav.h"

#include <dr_wav.h>

#include <memory>
#include <utility>

#include "zx_assert.h"
#include "zx_audio_util.h"
#include "zx_heap.h"
#include "zx_math.h"

namespace {

constexpr int32_t STEREO_CHUNK = 1024;  // frames

struct container_wav_t {
    drwav *wav;
    int16_t *stereo_buffer;  // STEREO_CHUNK frames; null for mono
};

const container_wav_t *get(const void *object) {
    ZX_ASSERT(object);
    return static_cast<const container_wav_t *>(object);
}

}  // namespace

zx_status_t zx_container_wav_init(const char *path, void **object) {
    ZX_ASSERT(path);
    ZX_ASSERT(object);
    *object = nullptr;
    std::unique_ptr<container_wav_t, zx_deleter<zx_container_wav_delete>> o(
        zx_heap_zeroed<container_wav_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->wav = zx_heap_zeroed<drwav>();
    if (!o->wav) return ZX_STATUS_OUT_OF_MEMORY;
    if (!drwav_init_file(o->wav, path, nullptr)) {
        std::free(std::exchange(o->wav, nullptr));  // closed already: dr_wav must not be asked to do it again
        return ZX_STATUS_INVALID_ARGUMENT;
    }
    if (o->wav->totalPCMFrameCount == 0) return ZX_STATUS_INVALID_ARGUMENT;
    if (o->wav->channels == 2) {
        o->stereo_buffer = zx_heap_zeroed<int16_t>(2 * STEREO_CHUNK);
        if (!o->stereo_buffer) return ZX_STATUS_OUT_OF_MEMORY;
    } else if (o->wav->channels != 1) {
        return ZX_STATUS_INVALID_ARGUMENT;
    }
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_container_wav_delete(void *object) {
    if (!object) return;
    container_wav_t *o = static_cast<container_wav_t *>(object);
    std::free(o->stereo_buffer);
    if (o->wav) drwav_uninit(o->wav);
    std::free(o->wav);
    std::free(o);
}

int32_t zx_container_wav_num_samples(const void *object) {
    return static_cast<int32_t>(get(object)->wav->totalPCMFrameCount);
}

int32_t zx_container_wav_num_channels(const void *object) {
    return get(object)->wav->channels;
}

int32_t zx_container_wav_sample_rate(const void *object) {
    return static_cast<int32_t>(get(object)->wav->sampleRate);
}

zx_status_t zx_container_wav_read(void *object, int32_t num_samples, int16_t *pcm) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_samples > 0);
    ZX_ASSERT(pcm);
    container_wav_t *o = static_cast<container_wav_t *>(object);
    if (!o->stereo_buffer) {
        const drwav_uint64 wanted = static_cast<drwav_uint64>(num_samples);
        return drwav_read_pcm_frames_s16(o->wav, wanted, pcm) < wanted ? ZX_STATUS_IO_ERROR
                                                                       : ZX_STATUS_SUCCESS;
    }
    while (num_samples > 0) {
        const int32_t chunk = zx_min_int32(num_samples, STEREO_CHUNK);
        const drwav_uint64 wanted = static_cast<drwav_uint64>(chunk);
        if (drwav_read_pcm_frames_s16(o->wav, wanted, o->stereo_buffer) < wanted) return ZX_STATUS_IO_ERROR;
        zx_audio_util_stereo_to_mono_interleaved(pcm, o->stereo_buffer, chunk);
        pcm += chunk;
        num_samples -= chunk;
    }
    return ZX_STATUS_SUCCESS;
}
