// SPDX-License-Identifier: Apache-2.0
#include "session.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <set>

#include "errors.h"
#include "formats.h"
#include "options.h"
#include "support.h"

namespace {

const std::string FOLDER = PARLEY_SOURCE_DIR;

class listening : public testing::Test {
protected:
    listening() : owner_(SHIPPED_MODEL) { options_ = default_options(); }

    std::vector<int16_t> example() {
        const progress_function unwatched;
        const zx_parley_samples_t read =
            owner_.own_engine()->read_samples(FOLDER + "/examples/three-voices.wav", unwatched);
        return {read.pcm, read.pcm + read.count};
    }

    // Everything that is known of a result.
    static std::string all_of(diarization d) {
        d.with_confidence = d.with_embeddings = true;
        d.path = d.recording = "x";
        return write_format(d, "json", {}) + write_format(d, "svg", {}) + d.note;
    }

    diarizer owner_;
    parley_options options_;
};

TEST_F(listening, in_the_end_it_is_the_result_of_the_whole) {
    const std::vector<int16_t> speech = example();
    // Twice, so that chunks of the network are complete on the way.
    std::vector<int16_t> mono = speech;
    mono.insert(mono.end(), speech.begin(), speech.end());
    std::vector<int16_t> louder;  // at the end, by 36 dB
    for (const int16_t sample : speech) louder.push_back(static_cast<int16_t>(sample / 64));
    louder.insert(louder.end(), speech.begin(), speech.end());
    std::vector<int16_t> stereo;
    for (const int16_t sample : resample(mono, 16000, 32000)) {
        stereo.push_back(sample);
        stereo.push_back(static_cast<int16_t>(sample / 2));
    }
    const struct {
        const std::vector<int16_t> *samples;
        int32_t channels, rate;
    } cases[] = {
        {&mono, 1, 16000}, {&louder, 1, 16000}, {&stereo, 2, 32000}, {&speech, 1, 44100}, {&speech, 1, 8000}};
    std::mt19937 random(1);
    for (const auto &[samples, channels, rate] : cases) {
        session live(&owner_, "x", options_, channels, rate);
        const auto count = static_cast<int64_t>(samples->size()) / channels;
        diarization state;
        for (int64_t at = 0; at < count;) {
            const auto piece = std::min<int64_t>(count - at, static_cast<int64_t>(random() % 120000));
            live.feed(samples->data() + at * channels, piece);
            at += piece;
            if (random() % 4 == 0) live.update(random() % 2 == 0 ? 1 : 0, &state);
        }
        const given_samples given = {samples->data(), count, channels, rate};
        diarization whole = owner_.run("x", &given, options_, nullptr);
        whole.note.clear();  // on what channels have in common, which only all of them tell
        EXPECT_EQ(all_of(live.end()), all_of(whole)) << channels << " channels, " << rate << " Hz";
    }
}

TEST_F(listening, speakers_keep_their_names) {
    const std::vector<int16_t> samples = example();
    options_.names = "Ann";
    session live(&owner_, "x", options_, 1, 16000);
    diarization state;
    EXPECT_FALSE(live.update(1, &state));  // nothing was heard
    std::set<std::string> names;
    double reported = 0;
    constexpr size_t PIECE = 24000;
    for (size_t at = 0; at + PIECE <= samples.size(); at += PIECE) {
        live.feed(&samples[at], PIECE);
        ASSERT_TRUE(live.update(at % (3 * PIECE) == 0 ? 1 : 0, &state));
        EXPECT_FALSE(live.update(1, &state));
        ASSERT_FALSE(at > 32000 && state.segments.empty());
        for (const segment &s : state.segments)
            names.insert(state.speakers[static_cast<size_t>(s.speaker)].name);
        if (at < 48000) continue;
        EXPECT_EQ(state.speakers[static_cast<size_t>(state.segments.front().speaker)].name, "Ann");
        reported += state.segments.back().end;
        EXPECT_LE(state.segments.back().end, state.duration);
    }
    EXPECT_GT(reported, 0);
    EXPECT_LE(names.size(), 4U);  // three voices; one may have been met before it could be reported apart
}

TEST_F(listening, what_cannot_be_heard_is_refused) {
    session live(&owner_, "x", options_, 1, 16000);
    const std::vector<int16_t> little(300);
    live.feed(little.data(), 300);
    EXPECT_THROW(live.end(), diarization_error);
    EXPECT_THROW(session(&owner_, "x", options_, 1, 11025), diarization_error);
    options_.channels = 1;
    EXPECT_THROW(session(&owner_, "x", options_, 2, 16000), diarization_error);
}

}  // namespace
