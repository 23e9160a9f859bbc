// SPDX-License-Identifier: Apache-2.0
#include "speech_detection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

namespace {

// Log odds of `speech` for frames (1, 0) and of -1 for frames (0, 1), by two units; and `context` frames
// around each.
speech_network network(int32_t context, float speech = 1) {
    return {.contexts = {context},
            .dimension = 2,
            .weights = {1, 0, 0, 1},
            .biases = {0, 0},
            .output_weights = {speech, -1},
            .output_bias = 0};
}

// So many frames each, of speech and of something else in turns.
std::vector<float> frames_in_turns(const std::vector<int> &lengths) {
    std::vector<float> rows;
    for (size_t i = 0; i < lengths.size(); i++)
        for (int k = 0; k < lengths[i]; k++)
            rows.insert(rows.end(), {i % 2 == 0 ? 1.0F : 0.0F, i % 2 == 0 ? 0.0F : 1.0F});
    return rows;
}

frames view(const std::vector<float> &rows) {
    return {rows.data(), static_cast<int32_t>(rows.size() / 2), 2};
}

// Lengths of the stretches of speech and of what lies between them.
std::vector<int> found(const std::vector<int> &lengths, double bias = 0, float speech = 1,
                       int num_threads = 1) {
    const std::vector<float> rows = frames_in_turns(lengths);
    std::vector<int> result = {0};
    int32_t next = 0;
    for (const int32_t row : rows_of_speech(view(rows), network(1, speech), bias, num_threads)) {
        if (row != next) result.insert(result.end(), {row - next, 0});
        result.back()++;
        next = row + 1;
    }
    if (const int left = static_cast<int>(rows.size() / 2) - next; left > 0) result.push_back(left);
    return result;
}

TEST(speech_detection, long_stretches_without_speech_are_left_out) {
    using list = std::vector<int>;
    const struct {
        const char *what;
        list given, found;
        double bias;
        float speech;
    } cases[] = {
        {"speech alone", {400}, {400}, 0, 1},
        {"music alone", {0, 400}, {0, 400}, 0, 1},
        {"a long interlude", {400, 340, 400}, {400, 340, 400}, 0, 1},
        {"at the end one change is enough", {300, 180}, {300, 180}, 0, 1},
        {"a pause stays in the speech", {300, 240, 300}, {840}, 0, 1},
        {"a shout in music is no speech", {0, 300, 240, 300}, {0, 840}, 0, 1},
        {"a bias for speech", {300, 340, 300}, {940}, 0.5, 1},
        {"a bias against it", {400, 240, 400}, {400, 240, 400}, -0.5, 1},
        {"a word that is evident", {0, 400, 8, 400}, {0, 400, 8, 400}, 0, 4},
        {"is too short", {0, 400, 4, 400}, {0, 804}, 0, 4},
        {"is evident by the bias", {0, 400, 8, 400}, {0, 400, 8, 400}, 0.5, 3.45F},
    };
    for (const auto &c : cases) EXPECT_EQ(found(c.given, c.bias, c.speech), c.found) << c.what;
}

TEST(speech_detection, hears_the_same_by_any_number_of_threads) {
    const std::vector<int> lengths = {700, 1500, 2100, 332, 1200};
    EXPECT_EQ(found(lengths), lengths);
    EXPECT_EQ(found(lengths, 0, 1, 3), lengths);
    const std::vector<float> rows = frames_in_turns(lengths);
    EXPECT_EQ(speech_log_odds(view(rows), network(301), 1), speech_log_odds(view(rows), network(301), 4));
}

TEST(speech_detection, takes_the_mean_of_the_frames_around) {
    const std::vector<float> rows = frames_in_turns({1000, 500, 537});
    const std::vector<float> log_odds = speech_log_odds(view(rows), network(101), 1);
    ASSERT_EQ(log_odds.size(), 2037U);
    for (size_t f = 0; f < log_odds.size(); f++) {
        const size_t middle = std::min(f / 4 * 4 + 2, log_odds.size() - 1);
        const size_t first = middle < 50 ? 0 : middle - 50, end = std::min(middle + 51, log_odds.size());
        double sum = 0;
        for (size_t i = first; i < end; i++) sum += double{rows[2 * i]} - double{rows[2 * i + 1]};
        ASSERT_NEAR(log_odds[f], sum / static_cast<double>(end - first), 1e-6) << f;
    }
}

TEST(speech_detection, units_do_not_fall_below_zero) {
    speech_network one = network(1);
    one.biases = {-2, 0.25F};
    one.output_bias = 0.5F;
    const std::vector<float> rows = frames_in_turns({8});
    EXPECT_THAT(speech_log_odds(view(rows), one, 1), testing::Each(0.25F));
}

}  // namespace
