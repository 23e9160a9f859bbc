// SPDX-License-Identifier: Apache-2.0
// Sigmoid and tanh by AVX2: each pair of entries is gathered from memory.
#include <immintrin.h>

#include "zx_kernel_functions.h"
#include "zx_sigmoid.h"

namespace {

template <zx_sigmoid_form FORM>
void process(int32_t count, const int16_t *x, int16_t *y) {
    const __m256i minimum = _mm256_set1_epi16(ZX_SIGMOID_MIN_INPUT),
                  maximum = _mm256_set1_epi16(ZX_SIGMOID_MAX_INPUT);
    const __m256i zero = _mm256_setzero_si256();
    const auto *table = reinterpret_cast<const int *>(ZX_SIGMOID_ENTRIES);
    int32_t i = 0;
    for (; i + 16 <= count; i += 16) {
        __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(x + i));
        if (FORM == zx_sigmoid_form::tanh) v = _mm256_adds_epi16(v, v);
        v = _mm256_max_epi16(_mm256_min_epi16(v, maximum), minimum);
        const __m256i index = _mm256_and_si256(_mm256_srli_epi16(v, 6), _mm256_set1_epi16(0xFF));
        const __m256i f = _mm256_and_si256(v, _mm256_set1_epi16(63));
        const __m256i one_minus_f = _mm256_sub_epi16(_mm256_set1_epi16(64), f);
        // 32 bits at an entry are that entry and the next one.
        const __m256i pairs0 = _mm256_i32gather_epi32(table, _mm256_unpacklo_epi16(index, zero), 2);
        const __m256i pairs1 = _mm256_i32gather_epi32(table, _mm256_unpackhi_epi16(index, zero), 2);
        const __m256i sums0 = _mm256_madd_epi16(pairs0, _mm256_unpacklo_epi16(one_minus_f, f));
        const __m256i sums1 = _mm256_madd_epi16(pairs1, _mm256_unpackhi_epi16(one_minus_f, f));
        __m256i result = _mm256_packs_epi32(_mm256_srai_epi32(sums0, 6), _mm256_srai_epi32(sums1, 6));
        if (FORM == zx_sigmoid_form::tanh)
            result = _mm256_xor_si256(_mm256_slli_epi16(result, 1), _mm256_set1_epi16(INT16_MIN));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(y + i), result);
    }
    (FORM == zx_sigmoid_form::sigmoid ? zx_sigmoid_plain : zx_tanh_plain)(count - i, x + i, y + i);
}

}  // namespace

void zx_sigmoid_avx2(int32_t count, const int16_t *x, int16_t *y) {
    process<zx_sigmoid_form::sigmoid>(count, x, y);
}

void zx_tanh_avx2(int32_t count, const int16_t *x, int16_t *y) {
    process<zx_sigmoid_form::tanh>(count, x, y);
}
