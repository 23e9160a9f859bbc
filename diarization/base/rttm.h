// SPDX-License-Identifier: Apache-2.0
// Who spoke when, as text files have it: RTTM (one SPEAKER line per stretch of speech) and UEM (which parts
// of a recording are to be looked at).
#ifndef PARLEY_RTTM_H
#define PARLEY_RTTM_H

#include <istream>
#include <map>
#include <string>
#include <vector>

// A stretch of speech, in seconds.
struct turn {
    double start;
    double end;
    std::string speaker;
};

// A part of a recording, in seconds.
struct span {
    double start;
    double end;
};

// By recording, in the order of their names.
using rttm = std::map<std::string, std::vector<turn>>;
using uem = std::map<std::string, std::vector<span>>;

// Reads "SPEAKER recording channel start duration ... speaker ..." lines; other types of line are passed
// over. Throws std::runtime_error, with `name` and the number of the line, for one that cannot be read.
rttm read_rttm(std::istream &input, const std::string &name);

// Reads "recording channel start end" lines; lines that begin with ";" are comments. Throws as read_rttm
// does.
uem read_uem(std::istream &input, const std::string &name);

// A SPEAKER line with its newline.
std::string format_rttm(const std::string &recording, const turn &turn);

#endif
