// SPDX-License-Identifier: Apache-2.0
// MP3 files, through dr_mp3; one or two channels.
#ifndef ZX_CODEC_MP3_H
#define ZX_CODEC_MP3_H

#include <cstdint>

#include "zx_base.h"

// The operations of zx_audio_adapter_t (zx_audio_file.h). init: ZX_STATUS_IO_ERROR for a file that dr_mp3
// cannot open; ZX_STATUS_INVALID_ARGUMENT for more than two channels or no audio; ZX_STATUS_OUT_OF_MEMORY. It
// decodes the whole file once to count its samples.
[[nodiscard]] zx_status_t zx_codec_mp3_init(const char *path, void **object);
void zx_codec_mp3_delete(void *object);
int32_t zx_codec_mp3_num_samples(const void *object);
int32_t zx_codec_mp3_num_channels(const void *object);
int32_t zx_codec_mp3_sample_rate(const void *object);
[[nodiscard]] zx_status_t zx_codec_mp3_read(void *object, int32_t num_samples, int16_t *pcm);

#endif
