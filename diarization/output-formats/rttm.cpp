// SPDX-License-Identifier: Apache-2.0
#include "rttm.h"

#include "formats.h"
#include "writing.h"

std::string write_rttm(const diarization &result, const parley_terminal &) {
    std::string text;
    for (const segment &s : result.segments)
        text += format_rttm(field(result.recording), {s.start, s.end, field(name_of(result, s))});
    return text;
}
