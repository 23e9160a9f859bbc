#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "formats.h"
#include "writing.h"

namespace {

std::string painted(const parley_terminal &terminal, int speaker, const std::string &text) {
    if (!terminal.colors) return text;
    const long rgb = std::strtol(speaker_color(speaker) + 1, nullptr, 16);
    return line("\033[38;2;%ld;%ld;%ldm", rgb >> 16, rgb >> 8 & 255, rgb & 255) + text + "\033[0m";
}

std::string padded(const std::string &text, size_t to) {
    return text + std::string(to > characters(text) ? to - characters(text) : 0, ' ');
}

}  // namespace

std::string write_table(const diarization &result, const parley_terminal &terminal) {
    std::string text = line("%s  %s, ", result.recording.c_str(), clock_time(result.duration).c_str());
    text += line("%zu speaker%s\n", result.speakers.size(), result.speakers.size() == 1 ? "" : "s");
    if (!result.note.empty()) text += "note: " + result.note + "\n";
    if (result.segments.empty()) return text + "nobody speaks\n";

    size_t widest = 0;
    for (const speaker &s : result.speakers) widest = std::max(widest, characters(s.name));
    double talk = 0;
    for (const speaker &s : result.speakers) talk += s.seconds;
    const size_t columns = static_cast<size_t>(
        std::max(20, terminal.columns - static_cast<int>(std::min<size_t>(widest, 40)) - 24));
    text += "\n";
    for (size_t k = 0; k < result.speakers.size(); k++) {
        // An eighth of a column is the finest a terminal draws; a column is filled by the share of it that is
        // speech.
        std::vector<double> filled(columns);
        const double step = result.duration / static_cast<double>(columns);
        for (const segment &s : result.segments) {
            if (static_cast<size_t>(s.speaker) != k) continue;
            for (auto c = static_cast<size_t>(s.start / step);
                 c < columns && static_cast<double>(c) * step < s.end; c++) {
                const double from = static_cast<double>(c) * step;
                filled[c] += std::min(s.end, from + step) - std::max(s.start, from);
            }
        }
        static constexpr const char *BLOCKS[] = {"·", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
        std::string bar;
        for (double f : filled)
            bar += BLOCKS[f <= 0 ? 0 : std::clamp(static_cast<int>(std::lround(8 * f / step)), 1, 8)];
        const speaker &s = result.speakers[k];
        text += padded(s.name, widest) + "  " + painted(terminal, static_cast<int>(k), bar) +
                line("  %9s %3.0f %%\n",
                     clock_time(s.seconds).substr(0, clock_time(s.seconds).size() - 4).c_str(),
                     talk > 0 ? 100 * s.seconds / talk : 0.0);
    }
    text += "\n";
    for (const segment &s : result.segments) {
        text += line("%12s  %12s  ", clock_time(s.start).c_str(), clock_time(s.end).c_str()) +
                painted(terminal, s.speaker, padded(name_of(result, s), widest)) +
                line("  %7.1f s", s.end - s.start);
        text += result.with_confidence ? line("  %.2f\n", s.confidence) : "\n";
    }
    return text;
}
