#include "transcript.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace {

const std::vector<turn> TURNS = {{0, 2, "Ann"}, {2, 5, "Bob"}, {4, 6, "Ann"}};

TEST(transcript, longest_speaker_wins_and_the_nearest_stands_in) {
    const struct {
        double start, end;
        const char *speaker;
    } cases[] = {{0.5, 1, "Ann"}, {1.5, 4, "Bob"}, {3.9, 5.5, "Ann"},
                 {6.5, 7, "Ann"}, {7.5, 8, ""},    {3, 3, "Bob"}};
    for (const auto &c : cases) EXPECT_EQ(speaker_at(TURNS, c.start, c.end, 1), c.speaker) << c.start;
    EXPECT_EQ(speaker_at({}, 0, 1, 100), "");
}

TEST(transcript, json_words_outvote_their_segment) {
    const auto json = nlohmann::json::parse(assign_speakers(
        R"({"text": "x", "segments": [{"id": 7, "start": 0, "end": 6, "words": [
            {"word": "a", "start": 0, "end": 1.9}, {"word": "b", "start": 2, "end": 2.5}, {"word": "?"}]},
            {"start": 20, "end": 21, "words": []}]})",
        TURNS, 1));
    EXPECT_EQ(json["segments"][0]["speaker"], "Ann");  // though Bob speaks longest in all of it
    EXPECT_EQ(json["segments"][0]["id"], 7);
    EXPECT_EQ(json["segments"][0]["words"][1]["speaker"], "Bob");
    EXPECT_EQ(json["segments"][0]["words"][2]["speaker"], "Bob");  // without times: as the one before
    EXPECT_TRUE(json["segments"][1]["speaker"].is_null());
    EXPECT_EQ(nlohmann::json::parse(assign_speakers(R"([{"start": 0, "end": 1}])", TURNS, 1))[0]["speaker"],
              "Ann");
}

TEST(transcript, milliseconds_are_known_where_they_stand) {
    const auto json = nlohmann::json::parse(assign_speakers(
        R"({"transcription": [{"offsets": {"from": 2500, "to": 3000}, "text": "x"}]})", TURNS, 1));
    EXPECT_EQ(json["transcription"][0]["speaker"], "Bob");
    EXPECT_EQ(assign_speakers("start\tend\ttext\n500\t1000\tHi there\n2500\t3000\tyou\n", TURNS, 1),
              "start\tend\ttext\tspeaker\n500\t1000\tHi there\tAnn\n2500\t3000\tyou\tBob\n");
}

TEST(transcript, captions_keep_all_but_the_speaker) {
    EXPECT_EQ(assign_speakers("WEBVTT\n\nNOTE --> x\n\n1\n00:00.500 --> 00:01.000 align:left\nHi\nthere\n\n"
                              "00:02.500 --> 00:03.000\n<v Zoe>Me\n",
                              TURNS, 1),
              "WEBVTT\n\nNOTE --> x\n\n1\n00:00.500 --> 00:01.000 align:left\n<v Ann>Hi\nthere\n\n"
              "00:02.500 --> 00:03.000\n<v Zoe>Me\n");
    EXPECT_EQ(
        assign_speakers(
            "1\r\n00:00:02,500 --> 00:00:03,000\r\nHi\r\n\r\n2\r\n00:01:00,000 --> 00:01:01,000\r\nlate",
            TURNS, 1),
        "1\r\n00:00:02,500 --> 00:00:03,000\r\nBob: Hi\r\n\r\n2\r\n00:01:00,000 --> 00:01:01,000\r\nlate");
}

TEST(transcript, ctm_gets_type_and_speaker) {
    EXPECT_EQ(
        assign_speakers(";; note\nx 1 0.5 0.2 hi\nx 1 2.5 0.2 you 0.9\nx 1 90 1 late 0.5 lex old\n", TURNS,
                        1),
        ";; note\nx 1 0.5 0.2 hi NA lex Ann\nx 1 2.5 0.2 you 0.9 lex Bob\nx 1 90 1 late 0.5 lex unknown\n");
}

TEST(transcript, what_is_no_transcript_is_refused) {
    for (const char *text : {"", " \n", "{\"start\": ", "hello world\n", "x 1 a 0.5 hi\n", "x 1 0.5\n",
                             "{\"text\": \"x\"}", "start\tend\ttext\nx\ty\tz\n"})
        EXPECT_THROW(assign_speakers(text, TURNS, 1), std::runtime_error) << text;
}

}  // namespace
