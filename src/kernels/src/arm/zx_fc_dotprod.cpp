// SPDX-License-Identifier: Apache-2.0
// Layers by NEON's dot product of bytes. An input is 256 h + l + 128, h being its upper byte and l + 128
// its lower one, both of which fit signed bytes: two instructions take four inputs of four outputs. The
// products of 128 are in the values at which the sums start.
#include <arm_neon.h>

#include "zx_fc_neon_store.h"
#include "zx_fc_tiles.h"
#include "zx_kernel_functions.h"

namespace {

struct dotprod_tile {
    struct sum {
        int32x4_t low[4], high[4];
    };
    static constexpr int MAX_SUMS = 3;
    static constexpr int MAX_ROWS = 3;
    static constexpr int32_t WIDTH = 2 * ZX_FC_GROUP;
    static constexpr zx_packing PACKING = zx_packing::quads;

    // Bytes 0 to 7 of `bytes` are the lower ones of 8 inputs, 8 to 15 the upper ones.
    template <int ROWS, int BLOCKS>
    static inline void add(sum (&sums)[ROWS][BLOCKS], const int8_t *weights, ptrdiff_t stride,
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
                    sum &s = sums[r][b];
                    s.low[quarter] = vdotq_laneq_s32(s.low[quarter], first, bytes[r], 0);
                    s.high[quarter] = vdotq_laneq_s32(s.high[quarter], first, bytes[r], 2);
                }
                const int8x16_t second = vld1q_s8(at + ZX_FC_GROUP_SIZE);
                for (int r = 0; r < ROWS; r++) {
                    sum &s = sums[r][b];
                    s.low[quarter] = vdotq_laneq_s32(s.low[quarter], second, bytes[r], 1);
                    s.high[quarter] = vdotq_laneq_s32(s.high[quarter], second, bytes[r], 3);
                }
            }
        }
    }

    static inline void start(const int8_t *starts, sum &s) {
        for (int quarter = 0; quarter < 4; quarter++) {
            s.low[quarter] = vreinterpretq_s32_s8(vld1q_s8(starts + 16 * quarter));
            s.high[quarter] = vdupq_n_s32(0);
        }
    }

    static inline void store(bool accumulate, const sum &s, int16_t *y) {
        int32x4_t totals[4];
        for (int quarter = 0; quarter < 4; quarter++)
            totals[quarter] = vaddq_s32(s.low[quarter], vshlq_n_s32(s.high[quarter], 8));
        store_block(accumulate, totals, y);
    }
};

}  // namespace

void zx_fc_layer_dotprod(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                         int16_t *y, ptrdiff_t y_stride) {
    process_tiles<dotprod_tile>(object, num_rows, x, x_stride, y, y_stride);
}
