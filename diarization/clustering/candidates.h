// SPDX-License-Identifier: Apache-2.0
// Divisions of a recording among speakers, from several methods and for several numbers of speakers, and what
// can be said about each of them without knowing who speaks.
#ifndef PARLEY_CANDIDATES_H
#define PARLEY_CANDIDATES_H

#include <array>
#include <cstdint>
#include <vector>

#include "frame_blocks.h"
#include "frames.h"
#include "linkage.h"
#include "parameters.h"
#include "pieces.h"

// Stretches of speech of about one and a half seconds that overlap, and the unit means of their frames.
struct speech_windows {
    std::vector<run> spans;     // frames
    std::vector<float> values;  // spans.size() rows
    int32_t size = 0;

    size_t count() const { return spans.size(); }
    const float *at(size_t window) const { return &values[window * static_cast<size_t>(size)]; }
    std::vector<const float *> rows() const;
};

// Of the frames with a label but 0. Windows nearer to the background than `min_background_distance` are left
// out. In long recordings they lie farther apart and become longer, so that there are about 800 at most.
speech_windows windows_of(const frames &embeddings, const tags &labels, const float *background,
                          double min_background_distance);

distance_matrix distances_of(const speech_windows &windows);

enum class division_method { engine, engine_short, engine_other, one, complete, average, ward, pieces };

struct candidate {
    division_method method;
    tags labels;  // of blocks
    int num_speakers;
};

using candidate_features = std::array<double, size_t{NUM_CANDIDATE_FEATURES}>;

// What clustering needs to know about a recording, made once for all candidates.
struct clustering_input {
    const frames *embeddings = nullptr;
    std::vector<float> background;
    double speech_bias = 0;
    double min_background_distance = 0;  // of a speaker
    int num_threads = 1;
    tags engine_labels;              // of blocks: as the engine's clustering and its resegmentation have them
    tags first_labels;               // of frames: the same before resegmentation
    std::vector<tags> other_labels;  // of frames: the same by other merge thresholds
    divided_pieces pieces;
};

// Labels of frames from those of blocks: borders are sought again where a block is more than a frame.
tags at_full_resolution(const clustering_input &input, const frame_blocks &blocks, const tags &labels,
                        int min_speakers);

class candidate_set {
public:
    // Divisions into one speaker and into about as many as the engine found. Nothing but the
    // engine's own where there is too little speech.
    candidate_set(const clustering_input &input, const frame_blocks &blocks);

    // Divisions into so many speakers, if they are not there yet; less where so many cannot be found.
    void add_number(int number);

    const std::vector<candidate> &all() const { return candidates_; }

    // A row for each candidate.
    std::vector<candidate_features> features() const;

    // Labels of frames.
    tags labels_of_frames(size_t candidate, int min_speakers) const;

private:
    void add(division_method method, tags labels, int min_speakers, int wanted);
    void add_pieces(size_t number);
    void add_linkage(division_method method, size_t number, int min_speakers);
    const std::vector<merge> &tree_of(linkage how);
    tags cut(const std::vector<merge> &tree, size_t number) const;

    const clustering_input &input_;
    const frame_blocks &blocks_;
    speech_windows windows_;
    distance_matrix distances_;
    std::array<std::vector<merge>, 3> trees_;  // by linkage, once they have been asked for
    std::vector<candidate> candidates_;
};

#endif
