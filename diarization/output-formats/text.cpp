// SPDX-License-Identifier: Apache-2.0
#include "formats.h"
#include "writing.h"

std::string write_text(const diarization &result, const parley_terminal &) {
    std::string text;
    for (const segment &s : result.segments) {
        text += line("%9.3f %9.3f  %s", s.start, s.end, name_of(result, s).c_str());
        text += result.with_confidence ? line("  %.2f\n", s.confidence) : "\n";
    }
    return text;
}
