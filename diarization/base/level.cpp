// SPDX-License-Identifier: Apache-2.0
#include "level.h"

#include <algorithm>

#include "zx_filterbank.h"

namespace {

constexpr int64_t ROWS_ABOVE = 312;  // 5 s
constexpr int64_t SHARE_ABOVE = 100, SHORTEST_SHARE = 4;
constexpr int32_t MOST_UP = 2458;  // 24 dB

}  // namespace

void level_meter::add(const int16_t *rows, int64_t num_rows) {
    for (int64_t i = 0; i < num_rows; i++, rows += ZX_FILTERBANK_NUM_BANDS)
        counts_[static_cast<size_t>(*std::max_element(rows, rows + ZX_FILTERBANK_NUM_BANDS) - INT16_MIN)]++;
    num_rows_ += num_rows;
}

int32_t level_meter::level() const {
    int64_t above = std::min(ROWS_ABOVE + num_rows_ / SHARE_ABOVE, num_rows_ / SHORTEST_SHARE);
    int32_t level = INT16_MAX;
    for (; level > INT16_MIN; level--) {
        above -= counts_[static_cast<size_t>(level - INT16_MIN)];
        if (above < 0) break;
    }
    return level;
}

int32_t level_of(const int16_t *rows, int64_t num_rows) {
    level_meter meter;
    meter.add(rows, num_rows);
    return meter.level();
}

int32_t gain_to(int32_t target, int32_t level) {
    return std::clamp(target - level, 0, MOST_UP);
}

void amplify(int16_t *rows, int64_t num_rows, int32_t gain) {
    for (int64_t i = 0; i < num_rows * ZX_FILTERBANK_NUM_BANDS; i++)
        rows[i] = static_cast<int16_t>(std::clamp(rows[i] + gain, int32_t{INT16_MIN}, int32_t{INT16_MAX}));
}
