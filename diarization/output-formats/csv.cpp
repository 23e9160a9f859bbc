// SPDX-License-Identifier: Apache-2.0
#include "formats.h"
#include "writing.h"

namespace {

// RFC 4180: quotes where the text would be taken for something else.
std::string quoted(const std::string &text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string result = "\"";
    for (char c : text) result += c == '"' ? "\"\"" : std::string(1, c);
    return result + '"';
}

}  // namespace

std::string write_csv(const diarization &result, const parley_terminal &) {
    std::string text = "recording,start,end,duration,speaker";
    text += result.with_confidence ? ",confidence\r\n" : "\r\n";
    for (const segment &s : result.segments) {
        text += quoted(result.recording) + line(",%.3f,%.3f,%.3f,", s.start, s.end, s.end - s.start) +
                quoted(name_of(result, s));
        text += result.with_confidence ? line(",%.3f\r\n", s.confidence) : "\r\n";
    }
    return text;
}
