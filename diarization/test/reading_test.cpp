// SPDX-License-Identifier: Apache-2.0
#include "reading.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "formats.h"
#include "transcript.h"

namespace {

// Two who speak at once, a name with every character that some format escapes, a note and words.
diarization sample() {
    diarization d;
    d.path = "talks/a talk.wav";
    d.recording = "a talk";
    d.duration = 70;
    d.speakers = {{"Ann & \"B\"", 2, {}, 0}, {"Zoë", 3.25, {}, 0}};
    d.segments = {{0, 2, 0, 0.5, false, ""}, {1.5, 2.75, 1, 0.25, true, "who?"}, {60, 62, 1, 1, false, ""}};
    return d;
}

TEST(reading, what_was_written_is_read_in_every_format) {
    const diarization given = sample();
    for (const char *format : {"json", "jsonl", "csv", "eaf", "textgrid", "vtt", "srt", "audacity"}) {
        const diarization again = read_result(write_format(given, format, {}), "a talk.x");
        EXPECT_EQ(again.recording, "a talk") << format;
        ASSERT_EQ(again.segments.size(), 3U) << format;
        ASSERT_EQ(again.speakers.size(), 2U) << format;
        for (size_t i = 0; i < 3; i++) {
            const segment &s = again.segments[i], &wanted = given.segments[i];
            EXPECT_DOUBLE_EQ(s.start, wanted.start) << format;
            EXPECT_DOUBLE_EQ(s.end, wanted.end) << format;
            EXPECT_EQ(again.speakers[static_cast<size_t>(s.speaker)].name,
                      given.speakers[static_cast<size_t>(wanted.speaker)].name)
                << format;
        }
        EXPECT_DOUBLE_EQ(again.speakers[1].seconds, 3.25) << format;
    }
    const diarization rttm = read_result(write_format(given, "rttm", {}), "x.rttm");
    EXPECT_EQ(rttm.recording, "a_talk");  // NIST's fields have no blanks
    EXPECT_EQ(rttm.speakers[1].name, "Zoë");
}

TEST(reading, json_keeps_notes_confidence_vectors_and_words) {
    diarization d = sample();
    d.with_confidence = d.with_embeddings = true;
    d.model = "0123456789abcdef";
    d.speakers[0].embedding = {0.5F, -0.25F};
    d.words = {{0.25, 0.5, "Hello", "Zoë"},
               {1, 1.5, "all", "Zoë", true},
               {60, 61, "of", "Zoë", false},
               {61, 62, "you", ""}};
    const std::string text = write_format(d, "json", {});
    const diarization read = read_result(text, "x");
    EXPECT_EQ(write_format(read, "json", {}), text);
    EXPECT_EQ(write_words(read.words, "text", "x"),
              "Zoë (0:00): Hello\n\nZoë (0:01): all of\n\nsomebody (1:01): you\n");
}

TEST(reading, other_programs_write_these) {
    const struct {
        const char *text, *names;
    } cases[] = {
        {"start,end,speaker\n1,2,\"A, B\"\n", "A, B"},
        {"\xEF\xBB\xBFSPEAKER x 1 0.5 1.5 <NA> <NA> Ann <NA> <NA>\n", "Ann"},
        {"1\r\n00:00:01,000 --> 00:00:02,000\r\nAnn: Well: yes.\r\n", "Ann"},
        {"WEBVTT\n\n00:01.000 --> 00:02.000\n<v Ann>Yes\n", "Ann"},
        {"0.5\t1.5\tAnn\n\\\t100.0\t200.0\n", "Ann"},
        {"File type = \"ooTextFile\"\nObject class = "
         "\"TextGrid\"\n\n0\n3\n<exists>\n1\n\"IntervalTier\"\n\"Ann\"\n"
         "0\n3\n3\n0\n1\n\"\"\n1\n2\n\"yes \"\"now\"\" [!]\"\n2\n3\n\"\"\n",
         "Ann"},
        {"<?xml version='1.0'?><!-- <TIER TIER_ID='x'> --><ANNOTATION_DOCUMENT><TIME_ORDER>"
         "<TIME_SLOT TIME_SLOT_ID='a' TIME_VALUE='1000'/><TIME_SLOT TIME_SLOT_ID='b' TIME_VALUE='2000' />"
         "<TIME_SLOT TIME_SLOT_ID='c'/></TIME_ORDER><TIER TIER_ID='Ann'><ANNOTATION><ALIGNABLE_ANNOTATION "
         "TIME_SLOT_REF1 = 'a' TIME_SLOT_REF2='b'/></ANNOTATION><ANNOTATION><ALIGNABLE_ANNOTATION "
         "TIME_SLOT_REF1='b' TIME_SLOT_REF2='c'/></ANNOTATION></TIER></ANNOTATION_DOCUMENT>",
         "Ann"},
    };
    for (const auto &[text, name] : cases) {
        const diarization found = read_result(text, "x");
        ASSERT_EQ(found.segments.size(), 1U) << text;
        EXPECT_EQ(found.speakers[0].name, name) << text;
    }
    const diarization words = read_result(cases[2].text, "x");
    ASSERT_EQ(words.words.size(), 2U);
    EXPECT_EQ(words.words[0].text, "Well:");
    EXPECT_EQ(words.words[0].speaker, "Ann");
}

TEST(reading, what_makes_no_sense_is_refused) {
    for (const char *text :
         {"", "hello\n", "{", "[]", "{\"segments\": []}", "{\"schema\": \"parley-diarization-1\"}",
          "{\"schema\": \"parley-diarization-1\", \"duration\": 1, \"segments\": [{\"start\": 3, \"end\": "
          "2}]}",
          "{\"schema\": \"parley-diarization-1\", \"duration\": 1, \"segments\": [7]}",
          "{\"schema\": \"parley-diarization-1\", \"duration\": -1}", "start,end,speaker\n2,1,A\n",
          "start,end,speaker\n2\n", "start,end\n1,2\n", "<EAF", "<a><b>",
          "File type = \"ooTextFile\"\nObject class = \"TextGrid\"\n0 3 1 \"IntervalTier\" \"x\" 0 3 9 0 1",
          "SPEAKER a 1 0 1 <NA> <NA> x <NA> <NA>\nSPEAKER b 1 0 1 <NA> <NA> x <NA> <NA>\n",
          "recording,start,end,speaker\na,1,2,A\nb,1,2,A\n", "0.5\tx\tAnn\n"})
        EXPECT_THROW(read_result(text, "x"), std::runtime_error) << text;
}

}  // namespace
