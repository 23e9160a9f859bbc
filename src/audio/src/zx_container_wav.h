// SPDX-License-Identifier: Apache-2.0
// WAV files, through dr_wav: integer PCM, IEEE float, A-law, mu-law, Microsoft and IMA ADPCM; one or two
// channels.
#ifndef ZX_CONTAINER_WAV_H
#define ZX_CONTAINER_WAV_H

#include <cstdint>

#include "zx_base.h"

// The operations of zx_audio_adapter_t (zx_audio_file.h). init: ZX_STATUS_INVALID_ARGUMENT for a file that
// dr_wav cannot open, without frames, or with more than two channels; ZX_STATUS_OUT_OF_MEMORY.
[[nodiscard]] zx_status_t zx_container_wav_init(const char *path, void **object);
void zx_container_wav_delete(void *object);
int32_t zx_container_wav_num_samples(const void *object);
int32_t zx_container_wav_num_channels(const void *object);
int32_t zx_container_wav_sample_rate(const void *object);
[[nodiscard]] zx_status_t zx_container_wav_read(void *object, int32_t num_samples, int16_t *pcm);

#endif
