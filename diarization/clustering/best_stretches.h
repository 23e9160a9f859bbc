// SPDX-License-Identifier: Apache-2.0
// Decides frame by frame between two states, with an eye on the frames around: the Viterbi algorithm.
#ifndef PARLEY_BEST_STRETCHES_H
#define PARLEY_BEST_STRETCHES_H

#include <vector>

// Of all ways to call frames true or false, the one with the largest sum of scores over the true ones, less
// `change_cost` for each change from one to the other.
std::vector<bool> best_stretches(const std::vector<double> &scores, double change_cost);

#endif
