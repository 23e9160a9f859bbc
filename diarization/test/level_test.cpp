// SPDX-License-Identifier: Apache-2.0
#include "level.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine.h"
#include "support.h"
#include "zx_filterbank.h"

namespace {

constexpr int64_t SECOND = 62;  // rows, a little less

// Rows of which one band, another one each time, is so loud, and the others less.
void hear(level_meter *meter, int64_t num_rows, int16_t level) {
    std::vector<int16_t> rows(static_cast<size_t>(num_rows * ZX_FILTERBANK_NUM_BANDS),
                              static_cast<int16_t>(level - 300));
    for (int64_t i = 0; i < num_rows; i++)
        rows[static_cast<size_t>(i * ZX_FILTERBANK_NUM_BANDS + i % ZX_FILTERBANK_NUM_BANDS)] = level;
    meter->add(rows.data(), num_rows);
}

TEST(level, is_that_of_speech_not_of_bangs_and_pauses) {
    const struct {
        const char *name;
        int64_t quiet, speech, bangs;  // seconds
        int16_t level;
    } cases[] = {
        {"speech alone", 0, 60, 0, -4000},
        {"an hour with a minute of speech", 3540, 60, 0, -4000},
        {"three seconds of bangs", 30, 30, 3, -4000},
        {"half a minute of bangs in an hour", 1800, 1800, 30, -4000},
        {"six seconds of bangs in a minute", 20, 40, 6, -1000},
        {"four seconds", 2, 2, 0, -4000},
        {"a word in a quiet minute", 60, 1, 0, -8000},
    };
    for (const auto &[name, quiet, speech, bangs, level] : cases) {
        level_meter meter;
        hear(&meter, quiet * SECOND, -8000);
        hear(&meter, speech * SECOND, -4000);
        hear(&meter, bangs * SECOND, -1000);
        EXPECT_EQ(meter.level(), level) << name;
    }
    for (const int16_t extreme : {int16_t{INT16_MIN}, int16_t{INT16_MAX}}) {
        level_meter meter;
        std::vector<int16_t> row(ZX_FILTERBANK_NUM_BANDS, extreme);
        meter.add(row.data(), 1);
        EXPECT_EQ(meter.level(), extreme);
    }
}

TEST(level, gain_is_limited_and_values_stay_within_theirs) {
    EXPECT_EQ(gain_to(-4500, -5000), 500);
    EXPECT_EQ(gain_to(-4500, -2000), 0);
    EXPECT_EQ(gain_to(-4500, -9000), 2458);
    std::vector<int16_t> row(ZX_FILTERBANK_NUM_BANDS, -100);
    row[0] = INT16_MAX - 100;
    amplify(row.data(), 1, 500);
    EXPECT_EQ(row[0], INT16_MAX);
    EXPECT_EQ(row[1], 400);
    row[1] = INT16_MIN + 100;
    amplify(row.data(), 1, -500);
    EXPECT_EQ(row[1], INT16_MIN);
}

// The shipped model's level reaches the network: what it makes of a quiet recording is what it makes of the
// louder energies.
TEST(level, quiet_recordings_are_louder_in_the_network) {
    engine own(SHIPPED_MODEL);
    const zx_parley_samples_t read =
        own.read_samples(std::string(PARLEY_SOURCE_DIR) + "/examples/three-voices.wav", nullptr);
    for (const double factor : {1.0, 0.02}) {
        std::vector<int16_t> pcm;
        for (int32_t i = 0; i < read.count; i++)
            pcm.push_back(static_cast<int16_t>(std::lround(factor * read.pcm[i])));
        zx_parley_samples_t samples;
        samples.pcm = pcm.data();
        samples.count = read.count;
        const int32_t level = own.level_of(&samples, "speech", nullptr), gain = own.gain_for(level);
        EXPECT_EQ(gain > 0, factor < 1) << level;
        const int32_t num_frames = read.count / ZX_PARLEY_FRAME_LENGTH;
        std::vector<int16_t> rows(samples.feature.get(),
                                  samples.feature.get() + int64_t{num_frames} * ZX_PARLEY_FRAME_SIZE);
        amplify(rows.data(), 2 * int64_t{num_frames}, gain);
        std::vector<float> expected(static_cast<size_t>(num_frames * own.embedding_size()));
        ASSERT_EQ(zx_parley_internal_embed_rows(own.get(), rows.data(), num_frames, expected.data()),
                  ZX_STATUS_SUCCESS);
        const embedding_table found = own.embed(&samples, level, "speech", nullptr);
        ASSERT_EQ(found.count, num_frames);
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), found.values.get())) << factor;
    }
}

}  // namespace
