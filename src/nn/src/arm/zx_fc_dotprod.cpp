// Layers by NEON's dot product of bytes. An input is 256 h + l + 128, h being its upper byte and l + 128
// its lower one, both of which fit signed bytes: two instructions take four inputs of four outputs. The
// products of 128 are in the values at which the sums start.
#include <arm_neon.h>

#include "zx_fc_forms.h"
#include "zx_fc_neon_store.h"
#include "zx_fc_tiles.h"

namespace {

struct dotprod_tile {
    static constexpr int MAX_SUMS = 3;
    static constexpr int MAX_ROWS = 3;
    static constexpr int32_t WIDTH = 2 * ZX_FC_GROUP;  // inputs taken at once

    struct sums {
        int32x4_t low[4], high[4];
    };

    // Adds the products of the first group of inputs and, with NUM_GROUPS 2, of the second. Bytes 0 to 7 of
    // `bytes` are the lower ones of 8 inputs, 8 to 15 the upper ones.
    template <int NUM_GROUPS, int ROWS, int BLOCKS>
    static inline void add_groups(sums (&all)[ROWS][BLOCKS], const int8_t *weights, ptrdiff_t stride,
                                  const int16_t *x, ptrdiff_t x_stride) {
        int8x16_t bytes[ROWS];
        for (int r = 0; r < ROWS; r++, x += x_stride) {
            const int16x8_t inputs = vld1q_s16(x);
            bytes[r] = vcombine_s8(veor_s8(vmovn_s16(inputs), vdup_n_s8(-128)), vshrn_n_s16(inputs, 8));
        }
        for (int b = 0; b < BLOCKS; b++) {
            for (int quarter = 0; quarter < 4; quarter++) {
                const int8_t *at = weights + b * stride + 16 * quarter;
                const int8x16_t first = vld1q_s8(at);
                for (int r = 0; r < ROWS; r++) {
                    sums &s = all[r][b];
                    s.low[quarter] = vdotq_laneq_s32(s.low[quarter], first, bytes[r], 0);
                    s.high[quarter] = vdotq_laneq_s32(s.high[quarter], first, bytes[r], 2);
                }
                if (NUM_GROUPS == 1) continue;
                const int8x16_t second = vld1q_s8(at + ZX_FC_GROUP_SIZE);
                for (int r = 0; r < ROWS; r++) {
                    sums &s = all[r][b];
                    s.low[quarter] = vdotq_laneq_s32(s.low[quarter], second, bytes[r], 1);
                    s.high[quarter] = vdotq_laneq_s32(s.high[quarter], second, bytes[r], 3);
                }
            }
        }
    }

    template <int ROWS, int BLOCKS>
    static void compute(const zx_fc_t *object, int32_t block, const int16_t *x, ptrdiff_t x_stride,
                        int16_t *y, ptrdiff_t y_stride) {
        const zx_fc_param_t *param = object->param;
        const ptrdiff_t stride = zx_fc_block_size(param, zx_packing::quads);
        const int8_t *weights = object->packed + block * stride;
        sums all[ROWS][BLOCKS];
        for (int b = 0; b < BLOCKS; b++) {
            for (int quarter = 0; quarter < 4; quarter++) {
                const int8x16_t start = vld1q_s8(weights + b * stride + 16 * quarter);
                for (int r = 0; r < ROWS; r++) {
                    all[r][b].low[quarter] = vreinterpretq_s32_s8(start);
                    all[r][b].high[quarter] = vdupq_n_s32(0);
                }
            }
        }
        weights += ZX_FC_STARTS_SIZE;
        int32_t num_left = param->input_dimension;
        for (; num_left >= WIDTH; num_left -= WIDTH, weights += 2 * ZX_FC_GROUP_SIZE, x += WIDTH) {
            add_groups<2>(all, weights, stride, x, x_stride);
        }
        if (num_left > 0) {
            const partial_groups<ROWS, WIDTH> last(x, x_stride, num_left);
            if (num_left > ZX_FC_GROUP) {
                add_groups<2>(all, weights, stride, last.values[0], WIDTH);
            } else {
                add_groups<1>(all, weights, stride, last.values[0], WIDTH);
            }
        }
        for (int r = 0; r < ROWS; r++, y += y_stride) {
            for (int b = 0; b < BLOCKS; b++) {
                const sums &s = all[r][b];
                int32x4_t totals[4];
                for (int quarter = 0; quarter < 4; quarter++)
                    totals[quarter] = vaddq_s32(s.low[quarter], vshlq_n_s32(s.high[quarter], 8));
                store_block(object->accumulate, totals, y + b * ZX_FC_BLOCK);
            }
        }
    }
};

}  // namespace

void zx_fc_layer_dotprod(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                         int16_t *y, ptrdiff_t y_stride) {
    process_tiles<dotprod_tile>(object, num_rows, x, x_stride, y, y_stride);
}
