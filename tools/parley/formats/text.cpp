// Formats of one line a segment, and the table for people.

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "formats.h"
#include "rttm.h"

namespace {

[[gnu::format(printf, 1, 2)]] std::string line(const char *format, ...) {
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    std::string text(static_cast<size_t>(std::vsnprintf(nullptr, 0, format, arguments)) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, again);
    va_end(again);
    va_end(arguments);
    text.pop_back();
    return text;
}

const std::string &name_of(const diarization &result, const segment &s) {
    return result.speakers[static_cast<size_t>(s.speaker)].name;
}

// NIST files separate fields by spaces.
std::string field(std::string name) {
    std::ranges::replace_if(
        name, [](unsigned char c) { return std::isspace(c); }, '_');
    return name.empty() ? "<NA>" : name;
}

// RFC 4180: quotes where the text would be taken for something else.
std::string quoted(const std::string &text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string result = "\"";
    for (char c : text) result += c == '"' ? "\"\"" : std::string(1, c);
    return result + '"';
}

std::string painted(const terminal &look, int speaker, const std::string &text) {
    if (!look.colors) return text;
    const long rgb = std::strtol(speaker_color(speaker) + 1, nullptr, 16);
    return line("\033[38;2;%ld;%ld;%ldm", rgb >> 16, rgb >> 8 & 255, rgb & 255) + text + "\033[0m";
}

size_t width(const std::string &utf8) {
    return static_cast<size_t>(std::ranges::count_if(utf8, [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string padded(const std::string &text, size_t to) {
    return text + std::string(to > width(text) ? to - width(text) : 0, ' ');
}

}  // namespace

std::string write_text(const diarization &result, const terminal &) {
    std::string text;
    for (const segment &s : result.segments) {
        text += line("%9.3f %9.3f  %s", s.start, s.end, name_of(result, s).c_str());
        text += result.with_confidence ? line("  %.2f\n", s.confidence) : "\n";
    }
    return text;
}

std::string write_table(const diarization &result, const terminal &look) {
    std::string text = line("%s  %s, ", result.recording.c_str(), clock_time(result.duration).c_str());
    text += line("%zu speaker%s\n", result.speakers.size(), result.speakers.size() == 1 ? "" : "s");
    if (!result.note.empty()) text += "note: " + result.note + "\n";
    if (result.segments.empty()) return text + "nobody speaks\n";

    size_t widest = 0;
    for (const speaker &s : result.speakers) widest = std::max(widest, width(s.name));
    double talk = 0;
    for (const speaker &s : result.speakers) talk += s.seconds;
    const size_t columns =
        std::max<size_t>(20, static_cast<size_t>(look.columns) - std::min<size_t>(widest, 40) - 24);
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
        text += padded(s.name, widest) + "  " + painted(look, static_cast<int>(k), bar) +
                line("  %9s %3.0f %%\n",
                     clock_time(s.seconds).substr(0, clock_time(s.seconds).size() - 4).c_str(),
                     talk > 0 ? 100 * s.seconds / talk : 0.0);
    }
    text += "\n";
    for (const segment &s : result.segments) {
        text += line("%12s  %12s  ", clock_time(s.start).c_str(), clock_time(s.end).c_str()) +
                painted(look, s.speaker, padded(name_of(result, s), widest)) +
                line("  %7.1f s", s.end - s.start);
        text += result.with_confidence ? line("  %.2f\n", s.confidence) : "\n";
    }
    return text;
}

std::string write_rttm(const diarization &result, const terminal &) {
    std::string text;
    for (const segment &s : result.segments)
        text += format_rttm(field(result.recording), {s.start, s.end, field(name_of(result, s))});
    return text;
}

std::string write_uem(const diarization &result, const terminal &) {
    return line("%s 1 0.000 %.3f\n", field(result.recording).c_str(), result.duration);
}

std::string write_ctm(const diarization &result, const terminal &) {
    std::string text;
    for (const segment &s : result.segments) {
        text += line("%s 1 %.3f %.3f %s", field(result.recording).c_str(), s.start, s.end - s.start,
                     field(name_of(result, s)).c_str());
        text += result.with_confidence ? line(" %.2f\n", s.confidence) : "\n";
    }
    return text;
}

std::string write_csv(const diarization &result, const terminal &) {
    std::string text = "recording,start,end,duration,speaker";
    text += result.with_confidence ? ",confidence\r\n" : "\r\n";
    for (const segment &s : result.segments) {
        text += quoted(result.recording) + line(",%.3f,%.3f,%.3f,", s.start, s.end, s.end - s.start) +
                quoted(name_of(result, s));
        text += result.with_confidence ? line(",%.3f\r\n", s.confidence) : "\r\n";
    }
    return text;
}

std::string write_audacity(const diarization &result, const terminal &) {
    std::string text;
    for (const segment &s : result.segments) {
        std::string label = name_of(result, s);
        std::ranges::replace_if(
            label, [](char c) { return c == '\t' || c == '\n' || c == '\r'; }, ' ');
        text += line("%.6f\t%.6f\t%s\n", s.start, s.end, label.c_str());
    }
    return text;
}
