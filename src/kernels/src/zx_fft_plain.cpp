// SPDX-License-Identifier: Apache-2.0
#include "zx_fft_tables.h"
#include "zx_fma.h"
#include "zx_kernel_functions.h"

constexpr int32_t NUM_COMPLEX = 256, QUARTER_PERIOD = 128;

void zx_fft_complex_DIT_RN_generic(float *buffer, float sign) {
    for (int32_t stage = 0; stage < 8; stage++) {
        const int32_t half =
            1 << stage;  // butterflies per group; partners lie this many complex values apart
        const int32_t num_groups = (NUM_COMPLEX / 2) >> stage;
        const int32_t twiddle_step = NUM_COMPLEX >> stage;
        for (int32_t group = 0; group < num_groups; group++) {
            float *a = buffer + group * 4 * half;
            float *b = a + 2 * half;
            for (int32_t k = 0; k < half; k++) {
                const float sine = SIN_TABLE[static_cast<size_t>(k * twiddle_step)];
                const float cosine = SIN_TABLE[static_cast<size_t>(k * twiddle_step + QUARTER_PERIOD)];
                const float b_re = b[2 * k], b_im = b[2 * k + 1];
                const float a_re = a[2 * k], a_im = a[2 * k + 1];
                const float t_re = zx_fma(b_re, cosine, -(sign * b_im * sine));
                const float t_im = zx_fma(b_im, cosine, sign * b_re * sine);
                a[2 * k] = a_re + t_re;
                a[2 * k + 1] = a_im + t_im;
                b[2 * k] = a_re - t_re;
                b[2 * k + 1] = a_im - t_im;
            }
        }
    }
}
