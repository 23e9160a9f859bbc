// SPDX-License-Identifier: Apache-2.0
#include "rttm.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace {

constexpr double LATEST = 1e9;  // seconds; 32 years

// Of lines that RTTM knows, those of speakers alone count.
constexpr std::string_view TYPES[] = {"SPEAKER", "SPKR-INFO", "SEGMENT", "NOSCORE", "NO_RT_METADATA",
                                      "LEXEME",  "NON-LEX",   "FILLER",  "EDIT",    "NON-SPEECH",
                                      "IP",      "SU",        "CB",      "A/P"};

// Calls parse(fields) for every line that is neither empty nor a comment; false stands for a line that makes
// no sense.
template <class Parse>
void read_lines(std::istream &input, const std::string &name, Parse parse) {
    std::string line;
    for (int number = 1; std::getline(input, line); number++) {
        if (number == 1 && line.starts_with("\xEF\xBB\xBF")) line.erase(0, 3);  // a byte order mark
        std::istringstream words(line);
        std::vector<std::string> fields;
        for (std::string word; words >> word;) fields.push_back(word);
        if (fields.empty() || fields[0].starts_with(";")) continue;
        if (!parse(fields))
            throw std::runtime_error(name + ":" + std::to_string(number) + ": cannot be read: " + line);
    }
    if (input.bad()) throw std::runtime_error(name + ": read error");
}

bool parse_seconds(const std::string &text, double *seconds) {
    try {
        size_t length = 0;
        *seconds = std::stod(text, &length);
        return length == text.size() && *seconds >= 0 && *seconds <= LATEST;
    } catch (const std::exception &) {
        return false;
    }
}

}  // namespace

rttm read_rttm(std::istream &input, const std::string &name) {
    rttm result;
    read_lines(input, name, [&result](const std::vector<std::string> &fields) {
        if (fields[0] != TYPES[0])
            return std::find(std::begin(TYPES), std::end(TYPES), fields[0]) != std::end(TYPES);
        double start, duration;
        if (fields.size() < 8 || !parse_seconds(fields[3], &start) || !parse_seconds(fields[4], &duration)) {
            return false;
        }
        result[fields[1]].push_back({start, start + duration, fields[7]});
        return true;
    });
    return result;
}

uem read_uem(std::istream &input, const std::string &name) {
    uem result;
    read_lines(input, name, [&result](const std::vector<std::string> &fields) {
        double start, end;
        if (fields.size() < 4 || !parse_seconds(fields[2], &start) || !parse_seconds(fields[3], &end) ||
            end < start) {
            return false;
        }
        result[fields[0]].push_back({start, end});
        return true;
    });
    return result;
}

std::string format_rttm(const std::string &recording, const turn &turn) {
    char times[64];
    std::snprintf(times, sizeof(times), "%.3f %.3f", turn.start, turn.end - turn.start);
    return "SPEAKER " + recording + " 1 " + times + " <NA> <NA> " + turn.speaker + " <NA> <NA>\n";
}
