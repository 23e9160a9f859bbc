// SPDX-License-Identifier: Apache-2.0
// Sigmoid and tanh by AVX-512: 8 registers hold the whole table and are selected from.
#include <immintrin.h>

#include "zx_kernel_functions.h"
#include "zx_sigmoid.h"

namespace {

// The entries that 8-bit indices select from 256 of them in 8 registers: of each two registers by the low 6
// bits, and among these by bits 6 and 7.
inline __m512i select_entries(const __m512i (&entries)[8], __m512i index, __mmask32 bit6, __mmask32 bit7) {
    const __m512i quarter0 = _mm512_permutex2var_epi16(entries[0], index, entries[1]);
    const __m512i quarter1 = _mm512_permutex2var_epi16(entries[2], index, entries[3]);
    const __m512i quarter2 = _mm512_permutex2var_epi16(entries[4], index, entries[5]);
    const __m512i quarter3 = _mm512_permutex2var_epi16(entries[6], index, entries[7]);
    return _mm512_mask_blend_epi16(bit7, _mm512_mask_blend_epi16(bit6, quarter0, quarter1),
                                   _mm512_mask_blend_epi16(bit6, quarter2, quarter3));
}

template <zx_sigmoid_form FORM>
void process(int32_t count, const int16_t *x, int16_t *y) {
    const __m512i minimum = _mm512_set1_epi16(ZX_SIGMOID_MIN_INPUT),
                  maximum = _mm512_set1_epi16(ZX_SIGMOID_MAX_INPUT);
    __m512i low_entries[8], high_entries[8];
    for (int32_t r = 0; r < 8; r++) {
        low_entries[r] = _mm512_loadu_si512(ZX_SIGMOID_ENTRIES + 32 * r);
        high_entries[r] = _mm512_loadu_si512(ZX_SIGMOID_ENTRIES + 32 * r + 1);
    }
    for (int32_t i = 0; i < count; i += 32) {
        const __mmask32 is_there = count - i < 32 ? (1u << (count - i)) - 1 : ~0u;
        __m512i v = _mm512_maskz_loadu_epi16(is_there, x + i);
        if (FORM == zx_sigmoid_form::tanh) v = _mm512_adds_epi16(v, v);
        v = _mm512_max_epi16(_mm512_min_epi16(v, maximum), minimum);
        const __m512i index = _mm512_srli_epi16(v, 6);
        const __mmask32 bit6 = _mm512_test_epi16_mask(v, _mm512_set1_epi16(1 << 12));
        const __mmask32 bit7 = _mm512_test_epi16_mask(v, _mm512_set1_epi16(1 << 13));
        const __m512i low = select_entries(low_entries, index, bit6, bit7);
        const __m512i high = select_entries(high_entries, index, bit6, bit7);
        // low + (f (high - low) >> 6) is the same, and neighbours differ by less than 2^9.
        const __m512i f = _mm512_and_si512(v, _mm512_set1_epi16(63));
        const __m512i rise = _mm512_srai_epi16(_mm512_mullo_epi16(f, _mm512_sub_epi16(high, low)), 6);
        __m512i result = _mm512_add_epi16(low, rise);
        if (FORM == zx_sigmoid_form::tanh)
            result = _mm512_xor_si512(_mm512_slli_epi16(result, 1), _mm512_set1_epi16(INT16_MIN));
        _mm512_mask_storeu_epi16(y + i, is_there, result);
    }
}

}  // namespace

void zx_sigmoid_avx512(int32_t count, const int16_t *x, int16_t *y) {
    process<zx_sigmoid_form::sigmoid>(count, x, y);
}

void zx_tanh_avx512(int32_t count, const int16_t *x, int16_t *y) {
    process<zx_sigmoid_form::tanh>(count, x, y);
}
