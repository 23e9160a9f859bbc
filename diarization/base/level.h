// SPDX-License-Identifier: Apache-2.0
// How loud a recording is, and a quiet one's features as if it were louder: the network hears quiet speech
// worse than loud speech. Loud ones stay as they are, since somebody in them may be quiet.
//
// Features are 1024 log10(energy / 2^30) of bands, 16-bit, so that a gain of g dB adds 102.4 g to each.
#ifndef PARLEY_LEVEL_H
#define PARLEY_LEVEL_H

#include <cstdint>
#include <vector>

// The level that is exceeded for five seconds and a hundredth of the time, in the loudest band: neither a few
// bangs nor long pauses move it. Of short recordings it is the level of the loudest quarter.
class level_meter {
public:
    // Rows of features before normalization, one every 16 ms, in any order.
    void add(const int16_t *rows, int64_t num_rows);

    int32_t level() const;  // of what was added, at least one row

private:
    std::vector<uint32_t> counts_ = std::vector<uint32_t>(UINT16_MAX + 1);  // rows, by level
    int64_t num_rows_ = 0;
};

// Of rows in one piece.
int32_t level_of(const int16_t *rows, int64_t num_rows);

// What brings a lower `level` up to `target`, in the unit of features; at most 24 dB, since louder than that
// the noise of a quiet room sounds like speech.
int32_t gain_to(int32_t target, int32_t level);

// Adds the gain to every value of the rows.
void amplify(int16_t *rows, int64_t num_rows, int32_t gain);

#endif
