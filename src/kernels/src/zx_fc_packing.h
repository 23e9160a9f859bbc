// SPDX-License-Identifier: Apache-2.0
// The weights of a fully connected layer in the order in which the variants for a processor read them.
//
// Outputs lie in blocks of 16. A block has the 16 values at which its sums start (rounding and bias, Q17,
// 32 bits) and then, for four inputs at a time, 64 bytes of weights:
//   pairs    for each output w[i] w[i + 2] w[i + 1] w[i + 3]: the lower bytes of two 16-bit halves are the
//            weights of the first pair of inputs and the upper bytes those of the second, so that shifts
//            alone make 16-bit weights of them, and one instruction multiplies a pair of inputs with the
//            weights of many outputs and adds each pair of products
//   columns  for each input its weights for the 16 outputs
//   quads    for each output w[i] .. w[i + 3], for products of bytes. The lower bytes of the inputs are
//            taken as x - 128 then, so the sums start at 128 times the sum of an output's weights more.
//            Inputs are padded to a multiple of 64
// Sums never have to be added across a vector, and a load of weights serves several rows. Missing outputs and
// missing last inputs have zero weights.
#ifndef ZX_FC_PACKING_H
#define ZX_FC_PACKING_H

#include <cstddef>
#include <cstdint>

#include "zx_fc_layer.h"
#include "zx_kernels.h"

inline constexpr int32_t ZX_FC_BLOCK = 16;  // outputs
inline constexpr int32_t ZX_FC_GROUP = 4;   // inputs
inline constexpr ptrdiff_t ZX_FC_STARTS_SIZE = ZX_FC_BLOCK * sizeof(int32_t);
inline constexpr ptrdiff_t ZX_FC_GROUP_SIZE = ZX_FC_BLOCK * ZX_FC_GROUP;

// Bytes from one block to the next.
constexpr ptrdiff_t zx_fc_block_size(const zx_fc_param_t *param, zx_packing packing) {
    const int32_t inputs_at_once = packing == zx_packing::quads ? 64 : ZX_FC_GROUP;
    const ptrdiff_t num_parts = (param->input_dimension - 1) / inputs_at_once + 1;
    return ZX_FC_STARTS_SIZE + num_parts * inputs_at_once * ZX_FC_BLOCK;
}

// Size in bytes of the packed weights, 0 for zx_packing::none, and what they hold.
size_t zx_fc_packed_size(const zx_fc_param_t *param, zx_packing packing);
void zx_fc_pack(const zx_fc_param_t *param, zx_packing packing, int8_t *packed);

#endif
