// SPDX-License-Identifier: Apache-2.0
#include "speech_detection.h"

#include <algorithm>
#include <array>

#include "best_stretches.h"
#include "for_each_part.h"
#include "packed_vectors.h"

namespace {

constexpr int32_t PART = 1024;  // frames that a thread does at once
constexpr int32_t HOP = 4;      // frames for which one stands
constexpr size_t AT_ONCE = packed_vectors::AT_ONCE;
constexpr double SPEECH_CHANGE_COST = 150;  // log odds
// Log odds from which a frame counts ten-fold, so that one word is heard in minutes of silence.
constexpr double EVIDENT = 3.5, EVIDENT_WEIGHT = 10;

// The mean of the frames around one, which moves on with it.
class moving_mean {
public:
    moving_mean(const frames &embeddings, int32_t context)
        : all_(embeddings), reach_(context / 2), sums_(static_cast<size_t>(embeddings.size)) {}

    void begin(int32_t frame) {
        begin_ = end_ = std::max(0, frame - reach_);
        std::fill(sums_.begin(), sums_.end(), 0);
    }

    // To a frame that comes after the one before, and its mean.
    void move(int32_t frame, float *mean) {
        for (const int32_t end = std::min(all_.count, frame + reach_ + 1); end_ < end; end_++) add(end_, 1);
        for (const int32_t begin = std::max(0, frame - reach_); begin_ < begin; begin_++) add(begin_, -1);
        for (size_t d = 0; d < sums_.size(); d++) mean[d] = static_cast<float>(sums_[d] / (end_ - begin_));
    }

private:
    void add(int32_t frame, double sign) {
        const float *row = all_.at(frame);
        for (size_t d = 0; d < sums_.size(); d++) sums_[d] += sign * double{row[d]};
    }

    const frames &all_;
    int32_t reach_, begin_ = 0, end_ = 0;
    std::vector<double> sums_;
};

std::vector<const float *> rows_of(const speech_network &network) {
    std::vector<const float *> rows(network.num_units());
    for (size_t u = 0; u < rows.size(); u++) rows[u] = &network.weights[u * network.num_inputs()];
    return rows;
}

class detection {
public:
    detection(const frames &embeddings, const speech_network &network, int num_threads)
        : all_(embeddings),
          network_(network),
          weights_(rows_of(network), static_cast<int32_t>(network.num_inputs())),
          workers_(static_cast<size_t>(std::max(num_threads, 1))),
          log_odds_(static_cast<size_t>(embeddings.count)) {
        for (worker &w : workers_) {
            for (const int32_t context : network.contexts) w.means.emplace_back(embeddings, context);
            w.inputs.resize(AT_ONCE * network.num_inputs());
            w.units.resize(AT_ONCE * weights_.width());
        }
    }

    std::vector<float> run() {
        for_each_part(static_cast<int32_t>(workers_.size()), all_.count, PART,
                      [this](int32_t number, int32_t first, int32_t end) {
                          compute(first, end, &workers_[static_cast<size_t>(number)]);
                      });
        return std::move(log_odds_);
    }

private:
    struct worker {
        std::vector<moving_mean> means;
        std::vector<float> inputs;
        std::vector<float> units;
    };

    void compute(int32_t first, int32_t end, worker *w) {
        for (moving_mean &mean : w->means) mean.begin(first);
        std::array<const float *, AT_ONCE> inputs;
        for (int32_t f = first; f < end;) {
            size_t count = 0;
            for (int32_t g = f; count < AT_ONCE && g < end; count++, g += HOP) {
                float *input = &w->inputs[count * network_.num_inputs()];
                for (size_t c = 0; c < w->means.size(); c++)
                    w->means[c].move(std::min(g + HOP / 2, end - 1),
                                     input + c * static_cast<size_t>(all_.size));
                inputs[count] = input;
            }
            weights_.multiply({inputs.data(), count}, w->units.data());
            for (size_t i = 0; i < count; i++, f += HOP)
                std::fill(log_odds_.begin() + f, log_odds_.begin() + std::min(f + HOP, end),
                          output_of(&w->units[i * weights_.width()]));
        }
    }

    float output_of(const float *units) const {
        double sum = double{network_.output_bias};
        for (size_t u = 0; u < network_.num_units(); u++)
            sum += double{network_.output_weights[u]} * double{std::max(0.0F, units[u] + network_.biases[u])};
        return static_cast<float>(sum);
    }

    const frames &all_;
    const speech_network &network_;
    packed_vectors weights_;
    std::vector<worker> workers_;
    std::vector<float> log_odds_;
};

}  // namespace

std::vector<float> speech_log_odds(const frames &embeddings, const speech_network &network, int num_threads) {
    return detection(embeddings, network, num_threads).run();
}

std::vector<int32_t> rows_of_speech(const frames &embeddings, const speech_network &network, double bias,
                                    int num_threads) {
    const std::vector<float> log_odds = speech_log_odds(embeddings, network, num_threads);
    std::vector<double> scores(log_odds.size());
    for (size_t f = 0; f < scores.size(); f++) {
        const double odds = bias + double{log_odds[f]};
        scores[f] = odds > EVIDENT ? EVIDENT_WEIGHT * odds : odds;
    }
    const std::vector<bool> is_speech = best_stretches(scores, SPEECH_CHANGE_COST);
    std::vector<int32_t> rows;
    for (size_t f = 0; f < is_speech.size(); f++)
        if (is_speech[f]) rows.push_back(static_cast<int32_t>(f));
    return rows;
}
