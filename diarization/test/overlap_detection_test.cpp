// SPDX-License-Identifier: Apache-2.0
#include "overlap_detection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <random>

#include "for_each_part.h"

namespace {

using testing::ElementsAreArray;

convolution random_layer(int32_t num_inputs, size_t num_outputs, int32_t taps, int32_t dilation,
                         std::mt19937 *generator) {
    std::normal_distribution<float> values(0, 0.4F);
    convolution layer = {num_inputs, taps, dilation, {}, {}};
    layer.weights.resize(num_outputs * static_cast<size_t>(num_inputs * taps));
    layer.biases.resize(num_outputs);
    for (float &v : layer.weights) v = values(*generator);
    for (float &v : layer.biases) v = values(*generator);
    return layer;
}

overlap_network random_network(std::mt19937 *generator) {
    return {{random_layer(4, 6, 3, 1, generator), random_layer(6, 5, 3, 2, generator),
             random_layer(5, 6, 1, 1, generator), random_layer(6, 6, 3, 16, generator),
             random_layer(6, 6, 1, 1, generator), random_layer(6, 3, 1, 1, generator)}};
}

std::vector<float> random_frames(int count, std::mt19937 *generator) {
    std::normal_distribution<float> values(0, 1);
    std::vector<float> rows(static_cast<size_t>(count) * 4);
    for (float &v : rows) v = values(*generator);
    return rows;
}

using table = std::vector<std::vector<double>>;  // frames of values

// The formula as it stands in parameters.h.
table convolved(const table &from, const convolution &layer) {
    table to(from.size(), std::vector<double>(layer.biases.begin(), layer.biases.end()));
    const auto num_inputs = static_cast<size_t>(layer.num_inputs), taps = static_cast<size_t>(layer.taps);
    for (int f = 0; f < static_cast<int>(from.size()); f++) {
        for (size_t t = 0; t < taps; t++) {
            const int at = f + (static_cast<int>(t) - layer.taps / 2) * layer.dilation;
            if (at < 0 || at >= static_cast<int>(from.size())) continue;
            for (size_t o = 0; o < layer.biases.size(); o++)
                for (size_t i = 0; i < num_inputs; i++)
                    to[static_cast<size_t>(f)][o] += double{layer.weights[(o * taps + t) * num_inputs + i]} *
                                                     from[static_cast<size_t>(at)][i];
        }
    }
    return to;
}

table rectified(table values) {
    for (auto &row : values)
        for (double &v : row) v = std::max(v, 0.0);
    return values;
}

TEST(overlap_detection, layers_are_computed_part_by_part_as_at_once) {
    std::mt19937 generator(1);
    const overlap_network network = random_network(&generator);
    const std::vector<float> rows = random_frames(2500, &generator);
    table values;
    for (size_t f = 0; f < 2500; f++) values.emplace_back(&rows[f * 4], &rows[f * 4] + 4);
    values = rectified(convolved(values, network.layers[0]));
    for (size_t l = 1; l + 1 < network.layers.size(); l += 2) {
        const table added = convolved(rectified(convolved(values, network.layers[l])), network.layers[l + 1]);
        for (size_t f = 0; f < values.size(); f++)
            for (size_t c = 0; c < values[f].size(); c++) values[f][c] += added[f][c];
    }
    const table last = convolved(values, network.layers.back());

    const frames view = {rows.data(), 2500, 4};
    const std::vector<float> found = overlap_log_odds(view, network, 1);
    ASSERT_EQ(found.size(), last.size());
    for (size_t f = 0; f < found.size(); f++)
        ASSERT_NEAR(double{found[f]}, last[f][2] - std::max(last[f][0], last[f][1]), 1e-3) << f;
    EXPECT_EQ(found, overlap_log_odds(view, network, 3));
}

TEST(overlap_detection, memory_that_a_thread_lacks_is_an_exception_of_the_caller) {
    const auto fail_late = [](int32_t, int32_t first, int32_t) {
        if (first == 3000) throw std::bad_alloc();
    };
    for (const int32_t num_workers : {1, 3})
        EXPECT_THROW(for_each_part(num_workers, 5000, 1000, fail_late), std::bad_alloc) << num_workers;
}

// Labels and log odds of so many frames each.
struct stretch {
    int frames;
    uint32_t label;
    float log_odds;
};

struct expected_second {
    int frames;
    uint32_t second;
};

TEST(overlap_detection, the_second_is_who_speaks_nearest) {
    const struct {
        const char *what;
        std::vector<stretch> given;
        std::vector<expected_second> found;
    } cases[] = {
        {"who goes on", {{50, 1, -1}, {30, 1, 1}, {50, 2, -1}}, {{50, 0}, {30, 2}, {50, 0}}},
        {"who spoke before", {{50, 2, -1}, {30, 1, 1}, {50, 1, -1}, {9, 3, -1}}, {{50, 0}, {30, 2}, {59, 0}}},
        {"at a change each is the other's",
         {{50, 1, -1}, {20, 1, 1}, {20, 2, 1}, {50, 2, -1}},
         {{50, 0}, {20, 2}, {20, 1}, {50, 0}}},
        {"but what the change leaves of a stretch may be too short",
         {{50, 1, -1}, {2, 1, 3}, {20, 2, 3}, {2, 1, 3}, {50, 1, -1}, {50, 3, -1}},
         {{52, 0}, {20, 1}, {102, 0}}},
        {"of one alone there is none", {{50, 1, -1}, {30, 1, 1}, {50, 0, -1}}, {{130, 0}}},
        {"where nobody speaks there is none", {{50, 1, -1}, {30, 0, 5}, {50, 2, -1}}, {{130, 0}}},
        {"what is short counts if it is evident",
         {{50, 1, -1}, {5, 1, 1.5F}, {50, 1, -1}, {5, 1, 2}, {50, 2, -1}},
         {{105, 0}, {5, 2}, {50, 0}}},
        {"nothing at all", {}, {}},
    };
    for (const auto &c : cases) {
        tags labels, expected;
        std::vector<float> log_odds;
        for (const stretch &s : c.given) {
            labels.insert(labels.end(), static_cast<size_t>(s.frames), s.label);
            log_odds.insert(log_odds.end(), static_cast<size_t>(s.frames), s.log_odds);
        }
        for (const expected_second &e : c.found)
            expected.insert(expected.end(), static_cast<size_t>(e.frames), e.second);
        EXPECT_THAT(second_speakers(labels, log_odds), ElementsAreArray(expected)) << c.what;
    }
}

TEST(overlap_detection, probabilities_are_those_of_the_mean_log_odds) {
    const std::vector<float> log_odds = {0, 0, 2, -2, 4, 100};
    EXPECT_NEAR(overlap_probability(log_odds, {0, 2, 1}), 0.5, 0.002);
    EXPECT_NEAR(overlap_probability(log_odds, {2, 5, 1}), 0.7914, 0.002);
    EXPECT_GT(overlap_probability(log_odds, {5, 6, 1}), 0.999);
}

}  // namespace
