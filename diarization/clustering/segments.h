// SPDX-License-Identifier: Apache-2.0
// Labels of frames to segments.
#ifndef PARLEY_SEGMENTS_H
#define PARLEY_SEGMENTS_H

#include <array>
#include <vector>

#include "frames.h"
#include "parameters.h"
#include "result.h"

using segment_features = std::array<double, size_t{NUM_SEGMENT_FEATURES}>;

// How sure a division among speakers is, which tells about its segments, too.
struct division_evidence {
    double cost = 0;    // that the trees predict
    double margin = 0;  // to the cheapest division into another number of speakers
};

// Runs of equal labels but 0, with the label in place of the speaker. Their confidence is the probability
// that the speaker is right, by the model's trees; where it has none, how much nearer a segment is to its
// speaker than to the next, from 0 to 1. `features`, if not null, takes what the trees see of each segment.
std::vector<segment> segments_of(const frames &embeddings, const tags &labels, const centroids &speakers,
                                 const float *background, const division_evidence &evidence,
                                 const regression_trees &trees,
                                 std::vector<segment_features> *features = nullptr);

// Seconds.
struct segment_rules {
    double merge_gap = 0;     // a speaker's segments that are not farther apart become one
    double min_duration = 0;  // shorter segments are dropped
    double pad = 0;           // added to both ends where there is room
};

// Applies the rules, in that order, to segments ordered by start.
void tidy_segments(std::vector<segment> *segments, double duration, const segment_rules &rules);

#endif
