// SPDX-License-Identifier: Apache-2.0
#include "zx_fc_packing.h"

#include <cstring>

namespace {

int8_t weight(const zx_fc_param_t *param, int32_t output, int32_t input) {
    const bool is_there = output < param->output_dimension && input < param->input_dimension;
    return is_there ? param->weights[ptrdiff_t{output} * param->input_dimension + input] : int8_t{0};
}

int32_t start(const zx_fc_param_t *param, zx_packing packing, int32_t output) {
    if (output >= param->output_dimension) return 0;
    uint32_t sum = 0;
    if (packing == zx_packing::quads) {
        for (int32_t i = 0; i < param->input_dimension; i++)
            sum += static_cast<uint32_t>(weight(param, output, i));
    }
    return static_cast<int32_t>(static_cast<uint32_t>(param->biases[output] * 1024 + 64) + 128 * sum);
}

}  // namespace

size_t zx_fc_packed_size(const zx_fc_param_t *param, zx_packing packing) {
    if (packing == zx_packing::none) return 0;
    const int32_t num_blocks = (param->output_dimension - 1) / ZX_FC_BLOCK + 1;
    return static_cast<size_t>(num_blocks) * static_cast<size_t>(zx_fc_block_size(param, packing));
}

void zx_fc_pack(const zx_fc_param_t *param, zx_packing packing, int8_t *packed) {
    if (packing == zx_packing::none) return;
    const auto num_groups =
        static_cast<int32_t>((zx_fc_block_size(param, packing) - ZX_FC_STARTS_SIZE) / ZX_FC_GROUP_SIZE);
    for (int32_t first = 0; first < param->output_dimension; first += ZX_FC_BLOCK) {
        const int32_t end = first + ZX_FC_BLOCK;
        for (int32_t o = first; o < end; o++, packed += sizeof(int32_t)) {
            const int32_t value = start(param, packing, o);
            std::memcpy(packed, &value, sizeof(value));
        }
        for (int32_t i = 0; i < num_groups * ZX_FC_GROUP; i += ZX_FC_GROUP) {
            if (packing == zx_packing::columns) {
                for (int32_t k = i; k < i + ZX_FC_GROUP; k++)
                    for (int32_t o = first; o < end; o++) *packed++ = weight(param, o, k);
                continue;
            }
            const int32_t second = packing == zx_packing::pairs ? i + 2 : i + 1;
            const int32_t third = packing == zx_packing::pairs ? i + 1 : i + 2;
            for (int32_t o = first; o < end; o++)
                for (const int32_t k : {i, second, third, i + 3}) *packed++ = weight(param, o, k);
        }
    }
}
