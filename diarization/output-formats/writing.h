// SPDX-License-Identifier: Apache-2.0
// What writers of formats share.
#ifndef PARLEY_FORMATS_WRITING_H
#define PARLEY_FORMATS_WRITING_H

#include <string>

#include "result.h"

// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string line(const char *format, ...);

const std::string &name_of(const diarization &result, const segment &s);

// A name as NIST files can hold it: fields there are separated by spaces.
std::string field(std::string name);

// How many columns of a terminal, or ems of half width, a text takes: wide characters two, combining ones
// none.
size_t columns_of(const std::string &utf8);

// The text, or as much of its beginning as fits into so many columns with an ellipsis behind it.
std::string cut_to(const std::string &utf8, size_t columns);

// The text without line ends.
std::string one_line(std::string text);

// 01:02:03.450 with its decimal sign, as captions have it.
std::string caption_time(double seconds, char decimal);

#endif
