// SPDX-License-Identifier: Apache-2.0
// The same search for speakers behind every door: a recording asked again, training's stages, the library.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "diarizer.h"
#include "embeddings_file.h"
#include "errors.h"
#include "formats.h"
#include "options.h"
#include "parley_stages.h"
#include "reading.h"
#include "support.h"

namespace {

class asking_again : public testing::Test {
protected:
    asking_again() : owner_(SHIPPED_MODEL) {
        options_ = default_options();
        options_.confidence = 1;
        const zx_parley_samples_t read = owner_.own_engine()->read_samples(
            std::string(PARLEY_SOURCE_DIR) + "/examples/three-voices.wav", nullptr);
        samples_.assign(read.pcm, read.pcm + read.count);
    }

    diarization run(const std::vector<int16_t> &samples, const parley_options &options) {
        const given_samples given = {samples.data(), static_cast<int64_t>(samples.size()), 1, 16000};
        return owner_.run("x", &given, options, nullptr);
    }

    static std::string text_of(const diarization &d) { return write_format(d, "json", {}) + d.note; }

    diarizer owner_;
    parley_options options_;
    std::vector<int16_t> samples_;
};

TEST_F(asking_again, finds_what_diarizing_with_these_options_finds) {
    options_.keep_embeddings = 1;
    const diarization kept = run(samples_, options_);
    const std::string before = text_of(kept);
    const std::vector<void (*)(parley_options *)> changes = {
        [](parley_options *) {},
        [](parley_options *o) { o->min_speakers = o->max_speakers = 2; },
        [](parley_options *o) { o->max_speakers = 1; },
        [](parley_options *o) { o->min_speakers = 5; },
        [](parley_options *o) { o->sensitivity = 0.8; },
        [](parley_options *o) { o->refine = 0; },
        [](parley_options *o) { o->thresholds[0] = 0.05; },
        [](parley_options *o) { o->merge_gap = 2; },
        [](parley_options *) {},  // and nothing of all that has stayed
    };
    for (size_t i = 0; i < changes.size(); i++) {
        parley_options options = options_;
        changes[i](&options);
        EXPECT_EQ(text_of(owner_.recluster(kept, options)), text_of(run(samples_, options))) << i;
    }
    EXPECT_EQ(text_of(kept), before);
}

// Of the example's three people the first speaks from 0.8 to 7.9 s, the second from 7.9 to 14.4 s.
TEST_F(asking_again, tells_who_else_speaks_where_two_speak_at_once) {
    const size_t first = 24000, second = 129600;  // six seconds of the second's words, above the first's, too
    for (size_t i = 0; i < size_t{6} * 16000; i++) {
        int16_t *sample = &samples_[first + i];
        *sample = static_cast<int16_t>(std::clamp(*sample + samples_[second + i], -32768, 32767));
    }
    options_.keep_embeddings = 1;
    const diarization alone = run(samples_, options_);
    options_.overlap = 1;
    const diarization both = run(samples_, options_);
    double seconds = 0;
    for (const segment &s : both.segments) {
        if (!s.is_overlap) continue;
        EXPECT_LT(s.speaker, 2);
        EXPECT_GT(s.start, 0.8);
        EXPECT_LT(s.end, 8);
        seconds += s.end - s.start;
        for (const segment &other : both.segments) {
            const bool beside = &other != &s && other.start < s.end && other.end > s.start;
            EXPECT_FALSE(beside && other.speaker == s.speaker) << s.start;
        }
    }
    EXPECT_GT(seconds, 4);
    EXPECT_EQ(write_format(both, "srt", {}), write_format(alone, "srt", {}));
    EXPECT_EQ(text_of(owner_.recluster(alone, options_)), text_of(both));
    EXPECT_EQ(text_of(read_result(write_format(both, "json", {}), "x.json")), text_of(both));
    EXPECT_EQ(write_format(read_result(write_format(both, "json", {}), "x.json"), "vtt", {}),
              write_format(alone, "vtt", {}));
}

TEST_F(asking_again, a_file_of_embeddings_takes_the_recordings_place) {
    options_.keep_embeddings = 1;
    const diarization kept = run(samples_, options_);
    const std::string bytes = embeddings_of(kept);
    options_.max_speakers = 2;
    const diarization found = owner_.recluster_file(bytes, "x", options_);
    EXPECT_EQ(text_of(found), text_of(run(samples_, options_)));
    EXPECT_EQ(found.waveform, kept.waveform);
    EXPECT_EQ(embeddings_of(found), bytes);

    const auto is_refused = [&](const std::string &damaged) {
        try {
            owner_.recluster_file(damaged, "x", options_);
        } catch (const diarization_error &error) {
            return std::string(error.what()).starts_with("x: ");
        }
        return false;
    };
    for (const size_t length : {size_t{0}, size_t{5}, size_t{27}, size_t{60}, bytes.size() - 1})
        EXPECT_TRUE(is_refused(bytes.substr(0, length))) << length;
    EXPECT_TRUE(is_refused(bytes + "x"));
    for (size_t at = 0; at < bytes.size(); at += at < 64 ? 1 : bytes.size() / 50) {
        std::string other = bytes;
        other[at] ^= 0x40;
        EXPECT_TRUE(is_refused(other)) << at;
    }
    // Files of a program that means harm have the right sum.
    const auto made = [&](int64_t num_samples, int32_t count, int32_t size, float value) {
        std::vector<float> values(static_cast<size_t>(count) * static_cast<size_t>(size), value);
        return write_embeddings(kept.model, num_samples, {}, {values.data(), count, size});
    };
    for (const std::string &harmful :
         {made(512, 1, 32, 0.1F), made(512, 2, 64, 0.1F), made(-512, 1, 64, 0.1F), made(512, 1, 64, NAN),
          made(512, 1, 64, 3e38F), made(0, 0, 64, 0)})
        EXPECT_TRUE(is_refused(harmful));
    EXPECT_EQ(owner_.recluster_file(made(512, 1, 64, 0.125F), "x", options_).duration, 0.032);
}

TEST_F(asking_again, as_many_speakers_are_found_as_are_asked_for) {
    for (const int32_t number : {1, 2, 3, 4, 5}) {
        options_.min_speakers = options_.max_speakers = number;
        const diarization found = run(samples_, options_);
        EXPECT_EQ(found.speakers.size(), static_cast<size_t>(number)) << found.note;
    }
    options_.min_speakers = options_.max_speakers = 500;
    EXPECT_NE(run(samples_, options_).note.find("speakers can be told apart"), std::string::npos);
}

TEST_F(asking_again, takes_embeddings_that_were_kept_by_the_same_model) {
    diarization found = run(samples_, options_);
    EXPECT_THROW(owner_.recluster(found, options_), diarization_error);
    options_.keep_embeddings = 1;
    found = run(samples_, options_);
    found.model = "another";
    EXPECT_THROW(owner_.recluster(found, options_), diarization_error);
    found.model = owner_.own_engine()->id();
    options_.min_speakers = -1;
    EXPECT_THROW(owner_.recluster(found, options_), diarization_error);
}

// Whether there is a candidate of another method, one speaker, a few words or nobody.
TEST_F(asking_again, training_sees_what_the_product_finds) {
    parley_stages *opened = nullptr;
    ASSERT_EQ(parley_stages_open(SHIPPED_MODEL.c_str(), &opened), PARLEY_OK);
    const std::unique_ptr<parley_stages, decltype(&parley_stages_close)> stages(opened, parley_stages_close);
    const thresholds own = owner_.own_engine()->own_thresholds();
    std::mt19937 random(1);
    std::normal_distribution<double> noise(0, 1);
    int with_speech = 0, without = 0;
    for (const int seconds : {1, 2, 3, 5, 9, 20, 60}) {
        for (const double level : {0.0, 30.0, 1000.0, 6000.0}) {
            const size_t start = random() % (samples_.size() - static_cast<size_t>(seconds) * 16000);
            std::vector<int16_t> part(static_cast<size_t>(seconds) * 16000);
            for (size_t i = 0; i < part.size(); i++) {
                const double sample = (level > 5000 ? 0 : samples_[start + i]) + level * noise(random);
                part[i] = static_cast<int16_t>(std::lround(std::clamp(sample, -32768.0, 32767.0)));
            }
            std::vector<int16_t> rows(part.size() / 256 * 40);
            ASSERT_EQ(parley_stage_features(part.data(), static_cast<int64_t>(part.size()), rows.data()),
                      PARLEY_OK);
            const auto num_frames = static_cast<int32_t>(part.size() / 512);
            const auto size = static_cast<size_t>(parley_stages_dimension(stages.get()));
            std::vector<float> embeddings(static_cast<size_t>(num_frames) * size);
            ASSERT_EQ(parley_stages_embed(stages.get(), rows.data(), num_frames, embeddings.data()),
                      PARLEY_OK);
            std::vector<double> times(2 * static_cast<size_t>(num_frames));
            std::vector<int32_t> speakers(static_cast<size_t>(num_frames));
            int32_t count = 0;
            ASSERT_EQ(parley_stages_segments(stages.get(), embeddings.data(), num_frames, own.data(), 1,
                                             times.data(), speakers.data(), &count),
                      PARLEY_OK);
            const diarization product = run(part, options_);
            ASSERT_EQ(static_cast<size_t>(count), product.segments.size()) << seconds << " s, " << level;
            std::map<int32_t, int> numbers;
            for (size_t i = 0; i < product.segments.size(); i++) {
                EXPECT_EQ(times[2 * i], product.segments[i].start);
                EXPECT_EQ(std::min(times[2 * i + 1], product.duration), product.segments[i].end);
                const int number =
                    numbers.try_emplace(speakers[i], static_cast<int>(numbers.size())).first->second;
                EXPECT_EQ(number, product.segments[i].speaker);
            }
            (count > 0 ? with_speech : without)++;
        }
    }
    EXPECT_GT(with_speech, 10);
    EXPECT_GT(without, 2);
}

}  // namespace
