// Layers by AVX-512 VNNI: a block of outputs is one register, multiplied, paired and added by one
// instruction.
#include <immintrin.h>

#include "zx_fc_forms.h"
#include "zx_fc_tiles.h"

namespace {

struct vnni_tile {
    static constexpr int MAX_SUMS = 16;
    static constexpr int MAX_ROWS = 8;

    // Adds the products of a group of inputs.
    template <int ROWS, int BLOCKS>
    static inline void add_group(__m512i (&sums)[ROWS][BLOCKS], const int8_t *weights, ptrdiff_t stride,
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

    template <int ROWS, int BLOCKS>
    static void compute(const zx_fc_t *object, int32_t block, const int16_t *x, ptrdiff_t x_stride,
                        int16_t *y, ptrdiff_t y_stride) {
        const zx_fc_param_t *param = object->param;
        const ptrdiff_t stride = zx_fc_block_size(param, zx_packing::pairs);
        const int8_t *weights = object->packed + block * stride;
        __m512i sums[ROWS][BLOCKS];
        for (int b = 0; b < BLOCKS; b++) {
            for (int r = 0; r < ROWS; r++) sums[r][b] = _mm512_loadu_si512(weights + b * stride);
        }
        weights += ZX_FC_STARTS_SIZE;
        int32_t num_left = param->input_dimension;
        for (; num_left >= ZX_FC_GROUP;
             num_left -= ZX_FC_GROUP, weights += ZX_FC_GROUP_SIZE, x += ZX_FC_GROUP) {
            add_group(sums, weights, stride, x, x_stride);
        }
        if (num_left > 0) {
            const partial_groups<ROWS> last(x, x_stride, num_left);
            add_group(sums, weights, stride, last.values[0], ZX_FC_GROUP);
        }
        for (int r = 0; r < ROWS; r++, y += y_stride) {
            for (int b = 0; b < BLOCKS; b++) {
                auto *at = reinterpret_cast<__m256i *>(y + b * ZX_FC_BLOCK);
                __m512i sum = _mm512_srai_epi32(sums[r][b], 7);
                if (object->accumulate)
                    sum = _mm512_add_epi32(sum, _mm512_cvtepi16_epi32(_mm256_loadu_si256(at)));
                _mm256_storeu_si256(at, _mm512_cvtsepi32_epi16(sum));
            }
        }
    }
};

}  // namespace

void zx_fc_layer_vnni(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                      int16_t *y, ptrdiff_t y_stride) {
    process_tiles<vnni_tile>(object, num_rows, x, x_stride, y, y_stride);
}
