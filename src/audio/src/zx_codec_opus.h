// SPDX-License-Identifier: Apache-2.0
// Ogg Opus files, through libogg and libopus; one or two channels.
//
// Audio comes at the rate that the file's header names as that of the original recording, and all of it: the
// encoder's lead-in (pre-skip) is not cut off, so times lie its few milliseconds late. Opus decodes at 8, 12,
// 16, 24 and 48 kHz; files that name another rate are refused.
#ifndef ZX_CODEC_OPUS_H
#define ZX_CODEC_OPUS_H

#include <ogg/ogg.h>
#include <opus/opus.h>

#include <cstdint>

#include "zx_base.h"

inline constexpr int32_t ZX_CODEC_OPUS_MAX_FRAMES = 5760;  // per packet: 120 ms at 48 kHz

// The operations of zx_audio_adapter_t (zx_audio_file.h). init goes through the whole file once to count its
// samples. ZX_STATUS_IO_ERROR: the file cannot be opened; ZX_STATUS_INVALID_ARGUMENT: more than two channels,
// a cut header, no audio; ZX_STATUS_INVALID_STATE: a rate that Opus does not know, a damaged packet;
// ZX_STATUS_OUT_OF_MEMORY.
[[nodiscard]] zx_status_t zx_codec_opus_init(const char *path, void **object);
void zx_codec_opus_delete(void *object);
int32_t zx_codec_opus_num_samples(const void *object);
int32_t zx_codec_opus_num_channels(const void *object);
int32_t zx_codec_opus_sample_rate(const void *object);
[[nodiscard]] zx_status_t zx_codec_opus_read(void *object, int32_t num_samples, int16_t *pcm);

// Back to the start of the file, with a fresh decoder.
[[nodiscard]] zx_status_t zx_codec_opus_reset(void *object);

// Replaces *decoder by a new one. ZX_STATUS_INVALID_STATE, with a debug line, when libopus refuses; *decoder
// is null then.
[[nodiscard]] zx_status_t zx_codec_opus_decoder_init(uint32_t sample_rate, uint32_t num_channels,
                                                     OpusDecoder **decoder);

// Adds the number of frames that decoding a packet would give with room for max_frames, without decoding it,
// to *num_samples. ZX_STATUS_INVALID_STATE, with a debug line, for a packet that cannot be decoded.
[[nodiscard]] zx_status_t zx_codec_opus_count_packet(const ogg_packet *packet, uint32_t sample_rate,
                                                     int32_t max_frames, uint64_t *num_samples);

// Decodes one packet into `decode_buffer` (5760 frames of one or two channels) and down-mixes it to `pcm`;
// *num_samples receives the number of samples. ZX_STATUS_IO_ERROR, with a debug line, for a damaged packet.
[[nodiscard]] zx_status_t zx_codec_opus_read_packet(OpusDecoder *decoder, const ogg_packet *packet,
                                                    uint32_t num_channels, int16_t *decode_buffer,
                                                    int16_t *pcm, int32_t *num_samples);

// Writes the debug line for a negative result of libopus.
void zx_codec_opus_log_failure(int error);

#endif
