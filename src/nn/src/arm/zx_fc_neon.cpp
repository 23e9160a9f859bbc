// Layers by NEON: a block of outputs is four registers, to which one input times four weights is added at
// a time.
#include <arm_neon.h>

#include "zx_fc_forms.h"
#include "zx_fc_neon_store.h"
#include "zx_fc_tiles.h"

namespace {

struct neon_tile {
    static constexpr int MAX_SUMS = 4;
    static constexpr int MAX_ROWS = 4;

    // Adds the products of input I of a group.
    template <int I, int ROWS, int BLOCKS>
    static inline void add_input(int32x4_t (&sums)[ROWS][BLOCKS][4], const int8_t *weights, ptrdiff_t stride,
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
    static inline void add_group(int32x4_t (&sums)[ROWS][BLOCKS][4], const int8_t *weights, ptrdiff_t stride,
                                 const int16_t *x, ptrdiff_t x_stride) {
        int16x4_t inputs[ROWS];
        for (int r = 0; r < ROWS; r++, x += x_stride) inputs[r] = vld1_s16(x);
        add_input<0>(sums, weights, stride, inputs);
        add_input<1>(sums, weights, stride, inputs);
        add_input<2>(sums, weights, stride, inputs);
        add_input<3>(sums, weights, stride, inputs);
    }

    template <int ROWS, int BLOCKS>
    static void compute(const zx_fc_t *object, int32_t block, const int16_t *x, ptrdiff_t x_stride,
                        int16_t *y, ptrdiff_t y_stride) {
        const zx_fc_param_t *param = object->param;
        const ptrdiff_t stride = zx_fc_block_size(param, zx_packing::columns);
        const int8_t *weights = object->packed + block * stride;
        int32x4_t sums[ROWS][BLOCKS][4];
        for (int b = 0; b < BLOCKS; b++) {
            for (int quarter = 0; quarter < 4; quarter++) {
                const int8x16_t start = vld1q_s8(weights + b * stride + 16 * quarter);
                for (int r = 0; r < ROWS; r++) sums[r][b][quarter] = vreinterpretq_s32_s8(start);
            }
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
            for (int b = 0; b < BLOCKS; b++) store_block(object->accumulate, sums[r][b], y + b * ZX_FC_BLOCK);
        }
    }
};

}  // namespace

void zx_fc_layer_neon(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                      int16_t *y, ptrdiff_t y_stride) {
    process_tiles<neon_tile>(object, num_rows, x, x_stride, y, y_stride);
}
