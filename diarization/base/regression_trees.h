// SPDX-License-Identifier: Apache-2.0
// Regression trees whose values add up (gradient boosting): comparisons and additions in a fixed order, so
// that they give the same on every machine.
#ifndef PARLEY_REGRESSION_TREES_H
#define PARLEY_REGRESSION_TREES_H

#include <cstdint>
#include <span>
#include <vector>

struct tree_node {
    int16_t feature;   // -1: a leaf
    int16_t distance;  // from this node to the one for values above the threshold; the other one follows
    float value;       // threshold, or a leaf's value
};

struct regression_trees {
    std::vector<int32_t> roots;
    std::vector<tree_node> nodes;

    bool is_empty() const { return roots.empty(); }

    // The sum of the leaves in which `features` end. Values above a threshold, and none else, go past it.
    double evaluate(std::span<const double> features) const;
};

#endif
