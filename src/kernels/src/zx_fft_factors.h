// SPDX-License-Identifier: Apache-2.0
// Factors of the transform's stages with four and more butterflies, in the order in which vectors take
// them. The stage whose partners lie `half` complex values apart has 2 half factors from entry 2 half on:
// each cosine twice, each sine as (s, -s), by which the imaginary and the real part are multiplied in the
// forward transform.
#ifndef ZX_FFT_FACTORS_H
#define ZX_FFT_FACTORS_H

#include <cstddef>
#include <cstdint>

#include "zx_fft_tables.h"

inline constexpr int32_t ZX_FFT_NUM_COMPLEX = 256;

struct zx_fft_factors {
    alignas(32) float cosines[2 * ZX_FFT_NUM_COMPLEX], sines[2 * ZX_FFT_NUM_COMPLEX];
};

constexpr zx_fft_factors zx_make_fft_factors() {
    zx_fft_factors factors{};
    for (int32_t half = 4; half < ZX_FFT_NUM_COMPLEX; half *= 2) {
        for (int32_t k = 0; k < half; k++) {
            const int32_t at = 2 * (half + k);
            const auto angle = static_cast<size_t>(k * (ZX_FFT_NUM_COMPLEX / half));
            factors.cosines[at] = factors.cosines[at + 1] = SIN_TABLE[angle + 128];
            factors.sines[at] = SIN_TABLE[angle];
            factors.sines[at + 1] = -SIN_TABLE[angle];
        }
    }
    return factors;
}

inline constexpr zx_fft_factors ZX_FFT_FACTORS = zx_make_fft_factors();

#endif
