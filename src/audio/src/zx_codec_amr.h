// SPDX-License-Identifier: Apache-2.0
// AMR-NB frames of a 3GP track to samples, through opencore-amr. A frame is a table-of-contents byte (frame
// type, quality bit) and its packed bits, 20 ms of mono at 8 kHz; frames lie back to back in the track.
#ifndef ZX_CODEC_AMR_H
#define ZX_CODEC_AMR_H

#include <cstdint>

#include "zx_base.h"

struct zx_container_isobmff_t;

// Creates a decoder in its homed (initial) state. ZX_STATUS_RUNTIME_ERROR: opencore-amr gives none;
// ZX_STATUS_OUT_OF_MEMORY. On failure *object is null.
[[nodiscard]] zx_status_t zx_codec_amr_init(void **object);

// Releases the decoder; null is accepted.
void zx_codec_amr_delete(void *object);

// Decodes the track's next frame, 160 samples, into `dest`. Fails as reading the track does, and with
// ZX_STATUS_OUT_OF_MEMORY.
[[nodiscard]] zx_status_t zx_codec_amr_decode_frame(void *object, zx_container_isobmff_t *isobmff_object,
                                                    int16_t *dest, uint32_t *samples_written);

// The number of samples of a track of track_length_bytes > 0: (bytes / 32) 160. It takes every frame for one
// of 12.2 kbit/s with its table-of-contents byte; audio at lower rates ends early.
void zx_codec_amr_num_samples(int32_t track_length_bytes, uint64_t *num_samples);

// The number of samples that decode_frame gives: 160.
int32_t zx_codec_amr_max_synth_framesize();

// Quality bit and frame type of a table-of-contents byte.
constexpr uint32_t q_from_toc(uint8_t toc) {
    return (toc >> 2) & 1u;
}
constexpr uint32_t ft_from_toc(uint8_t toc) {
    return (toc >> 3) & 0x0Fu;
}

#endif
