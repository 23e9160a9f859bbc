// SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "formats.h"
#include "writing.h"

std::string write_audacity(const diarization &result, const parley_terminal &) {
    std::string text;
    for (const segment &s : result.segments) {
        std::string label = name_of(result, s);
        std::replace_if(
            label.begin(), label.end(), [](char c) { return c == '\t' || c == '\n' || c == '\r'; }, ' ');
        text += line("%.3f\t%.3f\t%s\n", s.start, s.end, label.c_str());
    }
    return text;
}
