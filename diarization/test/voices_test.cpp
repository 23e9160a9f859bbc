// SPDX-License-Identifier: Apache-2.0
#include "voices.h"

#include <gtest/gtest.h>

#include <cmath>

#include "errors.h"

namespace {

// Speakers with vectors at angles on a circle, in degrees.
diarization result_of(const std::vector<double> &angles, const std::string &model = "m") {
    diarization d;
    d.model = model;
    for (const double angle : angles) {
        const double radians = angle / 180 * 3.14159265358979;
        d.speakers.push_back(
            {"speaker " + std::to_string(d.speakers.size() + 1),
             10,
             {static_cast<float>(std::cos(radians)), static_cast<float>(std::sin(radians))}});
    }
    return d;
}

voice_sample sample_at(double angle, double seconds = 10) {
    return {result_of({angle}).speakers[0].embedding, seconds, "interview", "2025-01-31"};
}

std::vector<std::string> names_of(const diarization &d) {
    std::vector<std::string> names;
    for (const speaker &s : d.speakers) names.push_back(s.name);
    return names;
}

TEST(voices, known_people_get_their_names_once) {
    voice_list voices;
    add_voice(&voices, "Ann", "m", sample_at(0));
    add_voice(&voices, "Bob", "m", sample_at(90));
    add_voice(&voices, "Ann", "m", sample_at(30, 12.34));  // another sample
    add_voice(&voices, "Ann", "m", sample_at(0));          // which is there
    voices = read_voices(write_voices(voices));
    ASSERT_EQ(voices.people.size(), 2U);
    ASSERT_EQ(voices.people[0].samples.size(), 2U);
    const voice_sample &second = voices.people[0].samples[0];
    EXPECT_EQ(second.seconds, 12.3);
    EXPECT_EQ(second.source + second.date, "interview2025-01-31");
    const struct {
        std::vector<double> angles;
        std::vector<std::string> names;
    } cases[] = {
        {{0}, {"Ann"}},
        {{33, 200}, {"Ann", "speaker 2"}},            // nearest to the other sample
        {{5, 10}, {"Ann", "speaker 2"}},              // one name, to the nearer one
        {{20, 10, 95}, {"speaker 1", "Ann", "Bob"}},  // 10 degrees from a sample each: as good
        {{60}, {"speaker 1"}},                        // 30 degrees, a cosine of 0.87, from either
        {{}, {}},
    };
    for (const auto &c : cases) {
        diarization d = result_of(c.angles);
        name_voices(&d, voices, 0.9);
        if (c.angles.size() == 3) {  // either of the first two, but one
            EXPECT_EQ((names_of(d)[0] == "Ann") + (names_of(d)[1] == "Ann"), 1);
            EXPECT_EQ(names_of(d)[2], "Bob");
            continue;
        }
        EXPECT_EQ(names_of(d), c.names) << c.angles.size();
        for (size_t i = 0; i < c.names.size(); i++)
            EXPECT_EQ(d.speakers[i].similarity > 0.9, c.names[i].find("speaker") != 0) << c.names[i];
    }
    diarization d = result_of({200, 0});
    d.speakers[0].name = "Ann";  // by --names
    name_voices(&d, voices, 0.9);
    EXPECT_EQ(names_of(d), (std::vector<std::string>{"Ann (another)", "Ann"}));
}

TEST(voices, what_is_no_list_of_this_model_is_refused) {
    for (
        const char *text :
        {"{", "[]", "{}", R"({"schema": "parley-voices-1"})",
         R"({"schema": "parley-voices-3", "model": "m", "people": []})",
         R"({"schema": "parley-voices-2", "model": "m", "people": [{"name": "a", "samples": [[1, 0]]}]})",
         R"({"schema": "parley-voices-2", "model": "m", "people": [{"name": "a", "samples": [
                {"vector": [1, 0], "seconds": "x", "source": "", "date": ""}]}]})",
         R"({"schema": "parley-voices-1", "model": 1, "people": []})",
         R"({"schema": "parley-voices-1", "model": "m", "people": [1]})",
         R"({"schema": "parley-voices-1", "model": "m", "people": [{"name": "", "samples": []}]})",
         R"({"schema": "parley-voices-1", "model": "m", "people": [{"name": "a", "samples": []},
                                                                       {"name": "a", "samples": []}]})",
         R"({"schema": "parley-voices-1", "model": "m", "people": [{"name": "a", "samples": [[]]}]})",
         R"({"schema": "parley-voices-1", "model": "m", "people": [{"name": "a",
                                                                       "samples": [[1, 0], [1]]}]})",
         R"({"schema": "parley-voices-1", "model": "m", "people": [{"name": "a", "samples": [[1e300, 0]]}]})",
         R"({"schema": "parley-voices-1", "model": "m", "people": [{"name": "a", "samples": ["x"]}]})"})
        EXPECT_THROW(read_voices(text), diarization_error) << text;
    EXPECT_TRUE(read_voices(" \n").people.empty());
    voice_list voices = read_voices(R"({"schema": "parley-voices-1", "model": "m", "people": [
        {"name": "Ann", "samples": [[1, 0]]}]})");  // as they were without seconds and sources
    ASSERT_EQ(voices.people.at(0).samples.size(), 1U);
    diarization other = result_of({0}, "another");
    EXPECT_THROW(name_voices(&other, voices, 0.8), diarization_error);
    EXPECT_THROW(add_voice(&voices, "Bob", "another", sample_at(0)), diarization_error);
    EXPECT_THROW(add_voice(&voices, "Bob", "m", sample_at(0, 2.9)), diarization_error);
    EXPECT_THROW(add_voice(&voices, "", "m", sample_at(0)), diarization_error);
    diarization longer = result_of({0});
    longer.speakers[0].embedding.push_back(0);
    EXPECT_THROW(name_voices(&longer, voices, 0.8), diarization_error);
}

}  // namespace
