// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <vector>

#include "formats.h"
#include "writing.h"

namespace {

std::string number(double value) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.3f", value);
    return text;
}

// A tier must be gapless in Praat: what lies between a speaker's segments are intervals without text.
struct interval {
    double start;
    double end;
    std::string text;
};

std::vector<interval> fill(const diarization &result, size_t speaker) {
    std::vector<interval> tier;
    int64_t at = 0;  // in milliseconds, as they are written: nothing may become empty by rounding
    const auto add = [&](double until, const std::string &text) {
        const int64_t end = std::llround(until * 1000);
        if (end <= at) return;
        tier.push_back({static_cast<double>(at) / 1000, static_cast<double>(end) / 1000, text});
        at = end;
    };
    for (const segment &s : result.segments) {
        if (static_cast<size_t>(s.speaker) != speaker) continue;
        add(s.start, "");
        add(s.end, result.speakers[speaker].name);
    }
    add(result.duration, "");
    return tier;
}

}  // namespace

std::string write_textgrid(const diarization &result, const parley_terminal &) {
    const auto quoted = [](const std::string &text) {
        std::string doubled;
        for (char c : text) doubled += c == '"' ? "\"\"" : std::string(1, c);
        return "\"" + doubled + "\"";
    };
    const std::string duration = number(result.duration);
    std::string text =
        "File type = \"ooTextFile\"\nObject class = \"TextGrid\"\n\nxmin = 0\nxmax = " + duration +
        "\ntiers? <exists>\nsize = " + std::to_string(result.speakers.size()) + "\nitem []:\n";
    for (size_t k = 0; k < result.speakers.size(); k++) {
        const std::vector<interval> tier = fill(result, k);
        text += "    item [" + std::to_string(k + 1) +
                "]:\n        class = \"IntervalTier\"\n        name = " + quoted(result.speakers[k].name) +
                "\n        xmin = 0\n        xmax = " + duration +
                "\n        intervals: size = " + std::to_string(tier.size()) + "\n";
        for (size_t i = 0; i < tier.size(); i++) {
            text += "        intervals [" + std::to_string(i + 1) +
                    "]:\n            xmin = " + number(tier[i].start) +
                    "\n            xmax = " + number(tier[i].end) +
                    "\n            text = " + quoted(tier[i].text) + "\n";
        }
    }
    return text;
}
