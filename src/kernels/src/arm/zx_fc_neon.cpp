// SPDX-License-Identifier: Apache-2.0
// Layers by NEON: a block of outputs is four registers, to which one input times four weights is added at
// a time.
#include <arm_neon.h>

#include "zx_fc_neon_store.h"
#include "zx_fc_tiles.h"
#include "zx_kernel_functions.h"

namespace {

struct neon_tile {
    using sum = int32x4_t[4];
    static constexpr int MAX_SUMS = 4;
    static constexpr int MAX_ROWS = 4;
    static constexpr int32_t WIDTH = ZX_FC_GROUP;
    static constexpr zx_packing PACKING = zx_packing::columns;

    // Adds the products of input I of a group.
    template <int I, int ROWS, int BLOCKS>
    static inline void add_input(sum (&sums)[ROWS][BLOCKS], const int8_t *weights, ptrdiff_t stride,
                                 const int16x4_t (&inputs)[ROWS]) {
        for (int b = 0; b < BLOCKS; b++) {
            const int8x16_t w = vld1q_s8(weights + b * stride + I * ZX_FC_BLOCK);
            const int16x8_t low = vmovl_s8(vget_low_s8(w)), high = vmovl_high_s8(w);
            for (int r = 0; r < ROWS; r++) {
                int32x4_t *sum = sums[r][b];
                sum[0] = vmlal_lane_s16(sum[0], vget_low_s16(low), inputs[r], I);
                sum[1] = vmlal_high_lane_s16(sum[1], low, inputs[r], I);
                sum[2] = vmlal_lane_s16(sum[2], vget_low_s16(high), inputs[r], I);
                sum[3] = vmlal_high_lane_s16(sum[3], high, inputs[r], I);
            }
        }
    }

    template <int ROWS, int BLOCKS>
    static inline void add(sum (&sums)[ROWS][BLOCKS], const int8_t *weights, ptrdiff_t stride,
                           const int16_t *x, ptrdiff_t x_stride) {
        int16x4_t inputs[ROWS];
        for (int r = 0; r < ROWS; r++, x += x_stride) inputs[r] = vld1_s16(x);
        add_input<0>(sums, weights, stride, inputs);
        add_input<1>(sums, weights, stride, inputs);
        add_input<2>(sums, weights, stride, inputs);
        add_input<3>(sums, weights, stride, inputs);
    }

    static inline void start(const int8_t *starts, sum &s) {
        for (int quarter = 0; quarter < 4; quarter++)
            s[quarter] = vreinterpretq_s32_s8(vld1q_s8(starts + 16 * quarter));
    }

    static inline void store(bool accumulate, const sum &s, int16_t *y) { store_block(accumulate, s, y); }
};

}  // namespace

void zx_fc_layer_neon(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                      int16_t *y, ptrdiff_t y_stride) {
    process_tiles<neon_tile>(object, num_rows, x, x_stride, y, y_stride);
}
