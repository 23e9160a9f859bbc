// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "diarizer.h"
#include "formats.h"
#include "writing.h"

namespace {

// Names that each format has to guard itself against, in a recording of 61.5 s.
diarization hostile() {
    diarization d;
    d.path = "talk.wav";
    d.recording = "a talk";
    d.duration = 61.5;
    d.speakers = {{"Ann \"A\", <b>", 3.5, {1, 0}}, {"Bob & co\n</script>", 1.25, {0, 1}}};
    d.segments = {{0, 2, 0, 0.5}, {1.5, 2.75, 1, 0.25}, {60, 61.5, 0, 1}};
    d.waveform = {0, 0.5f, 1};
    return d;
}

std::string written(const char *format, const diarization &d) {
    return write_format(d, format, {});
}

size_t count(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) n++;
    return n;
}

TEST(formats, nist_files_keep_their_fields_apart) {
    EXPECT_EQ(written("rttm", hostile()),
              "SPEAKER a_talk 1 0.000 2.000 <NA> <NA> Ann_\"A\",_<b> <NA> <NA>\n"
              "SPEAKER a_talk 1 1.500 1.250 <NA> <NA> Bob_&_co_</script> <NA> <NA>\n"
              "SPEAKER a_talk 1 60.000 1.500 <NA> <NA> Ann_\"A\",_<b> <NA> <NA>\n");
    EXPECT_EQ(written("uem", hostile()), "a_talk 1 0.000 61.500\n");
    EXPECT_EQ(written("ctm", hostile()).substr(0, 41), "a_talk 1 0.000 2.000 Ann_\"A\",_<b>\na_talk ");
}

TEST(formats, confidence_and_embeddings_only_when_asked) {
    diarization d = hostile();
    for (const char *format : {"json", "csv", "ctm", "text", "table"}) {
        d.with_confidence = false;
        const std::string without = written(format, d);
        d.with_confidence = true;
        const std::string with = written(format, d);
        EXPECT_EQ(count(without, "0.25"), 0u) << format;
        EXPECT_EQ(count(with, "0.25"), 1u) << format;
    }
    EXPECT_EQ(count(written("json", d), "embedding"), 0u);
    d.with_embeddings = true;
    EXPECT_EQ(nlohmann::json::parse(written("json", d))["speakers"][1]["embedding"],
              nlohmann::json({0.0, 1.0}));
}

TEST(formats, csv_quotes_as_rfc_4180_says) {
    EXPECT_NE(written("csv", hostile()).find("a talk,0.000,2.000,2.000,\"Ann \"\"A\"\", <b>\"\r\n"),
              std::string::npos);
}

TEST(formats, json_survives_names_that_are_not_utf_8) {
    diarization d = hostile();
    d.recording = "caf\xe9";
    EXPECT_EQ(nlohmann::json::parse(written("json", d))["segments"].size(), 3u);
}

TEST(formats, page_cannot_be_broken_out_of) {
    const std::string page = written("html", hostile());
    EXPECT_EQ(count(page, "</script>"), 2u);  // the page's own
    EXPECT_EQ(count(page, "@PARLEY_"), 0u);
    EXPECT_EQ(count(page, "content=\"default-src 'none';"), 1u);  // nothing from a network
    EXPECT_EQ(count(page, "src=\"http"), 0u);
}

TEST(formats, textgrid_tiers_have_no_gaps) {
    const std::string grid = written("textgrid", hostile());
    EXPECT_EQ(count(grid, "intervals: size = 3"), 2u);  // speech, nothing, speech; nothing, speech, nothing
    EXPECT_EQ(count(grid, "\"Ann \"\"A\"\", <b>\""), 3u);
}

TEST(formats, nobody_speaking_is_a_result_too) {
    diarization d;
    d.recording = d.path = "empty";
    d.duration = 1;
    for (const output_format &format : output_formats()) {
        if (std::string_view(format.shown.name) == "uem") continue;
        EXPECT_EQ(count(format.write(d, {}), "SPEAKER empty"), 0u) << format.shown.name;
    }
    EXPECT_EQ(count(written("table", d), "nobody speaks"), 1u);
}

TEST(formats, table_has_the_colours_of_the_terminal) {
    const struct {
        int32_t colors;
        const char *first, *second;  // #0072b2 and #e69f00
    } cases[] = {{0, "", ""},
                 {1, "\033[38;2;0;114;178m", "\033[38;2;230;159;0m"},
                 {256, "\033[38;5;31m", "\033[38;5;214m"},
                 {16, "\033[34m", "\033[33m"}};
    for (const auto &c : cases) {
        const std::string table = write_table(hostile(), {.columns = 80, .colors = c.colors});
        EXPECT_EQ(count(table, "\033[") > 0, c.colors > 0);
        for (const char *begin : {c.first, c.second})
            EXPECT_NE(table.find(begin), std::string::npos) << c.colors;
    }
}

TEST(formats, table_fits_the_terminal) {
    diarization wide = hostile();
    wide.speakers[0].name = "山田太郎と申します";
    for (const int columns : {20, 21, 30, 39, 53, 60, 80, 200}) {
        for (const diarization &d : {hostile(), wide}) {
            const std::string table = write_table(d, {.columns = columns, .colors = 0});
            size_t start = table.find("\n\n") + 2, lanes = 0;  // behind the title and notes
            for (size_t end; (end = table.find('\n', start)) != std::string::npos; start = end + 1) {
                const std::string line = table.substr(start, end - start);
                lanes += line.find("·") != std::string::npos;
                EXPECT_LE(columns_of(line), static_cast<size_t>(columns)) << line;
            }
            EXPECT_GE(lanes, 1u);
        }
    }
    EXPECT_EQ(columns_of("山a\u0301b"), 4u);
    EXPECT_EQ(cut_to("山田太郎", 5), "山田…");
}

TEST(formats, clock) {
    EXPECT_EQ(clock_time(0), "0:00.000");
    EXPECT_EQ(clock_time(59.9996), "1:00.000");
    EXPECT_EQ(clock_time(3723.045), "1:02:03.045");
}

}  // namespace
