// SPDX-License-Identifier: Apache-2.0
#include "score.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <sstream>

#include "assignment.h"

namespace {

// A conversation of 5.1 s of speech, small enough to score by hand.
const std::vector<turn> REFERENCE = {{0, 2, "A"}, {1.5, 3.5, "B"}, {4, 5.1, "A"}};
const std::vector<turn> HYPOTHESIS = {{0, 0.8, "1"}, {0.6, 2.3, "2"}, {2.1, 3.9, "3"}, {3.8, 5.2, "1"}};

double percent(double part, const score &s) {
    return 100 * part / s.speech;
}

}  // namespace

// By hand: A is 1 (0-0.8 and 4-5.1), B is 3 (2.1-3.5), 2 belongs to nobody. Missed: one of two speakers
// during 1.5-2.0. False alarm: 0.6-0.8, 2.1-2.3, 3.5-4.0 and once more during 3.8-3.9, 5.1-5.2. Confusion:
// 0.8-2.1, during 1.5-2.0 once.
TEST(score, agrees_with_an_example_worked_by_hand) {
    const score all = score_recording(REFERENCE, HYPOTHESIS, nullptr, {});
    EXPECT_NEAR(all.speech, 5.1, 1e-9);
    EXPECT_NEAR(all.missed, 0.5, 1e-9);
    EXPECT_NEAR(all.false_alarm, 1.1, 1e-9);
    EXPECT_NEAR(all.confusion, 1.3, 1e-9);
    EXPECT_NEAR(percent(all.missed, all), 9.80, 0.005);
    EXPECT_NEAR(percent(all.false_alarm, all), 21.57, 0.005);
    EXPECT_NEAR(percent(all.confusion, all), 25.49, 0.005);
    EXPECT_NEAR(all.der(), 56.86, 0.005);
    EXPECT_EQ(all.num_speakers, 2);
    EXPECT_EQ(all.num_found, 3);
    EXPECT_EQ(all.count_error, 1);
    EXPECT_EQ(all.num_counted_right, 0);
    EXPECT_EQ(all.num_small, 1);
    EXPECT_EQ(all.num_small_right, 0);

    EXPECT_NEAR(score_recording(REFERENCE, HYPOTHESIS, nullptr, {.skip_overlap = true}).der(), 46.34, 0.005);
    EXPECT_NEAR(score_recording(REFERENCE, HYPOTHESIS, nullptr, {.collar = 0.2}).der(), 35.48, 0.005);
    const std::vector<span> parts = {{0.5, 5.0}};
    EXPECT_NEAR(score_recording(REFERENCE, HYPOTHESIS, &parts, {}).der(), 60.00, 0.005);
}

// A with 1: together 1.9 s of 3.1 and 2.2, so either 3.4 s; B with 3: 1.4 s of 2 and 1.8, either 2.4 s.
TEST(score, jaccard_error_averages_over_speakers) {
    const score all = score_recording(REFERENCE, HYPOTHESIS, nullptr, {});
    EXPECT_NEAR(all.jer(), 100 * ((1 - 1.9 / 3.4) + (1 - 1.4 / 2.4)) / 2, 1e-6);
}

TEST(score, perfect_empty_and_hopeless_hypotheses) {
    const std::vector<turn> renamed = {{0, 2, "x"}, {1.5, 3.5, "y"}, {4, 5.1, "x"}};
    const score perfect = score_recording(REFERENCE, renamed, nullptr, {});
    EXPECT_EQ(perfect.der(), 0);
    EXPECT_NEAR(perfect.jer(), 0, 1e-9);
    EXPECT_EQ(perfect.num_counted_right, 1);
    EXPECT_EQ(perfect.num_small_right, 1);

    const score empty = score_recording(REFERENCE, {}, nullptr, {});
    EXPECT_NEAR(empty.der(), 100, 1e-9);
    EXPECT_NEAR(empty.jer(), 100, 1e-9);
    EXPECT_EQ(score_recording({}, {}, nullptr, {}).der(), 0);
    EXPECT_TRUE(std::isinf(score_recording({}, HYPOTHESIS, nullptr, {}).der()));
}

TEST(score, overlapping_turns_of_one_speaker_count_once) {
    const std::vector<turn> doubled = {{0, 3, "A"}, {1, 2, "A"}};
    EXPECT_NEAR(score_recording(doubled, {{0, 3, "1"}}, nullptr, {}).der(), 0, 1e-9);
    EXPECT_NEAR(score_recording(doubled, doubled, nullptr, {}).speech, 3, 1e-9);
}

TEST(score, recordings_add_up_by_time) {
    score total = score_recording({{0, 9, "A"}}, {{0, 9, "1"}}, nullptr, {});
    total += score_recording({{0, 1, "A"}}, {}, nullptr, {});
    EXPECT_NEAR(total.der(), 10, 1e-9);
    EXPECT_NEAR(total.jer(), 50, 1e-9);
    EXPECT_EQ(total.num_recordings, 2);
    EXPECT_EQ(total.num_counted_right, 1);
}

// Against all permutations.
TEST(best_assignment, is_optimal) {
    uint32_t state = 1;
    const auto next = [&state] { return (state = state * 1664525 + 1013904223) >> 16; };
    for (int round = 0; round < 300; round++) {
        const size_t rows = 1 + next() % 5, columns = 1 + next() % 5, n = std::max(rows, columns);
        std::vector<std::vector<double>> values(rows, std::vector<double>(columns));
        for (auto &row : values) {
            for (double &value : row) value = next() % 3 == 0 ? 0 : next() % 10;
        }
        std::vector<size_t> order(n);
        std::iota(order.begin(), order.end(), size_t{0});
        double best = 0;
        do {
            double sum = 0;
            for (size_t i = 0; i < rows; i++) sum += order[i] < columns ? values[i][order[i]] : 0;
            best = std::max(best, sum);
        } while (std::next_permutation(order.begin(), order.end()));
        double sum = 0;
        std::vector<bool> is_used(columns, false);
        const std::vector<int> assignment = best_assignment(values);
        for (size_t i = 0; i < rows; i++) {
            if (assignment[i] < 0) continue;
            const auto j = static_cast<size_t>(assignment[i]);
            EXPECT_FALSE(is_used[j]);
            is_used[j] = true;
            sum += values[i][j];
        }
        EXPECT_EQ(sum, best);
    }
    EXPECT_TRUE(best_assignment({}).empty());
}

TEST(rttm, is_read_and_written) {
    std::istringstream text(
        ";; comment\n\nSPKR-INFO x 1 <NA>\n"
        "SPEAKER a 1 0.5 1.25 <NA> <NA> Ann <NA> <NA>\nSPEAKER b 1 3 0 <NA> <NA> Bob\n");
    const rttm turns = read_rttm(text, "x.rttm");
    ASSERT_EQ(turns.size(), 2u);
    EXPECT_EQ(turns.at("a")[0].end, 1.75);
    EXPECT_EQ(turns.at("b")[0].speaker, "Bob");
    EXPECT_EQ(format_rttm("a", turns.at("a")[0]), "SPEAKER a 1 0.500 1.250 <NA> <NA> Ann <NA> <NA>\n");

    std::istringstream parts("a 1 0 2.5\na 1 3 4\n");
    EXPECT_EQ(read_uem(parts, "x.uem").at("a")[1].start, 3);
}

TEST(rttm, lines_that_make_no_sense_are_named) {
    for (const char *line : {"SPEAKER a 1 0.5", "SPEAKER a 1 x 1 <NA> <NA> A", "SPEAKER a 1 1 -1 <NA> <NA> A",
                             "SPEAKER a 1 1 nan <NA> <NA> A", "SPEAKER a 1 1s 1 <NA> <NA> A"}) {
        std::istringstream text(std::string("\n") + line);
        try {
            read_rttm(text, "x.rttm");
            ADD_FAILURE() << line;
        } catch (const std::runtime_error &error) {
            EXPECT_THAT(error.what(), testing::StartsWith("x.rttm:2: "));
        }
    }
    std::istringstream backwards("a 1 5 4\n");
    EXPECT_THROW(read_uem(backwards, "x.uem"), std::runtime_error);
}
