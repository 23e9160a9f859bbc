// SPDX-License-Identifier: Apache-2.0
// Layers by AVX2: a block of outputs is two registers; a product and a sum are two instructions.
#include <immintrin.h>

#include "zx_fc_tiles.h"
#include "zx_kernel_functions.h"

namespace {

struct avx2_tile {
    using sum = __m256i[2];
    static constexpr int MAX_SUMS = 8;
    static constexpr int MAX_ROWS = 4;
    static constexpr int32_t WIDTH = ZX_FC_GROUP;
    static constexpr zx_packing PACKING = zx_packing::pairs;

    template <int ROWS, int BLOCKS>
    static inline void add(sum (&sums)[ROWS][BLOCKS], const int8_t *weights, ptrdiff_t stride,
                           const int16_t *x, ptrdiff_t x_stride) {
        __m256i first[ROWS], second[ROWS];
#pragma GCC unroll 16
        for (int r = 0; r < ROWS; r++, x += x_stride) {
            first[r] = _mm256_set1_epi32(load_pair(x));
            second[r] = _mm256_set1_epi32(load_pair(x + 2));
        }
#pragma GCC unroll 16
        for (int b = 0; b < BLOCKS; b++) {
#pragma GCC unroll 2
            for (int half = 0; half < 2; half++) {
                const void *at = weights + b * stride + half * ZX_FC_GROUP_SIZE / 2;
                const __m256i w = _mm256_loadu_si256(static_cast<const __m256i *>(at));
                const __m256i low = _mm256_srai_epi16(_mm256_slli_epi16(w, 8), 8);
                const __m256i high = _mm256_srai_epi16(w, 8);
#pragma GCC unroll 16
                for (int r = 0; r < ROWS; r++) {
                    const __m256i products = _mm256_add_epi32(_mm256_madd_epi16(low, first[r]),
                                                              _mm256_madd_epi16(high, second[r]));
                    sums[r][b][half] = _mm256_add_epi32(sums[r][b][half], products);
                }
            }
        }
    }

    static inline void start(const int8_t *starts, sum &s) {
        s[0] = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(starts));
        s[1] = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(starts) + 1);
    }

    static inline void store(bool accumulate, const sum &s, int16_t *y) {
        auto *at = reinterpret_cast<__m128i *>(y);
        __m256i low = _mm256_srai_epi32(s[0], 7), high = _mm256_srai_epi32(s[1], 7);
        if (accumulate) {
            low = _mm256_add_epi32(low, _mm256_cvtepi16_epi32(_mm_loadu_si128(at)));
            high = _mm256_add_epi32(high, _mm256_cvtepi16_epi32(_mm_loadu_si128(at + 1)));
        }
        // Packing works in each half of 128 bits: the quarters come out as 0 2 1 3.
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(low, high), 0xD8);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(at), packed);
    }
};

}  // namespace

void zx_fc_layer_avx2(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                      int16_t *y, ptrdiff_t y_stride) {
    process_tiles<avx2_tile>(object, num_rows, x, x_stride, y, y_stride);
}
