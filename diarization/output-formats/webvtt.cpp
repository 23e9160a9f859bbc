// SPDX-License-Identifier: Apache-2.0
#include "formats.h"
#include "markup.h"
#include "writing.h"

std::string write_webvtt(const diarization &result, const parley_terminal &) {
    std::string text = "WEBVTT\n";
    for (const segment &s : result.segments) {
        if (s.is_overlap) continue;
        const std::string name = escape_xml(one_line(result.speakers[static_cast<size_t>(s.speaker)].name));
        text += "\n" + caption_time(s.start, '.') + " --> " + caption_time(s.end, '.') + "\n<v " + name +
                ">" + name + "\n";
    }
    return text;
}
