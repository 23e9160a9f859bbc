// SPDX-License-Identifier: Apache-2.0
// Vectors in the order in which the kernels multiply them with another one all at once.
#ifndef PARLEY_PACKED_VECTORS_H
#define PARLEY_PACKED_VECTORS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

class packed_vectors {
public:
    packed_vectors(const std::vector<const float *> &vectors, int32_t size);

    // Products that `multiply` writes: the number of vectors, rounded up.
    size_t width() const { return width_; }

    // Each row (size values) times each vector, `width` products a row, with sums in order of the
    // dimensions. Several rows at once take less time each, up to AT_ONCE.
    static constexpr int32_t AT_ONCE = 16;
    void multiply(std::span<const float *const> rows, float *products) const;

private:
    int32_t size_;
    size_t width_;
    // In groups of ZX_KERNELS_GROUP vectors whose values of one dimension are side by side.
    std::vector<float> values_;
};

#endif
