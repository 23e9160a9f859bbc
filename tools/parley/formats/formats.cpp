#include "formats.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace {

constexpr output_format FORMATS[] = {
    {"table", ".txt", "a timeline and a list, for reading (the default on a terminal)", write_table},
    {"text", ".txt", "plain lines: start, end, speaker (the default elsewhere)", write_text},
    {"rttm", ".rttm", "SPEAKER lines, for scoring", write_rttm},
    {"json", ".json", "everything, for programs", write_json},
    {"csv", ".csv", "a row a segment, for spreadsheets", write_csv},
    {"vtt", ".vtt", "WebVTT captions", write_webvtt},
    {"srt", ".srt", "SubRip captions", write_srt},
    {"audacity", ".labels.txt", "Audacity labels", write_audacity},
    {"textgrid", ".TextGrid", "Praat, a tier a speaker", write_textgrid},
    {"eaf", ".eaf", "ELAN, a tier a speaker", write_eaf},
    {"ctm", ".ctm", "NIST CTM, the speaker in place of the word", write_ctm},
    {"uem", ".uem", "NIST UEM: the part that was listened to", write_uem},
    {"html", ".html", "a page with player, lanes and shares", write_html},
#if PARLEY_WITH_CAIRO
    {"svg", ".svg", "the timeline as a drawing", write_svg},
    {"png", ".png", "the timeline as a picture", write_png},
#endif
};

}  // namespace

std::span<const output_format> output_formats() {
    return FORMATS;
}

const output_format *find_output_format(std::string_view name) {
    const auto found = std::ranges::find(FORMATS, name, &output_format::name);
    return found == std::end(FORMATS) ? nullptr : found;
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
    static constexpr std::array COLORS = {"#0072b2", "#e69f00", "#009e73", "#cc79a7",
                                          "#56b4e9", "#d55e00", "#9a8f00", "#7a7a7a"};
    return COLORS[static_cast<size_t>(speaker) % COLORS.size()];
}
