// SPDX-License-Identifier: Apache-2.0
// Vectors in the order in which the kernels multiply them with another one all at once.
#ifndef PARLEY_PACKED_VECTORS_H
#define PARLEY_PACKED_VECTORS_H

#include <cstddef>
#include <cstdint>
#include <vector>

class packed_vectors {
public:
    packed_vectors(const std::vector<const float *> &vectors, int32_t size);

    // Products that `multiply` writes: the number of vectors, rounded up.
    size_t width() const { return width_; }

    // x (size values) times each vector: double precision, sums in order of the dimensions.
    void multiply(const float *x, double *products) const;

private:
    int32_t size_;
    size_t width_;
    // In groups of ZX_KERNELS_GROUP vectors whose values of one dimension are side by side.
    std::vector<double> values_;
};

#endif
