// SPDX-License-Identifier: Apache-2.0
#include "resegmentation.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

constexpr float BACKGROUND[] = {0, 0, 1};

// Frames of which each is one of: 0 nobody, 1 and 2 two voices at right angles, 3 a voice near the first one.
std::vector<float> rows_of(const std::vector<int> &voices) {
    static constexpr float VOICES[][3] = {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {0.8f, 0.6f, 0}};
    std::vector<float> rows;
    for (const int v : voices) rows.insert(rows.end(), VOICES[v], VOICES[v] + 3);
    return rows;
}

std::vector<int> stretches(std::initializer_list<std::pair<int, int>> parts) {
    std::vector<int> result;
    for (const auto &[value, count] : parts) result.insert(result.end(), static_cast<size_t>(count), value);
    return result;
}

tags resegmented(const std::vector<int> &voices, const std::vector<int> &first_labels, double same = 0,
                 int fewest = 0) {
    const std::vector<float> rows = rows_of(voices);
    tags labels(first_labels.begin(), first_labels.end());
    resegment({rows.data(), static_cast<int32_t>(voices.size()), 3}, BACKGROUND,
              {.merge_threshold = same, .min_speakers = fewest}, &labels);
    return labels;
}

tags expected(const std::vector<int> &values) {
    return {values.begin(), values.end()};
}

TEST(resegmentation, gives_frames_to_the_nearest_speaker) {
    // The clustering lost the beginning of the second voice to nobody and some of its middle to the first
    // one.
    const auto voices = stretches({{1, 100}, {2, 120}, {0, 50}});
    const auto first_labels = stretches({{1, 100}, {0, 14}, {2, 50}, {1, 10}, {2, 46}, {0, 50}});
    EXPECT_EQ(resegmented(voices, first_labels), expected(voices));
}

TEST(resegmentation, a_change_has_to_pay) {
    // Two frames of another voice are two changes for a gain of two.
    const auto voices = stretches({{1, 100}, {2, 2}, {1, 100}, {2, 100}});
    EXPECT_EQ(resegmented(voices, voices), expected(stretches({{1, 202}, {2, 100}})));
}

// A second, a twenty-fifth of a minute and more, three and a half seconds at most.
TEST(resegmentation, who_says_too_little_for_the_recording_goes_to_others_unless_asked_for) {
    for (const auto &[length, fewest_frames] : {std::pair{340, 31}, {2000, 80}, {10000, 110}}) {
        const auto with = [length = length](int frames) {
            return stretches({{1, length / 2}, {2, frames}, {1, length - length / 2 - frames}});
        };
        EXPECT_EQ(resegmented(with(fewest_frames), with(fewest_frames)), expected(with(fewest_frames)))
            << length;
        const auto less = with(fewest_frames - 1);
        EXPECT_EQ(resegmented(less, less), expected(with(0))) << length;
        EXPECT_EQ(resegmented(less, less, 0, 2), expected(less)) << length;
    }
}

// Whether a recording's products are held as a whole or not.
TEST(resegmentation, one_after_the_other_goes_who_says_too_little) {
    for (const int length : {4000, 20000}) {
        const auto voices = stretches({{1, length}, {3, 40}, {1, length}, {0, 300}, {3, 60}});
        const auto first_labels = stretches({{1, length}, {2, 40}, {1, length}, {0, 300}, {3, 60}});
        const std::vector<float> rows = rows_of(voices);
        for (const int num_threads : {1, 3}) {
            tags labels(first_labels.begin(), first_labels.end());
            resegment({rows.data(), static_cast<int32_t>(voices.size()), 3}, BACKGROUND,
                      {.min_frames = 110, .num_threads = num_threads}, &labels);
            EXPECT_EQ(labels, expected(stretches({{1, 2 * length + 40}, {0, 300}, {1, 60}})))
                << length << " frames, " << num_threads << " threads";
        }
    }
}

TEST(resegmentation, speakers_nearer_than_clusters_merge_become_one) {
    const auto voices = stretches({{1, 100}, {3, 100}, {2, 100}});  // 1 and 3 are 0.1 apart
    EXPECT_EQ(resegmented(voices, voices, 0.05), expected(voices));
    EXPECT_EQ(count_speakers(resegmented(voices, voices, 0.12)), 2);
    EXPECT_EQ(count_speakers(resegmented(voices, voices, 0.12, 3)), 3);
}

TEST(resegmentation, of_few_frames_chance_is_taken_off) {
    for (const auto &[length, count] : {std::pair(70, 2), std::pair(140, 3), std::pair(1400, 3)}) {
        const auto voices = stretches({{1, length}, {3, length}, {2, length}});  // 1 and 3 are 0.1 apart
        EXPECT_EQ(count_speakers(resegmented(voices, voices, 0.05)), count) << length;
    }
}

TEST(resegmentation, nobody_stays_nobody) {
    const auto voices = stretches({{0, 100}});
    EXPECT_EQ(resegmented(voices, voices), expected(voices));
}

}  // namespace
