// SPDX-License-Identifier: Apache-2.0
// The parts of reading and writing transcripts (transcript.h), a file for each kind of format.
#ifndef PARLEY_TRANSCRIPT_PARTS_H
#define PARLEY_TRANSCRIPT_PARTS_H

#include <string>
#include <vector>

#include "transcript.h"

// A run of words of one speaker: [first, last).
struct run_of_words {
    size_t first, last;
    std::string speaker;
};

// What is shorter than half a second and a single word belongs to its neighbours.
std::vector<run_of_words> runs_of(const std::vector<spoken_word> &words);

// The words of a text without times of their own: they share the text's by their length.
std::vector<spoken_word> words_within(const std::string &text, double start, double end,
                                      const speakers_over_time &speakers);

// With blanks between them.
std::string joined(const std::vector<spoken_word> &words, size_t first, size_t last);

// Words that are read together: of one speaker, without a pause of so many seconds.
std::vector<run_of_words> paragraphs_of(const std::vector<spoken_word> &words, double pause = 5);

// What stands where nobody is known to speak, too.
std::string shown_name(const std::string &speaker);

// 1:02:03
std::string clock_time_in_seconds(double seconds);

// "Name: text", or in WebVTT "<v Name>text"; the text alone where nobody speaks.
std::string with_speaker(const std::string &speaker, const std::string &text, bool vtt);

// Goes through the lines of a text, numbered from 1 on, with their ends; `change` gives what stands in the
// place of each.
template <class Change>
std::string rewrite_lines(const std::string &text, Change change) {
    std::string result;
    size_t at = 0;
    for (int number = 1; at < text.size(); number++) {
        const size_t newline = text.find('\n', at);
        std::string line = text.substr(at, newline == std::string::npos ? newline : newline - at);
        std::string end = newline == std::string::npos ? "" : "\n";
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
            end = "\r" + end;
        }
        result += change(line, number) + end;
        at = newline == std::string::npos ? text.size() : newline + 1;
    }
    return result;
}

// A caption of a WebVTT or SubRip file: its lines with their tags.
struct caption_text {
    double start, end;  // seconds
    std::vector<std::string> lines;
};

std::vector<caption_text> captions_of(const std::string &text);

std::string without_tags(const std::string &line);

// ---- By format: the transcript with speakers as it came, and its words. All throw std::runtime_error.

std::string assign_json(const std::string &text, const speakers_over_time &speakers);
std::vector<spoken_word> read_json_words(const std::string &text, const speakers_over_time &speakers);

std::string assign_captions(const std::string &text, const speakers_over_time &speakers, bool vtt);
std::vector<spoken_word> read_caption_words(const std::string &text, const speakers_over_time &speakers);

std::string assign_table(const std::string &text, const speakers_over_time &speakers);
std::vector<spoken_word> read_table_words(const std::string &text, const speakers_over_time &speakers);

std::string assign_ctm(const std::string &text, const speakers_over_time &speakers);
std::vector<spoken_word> read_ctm_words(const std::string &text, const speakers_over_time &speakers);

std::string assign_sphinx(const std::string &text, const speakers_over_time &speakers);
std::vector<spoken_word> read_sphinx_words(const std::string &text, const speakers_over_time &speakers);

[[noreturn]] void refuse_without_times();

// ---- Words in a format, about a recording of this name.

std::string write_srt_words(const std::vector<spoken_word> &words, const std::string &recording);
std::string write_vtt_words(const std::vector<spoken_word> &words, const std::string &recording);
std::string write_docx(const std::vector<spoken_word> &words, const std::string &recording);
std::string write_odt(const std::vector<spoken_word> &words, const std::string &recording);
std::string write_tei(const std::vector<spoken_word> &words, const std::string &recording);

#endif
