// SPDX-License-Identifier: Apache-2.0
#include "formats.h"
#include "writing.h"

std::string write_srt(const diarization &result, const parley_terminal &) {
    std::string text;
    int index = 0;
    for (const segment &s : result.segments) {
        if (s.is_overlap) continue;
        text += std::to_string(++index) + "\n" + caption_time(s.start, ',') + " --> " +
                caption_time(s.end, ',') + "\n" +
                one_line(result.speakers[static_cast<size_t>(s.speaker)].name) + "\n\n";
    }
    return text;
}
