// SPDX-License-Identifier: Apache-2.0
// Agglomerative clustering of points by their distances: the nearest two clusters become one until one is
// left. The merges make a tree, which is cut where a number of clusters is left.
#ifndef PARLEY_LINKAGE_H
#define PARLEY_LINKAGE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

// Symmetric distances of n points, of which each is kept once; that of a point to itself is 0.
class distance_matrix {
public:
    explicit distance_matrix(size_t num_points)
        : n(num_points), values_(num_points * (std::max<size_t>(num_points, 1) - 1) / 2) {}

    float at(size_t i, size_t j) const { return i == j ? 0.0F : values_[place(i, j)]; }
    void set(size_t i, size_t j, float distance) { values_[place(i, j)] = distance; }
    const std::vector<float> &values() const { return values_; }

    size_t n;

private:
    static size_t place(size_t i, size_t j) { return i > j ? i * (i - 1) / 2 + j : j * (j - 1) / 2 + i; }

    std::vector<float> values_;
};

// The distance of two clusters: the largest of two of their points, the mean over all pairs, or by how much
// the sum of squares within clusters grows where they become one (Ward 1963; distances are squared ones then,
// as 1 - cosine is of unit vectors).
enum class linkage { complete, average, ward };

// Of the clusters that hold the points `first` and `second`; the lower a merge, the earlier it happens.
struct merge {
    size_t first, second;
    float height;
};

// The n - 1 merges of n points in the order of their heights, by nearest-neighbour chains in O(n^2) (Murtagh
// 1983): all three linkages are reducible, so that the order in which the chains find merges does not matter.
std::vector<merge> linkage_tree(distance_matrix distances, linkage how);

// The cluster, from 0 on in the order of the points, of every point where `number` clusters are left.
std::vector<size_t> cut_tree(const std::vector<merge> &tree, size_t num_points, size_t number);

#endif
