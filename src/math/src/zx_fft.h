// SPDX-License-Identifier: Apache-2.0
// Discrete Fourier transform of 512 real samples into the 257 bins of non-negative frequency, in single
// precision. It is a 256-point complex radix-2 decimation-in-time transform of the samples packed as complex
// pairs, followed by the split into the bins of the real signal. Multiplications and additions are fused
// where written so, and nowhere else, so that results are equal to the last bit on every machine.
#ifndef ZX_FFT_H
#define ZX_FFT_H

#include <cstdint>

#include "zx_base.h"
#include "zx_memory.h"

inline constexpr int32_t ZX_FFT_LENGTH = 512;
inline constexpr int32_t ZX_FFT_NUM_BINS = ZX_FFT_LENGTH / 2 + 1;

struct zx_fft_t {
    zx_memory_t *memory;
};

// Creates a transform that takes its scratch from `memory`. ZX_STATUS_OUT_OF_MEMORY leaves *object null.
[[nodiscard]] zx_status_t zx_fft_init(zx_memory_t *memory, zx_fft_t **object);

// Releases the transform; null is accepted.
void zx_fft_delete(zx_fft_t *object);

// x: 512 samples. y: 257 complex bins, real and imaginary parts interleaved (514 floats). With X the unscaled
// DFT, bins 1 to 255 are X[k] / 256 and bins 0 and 256 are X[k] / 512 with imaginary parts of exactly 0: the
// features that models are trained on have this scaling. ZX_STATUS_OUT_OF_MEMORY leaves y untouched.
[[nodiscard]] zx_status_t zx_fft_forward(zx_fft_t *object, const float *x, float *y);

// The steps of zx_fft_forward. `buffer`: 256 interleaved complex values.
void zx_fft_forward_preprocess(const float *x, float *buffer);  // packs pairs in bit-reversed order
void zx_fft_complex_DIT_RN(float *buffer, float sign);  // reversed in, natural order out; sign -1: forward
void zx_fft_forward_postprocess(const float *buffer, float *y);

// sin and cos of 2 pi k / 512; 0 <= k, k < 384 and k < 256.
float zx_fft_sin(int32_t k);
float zx_fft_cos(int32_t k);

#endif
