// SPDX-License-Identifier: Apache-2.0
#include "best_stretches.h"

#include <cstddef>

std::vector<bool> best_stretches(const std::vector<double> &scores, double change_cost) {
    double without = 0, within = 0;                                // the best sums of ways that end so
    std::vector<bool> begins(scores.size()), ends(scores.size());  // there, if the state is to be better
    for (size_t f = 0; f < scores.size(); f++) {
        begins[f] = without - change_cost > within;
        ends[f] = within - change_cost > without;
        const double before = without;
        if (ends[f]) without = within - change_cost;
        if (begins[f]) within = before - change_cost;
        within += scores[f];
    }
    std::vector<bool> result(scores.size());
    bool now = within > without;
    for (size_t f = scores.size(); f-- > 0;) {
        result[f] = now;
        if (now ? begins[f] : ends[f]) now = !now;
    }
    return result;
}
