// SPDX-License-Identifier: Apache-2.0
#include "formats.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "errors.h"

namespace {

constexpr int32_t MAX_COLUMNS = 10000;

constexpr output_format FORMATS[] = {
    {{"table", ".table.txt", "a timeline and a list, for reading (the default on a terminal)", "text/plain"},
     write_table},
    {{"text", ".txt", "plain lines: start, end, speaker (the default elsewhere)", "text/plain"}, write_text},
    {{"rttm", ".rttm", "SPEAKER lines, for scoring", "text/plain"}, write_rttm},
    {{"json", ".json", "everything, for programs", "application/json"}, write_json},
    {{"jsonl", ".jsonl", "the same in one line", "application/jsonl"}, write_jsonl},
    {{"csv", ".csv", "a row a segment, for spreadsheets", "text/csv"}, write_csv},
    {{"vtt", ".vtt", "WebVTT captions", "text/vtt"}, write_webvtt},
    {{"srt", ".srt", "SubRip captions", "application/x-subrip"}, write_srt},
    {{"audacity", ".labels.txt", "Audacity labels", "text/plain"}, write_audacity},
    {{"textgrid", ".TextGrid", "Praat, a tier a speaker", "text/plain"}, write_textgrid},
    {{"eaf", ".eaf", "ELAN, a tier a speaker", "application/xml"}, write_eaf},
    {{"ctm", ".ctm", "NIST CTM, the speaker in place of the word", "text/plain"}, write_ctm},
    {{"uem", ".uem", "NIST UEM: the part that was listened to", "text/plain"}, write_uem},
    {{"html", ".html", "a page with player, lanes and shares", "text/html"}, write_html},
    {{"svg", ".svg", "the timeline as a drawing", "image/svg+xml"}, write_svg},
#if PARLEY_WITH_CAIRO
    {{"png", ".png", "the timeline as a picture", "image/png"}, write_png},
#endif
};

}  // namespace

std::span<const output_format> output_formats() {
    return FORMATS;
}

std::string write_format(const diarization &result, std::string_view name, const parley_terminal &terminal) {
    const auto found = std::find_if(std::begin(FORMATS), std::end(FORMATS),
                                    [name](const output_format &f) { return f.shown.name == name; });
    if (found == std::end(FORMATS)) {
        std::string known;
        for (const output_format &f : FORMATS)
            known += (known.empty() ? "" : ", ") + std::string(f.shown.name);
        throw diarization_error(PARLEY_INVALID, "there is no format " + std::string(name) + ", but " + known);
    }
    const int32_t columns = terminal.columns > 0 ? std::min(terminal.columns, MAX_COLUMNS) : 100;
    return found->write(result, {columns, terminal.colors});
}

std::string clock_time(double seconds) {
    const auto milliseconds = static_cast<long long>(std::llround(seconds * 1000));
    const long long hours = milliseconds / 3600000, minutes = milliseconds / 60000 % 60;
    char text[64];
    if (hours > 0) {
        std::snprintf(text, sizeof(text), "%lld:%02lld:%02lld.%03lld", hours, minutes,
                      milliseconds / 1000 % 60, milliseconds % 1000);
    } else {
        std::snprintf(text, sizeof(text), "%lld:%02lld.%03lld", minutes, milliseconds / 1000 % 60,
                      milliseconds % 1000);
    }
    return text;
}

const char *speaker_color(int speaker) {
    static constexpr std::array COLORS = {"#0072b2", "#e69f00", "#009e73", "#cc79a7", "#56b4e9", "#d55e00",
                                          "#9a8f00", "#7a7a7a", "#004c76", "#a06800", "#00573f", "#8a3d67",
                                          "#1f7fae", "#8f3b00", "#5c5600", "#454545"};
    return COLORS[static_cast<size_t>(speaker) % COLORS.size()];
}
