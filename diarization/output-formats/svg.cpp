// SPDX-License-Identifier: Apache-2.0
// The timeline as a drawing for papers: text stays text, and what a reader of screens says is there.

#include <cmath>

#include "formats.h"
#include "markup.h"
#include "timeline.h"
#include "writing.h"

namespace {

constexpr double CHARACTER = 7.5;  // points at most, of a letter of the labels

std::string text_at(double x, double y, const char *more, const std::string &text) {
    return line("<text x=\"%.2f\" y=\"%.2f\"%s>", x, y, more) + escape_xml(text) + "</text>\n";
}

}  // namespace

std::string write_svg(const diarization &result, const parley_terminal &) {
    const double height = height_of(result), bottom = height - AXIS, right = WIDTH - MARGIN;
    double left = 60;
    for (const speaker &s : result.speakers)
        left = std::max(left, CHARACTER * static_cast<double>(columns_of(s.name)));
    left = std::min(left, WIDTH / 3) + 2 * MARGIN;
    const auto x_of = [&](double seconds) {
        return left + (right - left) * seconds / std::max(result.duration, 1e-3);
    };

    std::string text = line(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %.0f %.0f\" font-family=\"sans-serif\" "
        "font-size=\"13\" "
        "role=\"img\">\n",
        WIDTH, height);
    text += "<title>" + escape_xml(result.recording) +
            "</title>\n<desc>Who spoke when: " + std::to_string(result.speakers.size()) + " speakers in " +
            clock_time(result.duration) + "</desc>\n";
    text += "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    text += text_at(MARGIN, 24, " font-size=\"15\" fill=\"#222222\"",
                    result.recording + "  " + clock_time(result.duration));
    const double tick = tick_of(result.duration);
    for (int i = 0; i * tick <= result.duration; i++) {
        const double x = std::round(x_of(i * tick)) + 0.5;
        const std::string label =
            clock_time(i * tick).substr(0, clock_time(i * tick).size() - (tick < 1 ? 2 : 4));
        text += line("<path d=\"M%.1f %.0fV%.0f\" stroke=\"#dddddd\"/>\n", x, TITLE, bottom + 4);
        const char *anchor = x > right - 40 ? " text-anchor=\"end\" fill=\"#555555\""
                                            : " text-anchor=\"middle\" fill=\"#555555\"";
        text += text_at(std::min(x, right), bottom + 20, anchor, label);
    }
    for (size_t k = 0; k < result.speakers.size(); k++) {
        const double top = TITLE + LANE * static_cast<double>(k);
        text += text_at(MARGIN, top + LANE / 2 + 5, " fill=\"#222222\"", result.speakers[k].name);
        text += line("<g fill=\"%s\">\n", speaker_color(static_cast<int>(k)));
        for (const segment &s : result.segments) {
            if (static_cast<size_t>(s.speaker) != k) continue;
            text += line("<rect x=\"%.2f\" y=\"%.2f\" width=\"%.2f\" height=\"%.0f\"/>\n", x_of(s.start),
                         top + 5, std::max(0.5, x_of(s.end) - x_of(s.start)), LANE - 10);
        }
        text += "</g>\n";
    }
    return text + "</svg>\n";
}
