// SPDX-License-Identifier: Apache-2.0
// A fully connected layer as its kernels see it: 8-bit weights, 16-bit activations; zx_fc.h has formats and
// functions.
#ifndef ZX_FC_LAYER_H
#define ZX_FC_LAYER_H

#include <cstdint>

#include "zx_memory.h"

struct zx_fc_param_t {
    int32_t input_dimension;
    int32_t output_dimension;
    int8_t *weights;
    int8_t *biases;
};

struct zx_kernels_t;

struct zx_fc_t {
    zx_memory_t *memory;
    const zx_fc_param_t *param;  // borrowed
    bool accumulate;
    const zx_kernels_t *kernels;  // the variant that computes it, see zx_kernels.h
    int8_t *packed;               // the weights as that variant reads them; null where it reads the model's
};

// One row by the plain loop that every faster kernel is held to, see zx_fc_process.
void zx_fc_process_generic(const zx_fc_t *object, const int16_t *x, int16_t *y);

#endif
