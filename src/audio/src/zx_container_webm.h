// SPDX-License-Identifier: Apache-2.0
// WebM files with Opus or Vorbis, through nestegg and the packet decoders of zx_codec_opus and
// zx_codec_vorbis; one or two channels. The first audio track in one of the two codecs is read.
#ifndef ZX_CONTAINER_WEBM_H
#define ZX_CONTAINER_WEBM_H

#include <cstddef>
#include <cstdint>

#include "zx_base.h"

// The operations of zx_audio_adapter_t (zx_audio_file.h). init decodes the whole track once to count its
// samples. ZX_STATUS_IO_ERROR: the file cannot be opened; ZX_STATUS_INVALID_ARGUMENT: no such track, more
// than two channels, a Vorbis track without its three headers, no audio; ZX_STATUS_INVALID_STATE: what
// nestegg, libopus or libvorbis refuse; ZX_STATUS_OUT_OF_MEMORY.
[[nodiscard]] zx_status_t zx_container_webm_init(const char *path, void **object);
void zx_container_webm_delete(void *object);
int32_t zx_container_webm_num_samples(const void *object);
int32_t zx_container_webm_num_channels(const void *object);
int32_t zx_container_webm_sample_rate(const void *object);
[[nodiscard]] zx_status_t zx_container_webm_read(void *object, int32_t num_samples, int16_t *pcm);

// Back to the start of the file, with a fresh decoder.
[[nodiscard]] zx_status_t zx_container_webm_reset(void *object);

// What nestegg reads through; `userdata` is the object. read: 1 when all bytes were read, 0 at the end of the
// file, -1 on error. seek: whence 0, 1, 2 as for fseek.
int zx_container_webm_neio_read(void *buffer, size_t length, void *userdata);
int zx_container_webm_neio_seek(int64_t offset, int whence, void *userdata);
int64_t zx_container_webm_neio_tell(void *userdata);

#endif
