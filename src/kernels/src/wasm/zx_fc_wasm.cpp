// SPDX-License-Identifier: Apache-2.0
// Layers by WebAssembly's 128 bits: a block of outputs is four registers.
#include <wasm_simd128.h>

#include "zx_fc_tiles.h"
#include "zx_kernel_functions.h"

namespace {

struct wasm_tile {
    using sum = v128_t[4];
    static constexpr int MAX_SUMS = 2;
    static constexpr int MAX_ROWS = 2;
    static constexpr int32_t WIDTH = ZX_FC_GROUP;
    static constexpr zx_packing PACKING = zx_packing::pairs;

    template <int ROWS, int BLOCKS>
    static inline void add(sum (&sums)[ROWS][BLOCKS], const int8_t *weights, ptrdiff_t stride,
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

    static inline void start(const int8_t *starts, sum &s) {
        for (int quarter = 0; quarter < 4; quarter++) s[quarter] = wasm_v128_load(starts + quarter * 16);
    }

    static inline void store(bool accumulate, const sum &s, int16_t *y) {
        for (int half = 0; half < 2; half++, y += 8) {
            v128_t low = wasm_i32x4_shr(s[2 * half], 7), high = wasm_i32x4_shr(s[2 * half + 1], 7);
            if (accumulate) {
                low = wasm_i32x4_add(low, wasm_i32x4_load16x4(y));
                high = wasm_i32x4_add(high, wasm_i32x4_load16x4(y + 4));
            }
            wasm_v128_store(y, wasm_i16x8_narrow_i32x4(low, high));
        }
    }
};

}  // namespace

void zx_fc_layer_wasm(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                      int16_t *y, ptrdiff_t y_stride) {
    process_tiles<wasm_tile>(object, num_rows, x, x_stride, y, y_stride);
}
