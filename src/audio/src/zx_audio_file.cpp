// SPDX-License-Identifier: Apache-2.0
#include "zx_audio_file.h"

#include <cstring>
#include <memory>

#include "zx_assert.h"
#include "zx_codec_flac.h"
#include "zx_codec_mp3.h"
#if PARLEY_WITH_OPUS
#include "zx_codec_opus.h"
#endif
#if PARLEY_WITH_VORBIS
#include "zx_codec_vorbis.h"
#endif
#include "zx_audio_util.h"
#include "zx_container_isobmff.h"
#include "zx_container_wav.h"
#include "zx_container_webm.h"
#include "zx_file.h"
#include "zx_heap.h"
#include "zx_math.h"

namespace {

constexpr size_t HEADER_LENGTH = 35;              // bytes that detection looks at
constexpr int32_t RESAMPLE_BUFFER_LENGTH = 1024;  // samples
constexpr int32_t SAMPLES_A_REPORT = 1 << 18;     // 16 s
constexpr int32_t FILTER_ORDER = 50;

struct format_entry {
    zx_audio_format_t format;
    zx_status_t (*init_fn)(const char *path, void **object);
    zx_audio_adapter_t adapter;  // with a null object
};

constexpr format_entry FORMATS[] = {
    {ZX_AUDIO_FORMAT_ISOBMFF,
     zx_container_isobmff_init,
     {nullptr, zx_container_isobmff_delete, zx_container_isobmff_num_samples,
      zx_container_isobmff_num_channels, zx_container_isobmff_sample_rate, zx_container_isobmff_read}},
    {ZX_AUDIO_FORMAT_WAV,
     zx_container_wav_init,
     {nullptr, zx_container_wav_delete, zx_container_wav_num_samples, zx_container_wav_num_channels,
      zx_container_wav_sample_rate, zx_container_wav_read}},
#if PARLEY_WITH_FLAC
    {ZX_AUDIO_FORMAT_FLAC,
     zx_codec_flac_init,
     {nullptr, zx_codec_flac_delete, zx_codec_flac_num_samples, zx_codec_flac_num_channels,
      zx_codec_flac_sample_rate, zx_codec_flac_read}},
#endif
#if PARLEY_WITH_MP3
    {ZX_AUDIO_FORMAT_MP3,
     zx_codec_mp3_init,
     {nullptr, zx_codec_mp3_delete, zx_codec_mp3_num_samples, zx_codec_mp3_num_channels,
      zx_codec_mp3_sample_rate, zx_codec_mp3_read}},
#endif
#if PARLEY_WITH_OPUS
    {ZX_AUDIO_FORMAT_OPUS,
     zx_codec_opus_init,
     {nullptr, zx_codec_opus_delete, zx_codec_opus_num_samples, zx_codec_opus_num_channels,
      zx_codec_opus_sample_rate, zx_codec_opus_read}},
#endif
#if PARLEY_WITH_VORBIS
    {ZX_AUDIO_FORMAT_VORBIS,
     zx_codec_vorbis_init,
     {nullptr, zx_codec_vorbis_delete, zx_codec_vorbis_num_samples, zx_codec_vorbis_num_channels,
      zx_codec_vorbis_sample_rate, zx_codec_vorbis_read}},
#endif
#if PARLEY_WITH_WEBM
    {ZX_AUDIO_FORMAT_WEBM,
     zx_container_webm_init,
     {nullptr, zx_container_webm_delete, zx_container_webm_num_samples, zx_container_webm_num_channels,
      zx_container_webm_sample_rate, zx_container_webm_read}},
#endif
};

// The build options of the formats that can be left out.
struct format_option {
    zx_audio_format_t format;
    const char *name;
};
constexpr format_option OPTIONS[] = {
    {ZX_AUDIO_FORMAT_FLAC, "PARLEY_WITH_FLAC"}, {ZX_AUDIO_FORMAT_MP3, "PARLEY_WITH_MP3"},
    {ZX_AUDIO_FORMAT_OPUS, "PARLEY_WITH_OPUS"}, {ZX_AUDIO_FORMAT_VORBIS, "PARLEY_WITH_VORBIS"},
    {ZX_AUDIO_FORMAT_WEBM, "PARLEY_WITH_WEBM"},
};

const format_entry *find_format(zx_audio_format_t format) {
    for (const format_entry &entry : FORMATS) {
        if (entry.format == format) return &entry;
    }
    return nullptr;
}

}  // namespace

zx_status_t zx_audio_file_get_format(const char *path, zx_audio_format_t *audio_format) {
    ZX_ASSERT(path);
    ZX_ASSERT(audio_format);
    *audio_format = ZX_AUDIO_FORMAT_UNKNOWN;
    unsigned char header[HEADER_LENGTH];
    {
        const zx_file_ptr file(zx_fopen(path, "rb"));
        if (!file || std::fread(header, 1, HEADER_LENGTH, file.get()) != HEADER_LENGTH)
            return ZX_STATUS_IO_ERROR;
    }
    const auto has = [&header](size_t offset, const char *text) {
        return std::memcmp(header + offset, text, std::strlen(text)) == 0;
    };
    // In Ogg the first packet starts at byte 28, behind a page header with one lacing value: "OpusHead", or
    // the packet type 1 and "vorbis". In EBML the document type usually stands at byte 24.
    if (has(0, "ID3") || (header[0] == 0xFF && header[1] >= 0xF3)) {
        *audio_format = ZX_AUDIO_FORMAT_MP3;
    } else if (has(0, "fLaC")) {
        *audio_format = ZX_AUDIO_FORMAT_FLAC;
    } else if (has(0, "RIFF")) {
        *audio_format = ZX_AUDIO_FORMAT_WAV;
    } else if (has(0, "OggS") && has(28, "Opus")) {
        *audio_format = ZX_AUDIO_FORMAT_OPUS;
    } else if (has(0, "OggS") && has(29, "vorbis")) {
        *audio_format = ZX_AUDIO_FORMAT_VORBIS;
    } else if (has(0, "\x1A\x45\xDF\xA3") && has(24, "webm")) {
        *audio_format = ZX_AUDIO_FORMAT_WEBM;
    } else if (zx_container_isobmff_is_compatible_file(path)) {
        *audio_format = ZX_AUDIO_FORMAT_ISOBMFF;
    }
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_audio_file_init(const char *path, zx_audio_file_t **object) {
    ZX_ASSERT(path);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<zx_audio_file_t, zx_audio_file_delete> o(zx_heap_zeroed<zx_audio_file_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    zx_status_t status = zx_audio_file_get_format(path, &o->audio_format);
    if (status != ZX_STATUS_SUCCESS) return status;
    const format_entry *format = find_format(o->audio_format);
    if (!format) {
        for (const format_option &option : OPTIONS) {
            if (option.format == o->audio_format) return zx_audio_util_refuse_left_out(option.name);
        }
        return ZX_STATUS_INVALID_ARGUMENT;
    }
    o->adapter = format->adapter;
    status = format->init_fn(path, &o->adapter.object);
    if (status != ZX_STATUS_SUCCESS) return status;

    // Files without samples, and rates and counts that do not fit 31 bits, are refused for every format
    // alike.
    const int32_t rate = zx_audio_file_sample_rate(o.get());
    if (rate < 1 || zx_audio_file_num_original_samples(o.get()) < 1) return ZX_STATUS_INVALID_ARGUMENT;
    if (rate != zx_sample_rate()) {
        status = zx_resampler_init(rate, zx_sample_rate(), FILTER_ORDER, &o->resampler);
        if (status != ZX_STATUS_SUCCESS) return status;
        o->resample_buffer = zx_heap_zeroed<int16_t>(RESAMPLE_BUFFER_LENGTH);
        if (!o->resample_buffer) return ZX_STATUS_OUT_OF_MEMORY;
    }
    o->num_samples_left = zx_audio_file_num_samples(o.get());
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_audio_file_delete(zx_audio_file_t *object) {
    if (!object) return;
    if (object->adapter.object) object->adapter.delete_fn(object->adapter.object);
    zx_resampler_delete(object->resampler);
    std::free(object->resample_buffer);
    std::free(object);
}

int32_t zx_audio_file_num_samples(const zx_audio_file_t *object) {
    ZX_ASSERT(object);
    const int32_t num_samples = zx_audio_file_num_original_samples(object);
    if (!object->resampler) return num_samples;
    return zx_resampler_convert_num_samples_to_output_sample_rate(object->resampler, num_samples);
}

int32_t zx_audio_file_num_original_samples(const zx_audio_file_t *object) {
    ZX_ASSERT(object);
    return object->adapter.num_samples_fn(object->adapter.object);
}

int32_t zx_audio_file_sample_rate(const zx_audio_file_t *object) {
    ZX_ASSERT(object);
    return object->adapter.sample_rate_fn(object->adapter.object);
}

double zx_audio_file_media_seconds(const zx_audio_file_t *object) {
    ZX_ASSERT(object);
    if (!(PARLEY_WITH_AAC || PARLEY_WITH_AMR) || object->audio_format != ZX_AUDIO_FORMAT_ISOBMFF) return 0;
    return zx_container_isobmff_media_seconds(object->adapter.object);
}

zx_status_t zx_audio_file_read(zx_audio_file_t *object, int32_t num_samples, int16_t *pcm,
                               const zx_progress_t *progress) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_samples > 0);
    ZX_ASSERT(pcm);
    const int32_t total = num_samples;
    if (!object->resampler) {
        const zx_audio_adapter_t *adapter = &object->adapter;
        const int32_t piece = progress ? SAMPLES_A_REPORT : total;
        for (; num_samples > 0; num_samples -= piece, pcm += piece) {
            if (!zx_progress_report(progress, total - num_samples, total)) return ZX_STATUS_STOP_ITERATION;
            const zx_status_t status =
                adapter->read_fn(adapter->object, zx_min_int32(piece, num_samples), pcm);
            if (status != ZX_STATUS_SUCCESS || num_samples <= piece) return status;
        }
    }

    while (num_samples > 0) {
        if (!zx_progress_report(progress, total - num_samples, total)) return ZX_STATUS_STOP_ITERATION;
        int32_t num_read;
        const zx_status_t status = zx_audio_file_read_some(object, num_samples, pcm, &num_read);
        if (status != ZX_STATUS_SUCCESS || num_read < 0) return status;
        num_samples -= num_read;
        pcm += num_read;
    }
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_audio_file_read_some(zx_audio_file_t *object, int32_t num_samples, int16_t *pcm,
                                    int32_t *num_read) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_samples > 0);
    ZX_ASSERT(pcm);
    ZX_ASSERT(num_read);
    const zx_audio_adapter_t *adapter = &object->adapter;
    if (!object->resampler) {
        *num_read = zx_min_int32(num_samples, RESAMPLE_BUFFER_LENGTH);
        return adapter->read_fn(adapter->object, *num_read, pcm);
    }
    const int32_t num_inputs =
        zx_min_int32(zx_resampler_convert_num_samples_to_input_sample_rate(object->resampler, num_samples),
                     RESAMPLE_BUFFER_LENGTH);
    *num_read = -1;
    const zx_status_t status = adapter->read_fn(adapter->object, num_inputs, object->resample_buffer);
    if (status == ZX_STATUS_IO_ERROR && object->num_samples_left <= RESAMPLE_BUFFER_LENGTH) {
        return ZX_STATUS_SUCCESS;  // the promised count was an estimate
    }
    if (status != ZX_STATUS_SUCCESS) return status;
    *num_read = zx_resampler_process(object->resampler, object->resample_buffer, num_inputs, pcm);
    object->num_samples_left -= *num_read;
    return ZX_STATUS_SUCCESS;
}
