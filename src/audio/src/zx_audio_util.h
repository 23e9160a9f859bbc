// SPDX-License-Identifier: Apache-2.0
// Down-mixing of stereo to mono. Inside a reader, "samples" are mono samples and "frames" hold one sample per
// channel; a stereo frame becomes one mono sample.
#ifndef ZX_AUDIO_UTIL_H
#define ZX_AUDIO_UTIL_H

#include <algorithm>
#include <cstdint>

#include "zx_base.h"
#include "zx_heap.h"

// output[i] = (input[2 i] + input[2 i + 1]) / 2, truncated towards zero, for output_buffer_length >= 0
// frames.
void zx_audio_util_stereo_to_mono_interleaved(int16_t *output_buffer, const int16_t *input_buffer,
                                              int32_t output_buffer_length);

// output[i] = (l[i] + r[i]) / 2 in single precision, for output_buffer_length >= 0 frames.
void zx_audio_util_stereo_to_mono_lr_float(float *output_buffer, const float *l_buffer, const float *r_buffer,
                                           int32_t output_buffer_length);

inline constexpr int32_t ZX_AUDIO_STEREO_CHUNK = 1024;  // frames that are down-mixed at once

// A count of frames as the adapters give it. Counts that do not fit 31 bits become -1, which the reader
// refuses.
constexpr int32_t zx_audio_util_count(uint64_t num_frames) {
    return num_frames <= INT32_MAX ? static_cast<int32_t>(num_frames) : -1;
}

// Leaves a message that names the build option of a format that was left out, and returns
// ZX_STATUS_INVALID_ARGUMENT.
[[nodiscard]] zx_status_t zx_audio_util_refuse_left_out(const char *option);

// The same for a library that would be loaded at run time.
[[nodiscard]] zx_status_t zx_audio_util_refuse_missing(const char *what, const char *library,
                                                       const char *package);

// Gives *stereo_buffer room for one chunk of stereo, or leaves it null for mono. ZX_STATUS_INVALID_ARGUMENT
// for any other number of channels; ZX_STATUS_OUT_OF_MEMORY.
[[nodiscard]] zx_status_t zx_audio_util_stereo_buffer_init(uint32_t num_channels, int16_t **stereo_buffer);

// Reads num_samples > 0 mono samples from a source of interleaved frames, read_frames(count, output), which
// returns the number of frames delivered. Mono goes straight to `pcm`, stereo through the buffer of the
// function above. ZX_STATUS_IO_ERROR when the source has fewer.
template <class ReadFrames>
[[nodiscard]] zx_status_t zx_audio_util_read_mono(int32_t num_samples, int16_t *pcm, int16_t *stereo_buffer,
                                                  ReadFrames read_frames) {
    const auto read_all = [&read_frames](int32_t count, int16_t *output) {
        return read_frames(static_cast<uint64_t>(count), output) == static_cast<uint64_t>(count);
    };
    if (!stereo_buffer) return read_all(num_samples, pcm) ? ZX_STATUS_SUCCESS : ZX_STATUS_IO_ERROR;
    while (num_samples > 0) {
        const int32_t chunk = std::min(num_samples, ZX_AUDIO_STEREO_CHUNK);
        if (!read_all(chunk, stereo_buffer)) return ZX_STATUS_IO_ERROR;
        zx_audio_util_stereo_to_mono_interleaved(pcm, stereo_buffer, chunk);
        pcm += chunk;
        num_samples -= chunk;
    }
    return ZX_STATUS_SUCCESS;
}

// The mono samples of the packet that was decoded last, and how much of the whole has been handed out.
struct zx_packet_buffer_t {
    int16_t *pcm;          // owned by the decoder that embeds this
    int32_t position;      // of the next sample in pcm
    int32_t remaining;     // samples from there on
    uint64_t num_samples;  // of the whole source
    uint64_t delivered;
};

// Delivers num_samples > 0 samples, calling refill() whenever the buffer is empty; it puts the next packet's
// samples, possibly none, at the start of pcm and sets `remaining`. A request for more than is left of the
// source is ZX_STATUS_IO_ERROR and delivers nothing; a failing refill ends the call with its status.
template <class Refill>
[[nodiscard]] zx_status_t zx_packet_buffer_read(zx_packet_buffer_t *buffer, int32_t num_samples, int16_t *pcm,
                                                Refill refill) {
    if (static_cast<uint64_t>(num_samples) > buffer->num_samples - buffer->delivered)
        return ZX_STATUS_IO_ERROR;
    for (;;) {
        const int32_t count = std::min(num_samples, buffer->remaining);
        std::copy_n(buffer->pcm + buffer->position, count, pcm);
        pcm += count;
        num_samples -= count;
        buffer->position += count;
        buffer->remaining -= count;
        buffer->delivered += static_cast<uint64_t>(count);
        if (num_samples == 0) return ZX_STATUS_SUCCESS;
        buffer->position = 0;
        const zx_status_t status = refill();
        if (status != ZX_STATUS_SUCCESS) return status;
    }
}

#endif
