// SPDX-License-Identifier: Apache-2.0
// How many groups the eigenvalues of an affinity graph tell of: a count that does not come from a clustering.
#ifndef PARLEY_SPECTRUM_H
#define PARLEY_SPECTRUM_H

#include <cstddef>
#include <vector>

#include "linkage.h"

// The smallest eigenvalues, rising, and the largest one of a symmetric matrix (n > 0 rows of n values): by
// Householder's reflections to a tridiagonal one, then by bisection on Sturm's sequences.
std::vector<double> smallest_eigenvalues(std::vector<double> matrix, size_t n, size_t number,
                                         double *largest);

// The number of groups by the largest gap between the eigenvalues of the graph's Laplacian in which each
// point is joined to its p nearest, for the p whose gap is clearest for its size (Park et al. 2019,
// normalised maximum eigengap). At most 10; 1 for fewer than 6 points.
int count_by_eigengap(const distance_matrix &distances);

#endif
