// SPDX-License-Identifier: Apache-2.0
#include "zx_codec_flac.h"

#include <dr_flac.h>

#include <memory>

#include "zx_assert.h"
#include "zx_audio_util.h"
#include "zx_file.h"
#include "zx_heap.h"

namespace {

struct codec_flac_t {
    drflac *flac;
    int16_t *stereo_buffer;  // null for mono
};

const codec_flac_t *get(const void *object) {
    ZX_ASSERT(object);
    return static_cast<const codec_flac_t *>(object);
}

}  // namespace

zx_status_t zx_codec_flac_init(const char *path, void **object) {
    ZX_ASSERT(path);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<codec_flac_t, zx_codec_flac_delete> o(zx_heap_zeroed<codec_flac_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->flac = zx_file_open_by(
        path, [](const char *name) { return drflac_open_file(name, nullptr); },
        [](const wchar_t *name) { return drflac_open_file_w(name, nullptr); });
    if (!o->flac) return ZX_STATUS_INVALID_ARGUMENT;
    const zx_status_t status = zx_audio_util_stereo_buffer_init(o->flac->channels, &o->stereo_buffer);
    if (status != ZX_STATUS_SUCCESS) return status;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_codec_flac_delete(void *object) {
    if (!object) return;
    codec_flac_t *o = static_cast<codec_flac_t *>(object);
    std::free(o->stereo_buffer);
    drflac_close(o->flac);
    std::free(o);
}

int32_t zx_codec_flac_num_samples(const void *object) {
    return zx_audio_util_count(get(object)->flac->totalPCMFrameCount);
}

int32_t zx_codec_flac_num_channels(const void *object) {
    return get(object)->flac->channels;
}

int32_t zx_codec_flac_sample_rate(const void *object) {
    return static_cast<int32_t>(get(object)->flac->sampleRate);
}

zx_status_t zx_codec_flac_read(void *object, int32_t num_samples, int16_t *pcm) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_samples > 0);
    ZX_ASSERT(pcm);
    codec_flac_t *o = static_cast<codec_flac_t *>(object);
    return zx_audio_util_read_mono(num_samples, pcm, o->stereo_buffer, [o](uint64_t count, int16_t *output) {
        return drflac_read_pcm_frames_s16(o->flac, count, output);
    });
}
