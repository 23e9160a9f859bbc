// SPDX-License-Identifier: Apache-2.0
// Ogg Vorbis files, through libogg and libvorbis; one or two channels.
#ifndef ZX_CODEC_VORBIS_H
#define ZX_CODEC_VORBIS_H

#include <ogg/ogg.h>
#include <vorbis/codec.h>

#include <cstdint>

#include "zx_base.h"

inline constexpr int32_t ZX_CODEC_VORBIS_MAX_FRAMES = 8192;  // per packet: the longest block

// The operations of zx_audio_adapter_t (zx_audio_file.h). init decodes the whole file once to count its
// samples. ZX_STATUS_IO_ERROR: the file cannot be opened; ZX_STATUS_INVALID_ARGUMENT: more than two channels,
// packets that are not the three headers where these belong, no audio; ZX_STATUS_INVALID_STATE: damaged
// headers or packets, or a file that ends within its headers; ZX_STATUS_OUT_OF_MEMORY.
[[nodiscard]] zx_status_t zx_codec_vorbis_init(const char *path, void **object);
void zx_codec_vorbis_delete(void *object);
int32_t zx_codec_vorbis_num_samples(const void *object);
int32_t zx_codec_vorbis_num_channels(const void *object);
int32_t zx_codec_vorbis_sample_rate(const void *object);
[[nodiscard]] zx_status_t zx_codec_vorbis_read(void *object, int32_t num_samples, int16_t *pcm);

// Back to the start of the file, with synthesis restarted.
[[nodiscard]] zx_status_t zx_codec_vorbis_reset(void *object);

// The records of libvorbis that one decoder needs.
struct zx_codec_vorbis_state_t {
    vorbis_info info;
    vorbis_comment comment;
    vorbis_dsp_state dsp;
    vorbis_block block;
};

// Makes the records ready for headers; zx_codec_vorbis_state_clear releases what they hold, also when all are
// zeros.
void zx_codec_vorbis_state_init(zx_codec_vorbis_state_t *state);
void zx_codec_vorbis_state_clear(zx_codec_vorbis_state_t *state);

// Ends the headers and begins with audio. ZX_STATUS_INVALID_STATE.
[[nodiscard]] zx_status_t zx_codec_vorbis_start_synthesis(zx_codec_vorbis_state_t *state);

// Adds the number of samples that decoding a packet would give, without decoding it, to *num_samples.
// ZX_STATUS_INVALID_STATE for a packet that cannot be decoded.
[[nodiscard]] zx_status_t zx_codec_vorbis_count_packet(zx_codec_vorbis_state_t *state, ogg_packet *packet,
                                                       uint64_t *num_samples);

// Decodes one packet and down-mixes it to `pcm` (room for 8192 samples): round(32767 x) with saturation.
// ZX_STATUS_INVALID_STATE.
[[nodiscard]] zx_status_t zx_codec_vorbis_read_packet(zx_codec_vorbis_state_t *state, ogg_packet *packet,
                                                      int16_t *pcm, int32_t *num_samples);

#endif
