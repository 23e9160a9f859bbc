// SPDX-License-Identifier: Apache-2.0
// Converts 16-bit mono audio from one sample rate to another: downwards by any ratio (windowed-sinc low-pass,
// then linear interpolation at fractional positions), upwards by exactly 2 (zero stuffing, then the same kind
// of filter).
//
// With N the filter order, the kernel has 2 N + 1 taps and delays the signal by N input samples (N / 2 when
// the rate is doubled). A call may be given any number of samples; a caller that reads in pieces feeds at
// most 1024.
#ifndef ZX_RESAMPLER_H
#define ZX_RESAMPLER_H

#include <cstdint>

#include "zx_base.h"

struct zx_resampler_t {
    int32_t output_frequency;  // Hz
    int32_t input_frequency;   // Hz
    void *object;              // the down- or upsampler, owned
    int32_t (*process_fn)(void *object, const int16_t *input_buffer, int32_t input_buffer_size,
                          int16_t *output_buffer);
    void (*reset_fn)(void *object);
    void (*delete_fn)(void *object);
    int32_t (*to_input_fn)(const void *object, int32_t num_samples);
    int32_t (*to_output_fn)(const void *object, int32_t num_samples);
};

// Creates a resampler of the given order (above 1) between two rates in Hz (above 0). The object is handed
// out even when this fails, unless it could not be had at all: the caller deletes it.
// ZX_STATUS_INVALID_ARGUMENT: the output rate is above the input rate and not its double, or the input rate
// is so many times the output rate that not one output fits a block (about 1900). ZX_STATUS_OUT_OF_MEMORY.
[[nodiscard]] zx_status_t zx_resampler_init(int32_t input_frequency, int32_t output_frequency,
                                            int32_t filter_order, zx_resampler_t **object);

// Releases the resampler; null is accepted.
void zx_resampler_delete(zx_resampler_t *object);

// Converts input_buffer_size > 0 samples and returns the number of samples written, as many as
// zx_resampler_convert_num_samples_to_output_sample_rate promises or one more.
int32_t zx_resampler_process(zx_resampler_t *object, const int16_t *input_buffer, int32_t input_buffer_size,
                             int16_t *output_buffer);

// The number of input samples after which num_samples > 0 further outputs are to be had.
int32_t zx_resampler_convert_num_samples_to_input_sample_rate(const zx_resampler_t *object,
                                                              int32_t num_samples);

// The number of outputs that num_samples > 0 further input samples make available.
int32_t zx_resampler_convert_num_samples_to_output_sample_rate(const zx_resampler_t *object,
                                                               int32_t num_samples);

// ---- The pieces, for the two implementations and for tests.

// Blackman-windowed sinc of 2 N + 1 taps with the cutoff at half the lower rate and a gain at 0 Hz that makes
// up for zero stuffing; ratio = input rate / output rate.
void generate_kernel_filter(int32_t filter_order, float *filter_kernel, float ratio);

// y[j] = sum_k x[j - k] h[k] for j = 2 N .. size - 1, by fused multiply-add in order of k, truncated to 16
// bits with saturation. Returns the number of outputs, size - 2 N.
int32_t low_pass_filter(const int16_t *input_buffer, int32_t input_buffer_size, int16_t *output_buffer,
                        const float *filter_kernel, int32_t filter_order);

#endif
