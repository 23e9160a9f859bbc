#include "refine.h"

#include <algorithm>

namespace {

constexpr double CHANGE_COST = 3;  // pays if the frames after it are nearer by 0.3 for ten frames, say
// What a speaker needs not to be taken for an accident: a twenty-fifth of the recording, from 2 s up, but not
// more than 3.5 s.
constexpr int32_t SHORTEST_SPEAKER = 62, SHORTEST_SPEAKER_OF_LONG = 110;  // frames
constexpr int32_t FEW_WORDS = 12;                                         // frames, 0.4 s

// The best way through: for each frame the index of its state, whose centroids are the rows of `means`,
// nobody's first.
std::vector<uint16_t> decide(const frames &all, const std::vector<const float *> &means, double reluctance) {
    const size_t num_states = means.size();
    const auto size = static_cast<size_t>(all.size);
    std::vector<float> by_dimension(size *
                                    num_states);  // states side by side, so that they are computed together
    for (size_t k = 0; k < num_states; k++)
        for (size_t d = 0; d < size; d++) by_dimension[d * num_states + k] = means[k][d];

    const auto count = static_cast<size_t>(all.count);
    std::vector<double> best(num_states), here(num_states);
    std::vector<uint16_t> from(count);  // the best state before each frame
    std::vector<bool> changed(count *
                              num_states);  // whether a state is better reached from there than from itself
    for (size_t t = 0; t < count; t++) {
        std::fill(here.begin(), here.end(), 0.0);
        const float *row = all.at(static_cast<int32_t>(t));
        for (size_t d = 0; d < size; d++)
            for (size_t k = 0; k < num_states; k++)
                here[k] += double{row[d]} * double{by_dimension[d * num_states + k]};
        here[0] -= reluctance;
        const auto before = std::max_element(best.begin(), best.end());
        const double moved = *before - CHANGE_COST;
        from[t] = static_cast<uint16_t>(before - best.begin());
        for (size_t k = 0; k < num_states; k++) {
            changed[t * num_states + k] = t > 0 && moved > best[k];
            best[k] = (t > 0 ? std::max(best[k], moved) : 0.0) + here[k];
        }
    }
    std::vector<uint16_t> path(count);
    auto state = static_cast<size_t>(std::max_element(best.begin(), best.end()) - best.begin());
    for (size_t t = count; t-- > 0;) {
        path[t] = static_cast<uint16_t>(state);
        if (changed[t * num_states + state]) state = from[t];
    }
    return path;
}

}  // namespace

void refine_tags(const frames &all, const float *background, double reluctance, double same, int fewest,
                 tags *which) {
    const int32_t shortest = std::clamp(all.count / 25, SHORTEST_SPEAKER, SHORTEST_SPEAKER_OF_LONG);
    for (;;) {
        const centroids speakers = centroids_of(all, *which);
        if (speakers.empty()) return;
        std::vector<const float *> means = {background};
        tags names = {0};
        for (const auto &[tag, mean] : speakers) {
            means.push_back(mean.data());
            names.push_back(tag);
        }
        const std::vector<uint16_t> path = decide(all, means, reluctance);
        std::vector<int32_t> frames_of(names.size());
        for (const uint16_t state : path) frames_of[state]++;
        const auto least = std::min_element(frames_of.begin() + 1, frames_of.end());
        const bool may_lose_one = static_cast<int>(speakers.size()) > std::max(1, fewest);
        if (*least < shortest && may_lose_one) {
            std::replace(which->begin(), which->end(), names[static_cast<size_t>(least - frames_of.begin())],
                         0u);
            continue;
        }
        for (size_t t = 0; t < path.size(); t++) (*which)[t] = names[path[t]];
        if (!may_lose_one || !join_nearest(all, same, which)) return;
    }
}

void find_few_words(const frames &all, const float *background, double reluctance, double threshold,
                    tags *which) {
    std::vector<double> sums(static_cast<size_t>(all.count) + 1);  // of distances, up to a frame
    const std::vector<float> nobody(background, background + all.size);
    for (int32_t t = 0; t < all.count; t++)
        sums[static_cast<size_t>(t) + 1] =
            sums[static_cast<size_t>(t)] + distance(nobody, mean_of(all, t, t + 1));
    for (size_t t = 0; t + FEW_WORDS < sums.size(); t++) {
        if (sums[t + FEW_WORDS] - sums[t] >= threshold * FEW_WORDS)
            std::fill_n(which->begin() + static_cast<std::ptrdiff_t>(t), FEW_WORDS, 1u);
    }
    refine_tags(all, background, reluctance, 0, 1, which);
}
