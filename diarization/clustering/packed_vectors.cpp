// SPDX-License-Identifier: Apache-2.0
#include "packed_vectors.h"

#include "zx_kernels.h"

namespace {

constexpr size_t GROUP = ZX_KERNELS_GROUP;

}  // namespace

packed_vectors::packed_vectors(const std::vector<const float *> &vectors, int32_t size)
    : size_(size),
      width_((vectors.size() + GROUP - 1) / GROUP * GROUP),
      values_(width_ * static_cast<size_t>(size)) {
    const auto dimensions = static_cast<size_t>(size);
    for (size_t k = 0; k < vectors.size(); k++)
        for (size_t d = 0; d < dimensions; d++)
            values_[(k / GROUP * dimensions + d) * GROUP + k % GROUP] = vectors[k][d];
}

void packed_vectors::multiply(std::span<const float *const> rows, float *products) const {
    zx_kernels()->loops->products(size_, static_cast<int32_t>(rows.size()), rows.data(),
                                  static_cast<int32_t>(width_ / GROUP), values_.data(), products);
}
