// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdint>

#include "recording_pieces.h"
#include "transcript.h"
#include "transcript_parts.h"
#include "writing.h"
#include "zip_archive.h"

namespace {

// So many words of four letters, a third of a second each.
std::vector<spoken_word> speech(int count, const char *speaker, double start = 0) {
    std::vector<spoken_word> words;
    for (int i = 0; i < count; i++)
        words.push_back({start + i / 3.0, start + (i + 1) / 3.0, i % 9 == 8 ? "well." : "four", speaker});
    return words;
}

TEST(transcript_formats, subtitles_keep_the_usual_limits) {
    std::vector<spoken_word> words = speech(100, "Ann");
    const std::vector<spoken_word> more = speech(30, "Bob Example", 33.5), last = speech(1, "Ann", 60);
    words.insert(words.end(), more.begin(), more.end());
    words.insert(words.end(), last.begin(), last.end());
    for (const char *format : {"srt", "vtt"}) {
        const std::vector<caption_text> found = captions_of(write_words(words, format, "x"));
        size_t num_words = 0;
        for (size_t i = 0; i < found.size(); i++) {
            const auto &[start, end, lines] = found[i];
            ASSERT_LE(lines.size(), 2U);
            size_t columns = 0;
            for (const std::string &line : lines) {
                columns += columns_of(without_tags(line));
                EXPECT_LE(columns_of(without_tags(line)), 42U) << line;
                for (size_t at = 0; (at = line.find_first_of("fw", at)) != std::string::npos; at++)
                    num_words++;
            }
            EXPECT_LE(end - start, 7.001);
            EXPECT_GE(end - start, 0.999) << lines[0];
            if (i + 1 < found.size()) {
                EXPECT_LE(end, found[i + 1].start + 0.001);
            }
            const double name = lines[0].starts_with("Bob") ? 13 : 5;
            EXPECT_LE(static_cast<double>(columns) - name, 17 * (end - start) + 1) << lines[0];
        }
        EXPECT_EQ(num_words, words.size()) << format;
        EXPECT_DOUBLE_EQ(found.back().end, 61);  // as long as reading takes
    }
    // A sentence ends a subtitle rather than the last word that fits.
    EXPECT_TRUE(captions_of(write_words(words, "srt", "x"))[0].lines.back().ends_with("well."));
}

TEST(transcript_formats, nist_and_tei) {
    const std::vector<spoken_word> words = {
        {0.5, 1, "Oh", "Ann B"}, {1, 1.5, "<no>", "Ann B"}, {2, 2.5, "Yes", ""}};
    EXPECT_EQ(write_words(words, "stm", "a talk"),
              "a_talk 1 Ann_B 0.500 1.500 Oh <no>\na_talk 1 unknown 2.000 2.500 Yes\n");
    EXPECT_EQ(write_words(words, "ctm", "x"),
              "x 1 0.500 0.500 Oh NA lex Ann_B\nx 1 1.000 0.500 <no> NA lex Ann_B\nx 1 2.000 0.500 Yes NA "
              "lex unknown\n");
    EXPECT_EQ(read_words(write_words(words, "ctm", "x"), speakers_over_time({}, 0)).size(), 3U);
    const std::string tei = write_words(words, "tei", "x");
    EXPECT_NE(tei.find("<when xml:id=\"T2\" interval=\"1.000\" since=\"#T0\"/>"), std::string::npos);
    EXPECT_NE(tei.find("<u><w>Oh</w><anchor synch=\"#T2\"/><w>&lt;no&gt;</w></u>"), std::string::npos);
    EXPECT_NE(tei.find("<person xml:id=\"P2\"><persName>somebody</persName></person>"), std::string::npos);
}

TEST(transcript_formats, archives_are_what_others_read) {
    const std::string archive = zip_archive({{"a", "123456789"}, {"b", ""}});
    const auto number = [&archive](size_t at, int bytes) {
        uint32_t value = 0;
        for (int i = bytes - 1; i >= 0; i--)
            value = value << 8 | static_cast<unsigned char>(archive[at + static_cast<size_t>(i)]);
        return value;
    };
    EXPECT_EQ(number(0, 4), 0x04034b50U);
    EXPECT_EQ(number(14, 4), 0xCBF43926U);  // the check value of CRC-32
    EXPECT_EQ(archive.substr(30, 10), "a123456789");
    const size_t end = archive.size() - 22;
    EXPECT_EQ(number(end, 4), 0x06054b50U);
    EXPECT_EQ(number(end + 10, 2), 2U);
    const size_t directory = number(end + 16, 4);
    EXPECT_EQ(number(directory, 4), 0x02014b50U);
    EXPECT_EQ(directory + number(end + 12, 4), end);
    EXPECT_EQ(number(directory + 47 + 42, 4), 40U);  // where the second file begins
}

TEST(transcript_formats, words_go_with_their_voice_and_their_sentence) {
    const std::vector<turn> turns = {{0, 2, "Ann"}, {2, 5, "Bob"}};
    const speakers_over_time speakers(turns, 1,
                                      [](double start, double) { return start < 5.5 ? "Ann" : ""; });
    EXPECT_EQ(speakers.at(5.2, 5.4), "Ann");  // outside of all segments: the voice
    EXPECT_EQ(speakers.at(5.6, 5.8), "Bob");  // nobody can tell: the nearest
    EXPECT_EQ(speakers.at(7, 8), "");
    EXPECT_EQ(speakers.at(2.1, 2.3), "Bob");  // inside of one the segment counts
    std::vector<spoken_word> words = {{1, 1.7, "So", "Ann"},
                                      {1.7, 2.4, "it", "Bob"},
                                      {1.7, 2.4, "is.", "Bob"},
                                      {1.8, 2.1, "Indeed", "Ann"},
                                      {2.2, 2.6, "it", "Bob"}};
    keep_sentences_together(speakers, &words);
    const char *const wanted[] = {"Ann", "Bob", "Bob", "Bob", "Bob"};
    words[1].speaker = "Bob";  // in the middle nothing changes
    for (size_t i = 0; i < words.size(); i++) EXPECT_EQ(words[i].speaker, wanted[i]) << i;
    words = {{1, 1.7, "So", "Ann"}, {1.7, 2.4, "is.", "Bob"}};
    keep_sentences_together(speakers, &words);
    EXPECT_EQ(words[1].speaker, "Ann");  // the end of Ann's sentence
}

TEST(transcript_formats, pieces_hold_all_speech_and_tear_none) {
    diarization d;
    d.duration = 400;
    d.speakers = {{"Ann", 0, {}, 0}, {"Bob", 0, {}, 0}};
    for (int i = 0; i < 60; i++) {  // segments of 4 s, pauses of half a second, of 2 s after every eighth
        const double start = 4.5 * i + 1.5 * (i / 8) + (i >= 40 ? 60 : 0);
        d.segments.push_back({start, start + 4, i % 2, 1, false, ""});
    }
    for (const bool by_turn : {false, true}) {
        const std::vector<span> pieces = pieces_of(d, 40, by_turn);
        size_t next = 0;
        double end = 0;
        for (const span &p : pieces) {
            EXPECT_GE(p.start, end);
            EXPECT_LE(p.end - p.start, 41);
            end = p.end;
            const size_t first = next;
            while (next < d.segments.size() && d.segments[next].start < p.end) {
                EXPECT_GE(d.segments[next].start, p.start);
                EXPECT_LE(d.segments[next].end, p.end);
                next++;
            }
            if (by_turn) {
                EXPECT_EQ(next - first, 1U);
            }
        }
        EXPECT_EQ(next, 60U);
        if (!by_turn) {
            EXPECT_NEAR(pieces[0].end, 36, 0.4);  // in the pause of 2 s
        }
    }
    // Somebody who never pauses is cut where it is softest.
    d.segments = {{0, 300, 0, 1, false, ""}};
    d.waveform.assign(400 * WAVEFORM_RATE, 0.5F);
    d.waveform[45 * WAVEFORM_RATE] = 0.01F;
    const std::vector<span> cut = pieces_of(d, 40, false);
    EXPECT_NEAR(cut[0].end, 45, 0.1);
    EXPECT_DOUBLE_EQ(cut.back().end, 300.4);
    EXPECT_TRUE(pieces_of(diarization(), 40, false).empty());
}

}  // namespace
