// SPDX-License-Identifier: Apache-2.0
// The audio file reader: any supported file as signed 16-bit mono samples at the engine's rate. It finds the
// format from the first 35 bytes (never from the name), opens the adapter of that format, and puts a
// resampler behind it when the file's rate is another. Adapters deliver mono. A reader is read forwards only,
// by one thread at a time.
//
//   file -> adapter (container, codec, down-mix) -> resampler -> samples
#ifndef ZX_AUDIO_FILE_H
#define ZX_AUDIO_FILE_H

#include <cstdint>

#include "zx_base.h"
#include "zx_progress.h"
#include "zx_resampler.h"

using zx_audio_format_t = int32_t;
enum : zx_audio_format_t {
    ZX_AUDIO_FORMAT_UNKNOWN = 0,
    ZX_AUDIO_FORMAT_FLAC = 1,
    ZX_AUDIO_FORMAT_ISOBMFF = 2,  // MP4, M4A, 3GP
    ZX_AUDIO_FORMAT_MP3 = 3,
    ZX_AUDIO_FORMAT_OPUS = 4,    // in Ogg
    ZX_AUDIO_FORMAT_VORBIS = 5,  // in Ogg
    ZX_AUDIO_FORMAT_WAV = 6,
    ZX_AUDIO_FORMAT_WEBM = 7,
};

// One format's operations. Each adapter also has an init(path, out object), which asserts both, leaves
// nothing allocated and a null object on failure, and otherwise hands out the object that these take.
struct zx_audio_adapter_t {
    void *object;
    void (*delete_fn)(void *object);                 // null is accepted
    int32_t (*num_samples_fn)(const void *object);   // mono samples at the file's own rate
    int32_t (*num_channels_fn)(const void *object);  // of the source
    int32_t (*sample_rate_fn)(const void *object);   // Hz
    // Writes exactly num_samples > 0 mono samples, continuing where the last read stopped. ZX_STATUS_IO_ERROR
    // when the source has fewer; some may be in `pcm` then.
    zx_status_t (*read_fn)(void *object, int32_t num_samples, int16_t *pcm);
};

struct zx_audio_file_t {
    zx_audio_format_t audio_format;
    zx_audio_adapter_t adapter;
    int16_t *resample_buffer;   // 1024 samples; null without a resampler
    zx_resampler_t *resampler;  // null when the file's rate is the engine's
    int32_t num_samples_left;   // outputs still promised; counted only while resampling
};

// Opens a file. ZX_STATUS_IO_ERROR: it cannot be opened or has fewer than 35 bytes;
// ZX_STATUS_INVALID_ARGUMENT: no supported format, no samples, or a rate that cannot be converted;
// ZX_STATUS_OUT_OF_MEMORY; or the adapter's status. On failure *object is null. The caller owns *object.
[[nodiscard]] zx_status_t zx_audio_file_init(const char *path, zx_audio_file_t **object);

// Closes the file and releases the reader; null is accepted.
void zx_audio_file_delete(zx_audio_file_t *object);

// The format of a file, ZX_AUDIO_FORMAT_UNKNOWN included. ZX_STATUS_IO_ERROR as for zx_audio_file_init.
[[nodiscard]] zx_status_t zx_audio_file_get_format(const char *path, zx_audio_format_t *audio_format);

// The number of samples at the engine's rate, at least 1: an estimate near the end of a resampled file.
int32_t zx_audio_file_num_samples(const zx_audio_file_t *object);

// The number of mono samples at the file's own rate, and that rate in Hz.
int32_t zx_audio_file_num_original_samples(const zx_audio_file_t *object);
int32_t zx_audio_file_sample_rate(const zx_audio_file_t *object);

// How long the audio takes by the container's own account, in seconds, which need not be what is decoded; 0
// for formats without one.
double zx_audio_file_media_seconds(const zx_audio_file_t *object);

// Reads num_samples > 0 samples at the engine's rate. `pcm` needs room for one more, which resampling can
// write. When the source ends with at most 1024 promised outputs missing, they keep what `pcm` held and the
// read succeeds; ZX_STATUS_IO_ERROR when more are missing; ZX_STATUS_STOP_ITERATION if `progress` asks to
// stop; or the adapter's status.
[[nodiscard]] zx_status_t zx_audio_file_read(zx_audio_file_t *object, int32_t num_samples, int16_t *pcm,
                                             const zx_progress_t *progress = nullptr);

// The next of num_samples > 0 samples that remain of a whole that is wanted, at most
// ZX_AUDIO_FILE_MOST_OF_SOME of them: one after the other they are what one read of the whole gives.
// (Several reads of parts of it are not: where resampling is cut off, it rounds otherwise.) *num_read can
// be 0, or one more than remain; it is negative when the rest is not there and counts as read.
inline constexpr int32_t ZX_AUDIO_FILE_MOST_OF_SOME = 2049;
[[nodiscard]] zx_status_t zx_audio_file_read_some(zx_audio_file_t *object, int32_t num_samples, int16_t *pcm,
                                                  int32_t *num_read);

#endif
