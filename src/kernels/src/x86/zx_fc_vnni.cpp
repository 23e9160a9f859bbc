// SPDX-License-Identifier: Apache-2.0
// Layers by AVX-512 VNNI: a block of outputs is one register, multiplied, paired and added by one
// instruction.
#include <immintrin.h>

#include "zx_fc_tiles.h"
#include "zx_kernel_functions.h"

namespace {

struct vnni_tile {
    using sum = __m512i;
    static constexpr int MAX_SUMS = 16;
    static constexpr int MAX_ROWS = 8;
    static constexpr int32_t WIDTH = ZX_FC_GROUP;
    static constexpr zx_packing PACKING = zx_packing::pairs;

    template <int ROWS, int BLOCKS>
    static inline void add(sum (&sums)[ROWS][BLOCKS], const int8_t *weights, ptrdiff_t stride,
                           const int16_t *x, ptrdiff_t x_stride) {
        __m512i low[BLOCKS], high[BLOCKS];
#pragma GCC unroll 16
        for (int b = 0; b < BLOCKS; b++) {
            const __m512i w = _mm512_loadu_si512(weights + b * stride);
            low[b] = _mm512_srai_epi16(_mm512_slli_epi16(w, 8), 8);
            high[b] = _mm512_srai_epi16(w, 8);
        }
#pragma GCC unroll 16
        for (int r = 0; r < ROWS; r++, x += x_stride) {
            const __m512i first = _mm512_set1_epi32(load_pair(x)),
                          second = _mm512_set1_epi32(load_pair(x + 2));
#pragma GCC unroll 16
            for (int b = 0; b < BLOCKS; b++) {
                sums[r][b] = _mm512_dpwssd_epi32(sums[r][b], low[b], first);
                sums[r][b] = _mm512_dpwssd_epi32(sums[r][b], high[b], second);
            }
        }
    }

    static inline void start(const int8_t *starts, sum &s) {
        s = _mm512_loadu_si512(starts);
    }

    static inline void store(bool accumulate, const sum &s, int16_t *y) {
        auto *at = reinterpret_cast<__m256i *>(y);
        __m512i rounded = _mm512_srai_epi32(s, 7);
        if (accumulate) rounded = _mm512_add_epi32(rounded, _mm512_cvtepi16_epi32(_mm256_loadu_si256(at)));
        _mm256_storeu_si256(at, _mm512_cvtsepi32_epi16(rounded));
    }
};

}  // namespace

void zx_fc_layer_vnni(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                      int16_t *y, ptrdiff_t y_stride) {
    process_tiles<vnni_tile>(object, num_rows, x, x_stride, y, y_stride);
}
