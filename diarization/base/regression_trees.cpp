// SPDX-License-Identifier: Apache-2.0
#include "regression_trees.h"

double regression_trees::evaluate(std::span<const double> features) const {
    double sum = 0;
    for (const int32_t root : roots) {
        const tree_node *node = &nodes[static_cast<size_t>(root)];
        while (node->feature >= 0)
            node += features[static_cast<size_t>(node->feature)] > double{node->value} ? node->distance : 1;
        sum += double{node->value};
    }
    return sum;
}
