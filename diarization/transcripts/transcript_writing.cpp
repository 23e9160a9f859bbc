// SPDX-License-Identifier: Apache-2.0
// Words for reading and for programs: the table of formats, paragraphs, JSON, NIST's.
#include <cmath>
#include <stdexcept>

#include "formats.h"
#include "markup.h"
#include "transcript_parts.h"
#include "writing.h"

namespace {

using json = nlohmann::ordered_json;

std::string write_text_words(const std::vector<spoken_word> &words, const std::string &) {
    std::string text;
    for (const run_of_words &p : paragraphs_of(words))
        text += (text.empty() ? "" : "\n") + shown_name(p.speaker) + " (" +
                clock_time_in_seconds(words[p.first].start) + "): " + joined(words, p.first, p.last) + "\n";
    return text;
}

std::string write_markdown(const std::vector<spoken_word> &words, const std::string &) {
    std::string text;
    for (const run_of_words &p : paragraphs_of(words))
        text += (text.empty() ? "**" : "\n**") + shown_name(p.speaker) + "** " +
                clock_time_in_seconds(words[p.first].start) + "  \n" + joined(words, p.first, p.last) + "\n";
    return text;
}

std::string write_json_words(const std::vector<spoken_word> &words, const std::string &) {
    json result = {{"schema", "parley-transcript-1"}, {"segments", json::array()}};
    const auto rounded = [](double seconds) { return std::round(seconds * 1000) / 1000; };
    for (const run_of_words &p : paragraphs_of(words, INFINITY)) {
        json segment = {{"start", rounded(words[p.first].start)},
                        {"end", rounded(words[p.last - 1].end)},
                        {"speaker", p.speaker.empty() ? json(nullptr) : json(p.speaker)},
                        {"text", joined(words, p.first, p.last)},
                        {"words", json::array()}};
        for (size_t i = p.first; i < p.last; i++)
            segment["words"].push_back({{"start", rounded(words[i].start)},
                                        {"end", rounded(words[i].end)},
                                        {"word", words[i].text}});
        result["segments"].push_back(std::move(segment));
    }
    return pretty_json(result) + "\n";
}

std::string write_ctm_words(const std::vector<spoken_word> &words, const std::string &recording) {
    std::string text;
    for (const spoken_word &w : words)
        text += line("%s 1 %.3f %.3f %s NA lex %s\n", field(recording).c_str(), w.start, w.end - w.start,
                     field(w.text).c_str(), w.speaker.empty() ? "unknown" : field(w.speaker).c_str());
    return text;
}

std::string write_stm(const std::vector<spoken_word> &words, const std::string &recording) {
    std::string text;
    for (const run_of_words &p : paragraphs_of(words))
        text += line("%s 1 %s %.3f %.3f %s\n", field(recording).c_str(),
                     p.speaker.empty() ? "unknown" : field(p.speaker).c_str(), words[p.first].start,
                     words[p.last - 1].end, joined(words, p.first, p.last).c_str());
    return text;
}

constexpr transcript_format FORMATS[] = {
    {{"text", ".txt", "a paragraph a turn", "text/plain"}, write_text_words},
    {{"markdown", ".md", "the same with names in bold", "text/markdown"}, write_markdown},
    {{"docx", ".docx", "a document for Word",
      "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
     write_docx},
    {{"odt", ".odt", "a document for LibreOffice", "application/vnd.oasis.opendocument.text"}, write_odt},
    {{"html", ".html", "the page with player, lanes and transcript", "text/html"}, nullptr},
    {{"srt", ".srt", "SubRip subtitles", "application/x-subrip"}, write_srt_words},
    {{"vtt", ".vtt", "WebVTT subtitles with voices", "text/vtt"}, write_vtt_words},
    {{"json", ".json", "words with times, for programs", "application/json"}, write_json_words},
    {{"tei", ".xml", "TEI, for corpora", "application/tei+xml"}, write_tei},
    {{"ctm", ".ctm", "NIST CTM, a line a word", "text/plain"}, write_ctm_words},
    {{"stm", ".stm", "NIST STM, a line a turn", "text/plain"}, write_stm},
};

}  // namespace

std::string shown_name(const std::string &speaker) {
    return speaker.empty() ? "somebody" : speaker;
}

std::string clock_time_in_seconds(double seconds) {
    const std::string clock = clock_time(seconds);
    return clock.substr(0, clock.size() - 4);
}

std::vector<run_of_words> paragraphs_of(const std::vector<spoken_word> &words, double pause) {
    std::vector<run_of_words> paragraphs;
    for (size_t i = 0; i < words.size(); i++) {
        const bool goes_on = i > 0 && words[i].speaker == words[i - 1].speaker &&
                             !words[i].begins_paragraph.value_or(words[i].start - words[i - 1].end > pause);
        if (!goes_on) paragraphs.push_back({i, i, words[i].speaker});
        paragraphs.back().last = i + 1;
    }
    return paragraphs;
}

std::span<const transcript_format> transcript_formats() {
    return FORMATS;
}

std::string write_words(const std::vector<spoken_word> &words, std::string_view format,
                        const std::string &recording) {
    std::string known;
    for (const transcript_format &f : FORMATS) {
        if (!f.write) continue;
        if (format == f.shown.name) return f.write(words, recording);
        known += (known.empty() ? "" : ", ") + std::string(f.shown.name);
    }
    throw std::runtime_error("a transcript is written as " + known + ", not as " + std::string(format));
}
