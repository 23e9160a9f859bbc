// SPDX-License-Identifier: Apache-2.0
#include "linkage.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace {

// The nearest of the other clusters that are left; `before` where it is as near as any.
size_t nearest_of(const distance_matrix &distances, const std::vector<size_t> &left, size_t cluster,
                  size_t before) {
    size_t nearest = before;
    float least = distances.at(cluster, before == distances.n ? cluster : before);
    for (const size_t k : left) {
        const float away = distances.at(cluster, k);
        if (k == cluster || (nearest != distances.n && !(away < least))) continue;
        nearest = k;
        least = away;
    }
    return nearest;
}

// Lance and Williams's formulas: from a cluster of size k to the union of two of sizes a and b.
float distance_to_both(linkage how, float a, float b, float k, float to_a, float to_b, float between) {
    switch (how) {
        case linkage::complete:
            return std::max(to_a, to_b);
        case linkage::average:
            return (a * to_a + b * to_b) / (a + b);
        case linkage::ward:
            break;
    }
    return ((a + k) * to_a + (b + k) * to_b - k * between) / (a + b + k);
}

}  // namespace

std::vector<merge> linkage_tree(distance_matrix distances, linkage how) {
    const size_t n = distances.n;
    std::vector<merge> tree;
    std::vector<size_t> left(n), chain;
    std::iota(left.begin(), left.end(), size_t{0});
    std::vector<float> size(n, 1.0F);
    while (tree.size() + 1 < n) {
        if (chain.empty()) chain.push_back(left.front());
        for (;;) {
            const size_t before = chain.size() > 1 ? chain[chain.size() - 2] : n;
            const size_t next = nearest_of(distances, left, chain.back(), before);
            if (next == before) break;
            chain.push_back(next);
        }
        const size_t b = chain.back(), a = chain[chain.size() - 2];
        chain.resize(chain.size() - 2);
        tree.push_back({a, b, distances.at(a, b)});
        left.erase(std::lower_bound(left.begin(), left.end(), b));
        for (const size_t k : left) {
            if (k == a) continue;
            const float to_a = distances.at(a, k), to_b = distances.at(b, k);
            const float to_both =
                distance_to_both(how, size[a], size[b], size[k], to_a, to_b, distances.at(a, b));
            distances.set(a, k, to_both);
        }
        size[a] += size[b];
    }
    std::stable_sort(tree.begin(), tree.end(),
                     [](const merge &a, const merge &b) { return a.height < b.height; });
    return tree;
}

std::vector<size_t> cut_tree(const std::vector<merge> &tree, size_t num_points, size_t number) {
    std::vector<size_t> parent(num_points);
    std::iota(parent.begin(), parent.end(), size_t{0});
    const auto root = [&parent](size_t point) {
        while (parent[point] != point) point = parent[point] = parent[parent[point]];
        return point;
    };
    for (size_t m = 0; m + number < num_points; m++) parent[root(tree[m].second)] = root(tree[m].first);
    std::vector<size_t> result(num_points), number_of(num_points, num_points);
    size_t next = 0;
    for (size_t i = 0; i < num_points; i++) {
        size_t &cluster = number_of[root(i)];
        if (cluster == num_points) cluster = next++;
        result[i] = cluster;
    }
    return result;
}
