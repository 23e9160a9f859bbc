// SPDX-License-Identifier: Apache-2.0
// Short-time power spectrum of a stream: each call appends `window_shift` new samples to the tail of the
// previous ones, applies a symmetric 512-point Hann window and returns the power of the 257 FFT bins.
#ifndef ZX_STFT_H
#define ZX_STFT_H

#include <cstdint>

#include "zx_base.h"
#include "zx_fft.h"
#include "zx_memory.h"

struct zx_stft_t {
    zx_memory_t *memory;
    int32_t window_shift;  // new samples per call (hop)
    float *history;        // the last 512 - window_shift samples; null when window_shift >= 512
    zx_fft_t *fft;
};

// Creates a spectrum analysis with a hop of 1 <= window_shift < 512 samples and a history of silence. Longer
// hops are accepted here but have no frame to analyse. ZX_STATUS_OUT_OF_MEMORY leaves *object null.
[[nodiscard]] zx_status_t zx_stft_init(zx_memory_t *memory, int32_t window_shift, zx_stft_t **object);

// Releases the analysis; null is accepted.
void zx_stft_delete(zx_stft_t *object);

// x: window_shift samples. y: 257 powers re^2 + im^2 (the name notwithstanding, no square root is taken),
// with the scaling of zx_fft_forward. ZX_STATUS_OUT_OF_MEMORY leaves y untouched.
[[nodiscard]] zx_status_t zx_stft_forward_float_to_magnitude(zx_stft_t *object, const float *x, float *y);

// Sets the history to silence.
void zx_stft_reset(zx_stft_t *object);

// The steps around the transform: history and hop make up the windowed 512-sample `frame`; `spectrum` of 257
// interleaved complex bins becomes 257 powers.
void zx_stft_forward_preprocess_float(zx_stft_t *object, const float *x, float *frame);
void zx_stft_complex_to_magnitude(const float *spectrum, float *y);

#endif
