// SPDX-License-Identifier: Apache-2.0
// Transcripts of a line each: Whisper's table, CTM, PocketSphinx.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "transcript_parts.h"
#include "writing.h"

namespace {

struct table_row {
    double start, end;  // seconds
    std::string text;
};

table_row parse_table_row(const std::string &line, int number) {
    char *end_of_start = nullptr, *end_of_end = nullptr;
    const double start = std::strtod(line.c_str(), &end_of_start);
    const double end = std::strtod(end_of_start, &end_of_end);
    if (end_of_start == line.c_str() || end_of_end == end_of_start || *end_of_end != '\t')
        throw std::runtime_error("line " + std::to_string(number) + " is none of a table of times and text");
    return {start / 1000, end / 1000, end_of_end + 1};
}

struct ctm_line {
    std::vector<std::string> fields;
    double start = 0, end = 0;
};

// Nothing for a comment or an empty line.
std::optional<ctm_line> parse_ctm_line(const std::string &line, int number) {
    ctm_line result;
    std::istringstream stream(line);
    std::vector<std::string> &fields = result.fields;
    for (std::string field; stream >> field;) fields.push_back(field);
    if (fields.empty() || line.starts_with(";;")) return std::nullopt;
    char *end_of_start = nullptr, *end_of_duration = nullptr;
    result.start = fields.size() < 5 ? -1 : std::strtod(fields[2].c_str(), &end_of_start);
    const double duration = fields.size() < 5 ? -1 : std::strtod(fields[3].c_str(), &end_of_duration);
    result.end = result.start + duration;
    if (fields.size() < 5 || *end_of_start || *end_of_duration || !(result.start >= 0) || !(duration >= 0))
        throw std::runtime_error("line " + std::to_string(number) + " is none of a CTM file");
    return result;
}

// "good(2) 0.820 0.930 0.054": which of its pronunciations a word has stands in brackets. Nothing for what is
// said in one line, pauses and noises.
std::optional<spoken_word> parse_sphinx_line(const std::string &line) {
    std::istringstream stream(line);
    std::string text, more;
    double start, end, probability;
    if (!(stream >> text >> start >> end >> probability) || stream >> more) return std::nullopt;
    if (!(start >= 0 && end >= start) || text.find_first_of("<[+") == 0) return std::nullopt;
    return spoken_word{start, end, text.substr(0, text.find('(')), ""};
}

void append(const std::vector<spoken_word> &more, std::vector<spoken_word> *words) {
    words->insert(words->end(), more.begin(), more.end());
}

}  // namespace

// Whisper's table: start and end in milliseconds, text. A column more.
std::string assign_table(const std::string &text, const speakers_over_time &speakers) {
    return rewrite_lines(text, [&](const std::string &line, int number) -> std::string {
        if (number == 1) return line + "\tspeaker";
        if (line.empty()) return line;
        const table_row row = parse_table_row(line, number);
        const std::vector<spoken_word> words = words_within(row.text, row.start, row.end, speakers);
        const std::vector<run_of_words> runs = runs_of(words);
        if (runs.size() < 2) return line + "\t" + speakers.at(row.start, row.end);
        std::string rows;
        for (const run_of_words &run : runs) {
            const auto milliseconds = [](double seconds) {
                return std::to_string(std::llround(1000 * seconds));
            };
            rows += (rows.empty() ? "" : "\n") + milliseconds(words[run.first].start) + "\t" +
                    milliseconds(words[run.last - 1].end) + "\t" + joined(words, run.first, run.last) + "\t" +
                    run.speaker;
        }
        return rows;
    });
}

std::vector<spoken_word> read_table_words(const std::string &text, const speakers_over_time &speakers) {
    std::vector<spoken_word> words;
    rewrite_lines(text, [&](const std::string &line, int number) {
        if (number == 1 || line.empty()) return line;
        const table_row row = parse_table_row(line, number);
        append(words_within(row.text, row.start, row.end, speakers), &words);
        return line;
    });
    return words;
}

std::string assign_ctm(const std::string &text, const speakers_over_time &speakers) {
    return rewrite_lines(text, [&](const std::string &line, int number) {
        auto parsed = parse_ctm_line(line, number);
        if (!parsed) return line;
        std::vector<std::string> &fields = parsed->fields;
        fields.resize(std::min<size_t>(fields.size(), 7));
        if (fields.size() < 6) fields.push_back("NA");
        if (fields.size() < 7) fields.push_back("lex");
        const std::string speaker = speakers.at(parsed->start, parsed->end);
        fields.push_back(speaker.empty() ? "unknown" : field(speaker));
        std::string line_with_speaker;
        for (const std::string &f : fields) line_with_speaker += (line_with_speaker.empty() ? "" : " ") + f;
        return line_with_speaker;
    });
}

std::vector<spoken_word> read_ctm_words(const std::string &text, const speakers_over_time &speakers) {
    std::vector<spoken_word> words;
    rewrite_lines(text, [&](const std::string &line, int number) {
        if (const auto parsed = parse_ctm_line(line, number))
            append(words_within(parsed->fields[4], parsed->start, parsed->end, speakers), &words);
        return line;
    });
    return words;
}

std::string assign_sphinx(const std::string &text, const speakers_over_time &speakers) {
    return rewrite_lines(text, [&](const std::string &line, int) {
        const auto word = parse_sphinx_line(line);
        return word ? line + " " + field(speakers.at(word->start, word->end)) : line;
    });
}

std::vector<spoken_word> read_sphinx_words(const std::string &text, const speakers_over_time &speakers) {
    std::vector<spoken_word> words;
    rewrite_lines(text, [&](const std::string &line, int) {
        if (auto word = parse_sphinx_line(line)) {
            word->speaker = speakers.at(word->start, word->end);
            words.push_back(*std::move(word));
        }
        return line;
    });
    return words;
}
