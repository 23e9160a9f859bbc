// SPDX-License-Identifier: Apache-2.0
// What the variants of a fully connected layer share, for the files that compile them: everything here is
// local to the file that includes it, as in zx_loops.h.
#ifndef ZX_FC_TILES_H
#define ZX_FC_TILES_H

#include <algorithm>
#include <cstring>

#include "zx_fc_packing.h"

namespace {  // NOLINT(cert-dcl59-cpp): a copy for each file is what is wanted

inline int32_t load_pair(const int16_t *x) {
    int32_t pair;
    std::memcpy(&pair, x, sizeof(pair));
    return pair;
}

// The last inputs of each row when they are fewer than are taken at once, followed by zeros.
template <int ROWS, int32_t WIDTH>
struct partial_groups {
    partial_groups(const int16_t *x, ptrdiff_t x_stride, int32_t count) {
        for (int r = 0; r < ROWS; r++, x += x_stride) {
            for (int32_t i = 0; i < WIDTH; i++) values[r][i] = i < count ? x[i] : int16_t{0};
        }
    }
    int16_t values[ROWS][WIDTH];
};

// What the versions share: they go through the rows in groups, and for each group through all blocks of
// outputs, several of both at a time, so that enough sums are under way to hide the latency of an
// addition. `Tile` knows the processor: the `sum` of a block of outputs, its `start`, how the products of
// WIDTH inputs are added to the sums of several rows and blocks (`add`), and how a sum ends as outputs
// (`store`).
template <class Tile>
struct tiles {
    // Each block is a stream of weights from the second level of the cache, which fetches only so many ahead.
    static constexpr int MAX_BLOCKS = 5;

    // One group of rows by one group of blocks, whose first output is at y.
    template <int ROWS, int BLOCKS>
    static void compute(const zx_fc_t *object, int32_t block, const int16_t *x, ptrdiff_t x_stride,
                        int16_t *y, ptrdiff_t y_stride) {
        constexpr int32_t WIDTH = Tile::WIDTH;
        const ptrdiff_t stride = zx_fc_block_size(object->param, Tile::PACKING);
        const int8_t *weights = object->packed + block * stride;
        typename Tile::sum sums[ROWS][BLOCKS];
        for (int b = 0; b < BLOCKS; b++) {
            for (int r = 0; r < ROWS; r++) Tile::start(weights + b * stride, sums[r][b]);
        }
        weights += ZX_FC_STARTS_SIZE;
        int32_t num_left = object->param->input_dimension;
        for (; num_left >= WIDTH; num_left -= WIDTH, weights += WIDTH * ZX_FC_BLOCK, x += WIDTH)
            Tile::add(sums, weights, stride, x, x_stride);
        if (num_left > 0) {
            const partial_groups<ROWS, WIDTH> last(x, x_stride, num_left);
            Tile::add(sums, weights, stride, last.values[0], WIDTH);
        }
        for (int r = 0; r < ROWS; r++, y += y_stride) {
            for (int b = 0; b < BLOCKS; b++) Tile::store(object->accumulate, sums[r][b], y + b * ZX_FC_BLOCK);
        }
    }

    template <int ROWS, int BLOCKS>
    static void through_blocks(const zx_fc_t *object, const int16_t *x, ptrdiff_t x_stride, int16_t *y,
                               ptrdiff_t y_stride, int32_t block) {
        const int32_t end = object->param->output_dimension / ZX_FC_BLOCK;
        for (; block + BLOCKS <= end; block += BLOCKS) {
            compute<ROWS, BLOCKS>(object, block, x, x_stride, y + block * ZX_FC_BLOCK, y_stride);
        }
        if constexpr (BLOCKS > 1) {
            if (block < end) through_blocks<ROWS, BLOCKS / 2>(object, x, x_stride, y, y_stride, block);
        }
    }

    // The last block where it is only partly there: it goes through a buffer.
    template <int ROWS>
    static void partial_block(const zx_fc_t *object, const int16_t *x, ptrdiff_t x_stride, int16_t *y,
                              ptrdiff_t y_stride) {
        const int32_t block = object->param->output_dimension / ZX_FC_BLOCK;
        const int32_t count = object->param->output_dimension % ZX_FC_BLOCK;
        if (count == 0) return;
        y += block * ZX_FC_BLOCK;
        int16_t outputs[ROWS][ZX_FC_BLOCK] = {};
        if (object->accumulate) {
            for (int r = 0; r < ROWS; r++) std::copy_n(y + r * y_stride, count, outputs[r]);
        }
        compute<ROWS, 1>(object, block, x, x_stride, outputs[0], ZX_FC_BLOCK);
        for (int r = 0; r < ROWS; r++) std::copy_n(outputs[r], count, y + r * y_stride);
    }

    template <int ROWS>
    static void through_rows(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                             int16_t *y, ptrdiff_t y_stride) {
        constexpr int BLOCKS = std::min(Tile::MAX_SUMS / ROWS, MAX_BLOCKS);
        for (; num_rows >= ROWS; num_rows -= ROWS, x += ROWS * x_stride, y += ROWS * y_stride) {
            through_blocks<ROWS, BLOCKS>(object, x, x_stride, y, y_stride, 0);
            partial_block<ROWS>(object, x, x_stride, y, y_stride);
        }
        if constexpr (ROWS > 1) {
            if (num_rows > 0) through_rows<ROWS - 1>(object, num_rows, x, x_stride, y, y_stride);
        }
    }
};

template <class Tile>
void process_tiles(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride, int16_t *y,
                   ptrdiff_t y_stride) {
    tiles<Tile>::template through_rows<Tile::MAX_ROWS>(object, num_rows, x, x_stride, y, y_stride);
}

}  // namespace

#endif
