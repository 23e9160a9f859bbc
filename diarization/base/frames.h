// SPDX-License-Identifier: Apache-2.0
// The embeddings of a recording and what is computed of them.
#ifndef PARLEY_FRAMES_H
#define PARLEY_FRAMES_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

inline constexpr double FRAME_SECONDS = 0.032;

// Rows of unit length, one a frame; borrowed.
struct frames {
    const float *values = nullptr;
    int32_t count = 0;
    int32_t size = 0;
    const int32_t *rows = nullptr;  // of `values`, rising: for frames that are some of a recording's

    const float *at(int32_t frame) const { return values + int64_t{rows ? rows[frame] : frame} * size; }

    // The frames [first, end).
    frames part(int32_t first, int32_t end) const {
        return rows ? frames{values, end - first, size, rows + first}
                    : frames{at(first), end - first, size, nullptr};
    }
};

using tags = std::vector<uint32_t>;  // a frame's speaker, from 1 on; 0 where nobody speaks
using centroids = std::map<uint32_t, std::vector<float>>;  // of unit length, by tag

// The frames [first, end) are added to `sums`, a value for each dimension, one after the other.
void add_frames(const frames &embeddings, int32_t first, int32_t end, float *sums);

// The mean of the frames [first, end), scaled to unit length; zeros stay zeros.
std::vector<float> mean_of(const frames &embeddings, int32_t first, int32_t end);

// The same of every tag's frames but those of tag 0.
centroids centroids_of(const frames &embeddings, const tags &labels);

// Of two vectors of unit length.
double cosine(const float *a, const float *b, size_t size);

// (1 - cosine) / 2
double distance(const float *a, const float *b, size_t size);
double distance(const std::vector<float> &a, const std::vector<float> &b);

// How far apart the means of so many frames of one speaker seem to be: what is said in a few seconds is not
// all that a voice is, and the mean of n frames lies about 2 / n away from the speaker's own. Two stretches
// of 3 s are 0.04 apart for that alone.
double distance_by_chance(double frames_a, double frames_b);

// Frames [start, end) of one tag.
struct run {
    int32_t start, end;
    uint32_t tag;
};

// The longest stretches of equal tags, but those of tag 0.
std::vector<run> runs_of(const tags &labels);

// The nearest two speakers of labels become one, unless they are farther apart than `limit`, what chance may
// add to the distance of few frames taken off; a row is the mean of so many frames. False if nothing was
// joined.
bool join_nearest(const centroids &speakers, double limit, int32_t frames_a_row, tags *labels);

// Different tags but 0.
int count_speakers(const tags &labels);

#endif
