// SPDX-License-Identifier: Apache-2.0
#include "zx_codec_aac.h"

#include <fdk-aac/aacdecoder_lib.h>
#if PARLEY_LOAD_AAC
#include <dlfcn.h>
#endif

#include <algorithm>
#include <memory>

#include "zx_assert.h"
#include "zx_audio_util.h"
#include "zx_container_isobmff.h"
#include "zx_heap.h"

static_assert(sizeof(INT_PCM) == sizeof(int16_t), "FDK-AAC is built for 16-bit output");

namespace {

constexpr int32_t INPUT_SIZE = 8192;   // bytes of the largest access unit
constexpr int32_t OUTPUT_SIZE = 8192;  // samples of all channels of the longest frame
constexpr int32_t MAX_FRAME = 1024;    // samples that one call gives

// The functions of FDK-AAC that are used here. PARLEY_LOAD_AAC looks for the library when the first file
// asks for it, for distributions that may not demand it: its licence is not free.
struct fdk_aac_t {
    decltype(&aacDecoder_Open) open;
    decltype(&aacDecoder_Close) close;
    decltype(&aacDecoder_ConfigRaw) configure;
    decltype(&aacDecoder_GetStreamInfo) get_stream_info;
    decltype(&aacDecoder_Fill) fill;
    decltype(&aacDecoder_DecodeFrame) decode_frame;
};

#if PARLEY_LOAD_AAC

template <class Function>
bool find(void *library, const char *name, Function *function) {
    *function = reinterpret_cast<Function>(dlsym(library, name));
    return *function != nullptr;
}

fdk_aac_t load_fdk_aac() {
    fdk_aac_t f = {};
    void *library = dlopen("libfdk-aac.so.2", RTLD_NOW | RTLD_LOCAL);
    const bool is_whole =
        library && find(library, "aacDecoder_Open", &f.open) && find(library, "aacDecoder_Close", &f.close) &&
        find(library, "aacDecoder_ConfigRaw", &f.configure) &&
        find(library, "aacDecoder_GetStreamInfo", &f.get_stream_info) &&
        find(library, "aacDecoder_Fill", &f.fill) && find(library, "aacDecoder_DecodeFrame", &f.decode_frame);
    return is_whole ? f : fdk_aac_t{};
}

const fdk_aac_t &fdk_aac() {
    static const fdk_aac_t loaded = load_fdk_aac();
    return loaded;
}

#else

constexpr fdk_aac_t LINKED = {aacDecoder_Open,          aacDecoder_Close, aacDecoder_ConfigRaw,
                              aacDecoder_GetStreamInfo, aacDecoder_Fill,  aacDecoder_DecodeFrame};

const fdk_aac_t &fdk_aac() {
    return LINKED;
}

#endif

struct codec_aac_t {
    bool is_configured;
    HANDLE_AACDECODER decoder;
    const CStreamInfo *stream_info;  // the decoder's own; up to date after each frame
    uint8_t *input_buffer;
    uint32_t bytes_valid;
    int16_t leftover[MAX_FRAME];  // mono samples of the last frame that did not fit
    int32_t leftover_count;
    int16_t output[OUTPUT_SIZE];
};

// Mono samples from `count` decoded frames.
void fold(int16_t *mono, const int16_t *decoded, int32_t num_channels, int32_t count) {
    if (num_channels == 2) {
        zx_audio_util_stereo_to_mono_interleaved(mono, decoded, count);
    } else {
        std::copy_n(decoded, count, mono);
    }
}

}  // namespace

bool zx_codec_aac_is_available() {
    return fdk_aac().open != nullptr;
}

zx_status_t zx_codec_aac_init(void **object, const uint8_t *decoder_specific_info,
                              int32_t decoder_specific_info_length) {
    ZX_ASSERT(object);
    ZX_ASSERT(decoder_specific_info_length >= 0);
    *object = nullptr;
    zx_owned<codec_aac_t, zx_codec_aac_delete> o(zx_heap_zeroed<codec_aac_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->decoder = fdk_aac().open(TT_MP4_RAW, 1);
    if (!o->decoder) return ZX_STATUS_INVALID_ARGUMENT;
    o->stream_info = fdk_aac().get_stream_info(o->decoder);
    if (!o->stream_info) return ZX_STATUS_INVALID_ARGUMENT;
    if (decoder_specific_info && decoder_specific_info_length > 0) {
        UCHAR *config = const_cast<UCHAR *>(decoder_specific_info);  // only read
        const UINT length = static_cast<UINT>(decoder_specific_info_length);
        if (fdk_aac().configure(o->decoder, &config, &length) != AAC_DEC_OK)
            return ZX_STATUS_INVALID_ARGUMENT;
        o->is_configured = true;
    }
    o->input_buffer = zx_heap_zeroed<uint8_t>(INPUT_SIZE);
    if (!o->input_buffer) return ZX_STATUS_OUT_OF_MEMORY;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_codec_aac_delete(void *object) {
    if (!object) return;
    codec_aac_t *o = static_cast<codec_aac_t *>(object);
    if (o->decoder) fdk_aac().close(o->decoder);
    std::free(o->input_buffer);
    std::free(o);
}

zx_status_t zx_codec_aac_decoder_fill(void *object, zx_container_isobmff_t *isobmff_object) {
    ZX_ASSERT(object);
    ZX_ASSERT(isobmff_object);
    codec_aac_t *o = static_cast<codec_aac_t *>(object);
    UINT count = 0;
    const zx_status_t status =
        zx_container_isobmff_read_file_packet(isobmff_object, o->input_buffer, INPUT_SIZE, &count);
    if (status != ZX_STATUS_SUCCESS) return status;
    o->bytes_valid = count;
    return fdk_aac().fill(o->decoder, &o->input_buffer, &count, &o->bytes_valid) == AAC_DEC_OK
               ? ZX_STATUS_SUCCESS
               : ZX_STATUS_INVALID_ARGUMENT;
}

zx_status_t zx_codec_aac_decode_frame(void *object, zx_container_isobmff_t *isobmff_object, int16_t *dest,
                                      uint32_t *samples_written) {
    ZX_ASSERT(object);
    ZX_ASSERT(isobmff_object);
    ZX_ASSERT(dest);
    ZX_ASSERT(samples_written);
    codec_aac_t *o = static_cast<codec_aac_t *>(object);
    *samples_written = 0;
    if (!o->is_configured) return ZX_STATUS_INVALID_ARGUMENT;
    if (o->leftover_count > 0) {
        std::copy_n(o->leftover, o->leftover_count, dest);
        *samples_written = static_cast<uint32_t>(o->leftover_count);
        o->leftover_count = 0;
        return ZX_STATUS_SUCCESS;
    }

    std::fill_n(o->output, OUTPUT_SIZE, int16_t{0});
    AAC_DECODER_ERROR error;
    do {
        const zx_status_t status = zx_codec_aac_decoder_fill(o, isobmff_object);
        if (status != ZX_STATUS_SUCCESS) return status;
        error = fdk_aac().decode_frame(o->decoder, o->output, OUTPUT_SIZE, 0);
    } while (error == AAC_DEC_NOT_ENOUGH_BITS);
    const int32_t num_channels = o->stream_info->numChannels;
    if (error != AAC_DEC_OK || num_channels < 1 || num_channels > 2) return ZX_STATUS_INVALID_ARGUMENT;

    // With spectral band replication a frame is twice as long as its core: the second half waits for the next
    // call. Other ratios do not occur in what is supported, and must not be believed.
    const int32_t count = o->stream_info->aacSamplesPerFrame;
    const int32_t rest = o->stream_info->frameSize - count;
    if (count < 0 || count > MAX_FRAME || rest < 0 || rest > MAX_FRAME) return ZX_STATUS_INVALID_ARGUMENT;
    fold(dest, o->output, num_channels, count);
    fold(o->leftover, o->output + count * num_channels, num_channels, rest);
    o->leftover_count = rest;
    *samples_written = static_cast<uint32_t>(count);
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_codec_aac_num_samples(void *object, zx_container_isobmff_t *isobmff_object,
                                     uint64_t *num_samples) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_samples);
    int16_t scratch[MAX_FRAME];
    uint64_t total = 0;
    while (!zx_container_isobmff_is_end_of_samples(isobmff_object)) {
        uint32_t count = 0;
        const zx_status_t status = zx_codec_aac_decode_frame(object, isobmff_object, scratch, &count);
        if (status != ZX_STATUS_SUCCESS) return status;
        total += count;
    }
    *num_samples = total;
    return ZX_STATUS_SUCCESS;
}

int32_t zx_codec_aac_max_synth_framesize() {
    return MAX_FRAME;
}
