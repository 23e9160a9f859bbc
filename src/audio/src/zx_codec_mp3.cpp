// SPDX-License-Identifier: Apache-2.0
#include "zx_codec_mp3.h"

#include <dr_mp3.h>

#include <memory>
#include <utility>

#include "zx_assert.h"
#include "zx_audio_util.h"
#include "zx_file.h"
#include "zx_heap.h"

namespace {

struct codec_mp3_t {
    drmp3 *mp3;
    int16_t *stereo_buffer;  // null for mono
    uint64_t num_frames;
};

const codec_mp3_t *get(const void *object) {
    ZX_ASSERT(object);
    return static_cast<const codec_mp3_t *>(object);
}

}  // namespace

zx_status_t zx_codec_mp3_init(const char *path, void **object) {
    ZX_ASSERT(path);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<codec_mp3_t, zx_codec_mp3_delete> o(zx_heap_zeroed<codec_mp3_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->mp3 = zx_heap_zeroed<drmp3>();
    if (!o->mp3) return ZX_STATUS_OUT_OF_MEMORY;
    if (!zx_file_open_by(
            path, [&](const char *name) { return drmp3_init_file(o->mp3, name, nullptr); },
            [&](const wchar_t *name) { return drmp3_init_file_w(o->mp3, name, nullptr); })) {
        std::free(std::exchange(o->mp3, nullptr));  // closed already: dr_mp3 must not be asked to do it again
        return ZX_STATUS_IO_ERROR;
    }
    const zx_status_t status = zx_audio_util_stereo_buffer_init(o->mp3->channels, &o->stereo_buffer);
    if (status != ZX_STATUS_SUCCESS) return status;
    o->num_frames = drmp3_get_pcm_frame_count(o->mp3);
    if (o->num_frames == 0) return ZX_STATUS_INVALID_ARGUMENT;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_codec_mp3_delete(void *object) {
    if (!object) return;
    codec_mp3_t *o = static_cast<codec_mp3_t *>(object);
    std::free(o->stereo_buffer);
    if (o->mp3) drmp3_uninit(o->mp3);
    std::free(o->mp3);
    std::free(o);
}

int32_t zx_codec_mp3_num_samples(const void *object) {
    return zx_audio_util_count(get(object)->num_frames);
}

int32_t zx_codec_mp3_num_channels(const void *object) {
    return static_cast<int32_t>(get(object)->mp3->channels);
}

int32_t zx_codec_mp3_sample_rate(const void *object) {
    return static_cast<int32_t>(get(object)->mp3->sampleRate);
}

zx_status_t zx_codec_mp3_read(void *object, int32_t num_samples, int16_t *pcm) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_samples > 0);
    ZX_ASSERT(pcm);
    codec_mp3_t *o = static_cast<codec_mp3_t *>(object);
    return zx_audio_util_read_mono(num_samples, pcm, o->stereo_buffer, [o](uint64_t count, int16_t *output) {
        return drmp3_read_pcm_frames_s16(o->mp3, count, output);
    });
}
