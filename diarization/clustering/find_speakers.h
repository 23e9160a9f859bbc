// SPDX-License-Identifier: Apache-2.0
// From embeddings to speakers: the one place that decides who speaks in which frame, for files, live
// sessions, channels and training alike.
//
// What is music or noise for seconds is taken out first (speech_detection.h); what follows sees the rest
// alone. The engine's clustering gives one division of a recording among speakers. Others come from
// agglomerative clustering of windows, for several numbers of speakers (candidates.h). Regression trees that
// were trained on conversations with references tell of each what choosing it would cost in diarization
// errors, and the cheapest is the result. A model without such trees has the engine's division alone.
#ifndef PARLEY_FIND_SPEAKERS_H
#define PARLEY_FIND_SPEAKERS_H

#include <memory>
#include <string>

#include "candidates.h"
#include "engine.h"
#include "segments.h"

struct clustering_policy {
    thresholds values;                // of the engine's clustering
    double speech_bias = 0;           // see resegmentation_options
    bool with_resegmentation = true;  // else the engine's labels, unless a number is asked for

    bool operator==(const clustering_policy &) const = default;
};

struct clustering_result {
    tags labels;       // of frames
    std::string note;  // what a user should know; "" for nothing
    division_evidence evidence;
};

// The search for a recording's speakers. All that does not depend on their number is done once, so that
// another number can be asked for in no time. Everything here throws diarization_error.
class speaker_search {
public:
    // The frames must outlive the search.
    speaker_search(engine *own, const frames &recording, const clustering_policy &policy,
                   const progress_function &progress);
    speaker_search(const speaker_search &) = delete;
    speaker_search &operator=(const speaker_search &) = delete;

    // At least and at most so many speakers; 0: any. `own` is of the same model as before.
    clustering_result find(engine *own, int min_speakers, int max_speakers);

    // All candidates, for training: their features, and their labels if they are chosen.
    void describe(engine *own, std::vector<candidate_features> *features, std::vector<tags> *labels);

    const clustering_policy &policy() const { return policy_; }

private:
    candidate_set *candidates(engine *own);
    tags labels_of_recording(const tags &labels) const;

    clustering_policy policy_;
    size_t num_frames_;          // of the recording
    std::vector<int32_t> rows_;  // those in which somebody may speak, which all else is about
    frames all_;
    frame_blocks blocks_;
    clustering_input input_;
    tags few_words_;  // of frames: where speech is too short for clusters
    std::unique_ptr<candidate_set> candidates_;
};

#endif
