// SPDX-License-Identifier: Apache-2.0
// What can be said about divisions of a recording among speakers: how far speakers are apart, how alike a
// speaker's stretches are, how the numbers compare. All of it is sums, products, quotients and square roots
// in double precision in a fixed order.
#ifndef PARLEY_DIVISION_FEATURES_H
#define PARLEY_DIVISION_FEATURES_H

#include <vector>

#include "candidates.h"

// The unit means of a number of groups of vectors.
class division_means {
public:
    division_means(size_t number, size_t size) : number_(number), size_(size), sums_(number * size) {}

    void add(size_t group, const float *vector);
    void scale();  // once all have been added

    size_t number() const { return number_; }
    const float *at(size_t group) const { return &means_[group * size_]; }
    double distance(size_t a, size_t b) const;
    size_t nearest(const float *vector) const;

private:
    size_t number_, size_;
    std::vector<double> sums_;
    std::vector<float> means_;
};

// A row for each division; the first one is the engine's own.
std::vector<candidate_features> features_of_divisions(const frames &blocks, int32_t block_size,
                                                      const float *background, const speech_windows &windows,
                                                      const distance_matrix &distances,
                                                      const std::vector<candidate> &divisions);

#endif
