// SPDX-License-Identifier: Apache-2.0
// Fully connected layer in fixed point: y = W x + b with 8-bit weights and 16-bit activations, optionally
// added to what y holds already. It has no activation function of its own.
//
// Formats: x and y Q10; weights and biases Q7 (value / 128); accumulators Q17 in 32 bits that wrap.
// Block in the model file: input_dimension N, output_dimension M (int32, >= 1, N M within 31 bits), biases (M
// x int8), weights (N M x int8, the N weights of output 0 first).
#ifndef ZX_FC_H
#define ZX_FC_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "zx_base.h"
#include "zx_fc_layer.h"
#include "zx_memory.h"

// Reads the block at the file's position. ZX_STATUS_INVALID_ARGUMENT: a dimension out of range;
// ZX_STATUS_IO_ERROR: short read; ZX_STATUS_OUT_OF_MEMORY. On failure *param is null. The caller owns *param.
[[nodiscard]] zx_status_t zx_fc_param_load(FILE *file, zx_fc_param_t **param);

// Releases the block; null is accepted.
void zx_fc_param_delete(zx_fc_param_t *param);

// Creates a layer that borrows `param`. With `accumulate` it adds to its output instead of overwriting it.
// ZX_STATUS_OUT_OF_MEMORY leaves *object null.
[[nodiscard]] zx_status_t zx_fc_init(zx_memory_t *memory, const zx_fc_param_t *param, bool accumulate,
                                     zx_fc_t **object);

// Releases the layer; null is accepted.
void zx_fc_delete(zx_fc_t *object);

// x: N values, y: M values (Q10). For each output o: a = sum_i x[i] w[o][i] + (b[o] << 10) modulo 2^32,
// r = (a + 64) >> 7, y[o] = saturate16(r), or saturate16(y[o] + r) when accumulating.
void zx_fc_process(const zx_fc_t *object, const int16_t *x, int16_t *y);

// The same for num_rows > 0 inputs, which is faster than one after the other. The next row lies x_stride and
// y_stride values further on; either may be negative.
void zx_fc_process_rows(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                        int16_t *y, ptrdiff_t y_stride);

#endif
