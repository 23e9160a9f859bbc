// SPDX-License-Identifier: Apache-2.0
#include "resegmentation.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "for_each_part.h"
#include "packed_vectors.h"

namespace {

constexpr double CHANGE_COST = 3;  // in cosines of frames
// What a speaker needs not to be taken for an accident: a twenty-fifth of the recording, from 1 s up, but not
// more than 3.5 s.
constexpr int32_t SHORTEST_SPEAKER = 31, SHORTEST_SPEAKER_OF_LONG = 110;  // frames
constexpr int32_t SHORT_SPEECH = 12;                                      // frames, 0.4 s

// Products of frames with every state's centroid: of all frames, or of as many at once as caches hold and
// threads want.
class products {
public:
    products(const frames &embeddings, const std::vector<const float *> &means, int num_threads)
        : all_(embeddings),
          means_(means, embeddings.size),
          num_threads_(num_threads),
          num_rows_(embeddings.count <= MAX_HELD ? embeddings.count
                    : num_threads > 1            ? num_threads * PARTS_A_THREAD * PART
                                                 : PART),
          values_(static_cast<size_t>(std::min(num_rows_, embeddings.count)) * means_.width()) {}

    // Of a frame; rising from 0, as often as one likes.
    const float *of(int32_t frame) {
        if (frame % num_rows_ == 0 && first_ != frame) {
            first_ = frame;
            for_each_part(num_threads_, std::min(num_rows_, all_.count - frame), PART,
                          [this](int32_t, int32_t begin, int32_t end) { compute(begin, end); });
        }
        return &values_[static_cast<size_t>(frame - first_) * means_.width()];
    }

    // From now on a state is worse than any other.
    void take_out(size_t state) {
        taken_out_.push_back(state);
        if (first_ >= 0) spoil(state, 0, std::min(num_rows_, all_.count - first_));
    }

private:
    static constexpr int32_t MAX_HELD = 8192;     // frames of which all products are held
    static constexpr int32_t PART = 1024;         // frames that a thread does at once
    static constexpr int32_t PARTS_A_THREAD = 4;  // before all wait for each other
    static constexpr int32_t AT_ONCE = packed_vectors::AT_ONCE;

    // Of the rows [begin, end) of those that are held.
    void compute(int32_t begin, int32_t end) {
        std::array<const float *, AT_ONCE> rows;
        for (int32_t row = begin; row < end; row += AT_ONCE) {
            const auto count = static_cast<size_t>(std::min(AT_ONCE, end - row));
            for (size_t r = 0; r < count; r++) rows[r] = all_.at(first_ + row + static_cast<int32_t>(r));
            means_.multiply({rows.data(), count}, &values_[static_cast<size_t>(row) * means_.width()]);
        }
        for (const size_t state : taken_out_) spoil(state, begin, end);
    }

    void spoil(size_t state, int32_t begin, int32_t end) {
        for (int32_t row = begin; row < end; row++)
            values_[static_cast<size_t>(row) * means_.width() + state] =
                -std::numeric_limits<float>::infinity();
    }

    const frames &all_;
    packed_vectors means_;
    int num_threads_;
    int32_t num_rows_;  // that are held, from first_ on
    std::vector<float> values_;
    std::vector<size_t> taken_out_;
    int32_t first_ = -1;
};

// The index of the highest, of the first of equals. Each of four maxima waits for itself alone.
size_t index_of_highest(const std::vector<double> &values) {
    std::array<double, 4> highest;
    highest.fill(values[0]);
    size_t i = 0;
    for (; i + highest.size() <= values.size(); i += highest.size())
        for (size_t k = 0; k < highest.size(); k++) highest[k] = std::max(highest[k], values[i + k]);
    for (; i < values.size(); i++) highest[0] = std::max(highest[0], values[i]);
    const double value = *std::max_element(highest.begin(), highest.end());
    const auto place =
        std::find(values.begin(), values.end() - 1, value);  // the last, where none is a number
    return static_cast<size_t>(place - values.begin());
}

// The best path: for each frame the index of its state, nobody's being the first.
std::vector<uint16_t> best_path(products *cosines, size_t num_states, int32_t num_frames,
                                const resegmentation_options &options) {
    const auto count = static_cast<size_t>(num_frames);
    std::vector<double> best(num_states);
    // The best state before each frame, where its stretch began, and where each state's stretch began.
    std::vector<uint16_t> from(count);
    std::vector<int64_t> first_of_from(count), first(num_states);
    for (size_t t = 0; t < count; t++) {
        const float *scores = cosines->of(static_cast<int32_t>(t));
        const size_t before = index_of_highest(best);
        const double moved = t > 0 ? best[before] - CHANGE_COST / options.frames_a_row : -1;
        from[t] = static_cast<uint16_t>(before);
        first_of_from[t] = first[before];
        for (size_t k = 0; k < num_states; k++) {
            first[k] = moved > best[k] ? static_cast<int64_t>(t) : first[k];
            best[k] = std::max(best[k], moved) + double{scores[k]};
        }
        best[0] -= options.speech_bias;
    }
    std::vector<uint16_t> path(count);
    auto state = static_cast<uint16_t>(index_of_highest(best));
    for (int64_t end = num_frames, start = first[state]; end > 0;) {
        std::fill(path.data() + start, path.data() + end, state);
        state = from[static_cast<size_t>(start)];
        end = start;
        start = first_of_from[static_cast<size_t>(start)];
    }
    return path;
}

// The speaker nearest to the background, if nearer than allowed; else 0.
uint32_t speaker_like_background(const centroids &speakers, const float *background, double min_distance) {
    uint32_t nearest = 0;
    double shortest = min_distance;
    for (const auto &[tag, mean] : speakers) {
        if (const double d = distance(background, mean.data(), mean.size()); d < shortest) {
            shortest = d;
            nearest = tag;
        }
    }
    return nearest;
}

// The speaker who has least of a path through states of these names, if that is less than `shortest`; else 0.
uint32_t speaker_with_less(const centroids &speakers, const tags &names, const std::vector<uint16_t> &path,
                           int32_t shortest) {
    std::vector<int32_t> frames_of(names.size());
    for (const uint16_t state : path) frames_of[state]++;
    uint32_t found = 0;
    for (size_t i = 1; i < names.size(); i++) {
        if (frames_of[i] >= shortest || speakers.count(names[i]) == 0) continue;
        shortest = frames_of[i];
        found = names[i];
    }
    return found;
}

bool may_lose_one(const centroids &speakers, const resegmentation_options &options) {
    return static_cast<int>(speakers.size()) > std::max(1, options.min_speakers);
}

// The best path through states of nobody and of the speakers, as tags, without those who are too near to the
// background or have less than `shortest` of it: these are taken out of speakers and labels, one at a time.
tags path_of_those_who_stay(const frames &embeddings, const float *background, int32_t shortest,
                            const resegmentation_options &options, centroids *speakers, tags *labels) {
    std::vector<const float *> means = {background};
    tags names = {0};
    for (const auto &[tag, mean] : *speakers) {
        means.push_back(mean.data());
        names.push_back(tag);
    }
    products cosines(embeddings, means, options.num_threads);
    const auto take_out = [&](uint32_t tag) {
        std::replace(labels->begin(), labels->end(), tag, 0u);
        cosines.take_out(static_cast<size_t>(std::find(names.begin(), names.end(), tag) - names.begin()));
        speakers->erase(tag);
    };
    while (may_lose_one(*speakers, options)) {
        const uint32_t tag = speaker_like_background(*speakers, background, options.min_background_distance);
        if (tag == 0) break;
        take_out(tag);
    }
    for (;;) {
        const std::vector<uint16_t> path = best_path(&cosines, names.size(), embeddings.count, options);
        const uint32_t tag =
            may_lose_one(*speakers, options) ? speaker_with_less(*speakers, names, path, shortest) : 0;
        if (tag == 0) {
            tags result(path.size());
            for (size_t t = 0; t < path.size(); t++) result[t] = names[path[t]];
            return result;
        }
        take_out(tag);
    }
}

}  // namespace

void resegment(const frames &embeddings, const float *background, const resegmentation_options &options,
               tags *labels) {
    const int32_t num_frames = embeddings.count * options.frames_a_row;
    const int32_t min_frames = options.min_frames > 0
                                   ? options.min_frames
                                   : std::clamp(num_frames / 25, SHORTEST_SPEAKER, SHORTEST_SPEAKER_OF_LONG);
    const int32_t shortest = std::max(1, min_frames / options.frames_a_row);
    centroids speakers = centroids_of(embeddings, *labels);
    for (int rounds_left = options.rounds; !speakers.empty();) {
        tags path = path_of_those_who_stay(embeddings, background, shortest, options, &speakers, labels);
        const bool is_new = path != *labels;
        *labels = std::move(path);
        const bool may_join = may_lose_one(speakers, options) && options.merge_threshold >= 0;
        const bool is_last = !is_new || rounds_left == 0;  // the same labels would come again
        if (is_last && !may_join) return;
        speakers = centroids_of(embeddings, *labels);
        if (may_join && join_nearest(speakers, options.merge_threshold, options.frames_a_row, labels))
            speakers = centroids_of(embeddings, *labels);
        else if (is_last)
            return;
        else
            rounds_left--;
    }
}

void find_short_speech(const frames &embeddings, const float *background, double speech_bias,
                       double threshold, tags *labels) {
    std::vector<double> sums(static_cast<size_t>(embeddings.count) + 1);  // of distances, up to a frame
    const std::vector<float> nobody(background, background + embeddings.size);
    for (int32_t t = 0; t < embeddings.count; t++)
        sums[static_cast<size_t>(t) + 1] =
            sums[static_cast<size_t>(t)] + distance(nobody, mean_of(embeddings, t, t + 1));
    for (size_t t = 0; t + SHORT_SPEECH < sums.size(); t++) {
        if (sums[t + SHORT_SPEECH] - sums[t] >= threshold * SHORT_SPEECH)
            std::fill_n(labels->begin() + static_cast<std::ptrdiff_t>(t), SHORT_SPEECH, 1u);
    }
    resegment(embeddings, background, {.speech_bias = speech_bias, .merge_threshold = 0}, labels);
}
