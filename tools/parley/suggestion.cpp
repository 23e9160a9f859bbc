// SPDX-License-Identifier: Apache-2.0
#include "suggestion.h"

#include <algorithm>
#include <numeric>

namespace parley {

namespace {

// Levenshtein's distance.
size_t distance(const std::string &a, const std::string &b) {
    std::vector<size_t> row(b.size() + 1);  // of the letters of a so far to each beginning of b
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); i++) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < b.size(); j++) {
            const size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string suggestion(const std::string &word, const std::vector<std::string> &known) {
    size_t shortest = std::min<size_t>(3, word.size());
    std::string nearest;
    for (const std::string &other : known) {
        const size_t away = distance(word, other);
        if (away >= shortest) continue;
        shortest = away;
        nearest = other;
    }
    return nearest.empty() ? "" : ": did you mean " + nearest + "?";
}

}  // namespace parley
