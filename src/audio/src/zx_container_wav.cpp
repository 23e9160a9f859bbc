// SPDX-License-Identifier: Apache-2.0
#include "zx_container_wav.h"

#include <dr_wav.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "zx_assert.h"
#include "zx_audio_util.h"
#include "zx_file.h"
#include "zx_heap.h"

namespace {

struct container_wav_t {
    drwav *wav;
    int16_t *stereo_buffer;    // null for mono
    drwav_read_proc own_read;  // dr_wav's, while read_adpcm stands in for it
};

const container_wav_t *get(const void *object) {
    ZX_ASSERT(object);
    return static_cast<const container_wav_t *>(object);
}

// Stands in for dr_wav's own read from a file while Microsoft ADPCM is decoded: a block begins with one
// predictor index per channel, 0 to 6, and with a larger one dr_wav 0.13 reads past its table. Block headers
// are 7 bytes per channel; everything else is read byte by byte.
size_t read_adpcm(void *file, void *output, size_t length) {
    constexpr uint8_t MAX_PREDICTOR = 6;
    uint8_t *bytes = static_cast<uint8_t *>(output);
    const size_t count = std::fread(bytes, 1, length, static_cast<FILE *>(file));
    const size_t num_predictors = std::min(length / 7, count);
    for (size_t i = 0; i < num_predictors; i++) bytes[i] = std::min(bytes[i], MAX_PREDICTOR);
    return count;
}

// Whether a "fact" chunk in front of the audio is too small for its one field. dr_wav 0.13 subtracts the
// field's 4 bytes from such a size in 64 unsigned bits and then seeks forward by what comes out in steps of 2
// GiB, for hours where the file system allows such positions.
bool has_short_fact_chunk(const char *path) {
    const zx_file_ptr file(zx_fopen(path, "rb"));
    if (!file || std::fseek(file.get(), 12, SEEK_SET) != 0) return false;
    int8_t name[4];
    int32_t signed_size;
    while (zx_file_read_int8(file.get(), name, sizeof(name)) == ZX_STATUS_SUCCESS &&
           zx_file_read_int32(file.get(), &signed_size, 1) == ZX_STATUS_SUCCESS) {
        const uint32_t size = static_cast<uint32_t>(signed_size);
        if (std::memcmp(name, "data", 4) == 0) return false;
        if (std::memcmp(name, "fact", 4) == 0 && size < 4) return true;
        if (fseeko(file.get(), off_t{size} + (size & 1), SEEK_CUR) != 0) return false;
    }
    return false;
}

}  // namespace

zx_status_t zx_container_wav_init(const char *path, void **object) {
    ZX_ASSERT(path);
    ZX_ASSERT(object);
    *object = nullptr;
    if (has_short_fact_chunk(path)) return ZX_STATUS_INVALID_ARGUMENT;
    zx_owned<container_wav_t, zx_container_wav_delete> o(zx_heap_zeroed<container_wav_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->wav = zx_heap_zeroed<drwav>();
    if (!o->wav) return ZX_STATUS_OUT_OF_MEMORY;
    if (!zx_file_open_by(
            path, [&](const char *name) { return drwav_init_file(o->wav, name, nullptr); },
            [&](const wchar_t *name) { return drwav_init_file_w(o->wav, name, nullptr); })) {
        std::free(std::exchange(o->wav, nullptr));  // closed already: dr_wav must not be asked to do it again
        return ZX_STATUS_INVALID_ARGUMENT;
    }
    if (o->wav->translatedFormatTag == DR_WAVE_FORMAT_ADPCM) {
        o->own_read = std::exchange(o->wav->onRead, read_adpcm);
    }
    if (o->wav->totalPCMFrameCount == 0) return ZX_STATUS_INVALID_ARGUMENT;
    const zx_status_t status = zx_audio_util_stereo_buffer_init(o->wav->channels, &o->stereo_buffer);
    if (status != ZX_STATUS_SUCCESS) return status;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_container_wav_delete(void *object) {
    if (!object) return;
    container_wav_t *o = static_cast<container_wav_t *>(object);
    std::free(o->stereo_buffer);
    if (o->wav) {
        if (o->own_read) o->wav->onRead = o->own_read;  // by which dr_wav knows that the file is its to close
        drwav_uninit(o->wav);
    }
    std::free(o->wav);
    std::free(o);
}

int32_t zx_container_wav_num_samples(const void *object) {
    return zx_audio_util_count(get(object)->wav->totalPCMFrameCount);
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
    return zx_audio_util_read_mono(num_samples, pcm, o->stereo_buffer, [o](uint64_t count, int16_t *output) {
        return drwav_read_pcm_frames_s16(o->wav, count, output);
    });
}
