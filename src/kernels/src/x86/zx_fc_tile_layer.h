// SPDX-License-Identifier: Apache-2.0
// Layers by tiles: small matrices of bytes that are multiplied by one instruction. As with the dot
// product of bytes an input is 256 h + l + 128, h being its upper byte and l + 128 its lower one, and the
// products of 128 are in the values at which the sums start (zx_packing::quads).
//
// Written for any `Tiles`, which hold what is under way: 16 rows of inputs, 64 of each row's lower and
// upper bytes; the weights of 64 inputs for two blocks of outputs; four matrices of sums. The tests have
// a model of them for machines without.
#ifndef ZX_FC_TILE_LAYER_H
#define ZX_FC_TILE_LAYER_H

#include "zx_fc_packing.h"
#include "zx_integer.h"

namespace {  // NOLINT(cert-dcl59-cpp): a copy for each file is what is wanted

constexpr int32_t TILE_ROWS = 16, TILE_INPUTS = 64;

// The bytes of up to 16 rows of 64 inputs, as tiles are loaded with them.
struct tile_inputs {
    alignas(64) int8_t low[TILE_ROWS][TILE_INPUTS], high[TILE_ROWS][TILE_INPUTS];
};

void split_inputs(int32_t num_rows, int32_t num_inputs, const int16_t *x, ptrdiff_t x_stride,
                  tile_inputs *inputs) {
    for (int32_t r = 0; r < num_rows; r++, x += x_stride) {
        for (int32_t i = 0; i < TILE_INPUTS; i++) {
            const int16_t value = i < num_inputs ? x[i] : int16_t{0};  // whose weights are 0
            inputs->low[r][i] = static_cast<int8_t>((value & 255) - 128);
            inputs->high[r][i] = static_cast<int8_t>(value >> 8);
        }
    }
}

struct tile_sums {
    alignas(64) int32_t low[2][TILE_ROWS][ZX_FC_BLOCK], high[2][TILE_ROWS][ZX_FC_BLOCK];  // of two blocks
};

// Rounds a block's sums to Q10, adds what y holds when accumulating, and saturates once.
void finish_block(const zx_fc_t *object, int32_t block, int32_t num_rows, const int32_t (*low)[ZX_FC_BLOCK],
                  const int32_t (*high)[ZX_FC_BLOCK], int16_t *y, ptrdiff_t y_stride) {
    const int32_t num_left = object->param->output_dimension - block * ZX_FC_BLOCK;
    const int32_t count = zx_min_int32(num_left, ZX_FC_BLOCK);
    int32_t starts[ZX_FC_BLOCK];
    const int8_t *at = object->packed + block * zx_fc_block_size(object->param, zx_packing::quads);
    __builtin_memcpy(starts, at, sizeof(starts));
    for (int32_t r = 0; r < num_rows; r++, y += y_stride) {
        for (int32_t o = 0; o < count; o++) {
            const uint32_t sum = static_cast<uint32_t>(starts[o]) + static_cast<uint32_t>(low[r][o]) +
                                 (static_cast<uint32_t>(high[r][o]) << 8);
            const int32_t rounded = static_cast<int32_t>(sum) >> 7;
            y[o] = zx_int32_to_int16(object->accumulate ? y[o] + rounded : rounded);
        }
    }
}

template <class Tiles>
void process_by_tiles(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                      int16_t *y, ptrdiff_t y_stride) {
    constexpr int32_t MAX_STEPS = 8;  // whose bytes are kept for all blocks
    const int32_t num_inputs = object->param->input_dimension;
    const int32_t num_steps = (num_inputs - 1) / TILE_INPUTS + 1;
    const int32_t num_blocks = (object->param->output_dimension - 1) / ZX_FC_BLOCK + 1;
    const ptrdiff_t stride = zx_fc_block_size(object->param, zx_packing::quads);
    constexpr ptrdiff_t STEP_SIZE = ptrdiff_t{TILE_INPUTS} * ZX_FC_BLOCK;
    tile_inputs inputs[MAX_STEPS];
    tile_sums sums;
    for (; num_rows > 0; num_rows -= TILE_ROWS, x += TILE_ROWS * x_stride, y += TILE_ROWS * y_stride) {
        const int32_t rows = zx_min_int32(num_rows, TILE_ROWS);
        const auto split = [&](int32_t step, tile_inputs *to) {
            split_inputs(rows, num_inputs - step * TILE_INPUTS, x + step * TILE_INPUTS, x_stride, to);
        };
        for (int32_t step = 0; num_steps <= MAX_STEPS && step < num_steps; step++) split(step, &inputs[step]);
        Tiles tiles(rows);
        for (int32_t block = 0; block < num_blocks; block += 2) {
            const int32_t second =
                zx_min_int32(block + 1, num_blocks - 1);  // the same one again where it ends
            const int8_t *weights = object->packed + block * stride + ZX_FC_STARTS_SIZE;
            const int8_t *second_weights = object->packed + second * stride + ZX_FC_STARTS_SIZE;
            tiles.clear();
            for (int32_t step = 0; step < num_steps; step++) {
                const int32_t kept = num_steps <= MAX_STEPS ? step : 0;
                if (num_steps > MAX_STEPS) split(step, &inputs[0]);
                tiles.load_inputs(inputs[kept].low, inputs[kept].high);
                tiles.load_weights(weights + step * STEP_SIZE, second_weights + step * STEP_SIZE);
                tiles.multiply();
            }
            tiles.store(&sums);
            finish_block(object, block, rows, sums.low[0], sums.high[0], y + block * ZX_FC_BLOCK, y_stride);
            if (second > block) {
                finish_block(object, second, rows, sums.low[1], sums.high[1], y + second * ZX_FC_BLOCK,
                             y_stride);
            }
        }
    }
}

}  // namespace

#endif
