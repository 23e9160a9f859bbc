// SPDX-License-Identifier: Apache-2.0
// The transform by AVX2, four butterflies at a time.
#include <immintrin.h>

#include "zx_fft_factors.h"
#include "zx_kernel_functions.h"

namespace {

// Four butterflies: t = b (cosine + sign i sine); (a, b) becomes (a + t, a - t). Each product and sum is
// rounded as in the readable variant; only the places of signs differ, which rounding does not see.
inline void butterflies(__m256 *a, __m256 *b, __m256 cosines, __m256 sines) {
    const __m256 swapped = _mm256_permute_ps(*b, 0xB1);
    const __m256 t = _mm256_fmadd_ps(*b, cosines, _mm256_mul_ps(swapped, sines));
    *b = _mm256_sub_ps(*a, t);
    *a = _mm256_add_ps(*a, t);
}

}  // namespace

void zx_transform_avx2(float *buffer, float sign) {
    const __m256 direction = _mm256_set1_ps(-sign);
    // The first two stages, partners 1 and 2 apart, on eight values at a time.
    const __m256 one = _mm256_set1_ps(1.0f);
    const __m256 no_sines = _mm256_mul_ps(direction, _mm256_setr_ps(0, -0.0f, 0, -0.0f, 0, -0.0f, 0, -0.0f));
    const __m256 quarter_cosines = _mm256_setr_ps(1, 1, 0, 0, 1, 1, 0, 0);
    const __m256 quarter_sines = _mm256_mul_ps(direction, _mm256_setr_ps(0, -0.0f, 1, -1, 0, -0.0f, 1, -1));
    for (int32_t i = 0; i < 2 * ZX_FFT_NUM_COMPLEX; i += 16) {
        const __m256d low = _mm256_castps_pd(_mm256_loadu_ps(buffer + i));
        const __m256d high = _mm256_castps_pd(_mm256_loadu_ps(buffer + i + 8));
        __m256 a = _mm256_castpd_ps(_mm256_unpacklo_pd(low, high));  // 0 4 2 6
        __m256 b = _mm256_castpd_ps(_mm256_unpackhi_pd(low, high));  // 1 5 3 7
        butterflies(&a, &b, one, no_sines);
        const __m256d even = _mm256_castps_pd(a), odd = _mm256_castps_pd(b);
        const __m256 first = _mm256_castpd_ps(_mm256_unpacklo_pd(even, odd));   // 0 1 2 3
        const __m256 second = _mm256_castpd_ps(_mm256_unpackhi_pd(even, odd));  // 4 5 6 7
        a = _mm256_permute2f128_ps(first, second, 0x20);                        // 0 1 4 5
        b = _mm256_permute2f128_ps(first, second, 0x31);                        // 2 3 6 7
        butterflies(&a, &b, quarter_cosines, quarter_sines);
        _mm256_storeu_ps(buffer + i, _mm256_permute2f128_ps(a, b, 0x20));
        _mm256_storeu_ps(buffer + i + 8, _mm256_permute2f128_ps(a, b, 0x31));
    }
    for (int32_t half = 4; half < ZX_FFT_NUM_COMPLEX; half *= 2) {
        const float *cosines = ZX_FFT_FACTORS.cosines + 2 * half, *sines = ZX_FFT_FACTORS.sines + 2 * half;
        for (int32_t group = 0; group < 2 * ZX_FFT_NUM_COMPLEX; group += 4 * half) {
            for (int32_t k = 0; k < 2 * half; k += 8) {
                float *at_a = buffer + group + k, *at_b = at_a + 2 * half;
                __m256 a = _mm256_loadu_ps(at_a), b = _mm256_loadu_ps(at_b);
                butterflies(&a, &b, _mm256_load_ps(cosines + k),
                            _mm256_mul_ps(direction, _mm256_load_ps(sines + k)));
                _mm256_storeu_ps(at_a, a);
                _mm256_storeu_ps(at_b, b);
            }
        }
    }
}
