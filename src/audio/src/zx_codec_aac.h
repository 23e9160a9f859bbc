// SPDX-License-Identifier: Apache-2.0
// AAC access units of an MP4 track to mono samples, through FDK-AAC; one or two channels.
#ifndef ZX_CODEC_AAC_H
#define ZX_CODEC_AAC_H

#include <cstdint>

#include "zx_base.h"

struct zx_container_isobmff_t;

// Whether FDK-AAC is there; always, unless it is loaded at run time (PARLEY_LOAD_AAC).
bool zx_codec_aac_is_available();

// Creates a decoder from the track's AudioSpecificConfig (`decoder_specific_info_length` >= 0 bytes). Without
// one it stays unconfigured and refuses to decode. ZX_STATUS_INVALID_ARGUMENT: FDK-AAC does not accept it;
// ZX_STATUS_OUT_OF_MEMORY. On failure *object is null.
[[nodiscard]] zx_status_t zx_codec_aac_init(void **object, const uint8_t *decoder_specific_info,
                                            int32_t decoder_specific_info_length);

// Releases the decoder; null is accepted.
void zx_codec_aac_delete(void *object);

// Hands the track's next access unit to the decoder. ZX_STATUS_INVALID_ARGUMENT: none is left, it is larger
// than 8192 bytes, or the decoder refuses it; or the reader's status.
[[nodiscard]] zx_status_t zx_codec_aac_decoder_fill(void *object, zx_container_isobmff_t *isobmff_object);

// Decodes up to 1024 samples into `dest`: what the last call held back, or the next access unit.
// ZX_STATUS_INVALID_ARGUMENT: unconfigured, a damaged unit, more than two channels; or what filling gives.
[[nodiscard]] zx_status_t zx_codec_aac_decode_frame(void *object, zx_container_isobmff_t *isobmff_object,
                                                    int16_t *dest, uint32_t *samples_written);

// Decodes all access units and adds up their samples. What is held back after the last one is not counted,
// and is delivered by the next call of decode_frame.
[[nodiscard]] zx_status_t zx_codec_aac_num_samples(void *object, zx_container_isobmff_t *isobmff_object,
                                                   uint64_t *num_samples);

// The most samples that decode_frame gives: 1024.
int32_t zx_codec_aac_max_synth_framesize();

#endif
