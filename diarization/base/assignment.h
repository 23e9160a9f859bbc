// SPDX-License-Identifier: Apache-2.0
// The best one-to-one matching of rows and columns: of speakers with a reference's, with known voices, with
// those of a moment ago.
#ifndef PARLEY_ASSIGNMENT_H
#define PARLEY_ASSIGNMENT_H

#include <vector>

// The assignment of rows to columns, each used at most once, with the largest sum of values >= 0: the column
// of every row, or -1.
std::vector<int> best_assignment(const std::vector<std::vector<double>> &values);

#endif
