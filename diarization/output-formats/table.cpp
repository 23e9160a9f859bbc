// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>

#include "formats.h"
#include "writing.h"

namespace {

std::string painted(const parley_terminal &terminal, int speaker, const std::string &text) {
    if (!terminal.colors) return text;
    const long rgb = std::strtol(speaker_color(speaker) + 1, nullptr, 16);
    const long red = rgb >> 16, green = rgb >> 8 & 255, blue = rgb & 255;
    std::string begin = line("\033[38;2;%ld;%ld;%ldm", red, green, blue);
    if (terminal.colors == 256) {  // a cube of six steps of each
        const auto step = [](long value) { return std::lround(5 * static_cast<double>(value) / 255); };
        begin = line("\033[38;5;%ldm", 16 + 36 * step(red) + 6 * step(green) + step(blue));
    } else if (terminal.colors ==
               16) {  // near them: blue, yellow, green, magenta, cyan, red, bright yellow, grey
        static constexpr int NEAR[] = {34, 33, 32, 35, 36, 31, 93, 90};
        begin = line("\033[%dm", NEAR[static_cast<size_t>(speaker) % std::size(NEAR)]);
    }
    return begin + text + "\033[0m";
}

std::string padded(const std::string &text, size_t to) {
    const size_t width = columns_of(text);
    return text + std::string(to > width ? to - width : 0, ' ');
}

std::string right(const std::string &text, size_t to) {
    return std::string(to > text.size() ? to - text.size() : 0, ' ') + text;
}

std::string without_fraction(const std::string &clock) {
    return clock.substr(0, clock.size() - 4);
}

// How wide things are. Where there is little room lanes go without seconds and shares, then rows without how
// long a segment is, the thousandths of its times, and when it ends; a name may take half of the width.
struct layout {
    size_t name, lane, time;
    bool has_sums, has_length, has_thousandths, has_end;
};

layout layout_of(const diarization &result, const parley_terminal &terminal) {
    constexpr size_t SUMS = 17, LENGTH = 11, SHORTEST_LANE = 8, GAP = 2;
    const size_t width = static_cast<size_t>(std::max(20, terminal.columns));
    layout l = {};
    for (const speaker &s : result.speakers) l.name = std::max(l.name, columns_of(s.name));
    l.name = std::min(l.name, std::max(width / 2 - 1, width - std::min<size_t>(width, 60)));
    l.has_sums = l.name + GAP + SHORTEST_LANE + SUMS <= width;
    l.lane = width - l.name - GAP - (l.has_sums ? SUMS : 0);
    const size_t time = clock_time(result.duration).size();
    const auto row = [&] {
        return l.name + (l.has_end ? 2 : 1) * (l.time + GAP) + (l.has_length ? LENGTH : 0);
    };
    l.time = std::max<size_t>(time, width >= 60 ? 12 : 0);
    l.has_thousandths = l.has_length = l.has_end = true;
    if (row() > width) l.has_length = false;
    if (row() > width) {
        l.has_thousandths = false;
        l.time = time - 4;
    }
    l.has_end = row() <= width;
    return l;
}

}  // namespace

std::string write_table(const diarization &result, const parley_terminal &terminal) {
    std::string text = line("%s  %s, ", result.recording.c_str(), clock_time(result.duration).c_str());
    text +=
        std::to_string(result.speakers.size()) + (result.speakers.size() == 1 ? " speaker\n" : " speakers\n");
    if (!result.note.empty()) text += "note: " + result.note + "\n";
    if (result.segments.empty()) return text + "nobody speaks\n";

    const layout l = layout_of(result, terminal);
    double talk = 0;
    std::vector<std::string> short_names, columns;  // as they fit, and filled up to the column's width
    for (const speaker &s : result.speakers) {
        talk += s.seconds;
        short_names.push_back(cut_to(s.name, l.name));
        columns.push_back(padded(short_names.back(), l.name));
    }
    text += "\n";
    for (size_t k = 0; k < result.speakers.size(); k++) {
        // An eighth of a column is the finest a terminal draws; a column is filled by the share of it that is
        // speech.
        std::vector<double> filled(l.lane);
        const double step = result.duration / static_cast<double>(l.lane);
        for (const segment &s : result.segments) {
            if (static_cast<size_t>(s.speaker) != k) continue;
            for (auto c = static_cast<size_t>(s.start / step);
                 c < l.lane && static_cast<double>(c) * step < s.end; c++) {
                const double from = static_cast<double>(c) * step;
                filled[c] += std::min(s.end, from + step) - std::max(s.start, from);
            }
        }
        static constexpr const char *BLOCKS[] = {"·", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
        std::string bar;
        for (double f : filled)
            bar += BLOCKS[f <= 0 ? 0 : std::clamp(static_cast<int>(std::lround(8 * f / step)), 1, 8)];
        const speaker &s = result.speakers[k];
        text += columns[k] + "  " + painted(terminal, static_cast<int>(k), bar);
        if (l.has_sums) {
            text += line("  %9s %3.0f %%", without_fraction(clock_time(s.seconds)).c_str(),
                         talk > 0 ? 100 * s.seconds / talk : 0.0);
        }
        text += "\n";
    }
    text += "\n";
    const auto clock = [&l](double seconds) {
        const std::string length = clock_time(seconds);
        return right(l.has_thousandths ? length : without_fraction(length), l.time) + "  ";
    };
    for (const segment &s : result.segments) {
        text += clock(s.start) + (l.has_end ? clock(s.end) : "") +
                painted(terminal, s.speaker,
                        (l.has_length ? columns : short_names)[static_cast<size_t>(s.speaker)]);
        if (l.has_length) text += line("  %7.1f s", s.end - s.start);
        text += result.with_confidence && l.has_length ? line("  %.2f\n", s.confidence) : "\n";
    }
    return text;
}
