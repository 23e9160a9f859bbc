// SPDX-License-Identifier: Apache-2.0
// What the shipped model is held to, through the engine alone and through the library: no beginning of a
// recording may hand the background to the first speaker, who would then be silent for good.

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <utility>

#include "parley.h"
#include "support.h"
#include "zx_parley_internal.h"

namespace {

constexpr int RATE = 16000;

// The example from within its first speaker's first turn on.
std::vector<int16_t> speech() {
    zx_parley_samples_t samples;
    EXPECT_EQ(zx_parley_internal_read((std::string(PARLEY_SOURCE_DIR) + "/examples/three-voices.wav").c_str(),
                                      INT32_MAX, nullptr, &samples),
              ZX_STATUS_SUCCESS);
    return {samples.pcm + RATE, samples.pcm + 40 * RATE};
}

std::vector<int16_t> behind(const std::vector<int16_t> &front, const std::vector<int16_t> &samples) {
    std::vector<int16_t> result = front;
    result.insert(result.end(), samples.begin(), samples.end());
    return result;
}

std::vector<int16_t> noise(double seconds, double level) {
    std::mt19937 random(1);
    std::vector<int16_t> result(static_cast<size_t>(seconds * RATE));
    for (int16_t &x : result)
        x = static_cast<int16_t>(level * (static_cast<double>(random()) / 2147483648.0 - 1.0));
    return result;
}

struct beginning {
    const char *name;
    std::vector<int16_t> front;
};

std::vector<beginning> beginnings() {
    std::vector<beginning> result = {{"speech", {}}, {"2 s of zeros", std::vector<int16_t>(2 * RATE)}};
    static constexpr int MILLISECONDS[] = {20, 40, 60, 100, 132, 200};
    for (const int ms : MILLISECONDS)
        result.push_back({"zeros", std::vector<int16_t>(static_cast<size_t>(RATE / 1000 * ms))});
    for (const double level : {3.0, 30.0, 300.0}) result.push_back({"noise", noise(1.0, level)});
    return result;
}

TEST(shipped_model, background_threshold_is_not_below_the_segments) {
    zx_parley_t *created = nullptr;
    ASSERT_EQ(zx_parley_init(SHIPPED_MODEL.c_str(), &created), ZX_STATUS_SUCCESS);
    const auto engine = owned<zx_parley_delete>(created);
    EXPECT_GE(engine->param->cluster->background_threshold, engine->param->cluster->segment_threshold);
}

TEST(shipped_model, no_beginning_silences_the_engine) {
    zx_parley_t *created = nullptr;
    ASSERT_EQ(zx_parley_init(SHIPPED_MODEL.c_str(), &created), ZX_STATUS_SUCCESS);
    const auto engine = owned<zx_parley_delete>(created);
    const std::vector<int16_t> samples = speech();
    for (const beginning &b : beginnings()) {
        const std::vector<int16_t> all = behind(b.front, samples);
        int32_t count = 0;
        zx_parley_segment_t *segments = nullptr;
        ASSERT_EQ(
            zx_parley_process(engine.get(), all.data(), static_cast<int32_t>(all.size()), &count, &segments),
            ZX_STATUS_SUCCESS);
        double spoken = 0;
        for (int32_t i = 0; i < count; i++)
            if (segments[i].speaker_tag != 0)
                spoken += double{segments[i].end_sec} - double{segments[i].start_sec};
        zx_parley_segments_delete(segments);
        EXPECT_GT(spoken, 30.0) << b.name << ", " << b.front.size() << " samples";  // of about 37 s
    }
}

class whole_library : public testing::Test {
protected:
    void SetUp() override {
        parley_diarizer *opened = nullptr;
        ASSERT_EQ(parley_open(SHIPPED_MODEL.c_str(), &opened), PARLEY_OK) << parley_message();
        diarizer.reset(opened);
    }

    // Speakers and the seconds that they speak in all.
    std::pair<int32_t, double> result(const std::vector<int16_t> &samples) {
        parley_result *made = nullptr;
        EXPECT_EQ(parley_diarize_samples(diarizer.get(), samples.data(), static_cast<int64_t>(samples.size()),
                                         1, RATE, "speech", nullptr, nullptr, nullptr, &made),
                  PARLEY_OK);
        const auto result = owned<parley_result_delete>(made);
        double spoken = 0;
        for (int32_t k = 0; k < parley_result_num_speakers(made); k++)
            spoken += parley_result_speaker(made, k).seconds;
        return {parley_result_num_speakers(made), spoken};
    }

    zx_owned<parley_diarizer, parley_close> diarizer;
};

TEST_F(whole_library, no_beginning_changes_the_result_much) {
    const std::vector<int16_t> samples = speech();
    for (const beginning &b : beginnings()) {
        const auto [speakers, spoken] = result(behind(b.front, samples));
        EXPECT_EQ(speakers, 3) << b.name << ", " << b.front.size() << " samples";
        EXPECT_NEAR(spoken, 37, 3) << b.name << ", " << b.front.size() << " samples";
    }
}

TEST_F(whole_library, a_few_words_in_a_long_silence_are_somebody_and_noise_is_nobody) {
    const std::vector<int16_t> samples = speech();
    for (const double level : {3.0, 30.0, 300.0}) {
        const std::vector<int16_t> hiss = noise(15, level);
        EXPECT_EQ(result(hiss).first, 0) << level;
        for (const int start : {4, 12, 25}) {
            const std::vector<int16_t> words(samples.begin() + start * RATE,
                                             samples.begin() + start * RATE + RATE * 7 / 10);
            const auto [speakers, spoken] = result(behind(behind(hiss, words), hiss));
            EXPECT_EQ(speakers, 1) << level << ", " << start;
            EXPECT_NEAR(spoken, 1.0, 0.5) << level << ", " << start;
        }
    }
}

}  // namespace
