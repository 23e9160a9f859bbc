// SPDX-License-Identifier: Apache-2.0
#include "assignment.h"

#include <cstddef>
#include <limits>

// The Hungarian algorithm, a shortest path for each row, in O(n^3).
std::vector<int> best_assignment(const std::vector<std::vector<double>> &values) {
    const size_t num_rows = values.size(), num_columns = num_rows > 0 ? values[0].size() : 0;
    const size_t n = std::max(num_rows, num_columns);  // made square with worthless entries
    const auto cost = [&](size_t i, size_t j) {
        return i < num_rows && j < num_columns ? -values[i][j] : 0.0;
    };
    const size_t none = n;
    std::vector<double> row_potential(n, 0.0), column_potential(n + 1, 0.0);
    std::vector<size_t> row_of(n + 1, none);  // of each column; column n starts a search
    for (size_t row = 0; row < n; row++) {
        std::vector<double> distance(n + 1, std::numeric_limits<double>::infinity());
        std::vector<size_t> previous(n + 1, n);
        std::vector<bool> is_done(n + 1, false);
        size_t column = n;
        row_of[n] = row;
        do {
            is_done[column] = true;
            const size_t i = row_of[column];
            double step = std::numeric_limits<double>::infinity();
            size_t nearest = n;
            for (size_t j = 0; j < n; j++) {
                if (is_done[j]) continue;
                const double reduced = cost(i, j) - row_potential[i] - column_potential[j];
                if (reduced < distance[j]) {
                    distance[j] = reduced;
                    previous[j] = column;
                }
                if (distance[j] < step) {
                    step = distance[j];
                    nearest = j;
                }
            }
            for (size_t j = 0; j <= n; j++) {
                if (is_done[j]) {
                    row_potential[row_of[j]] += step;
                    column_potential[j] -= step;
                } else {
                    distance[j] -= step;
                }
            }
            column = nearest;
        } while (row_of[column] != none);
        while (column != n) {
            row_of[column] = row_of[previous[column]];
            column = previous[column];
        }
    }
    std::vector<int> assignment(num_rows, -1);
    for (size_t j = 0; j < num_columns; j++) {
        if (row_of[j] < num_rows && values[row_of[j]][j] > 0) assignment[row_of[j]] = static_cast<int>(j);
    }
    return assignment;
}
