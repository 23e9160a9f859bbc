// SPDX-License-Identifier: Apache-2.0
#include "overlap_detection.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "best_stretches.h"
#include "for_each_part.h"
#include "packed_vectors.h"
#include "zx_math.h"

namespace {

constexpr int32_t FRAMES_AT_ONCE = 1024;   // of a thread
constexpr double OVERLAP_CHANGE_COST = 4;  // log odds
constexpr size_t SHORTEST_SECOND = 3;      // frames, 0.1 s

enum class activation { none, rectified };

// A convolution, ready to be computed.
class layer {
public:
    explicit layer(const convolution &of)
        : of_(of),
          weights_(rows_of(of), of.num_inputs * of.taps),
          inputs_(packed_vectors::AT_ONCE * static_cast<size_t>(of.num_inputs * of.taps)),
          products_(packed_vectors::AT_ONCE * weights_.width()) {}

    // Rows of `count` frames to rows of as many; beyond the first and the last there are zeros.
    void compute(const std::vector<float> &from, size_t count, activation kind, std::vector<float> *to) {
        const auto num_inputs = static_cast<size_t>(of_.num_inputs);
        const size_t num_outputs = of_.biases.size(), width = num_inputs * static_cast<size_t>(of_.taps);
        to->resize(count * num_outputs);
        std::array<const float *, packed_vectors::AT_ONCE> rows;
        for (size_t first = 0; first < count; first += rows.size()) {
            const size_t at_once = std::min(rows.size(), count - first);
            for (size_t i = 0; i < at_once; i++) {
                gather(from, count, first + i, &inputs_[i * width]);
                rows[i] = &inputs_[i * width];
            }
            weights_.multiply({rows.data(), at_once}, products_.data());
            for (size_t i = 0; i < at_once; i++) {
                const float *products = &products_[i * weights_.width()];
                float *outputs = &(*to)[(first + i) * num_outputs];
                for (size_t o = 0; o < num_outputs; o++) {
                    outputs[o] = products[o] + of_.biases[o];
                    if (kind == activation::rectified) outputs[o] = std::max(0.0F, outputs[o]);
                }
            }
        }
    }

private:
    static std::vector<const float *> rows_of(const convolution &of) {
        std::vector<const float *> rows(of.biases.size());
        const auto width = static_cast<size_t>(of.num_inputs * of.taps);
        for (size_t o = 0; o < rows.size(); o++) rows[o] = &of.weights[o * width];
        return rows;
    }

    // The inputs of all taps for one frame, side by side.
    void gather(const std::vector<float> &from, size_t count, size_t frame, float *inputs) const {
        const auto num_inputs = static_cast<size_t>(of_.num_inputs);
        for (int32_t tap = 0; tap < of_.taps; tap++, inputs += num_inputs) {
            const int64_t at = static_cast<int64_t>(frame) + int64_t{tap - of_.taps / 2} * of_.dilation;
            if (at < 0 || at >= static_cast<int64_t>(count))
                std::fill_n(inputs, num_inputs, 0.0F);
            else
                std::copy_n(&from[static_cast<size_t>(at) * num_inputs], num_inputs, inputs);
        }
    }

    const convolution &of_;
    packed_vectors weights_;
    std::vector<float> inputs_, products_;
};

class overlap_detection {
public:
    overlap_detection(const frames &embeddings, const overlap_network &network, int num_threads)
        : all_(embeddings), log_odds_(static_cast<size_t>(embeddings.count)) {
        workers_.resize(static_cast<size_t>(std::max(num_threads, 1)));
        for (std::vector<layer> &layers : workers_)
            for (const convolution &of : network.layers) layers.emplace_back(of);
        for (const convolution &of : network.layers) reach_ += of.taps / 2 * of.dilation;
    }

    std::vector<float> run() {
        for_each_part(static_cast<int32_t>(workers_.size()), all_.count, FRAMES_AT_ONCE,
                      [this](int32_t number, int32_t first, int32_t end) {
                          compute(first, end, &workers_[static_cast<size_t>(number)]);
                      });
        return std::move(log_odds_);
    }

private:
    // With as many frames on both sides as the layers reach, so that parts do not matter.
    void compute(int32_t first, int32_t end, std::vector<layer> *layers) {
        const int32_t begin = std::max(0, first - reach_);
        const auto count = static_cast<size_t>(std::min(all_.count, end + reach_) - begin);
        std::vector<float> values, spread, added;
        for (size_t f = 0; f < count; f++) {
            const float *row = all_.at(begin + static_cast<int32_t>(f));
            values.insert(values.end(), row, row + all_.size);
        }
        layers->front().compute(values, count, activation::rectified, &added);
        std::swap(values, added);
        for (size_t l = 1; l + 1 < layers->size(); l += 2) {
            (*layers)[l].compute(values, count, activation::rectified, &spread);
            (*layers)[l + 1].compute(spread, count, activation::none, &added);
            for (size_t i = 0; i < values.size(); i++) values[i] += added[i];
        }
        layers->back().compute(values, count, activation::none, &added);
        for (int32_t f = first; f < end; f++) {
            const float *of_number = &added[static_cast<size_t>(f - begin) * 3];  // nobody, one, more
            log_odds_[static_cast<size_t>(f)] = of_number[2] - std::max(of_number[0], of_number[1]);
        }
    }

    const frames &all_;
    std::vector<std::vector<layer>> workers_;
    int32_t reach_ = 0;
    std::vector<float> log_odds_;
};

// Who speaks nearest to the frames [start, end) but their own speaker, before rather than behind; 0: nobody.
uint32_t nearest_other(const tags &labels, size_t start, size_t end) {
    const uint32_t own = labels[start];
    const auto is_other = [&](size_t frame) { return labels[frame] != 0 && labels[frame] != own; };
    for (size_t away = 1; away <= start || end + away <= labels.size(); away++) {
        if (away <= start && is_other(start - away)) return labels[start - away];
        if (end + away <= labels.size() && is_other(end + away - 1)) return labels[end + away - 1];
    }
    return 0;
}

}  // namespace

std::vector<float> overlap_log_odds(const frames &embeddings, const overlap_network &network,
                                    int num_threads) {
    return overlap_detection(embeddings, network, num_threads).run();
}

tags second_speakers(const tags &labels, const std::vector<float> &log_odds) {
    std::vector<double> scores(labels.size());
    for (size_t f = 0; f < labels.size(); f++)
        scores[f] = labels[f] == 0 ? -OVERLAP_CHANGE_COST : double{log_odds[f]};
    std::vector<bool> is_overlap = best_stretches(scores, OVERLAP_CHANGE_COST);
    for (size_t f = 0; f < labels.size(); f++) is_overlap[f] = is_overlap[f] && labels[f] != 0;
    tags second(labels.size());
    for (size_t start = 0, end = 0; start < labels.size(); start = end) {
        for (end = start + 1;
             end < labels.size() && is_overlap[end] == is_overlap[start] && labels[end] == labels[start];)
            end++;
        // What a change of speakers cuts off may be a frame or two.
        if (is_overlap[start] && end - start >= SHORTEST_SECOND)
            std::fill(second.begin() + static_cast<std::ptrdiff_t>(start),
                      second.begin() + static_cast<std::ptrdiff_t>(end), nearest_other(labels, start, end));
    }
    return second;
}

double overlap_probability(const std::vector<float> &log_odds, const run &stretch) {
    double sum = 0;
    for (int32_t f = stretch.start; f < stretch.end; f++) sum += double{log_odds[static_cast<size_t>(f)]};
    const double mean = std::clamp(sum / (stretch.end - stretch.start), -8.0, 7.9);
    auto value = static_cast<int16_t>(std::lround(mean * 1024));
    zx_sigmoid(1, &value, &value);
    return value / 32768.0;
}
