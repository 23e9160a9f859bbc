// SPDX-License-Identifier: Apache-2.0
#include "find_speakers.h"

#include <algorithm>
#include <limits>
#include <numeric>

#include "pieces.h"
#include "resegmentation.h"
#include "speech_detection.h"

namespace {

// Of the background's threshold: speakers and windows that are nearer to the background are none.
constexpr double LIKE_BACKGROUND = 0.8;
constexpr double SPEECH_BIAS = 10;                   // log odds for one unit of cosine
constexpr int32_t LONGEST_TO_CLUSTER_AGAIN = 20000;  // frames, 10 minutes

// A division of the engine's into labels of blocks, resegmented: all of them, or those from `first` on.
tags resegmented(engine *own, const frame_blocks &blocks, int32_t first, const clustering_policy &policy,
                 const tags &labels_of_frames) {
    tags labels = blocks.from_frames(labels_of_frames);
    resegment(blocks.view().part(first, first + static_cast<int32_t>(labels.size())), own->background(),
              {.speech_bias = policy.speech_bias,
               .merge_threshold = policy.values[0],
               .frames_a_row = blocks.block_size(),
               .num_threads = own->get()->num_workers},
              &labels);
    return labels;
}

// The clustering drops who has less than about a second. Where that leaves nobody, short speech may still be
// there, at last somewhat nearer to the background: nobody at all is the rarer result.
tags short_speech(engine *own, const frames &embeddings, const clustering_policy &policy) {
    for (const double nearness : {1.0, 0.9}) {
        tags labels(static_cast<size_t>(embeddings.count));
        find_short_speech(embeddings, own->background(), policy.speech_bias, nearness * policy.values[3],
                          &labels);
        if (count_speakers(labels) > 0) return labels;
    }
    return {};
}

// The cheapest by the model's trees of those with an allowed number of speakers; of none allowed, of those
// whose number is nearest to what is.
size_t choose(const candidate_set &candidates, const regression_trees &trees, int min_speakers,
              int max_speakers, division_evidence *evidence) {
    const std::vector<candidate_features> features = candidates.features();
    std::vector<double> costs;
    size_t best = 0;
    int best_away = std::numeric_limits<int>::max();
    for (size_t i = 0; i < features.size(); i++) {
        const int number = candidates.all()[i].num_speakers;
        const int away = std::max({0, min_speakers - number, number - max_speakers});
        costs.push_back(trees.is_empty() ? static_cast<double>(i) : trees.evaluate(features[i]));
        if (away > best_away || (away == best_away && costs[i] >= costs[best])) continue;
        best = i;
        best_away = away;
    }
    evidence->cost = costs[best];
    evidence->margin = 1;
    for (size_t i = 0; i < costs.size(); i++)
        if (candidates.all()[i].num_speakers != candidates.all()[best].num_speakers)
            evidence->margin = std::min(evidence->margin, costs[i] - costs[best]);
    return best;
}

std::vector<int32_t> rows_of_speech(engine *own, const frames &embeddings, const clustering_policy &policy) {
    const bool is_known = policy.with_resegmentation && !own->parameters().speech.is_empty();
    if (is_known)
        return rows_of_speech(embeddings, own->parameters().speech, SPEECH_BIAS * policy.speech_bias,
                              own->get()->num_workers);
    std::vector<int32_t> rows(static_cast<size_t>(embeddings.count));
    std::iota(rows.begin(), rows.end(), 0);
    return rows;
}

}  // namespace

speaker_search::speaker_search(engine *own, const frames &recording, const clustering_policy &policy,
                               const progress_function &progress)
    : policy_(policy),
      num_frames_(static_cast<size_t>(recording.count)),
      rows_(rows_of_speech(own, recording, policy)),
      all_{recording.values, static_cast<int32_t>(rows_.size()), recording.size, rows_.data()},
      blocks_(all_) {
    if (rows_.empty()) return;
    input_.embeddings = &all_;
    input_.background.assign(own->background(), own->background() + all_.size);
    input_.speech_bias = policy.speech_bias;
    input_.min_background_distance = LIKE_BACKGROUND * policy.values[3];
    input_.num_threads = own->get()->num_workers;
    input_.first_labels = own->cluster(all_, policy.values, progress);
    input_.engine_labels = policy.with_resegmentation
                               ? resegmented(own, blocks_, 0, policy, input_.first_labels)
                               : blocks_.from_frames(input_.first_labels);
    if (policy.with_resegmentation && count_speakers(input_.engine_labels) == 0)
        few_words_ = short_speech(own, all_, policy);
}

clustering_result speaker_search::find(engine *own, int min_speakers, int max_speakers) {
    if (!few_words_.empty())
        return {labels_of_recording(few_words_), "a few words only: too little to tell speakers apart", {}};
    const int most = max_speakers > 0 ? max_speakers : std::numeric_limits<int>::max();
    const int fewest = std::min(min_speakers, most);
    const int count = count_speakers(input_.engine_labels);
    const bool is_allowed = count >= fewest && count <= most;
    const regression_trees &trees = own->parameters().candidate_costs;
    const bool is_settled = is_allowed && (trees.is_empty() || !policy_.with_resegmentation);
    if (count == 0 || is_settled) {
        const tags labels = policy_.with_resegmentation
                                ? at_full_resolution(input_, blocks_, input_.engine_labels, fewest)
                                : input_.first_labels;
        return {labels_of_recording(labels), "", {}};
    }
    clustering_result result;
    if (min_speakers > 0) candidates(own)->add_number(fewest);
    if (max_speakers > 0) candidates(own)->add_number(most);
    const size_t chosen = choose(*candidates(own), trees, fewest, most, &result.evidence);
    result.labels = labels_of_recording(candidates_->labels_of_frames(chosen, fewest));
    const int found = count_speakers(result.labels);
    if (found < fewest) result.note = "only " + std::to_string(found) + " speakers can be told apart";
    return result;
}

void speaker_search::describe(engine *own, std::vector<candidate_features> *features,
                              std::vector<tags> *labels) {
    if (count_speakers(input_.engine_labels) == 0) return;
    *features = candidates(own)->features();
    for (size_t i = 0; i < features->size(); i++)
        labels->push_back(labels_of_recording(candidates_->labels_of_frames(i, 1)));
}

tags speaker_search::labels_of_recording(const tags &labels) const {
    tags result(num_frames_);
    for (size_t f = 0; f < labels.size(); f++) result[static_cast<size_t>(rows_[f])] = labels[f];
    return result;
}

// With the engine's clustering by merge thresholds on both sides of the model's, where that takes no time,
// and minute by minute.
candidate_set *speaker_search::candidates(engine *own) {
    if (candidates_) return candidates_.get();
    for (const double factor : {0.7, 0.85, 1.2}) {
        if (all_.count > LONGEST_TO_CLUSTER_AGAIN) break;
        thresholds values = policy_.values;
        values[0] *= factor;
        input_.other_labels.push_back(own->cluster(all_, values, nullptr));
    }
    const int32_t size = blocks_.block_size();
    input_.pieces = divide_pieces(blocks_.view(), size, [&](int32_t first, int32_t end) {
        const frames piece = all_.part(first * size, std::min(end * size, all_.count));
        return resegmented(own, blocks_, first, policy_, own->cluster(piece, policy_.values, nullptr));
    });
    candidates_ = std::make_unique<candidate_set>(input_, blocks_);
    return candidates_.get();
}
