// SPDX-License-Identifier: Apache-2.0
#include "transcript.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace {

const std::vector<turn> TURN_LIST = {{0, 2, "Ann"}, {2, 5, "Bob"}, {4, 6, "Ann"}};
const speakers_over_time TURNS(TURN_LIST, 1);

TEST(transcript, longest_speaker_wins_and_the_nearest_stands_in) {
    const struct {
        double start, end;
        const char *speaker;
    } cases[] = {{0.5, 1, "Ann"}, {1.5, 4, "Bob"}, {3.9, 5.5, "Ann"},
                 {6.5, 7, "Ann"}, {7.5, 8, ""},    {3, 3, "Bob"}};
    for (const auto &c : cases) EXPECT_EQ(TURNS.at(c.start, c.end), c.speaker) << c.start;
    EXPECT_EQ(speakers_over_time({}, 100).at(0, 1), "");
}

TEST(transcript, json_words_outvote_their_segment) {
    const auto json = nlohmann::json::parse(assign_speakers(
        R"({"text": "x", "segments": [{"id": 7, "start": 0, "end": 6, "words": [
            {"word": "a", "start": 0, "end": 1.9}, {"word": "b", "start": 2, "end": 2.5}, {"word": "?"}]},
            {"start": 20, "end": 21, "words": []}]})",
        TURNS));
    EXPECT_EQ(json["segments"][0]["speaker"], "Ann");  // though Bob speaks longest in all of it
    EXPECT_EQ(json["segments"][0]["id"], 7);
    EXPECT_EQ(json["segments"][0]["words"][1]["speaker"], "Bob");
    EXPECT_EQ(json["segments"][0]["words"][2]["speaker"], "Bob");  // without times: as the one before
    EXPECT_TRUE(json["segments"][1]["speaker"].is_null());
    EXPECT_EQ(nlohmann::json::parse(assign_speakers(R"([{"start": 0, "end": 1}])", TURNS))[0]["speaker"],
              "Ann");
}

TEST(transcript, milliseconds_are_known_where_they_stand) {
    const auto json = nlohmann::json::parse(assign_speakers(
        R"({"transcription": [{"offsets": {"from": 2500, "to": 3000}, "text": "x"}]})", TURNS));
    EXPECT_EQ(json["transcription"][0]["speaker"], "Bob");
    EXPECT_EQ(assign_speakers("start\tend\ttext\n500\t1000\tHi there\n2500\t3000\tyou\n", TURNS),
              "start\tend\ttext\tspeaker\n500\t1000\tHi there\tAnn\n2500\t3000\tyou\tBob\n");
}

TEST(transcript, what_is_split_keeps_its_unit) {
    const auto json = nlohmann::json::parse(assign_speakers(R"({"audio_duration": 6,
        "words": [{"text": "that", "start": 0, "end": 900}],
        "utterances": [{"start": 0, "end": 4000, "text": "that were what said"},
                       {"start": 1000, "end": 3500, "text": "We said $100 you.", "words": [
                        {"text": "said", "start": 1000, "end": 1900},
                        {"text": "$100", "start": 2000, "end": 2400},
                        {"text": "you.", "start": 3000, "end": 3500}]}]})",
                                                            TURNS))["utterances"];
    ASSERT_EQ(json.size(), 4U);
    constexpr int TIMES[][2] = {{0, 2000}, {2000, 4000}, {1000, 1900}, {2000, 3500}};
    for (size_t i = 0; i < 4; i++) {
        EXPECT_EQ(json[i]["start"], TIMES[i][0]);
        EXPECT_EQ(json[i]["end"], TIMES[i][1]);
        EXPECT_EQ(json[i]["speaker"], i % 2 == 0 ? "Ann" : "Bob");
    }
}

TEST(transcript, captions_keep_all_but_the_speaker) {
    EXPECT_EQ(assign_speakers("WEBVTT\n\nNOTE --> x\n\n1\n00:00.500 --> 00:01.000 align:left\nHi\nthere\n\n"
                              "00:02.500 --> 00:03.000\n<v Zoe>Me\n",
                              TURNS),
              "WEBVTT\n\nNOTE --> x\n\n1\n00:00.500 --> 00:01.000 align:left\n<v Ann>Hi\nthere\n\n"
              "00:02.500 --> 00:03.000\n<v Zoe>Me\n");
    EXPECT_EQ(
        assign_speakers(
            "1\r\n00:00:02,500 --> 00:00:03,000\r\nHi\r\n\r\n2\r\n00:01:00,000 --> 00:01:01,000\r\nlate",
            TURNS),
        "1\r\n00:00:02,500 --> 00:00:03,000\r\nBob: Hi\r\n\r\n2\r\n00:01:00,000 --> 00:01:01,000\r\nlate");
}

TEST(transcript, what_has_text_ends_where_the_speaker_changes) {
    // Six words of four letters over [0, 6]: Ann to 2 s, Bob to 5 s, Ann again from 4 s.
    const std::string text = "that were what said then they";
    EXPECT_EQ(assign_speakers(
                  "7\n00:00:00,000 --> 00:00:06,000\n" + text + "\n\n8\n00:00:05,500 --> 00:00:06,000\nyes\n",
                  TURNS),
              "7\n00:00:00,000 --> 00:00:02,000\nAnn: that were\n\n8\n00:00:02,000 --> 00:00:04,000\nBob: "
              "what said\n\n9\n00:00:04,000 --> 00:00:06,000\nAnn: then they\n\n10\n00:00:05,500 --> "
              "00:00:06,000\nAnn: yes\n");
    EXPECT_EQ(assign_speakers(
                  "WEBVTT\n\na\n00:00.000 --> 00:06.000 align:left\nthat <i>were</i>\nwhat said then they\n",
                  TURNS),
              "WEBVTT\n\na\n00:00:00.000 --> 00:00:02.000 align:left\n<v Ann>that were\n\n00:00:02.000 --> "
              "00:00:04.000 align:left\n<v Bob>what said\n\n00:00:04.000 --> 00:00:06.000 "
              "align:left\n<v Ann>then they\n");
    const auto plain = nlohmann::json::parse(assign_speakers(
        R"({"segments": [{"id": 1, "start": 0, "end": 6, "text": ")" + text + R"("}]})", TURNS))["segments"];
    ASSERT_EQ(plain.size(), 3U);
    EXPECT_EQ(plain[1]["text"], "what said");
    EXPECT_EQ(plain[1]["speaker"], "Bob");
    EXPECT_EQ(plain[2]["end"], 6);
    // With words their own times count; a short word between is not split off.
    const auto timed = nlohmann::json::parse(assign_speakers(
        R"({"segments": [{"start": 0, "end": 6, "text": " we said it", "words": [
            {"word": " we", "start": 0.1, "end": 1}, {"word": " uh", "start": 2.1, "end": 2.3},
            {"word": " said", "start": 1, "end": 1.9}, {"word": " it", "start": 2.5, "end": 3.9}]}]})",
        TURNS))["segments"];
    ASSERT_EQ(timed.size(), 2U);
    EXPECT_EQ(timed[0]["text"], " we uh said");
    EXPECT_EQ(timed[0]["words"].size(), 3U);
    EXPECT_EQ(timed[1]["start"], 2.5);
}

TEST(transcript, any_of_them_can_be_written_for_reading) {
    const char *const given[] = {
        R"({"segments": [{"start": 0, "end": 1, "text": "Oh & no"},
                         {"start": 2.5, "end": 3.5, "text": "Yes"}]})",
        R"({"transcription": [{"offsets": {"from": 0, "to": 1000}, "text": " Oh & no"},
                              {"offsets": {"from": 2500, "to": 3500}, "text": " Yes"}]})",
        R"({"result": [{"start": 0, "end": 0.3, "word": "Oh"}, {"start": 0.3, "end": 0.5, "word": "&"},
                       {"start": 0.5, "end": 1, "word": "no"}, {"start": 2.5, "end": 3.5, "word": "Yes"}],
            "text": "x"})",
        "WEBVTT\n\n00:00.000 --> 00:01.000\nOh & no\n\n00:02.500 --> 00:03.500\nYes\n",
        "1\n00:00:00,000 --> 00:00:01,000\nOh & no\n\n2\n00:00:02,500 --> 00:00:03,500\nYes\n",
        "start\tend\ttext\n0\t1000\tOh & no\n2500\t3500\tYes\n",
        "x 1 0 0.3 Oh\nx 1 0.3 0.2 &\nx 1 0.5 0.5 no\nx 1 2.5 1 Yes\n"};
    for (const char *text : given) {
        const auto words = read_words(text, TURNS);
        EXPECT_EQ(write_words(words, "text", "x"), "Ann (0:00): Oh & no\n\nBob (0:02): Yes\n") << text;
        EXPECT_EQ(write_words(words, "markdown", "x"), "**Ann** 0:00  \nOh & no\n\n**Bob** 0:02  \nYes\n")
            << text;
        EXPECT_EQ(write_words(words, "vtt", "x"),
                  "WEBVTT\n\n00:00:00.000 --> 00:00:01.000\n<v Ann>Oh &amp; no\n\n"
                  "00:00:02.500 --> 00:00:03.500\n<v Bob>Yes\n")
            << text;
        EXPECT_EQ(write_words(words, "srt", "x"),
                  "1\n00:00:00,000 --> 00:00:01,000\nAnn: Oh & no\n\n"
                  "2\n00:00:02,500 --> 00:00:03,500\nBob: Yes\n\n")
            << text;
        const auto json = nlohmann::json::parse(write_words(words, "json", "x"))["segments"];
        ASSERT_EQ(json.size(), 2U);
        EXPECT_EQ(json[0]["text"], "Oh & no");
        EXPECT_EQ(json[0]["words"].size(), 3U);
        EXPECT_EQ(json[1]["speaker"], "Bob");
    }
    EXPECT_THROW(write_words({}, "pdf", "x"), std::runtime_error);
}

// What recognizers and services write, by their documentation: "We said" to 1.9 s, "$100" without times, "to
// you." from 2.5 s on. Every word comes out once.
TEST(transcript, every_recognizers_words_come_out_once) {
    const struct {
        const char *recognizer, *text;
    } cases[] = {
        {"WhisperX", R"({"segments": [{"start": 0.1, "end": 3.5, "text": " We said $100 to you.", "words": [
            {"word": "We", "start": 0.1, "end": 0.9, "score": 0.9}, {"word": "said", "start": 1, "end": 2},
            {"word": "$100"}, {"word": "to", "start": 2.5, "end": 2.9},
            {"word": "you.", "start": 3, "end": 3.5}]}],
            "word_segments": [{"word": "We", "start": 0.1, "end": 0.9},
            {"word": "said", "start": 1, "end": 2},
            {"word": "$100"}, {"word": "to", "start": 2.5, "end": 2.9},
            {"word": "you.", "start": 3, "end": 3.5}]})"},
        {"openai-whisper and faster-whisper",
         R"({"text": "x", "language": "en", "segments": [{"id": 0, "seek": 0,
            "start": 0.1, "end": 3.5, "text": " We said $100 to you.", "tokens": [1, 2], "words": [
            {"word": " We", "start": 0.1, "end": 0.9}, {"word": " said", "start": 1, "end": 1.9},
            {"word": " $100", "start": 2, "end": 2.4}, {"word": " to", "start": 2.5, "end": 2.9},
            {"word": " you.", "start": 3, "end": 3.5}]}]})"},
        {"whisper service, words beside segments", R"({"task": "transcribe", "duration": 3.5, "words": [
            {"word": "We", "start": 0.1, "end": 0.9}, {"word": "said", "start": 1, "end": 1.9},
            {"word": "$100", "start": 2, "end": 2.4}, {"word": "to", "start": 2.5, "end": 2.9},
            {"word": "you.", "start": 3, "end": 3.5}], "segments": [{"id": 0, "start": 0, "end": 3.5,
            "text": "x"}]})"},
        {"whisper.cpp -ojf",
         R"({"transcription": [{"offsets": {"from": 100, "to": 3500}, "text": " We said $100 to you.",
            "tokens": [{"text": "[_BEG_]", "offsets": {"from": 0, "to": 0}, "id": 1, "p": 1},
            {"text": " We", "offsets": {"from": 100, "to": 900}, "id": 2, "p": 1},
            {"text": " sa", "offsets": {"from": 1000, "to": 1500}, "id": 3, "p": 1},
            {"text": "id", "offsets": {"from": 1500, "to": 1900}, "id": 4, "p": 1},
            {"text": " $", "offsets": {"from": 2000, "to": 2200}, "id": 5, "p": 1},
            {"text": "100", "offsets": {"from": 2200, "to": 2400}, "id": 6, "p": 1},
            {"text": " to", "offsets": {"from": 2500, "to": 2900}, "id": 7, "p": 1},
            {"text": " you", "offsets": {"from": 3000, "to": 3400}, "id": 8, "p": 1},
            {"text": ".", "offsets": {"from": 3400, "to": 3500}, "id": 9, "p": 1}]}]})"},
        {"AssemblyAI", R"({"id": "1", "status": "completed", "audio_duration": 6, "text": "x", "words": [
            {"text": "We", "start": 100, "end": 900}, {"text": "said", "start": 1000, "end": 1900},
            {"text": "$100", "start": 2000, "end": 2400}, {"text": "to", "start": 2500, "end": 2900},
            {"text": "you.", "start": 3000, "end": 3500}], "utterances": [{"start": 100, "end": 3500,
            "text": "x"}]})"},
        {"Deepgram",
         R"({"metadata": {"duration": 6}, "results": {"channels": [{"alternatives": [{"transcript": "x",
            "words": [{"word": "we", "start": 0.1, "end": 0.9, "punctuated_word": "We"},
            {"word": "said", "start": 1, "end": 1.9, "punctuated_word": "said"},
            {"word": "100", "start": 2, "end": 2.4, "punctuated_word": "$100"},
            {"word": "to", "start": 2.5, "end": 2.9, "punctuated_word": "to"},
            {"word": "you", "start": 3, "end": 3.5, "punctuated_word": "you."}],
            "paragraphs": {"paragraphs": [{"start": 0.1, "end": 3.5, "sentences": [
            {"text": "x", "start": 0.1, "end": 3.5}]}]}}, {"transcript": "second best", "words": []}]}]}})"},
        {"AWS", R"({"results": {"transcripts": [{"transcript": "x"}], "items": [
            {"start_time": "0.1", "end_time": "0.9", "alternatives": [{"content": "We"}],
            "type": "pronunciation"},
            {"start_time": "1.0", "end_time": "1.9", "alternatives": [{"content": "said"}],
            "type": "pronunciation"},
            {"start_time": "2.0", "end_time": "2.4", "alternatives": [{"content": "$100"}],
            "type": "pronunciation"},
            {"start_time": "2.5", "end_time": "2.9", "alternatives": [{"content": "to"}],
            "type": "pronunciation"},
            {"start_time": "3.0", "end_time": "3.5", "alternatives": [{"content": "you"}],
            "type": "pronunciation"},
            {"alternatives": [{"content": "."}], "type": "punctuation"}]}})"},
        {"Google", R"({"results": [{"alternatives": [{"transcript": "x", "words": [
            {"startTime": "0.100s", "endTime": "0.900s", "word": "We"},
            {"startTime": "1s", "endTime": "1.9s", "word": "said"},
            {"startTime": "2s", "endTime": "2.4s", "word": "$100"},
            {"startTime": "2.5s", "endTime": "2.9s", "word": "to"},
            {"startTime": "3s", "endTime": "3.5s", "word": "you."}]}, {"transcript": "second best"}]}]})"},
        {"Azure",
         R"({"duration": "PT6S", "combinedRecognizedPhrases": [{"display": "x"}], "recognizedPhrases": [
            {"offsetInTicks": 1000000, "durationInTicks": 34000000, "nBest": [{"display": "x", "words": [
            {"word": "We", "offsetInTicks": 1000000, "durationInTicks": 8000000},
            {"word": "said", "offsetInTicks": 10000000, "durationInTicks": 9000000},
            {"word": "$100", "offsetInTicks": 20000000, "durationInTicks": 4000000},
            {"word": "to", "offsetInTicks": 25000000, "durationInTicks": 4000000},
            {"word": "you.", "offsetInTicks": 30000000, "durationInTicks": 5000000}]},
            {"display": "second best"}]}]})"},
        {"Speechmatics", R"({"format": "2.9", "results": [
            {"start_time": 0.1, "end_time": 0.9, "type": "word", "alternatives": [{"content": "We"}]},
            {"start_time": 1, "end_time": 1.9, "type": "word", "alternatives": [{"content": "said"}]},
            {"start_time": 2, "end_time": 2.4, "type": "word", "alternatives": [{"content": "$100"}]},
            {"start_time": 2.5, "end_time": 2.9, "type": "word", "alternatives": [{"content": "to"}]},
            {"start_time": 3, "end_time": 3.5, "type": "word", "alternatives": [{"content": "you"}]},
            {"start_time": 3.5, "end_time": 3.5, "type": "punctuation",
            "alternatives": [{"content": "."}]}]})"},
        {"Rev", R"({"monologues": [{"speaker": 0, "elements": [
            {"type": "text", "value": "We", "ts": 0.1, "end_ts": 0.9}, {"type": "punct", "value": " "},
            {"type": "text", "value": "said", "ts": 1, "end_ts": 1.9}, {"type": "punct", "value": " "},
            {"type": "text", "value": "$100", "ts": 2, "end_ts": 2.4}, {"type": "punct", "value": " "},
            {"type": "text", "value": "to", "ts": 2.5, "end_ts": 2.9}, {"type": "punct", "value": " "},
            {"type": "text", "value": "you", "ts": 3, "end_ts": 3.5}, {"type": "punct", "value": "."}]}]})"},
        {"Vosk",
         R"({"result": [{"conf": 1, "start": 0.1, "end": 0.9, "word": "We"},
            {"conf": 1, "start": 1, "end": 1.9,
            "word": "said"}, {"start": 2, "end": 2.4, "word": "$100"},
            {"start": 2.5, "end": 2.9, "word": "to"},
            {"start": 3, "end": 3.5, "word": "you."}], "text": "x"})"},
        {"YouTube",
         "WEBVTT\nKind: captions\nLanguage: en\n\n00:00:00.100 --> 00:00:02.400 align:start position:0%\n \n"
         "We<00:00:01.000><c> said</c><00:00:02.000><c> $100</c>\n\n00:00:02.400 --> 00:00:02.410\n"
         "We said $100\n \n\n00:00:02.500 --> 00:00:03.500 align:start position:0%\nWe said $100\n"
         "to<00:00:03.000><c> you.</c>\n"},
        {"NeMo and Kaldi",
         "x 1 0.1 0.8 We NA lex NA\nx 1 1.0 0.9 said\nx 1 2.0 0.4 $100 0.9\nx 1 2.5 0.4 to\nx 1 3.0 0.5 "
         "you. 1\n"},
    };
    for (const auto &[recognizer, text] : cases) {
        const auto words = read_words(text, TURNS);
        ASSERT_EQ(words.size(), 5U) << recognizer << "\n" << write_words(words, "text", "x");
        EXPECT_EQ(write_words(words, "text", "x"), "Ann (0:00): We said\n\nBob (0:02): $100 to you.\n")
            << recognizer;
        for (size_t i = 0; i < words.size(); i++) {
            constexpr double STARTS[] = {0.1, 1, 2, 2.5, 3};
            EXPECT_NEAR(words[i].start, STARTS[i], 0.11) << recognizer << " " << words[i].text;
        }
        EXPECT_NE(assign_speakers(text, TURNS).find("Bob"), std::string::npos) << recognizer;
    }
}

TEST(transcript, words_of_another_unit_or_recording_are_noticed) {
    const struct {
        std::vector<double> starts;
        const char *said;  // "": nothing
    } cases[] = {
        {{0, 5, 39}, ""},
        {{0, 45}, ""},  // a recognizer may add something behind the end
        {{500, 2500, 39000},
         "0 of 3 words lie in the recording, which ends at 40.0 s; are these milliseconds?"},
        {{1, 5e4, 6e4},
         "1 of 3 words lie in the recording, which ends at 40.0 s; is this another recording's transcript?"}};
    for (const auto &[starts, said] : cases) {
        std::vector<spoken_word> words;
        for (const double start : starts) words.push_back({start, start + 1, "word", ""});
        std::string message;
        try {
            check_words_lie_within(words, 40);
        } catch (const std::runtime_error &error) {
            message = error.what();
        }
        EXPECT_EQ(message, said);
    }
}

TEST(transcript, ctm_gets_type_and_speaker) {
    EXPECT_EQ(
        assign_speakers(";; note\nx 1 0.5 0.2 hi\nx 1 2.5 0.2 you 0.9\nx 1 90 1 late 0.5 lex old\n", TURNS),
        ";; note\nx 1 0.5 0.2 hi NA lex Ann\nx 1 2.5 0.2 you 0.9 lex Bob\nx 1 90 1 late 0.5 lex unknown\n");
}

TEST(transcript, what_is_no_transcript_is_refused) {
    for (const char *text : {"", " \n", "{\"start\": ", "hello world\n", "x 1 a 0.5 hi\n", "x 1 0.5\n",
                             "{\"text\": \"x\"}", "start\tend\ttext\nx\ty\tz\n"})
        EXPECT_THROW(assign_speakers(text, TURNS), std::runtime_error) << text;
}

}  // namespace
