// SPDX-License-Identifier: Apache-2.0
// The transform by NEON, two butterflies at a time.
#include <arm_neon.h>

#include "zx_fft_factors.h"
#include "zx_kernel_functions.h"

namespace {

// Two butterflies: t = b (cosine + sign i sine); (a, b) becomes (a + t, a - t). Each product and sum is
// rounded as in the readable variant; only the places of signs differ, which rounding does not see.
inline void butterflies(float32x4_t *a, float32x4_t *b, float32x4_t cosines, float32x4_t sines) {
    const float32x4_t t = vfmaq_f32(vmulq_f32(vrev64q_f32(*b), sines), *b, cosines);
    *b = vsubq_f32(*a, t);
    *a = vaddq_f32(*a, t);
}

// The first and the second complex numbers of two pairs.
inline float32x4_t firsts(float32x4_t x, float32x4_t y) {
    return vreinterpretq_f32_f64(vzip1q_f64(vreinterpretq_f64_f32(x), vreinterpretq_f64_f32(y)));
}

inline float32x4_t seconds(float32x4_t x, float32x4_t y) {
    return vreinterpretq_f32_f64(vzip2q_f64(vreinterpretq_f64_f32(x), vreinterpretq_f64_f32(y)));
}

}  // namespace

void zx_transform_neon(float *buffer, float sign) {
    const float32x4_t direction = vdupq_n_f32(-sign);
    // The first two stages, partners 1 and 2 apart, on four values at a time.
    constexpr float NO_SINES[] = {0.0f, -0.0f, 0.0f, -0.0f};
    constexpr float QUARTER_COSINES[] = {1.0f, 1.0f, 0.0f, 0.0f},
                    QUARTER_SINES[] = {0.0f, -0.0f, 1.0f, -1.0f};
    const float32x4_t one = vdupq_n_f32(1.0f), no_sines = vmulq_f32(direction, vld1q_f32(NO_SINES));
    const float32x4_t quarter_cosines = vld1q_f32(QUARTER_COSINES);
    const float32x4_t quarter_sines = vmulq_f32(direction, vld1q_f32(QUARTER_SINES));
    for (int32_t i = 0; i < 2 * ZX_FFT_NUM_COMPLEX; i += 8) {
        const float32x4_t low = vld1q_f32(buffer + i), high = vld1q_f32(buffer + i + 4);
        float32x4_t a = firsts(low, high), b = seconds(low, high);  // 0 2, 1 3
        butterflies(&a, &b, one, no_sines);
        float32x4_t first = firsts(a, b), second = seconds(a, b);  // 0 1, 2 3
        butterflies(&first, &second, quarter_cosines, quarter_sines);
        vst1q_f32(buffer + i, first);
        vst1q_f32(buffer + i + 4, second);
    }
    for (int32_t half = 4; half < ZX_FFT_NUM_COMPLEX; half *= 2) {
        const float *cosines = ZX_FFT_FACTORS.cosines + 2 * half, *sines = ZX_FFT_FACTORS.sines + 2 * half;
        for (int32_t group = 0; group < 2 * ZX_FFT_NUM_COMPLEX; group += 4 * half) {
            for (int32_t k = 0; k < 2 * half; k += 4) {
                float *at_a = buffer + group + k, *at_b = at_a + 2 * half;
                float32x4_t a = vld1q_f32(at_a), b = vld1q_f32(at_b);
                butterflies(&a, &b, vld1q_f32(cosines + k), vmulq_f32(direction, vld1q_f32(sines + k)));
                vst1q_f32(at_a, a);
                vst1q_f32(at_b, b);
            }
        }
    }
}
