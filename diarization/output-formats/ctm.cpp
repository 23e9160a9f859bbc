// SPDX-License-Identifier: Apache-2.0
#include "formats.h"
#include "writing.h"

std::string write_ctm(const diarization &result, const parley_terminal &) {
    std::string text;
    for (const segment &s : result.segments) {
        text += line("%s 1 %.3f %.3f %s", field(result.recording).c_str(), s.start, s.end - s.start,
                     field(name_of(result, s)).c_str());
        text += result.with_confidence ? line(" %.2f\n", s.confidence) : "\n";
    }
    return text;
}
