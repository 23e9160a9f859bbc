// SPDX-License-Identifier: Apache-2.0
#include "spectrum.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace {

struct tridiagonal {
    std::vector<double> diagonal, beside;  // beside[i] couples i and i + 1
};

tridiagonal reduce(std::vector<double> a, size_t n) {
    tridiagonal result;
    std::vector<double> v(n), w(n);
    for (size_t k = 0; k + 2 < n; k++) {
        double norm = 0;
        for (size_t i = k + 1; i < n; i++) norm += a[i * n + k] * a[i * n + k];
        norm = std::sqrt(norm);
        const double head = a[(k + 1) * n + k];
        const double alpha = head > 0 ? -norm : norm;
        if (norm > 0) {
            double length = 0;  // of the reflection's normal, squared
            for (size_t i = k + 1; i < n; i++) {
                v[i] = a[i * n + k] - (i == k + 1 ? alpha : 0);
                length += v[i] * v[i];
            }
            if (length > 0) {
                double product = 0;
                for (size_t i = k + 1; i < n; i++) {
                    double sum = 0;
                    for (size_t j = k + 1; j < n; j++) sum += a[i * n + j] * v[j];
                    w[i] = 2 * sum / length;
                    product += w[i] * v[i];
                }
                const double half = product / length;
                for (size_t i = k + 1; i < n; i++) w[i] -= half * v[i];
                for (size_t i = k + 1; i < n; i++)
                    for (size_t j = k + 1; j < n; j++) a[i * n + j] -= v[i] * w[j] + w[i] * v[j];
            }
        }
        result.beside.push_back(alpha);
    }
    if (n > 1) result.beside.push_back(a[(n - 1) * n + n - 2]);
    for (size_t i = 0; i < n; i++) result.diagonal.push_back(a[i * n + i]);
    return result;
}

// Eigenvalues below x.
size_t count_below(const tridiagonal &t, double x) {
    constexpr double TINY = 1e-300;
    size_t count = 0;
    double pivot = 1;
    for (size_t i = 0; i < t.diagonal.size(); i++) {
        const double coupling = i == 0 ? 0 : t.beside[i - 1] * t.beside[i - 1];
        pivot = t.diagonal[i] - x - coupling / pivot;
        if (pivot > -TINY && pivot < TINY) pivot = -TINY;
        if (pivot < 0) count++;
    }
    return count;
}

// The `which`-th smallest eigenvalue between two bounds.
double eigenvalue(const tridiagonal &t, size_t index, double low, double high) {
    for (int i = 0; i < 40; i++) {
        const double middle = (low + high) / 2;
        (count_below(t, middle) > index ? high : low) = middle;
    }
    return (low + high) / 2;
}

double largest_bound(const tridiagonal &t) {
    double bound = 0;
    for (size_t i = 0; i < t.diagonal.size(); i++) {
        const double before = i == 0 ? 0 : std::abs(t.beside[i - 1]);
        const double after = i + 1 < t.diagonal.size() ? std::abs(t.beside[i]) : 0;
        bound = std::max(bound, std::abs(t.diagonal[i]) + before + after);
    }
    return bound;
}

}  // namespace

std::vector<double> smallest_eigenvalues(std::vector<double> matrix, size_t n, size_t number,
                                         double *largest) {
    const tridiagonal t = reduce(std::move(matrix), n);
    const double bound = largest_bound(t);
    std::vector<double> values;
    for (size_t i = 0; i < std::min(n, number); i++) values.push_back(eigenvalue(t, i, -bound, bound));
    *largest = eigenvalue(t, n - 1, -bound, bound);
    return values;
}

int count_by_eigengap(const distance_matrix &distances) {
    constexpr size_t NUM_PRUNINGS = 6, NUM_VALUES = 11;
    const size_t n = distances.n;
    if (n < 6) return 1;
    std::vector<std::vector<size_t>> nearest(n, std::vector<size_t>(n));
    for (size_t i = 0; i < n; i++) {
        std::iota(nearest[i].begin(), nearest[i].end(), size_t{0});
        std::stable_sort(nearest[i].begin(), nearest[i].end(),
                         [&](size_t a, size_t b) { return distances.at(i, a) < distances.at(i, b); });
    }
    double clearest = std::numeric_limits<double>::infinity();
    int result = 1;
    const size_t max_number = std::max<size_t>(3, n / 4);
    for (size_t step = 0; step < NUM_PRUNINGS; step++) {
        const size_t p = 2 + (max_number - 2) * step / (NUM_PRUNINGS - 1);
        std::vector<double> laplacian(n * n, 0.0);
        for (size_t i = 0; i < n; i++) {
            for (size_t k = 0; k < p; k++) {
                const size_t j = nearest[i][k];
                if (i == j) continue;
                laplacian[i * n + j] -= 0.5;
                laplacian[j * n + i] -= 0.5;
                laplacian[i * n + i] += 0.5;
                laplacian[j * n + j] += 0.5;
            }
        }
        double largest;
        const std::vector<double> values =
            smallest_eigenvalues(std::move(laplacian), n, NUM_VALUES, &largest);
        double gap = 0;
        int groups = 1;
        for (size_t i = 1; i < values.size(); i++) {
            if (values[i] - values[i - 1] > gap) {
                gap = values[i] - values[i - 1];
                groups = static_cast<int>(i);
            }
        }
        const double ratio =
            static_cast<double>(p) / static_cast<double>(n) / (gap / (largest + 1e-9) + 1e-9);
        if (ratio < clearest) {
            clearest = ratio;
            result = groups;
        }
    }
    return result;
}
