// Layers by WebAssembly's 128 bits: a block of outputs is four registers.
#include <wasm_simd128.h>

#include "zx_fc_forms.h"
#include "zx_fc_tiles.h"

namespace {

struct wasm_tile {
    static constexpr int MAX_SUMS = 2;
    static constexpr int MAX_ROWS = 2;

    // Adds the products of a group of inputs.
    template <int ROWS, int BLOCKS>
    static inline void add_group(v128_t (&sums)[ROWS][BLOCKS][4], const int8_t *weights, ptrdiff_t stride,
                                 const int16_t *x, ptrdiff_t x_stride) {
        v128_t first[ROWS], second[ROWS];
        for (int r = 0; r < ROWS; r++, x += x_stride) {
            first[r] = wasm_i32x4_splat(load_pair(x));
            second[r] = wasm_i32x4_splat(load_pair(x + 2));
        }
        for (int b = 0; b < BLOCKS; b++) {
            for (int quarter = 0; quarter < 4; quarter++) {
                const v128_t w = wasm_v128_load(weights + b * stride + quarter * ZX_FC_GROUP_SIZE / 4);
                const v128_t low = wasm_i16x8_shr(wasm_i16x8_shl(w, 8), 8);
                const v128_t high = wasm_i16x8_shr(w, 8);
                for (int r = 0; r < ROWS; r++) {
                    const v128_t products = wasm_i32x4_add(wasm_i32x4_dot_i16x8(low, first[r]),
                                                           wasm_i32x4_dot_i16x8(high, second[r]));
                    sums[r][b][quarter] = wasm_i32x4_add(sums[r][b][quarter], products);
                }
            }
        }
    }

    template <int ROWS, int BLOCKS>
    static void compute(const zx_fc_t *object, int32_t block, const int16_t *x, ptrdiff_t x_stride,
                        int16_t *y, ptrdiff_t y_stride) {
        const zx_fc_param_t *param = object->param;
        const ptrdiff_t stride = zx_fc_block_size(param, zx_packing::pairs);
        const int8_t *weights = object->packed + block * stride;
        v128_t sums[ROWS][BLOCKS][4];
        for (int b = 0; b < BLOCKS; b++) {
            for (int quarter = 0; quarter < 4; quarter++) {
                const v128_t start = wasm_v128_load(weights + b * stride + quarter * 16);
                for (int r = 0; r < ROWS; r++) sums[r][b][quarter] = start;
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
            for (int b = 0; b < BLOCKS; b++) {
                int16_t *at = y + b * ZX_FC_BLOCK;
                for (int half = 0; half < 2; half++, at += 8) {
                    v128_t low = wasm_i32x4_shr(sums[r][b][2 * half], 7);
                    v128_t high = wasm_i32x4_shr(sums[r][b][2 * half + 1], 7);
                    if (object->accumulate) {
                        low = wasm_i32x4_add(low, wasm_i32x4_load16x4(at));
                        high = wasm_i32x4_add(high, wasm_i32x4_load16x4(at + 4));
                    }
                    wasm_v128_store(at, wasm_i16x8_narrow_i32x4(low, high));
                }
            }
        }
    }
};

}  // namespace

void zx_fc_layer_wasm(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                      int16_t *y, ptrdiff_t y_stride) {
    process_tiles<wasm_tile>(object, num_rows, x, x_stride, y, y_stride);
}
