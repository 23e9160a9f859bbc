// SPDX-License-Identifier: Apache-2.0
// FLAC files, through dr_flac; one or two channels.
#ifndef ZX_CODEC_FLAC_H
#define ZX_CODEC_FLAC_H

#include <cstdint>

#include "zx_base.h"

// The operations of zx_audio_adapter_t (zx_audio_file.h). init: ZX_STATUS_INVALID_ARGUMENT for a file that
// dr_flac cannot open or with more than two channels; ZX_STATUS_OUT_OF_MEMORY. A file that does not say how
// long it is has 0 samples.
[[nodiscard]] zx_status_t zx_codec_flac_init(const char *path, void **object);
void zx_codec_flac_delete(void *object);
int32_t zx_codec_flac_num_samples(const void *object);
int32_t zx_codec_flac_num_channels(const void *object);
int32_t zx_codec_flac_sample_rate(const void *object);
[[nodiscard]] zx_status_t zx_codec_flac_read(void *object, int32_t num_samples, int16_t *pcm);

#endif
