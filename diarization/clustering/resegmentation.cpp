#include "resegmentation.h"

#include <algorithm>

#include "zx_kernels.h"
#include "zx_parallel.h"

namespace {

constexpr double CHANGE_COST = 3;  // pays if the frames after it are nearer by 0.3 for ten frames, say
// What a speaker needs not to be taken for an accident: a twenty-fifth of the recording, from 1 s up, but not
// more than 3.5 s.
constexpr int32_t SHORTEST_SPEAKER = 31, SHORTEST_SPEAKER_OF_LONG = 110;  // frames
constexpr int32_t FEW_WORDS = 12;                                         // frames, 0.4 s

// Products of frames with every state's centroid. These lie in groups of GROUP states whose values of one
// dimension are side by side: a group's sums, each in order of the dimensions, are computed together.
class products {
public:
    products(const frames &all, const std::vector<const float *> &means)
        : all_(all),
          num_groups_((means.size() - 1) / GROUP + 1),
          centroids_(num_groups_ * GROUP * static_cast<size_t>(all.size)),
          num_rows_(std::max(PART, MOST_VALUES / static_cast<int32_t>(width()) / PART * PART)),
          values_(static_cast<size_t>(std::min(num_rows_, all.count)) * width()) {
        for (size_t k = 0; k < means.size(); k++)
            for (size_t d = 0; d < static_cast<size_t>(all.size); d++)
                centroids_[(k / GROUP * static_cast<size_t>(all.size) + d) * GROUP + k % GROUP] =
                    double{means[k][d]};
    }

    // Of a frame; rising from 0.
    double *of(int32_t frame, int num_threads) {
        if (frame % num_rows_ == 0) {
            first_ = frame;
            const int32_t num_parts = (std::min(num_rows_, all_.count - frame) - 1) / PART + 1;
            (void) zx_parallel_run(num_threads, num_parts, {compute_part, this}, nullptr);
        }
        return &values_[static_cast<size_t>(frame - first_) * width()];
    }

private:
    static constexpr size_t GROUP = ZX_KERNELS_GROUP;
    static constexpr int32_t PART = 1024;            // frames that a thread does at once
    static constexpr int32_t MOST_VALUES = 1 << 20;  // that are held

    size_t width() const { return num_groups_ * GROUP; }

    static zx_status_t compute_part(void *context, int32_t, int32_t part) {
        auto *self = static_cast<products *>(context);
        const int32_t end = std::min((part + 1) * PART, self->all_.count - self->first_);
        for (int32_t row = part * PART; row < end; row++) {
            zx_kernels()->loops->products(self->all_.size, static_cast<int32_t>(self->num_groups_),
                                          self->all_.at(self->first_ + row), self->centroids_.data(),
                                          &self->values_[static_cast<size_t>(row) * self->width()]);
        }
        return ZX_STATUS_SUCCESS;
    }

    const frames &all_;
    size_t num_groups_;
    std::vector<double> centroids_;
    int32_t num_rows_;  // that are held, from first_ on
    std::vector<double> values_;
    int32_t first_ = 0;
};

// The best way through: for each frame the index of its state, whose centroids are the rows of `means`,
// nobody's first.
std::vector<uint16_t> decide(const frames &all, const std::vector<const float *> &means, double reluctance,
                             int num_threads) {
    const size_t num_states = means.size();
    products cosines(all, means);
    const auto count = static_cast<size_t>(all.count);
    std::vector<double> best(num_states);
    std::vector<uint16_t> from(count);  // the best state before each frame
    // Whether a state is better reached from there than from itself.
    std::vector<uint8_t> changed(count * num_states);
    for (size_t t = 0; t < count; t++) {
        double *here = cosines.of(static_cast<int32_t>(t), num_threads);
        here[0] -= reluctance;
        const auto before = std::max_element(best.begin(), best.end());
        const double moved = t > 0 ? *before - CHANGE_COST : -1;
        from[t] = static_cast<uint16_t>(before - best.begin());
        uint8_t *flags = &changed[t * num_states];
        for (size_t k = 0; k < num_states; k++) {
            flags[k] = moved > best[k];
            best[k] = std::max(best[k], moved) + here[k];
        }
    }
    std::vector<uint16_t> path(count);
    auto state = static_cast<size_t>(std::max_element(best.begin(), best.end()) - best.begin());
    for (size_t t = count; t-- > 0;) {
        path[t] = static_cast<uint16_t>(state);
        if (changed[t * num_states + state] != 0) state = from[t];
    }
    return path;
}

}  // namespace

void refine_tags(const frames &all, const float *background, double reluctance, double same, int fewest,
                 tags *which, int num_threads) {
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
        const std::vector<uint16_t> path = decide(all, means, reluctance, num_threads);
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
