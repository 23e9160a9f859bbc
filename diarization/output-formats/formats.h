// SPDX-License-Identifier: Apache-2.0
// How a diarization is written down: one function for every format, and the table of them.
#ifndef PARLEY_FORMATS_H
#define PARLEY_FORMATS_H

#include <span>
#include <string>
#include <string_view>

#include "parley.h"
#include "result.h"

struct output_format {
    parley_format shown;
    // `terminal` is what `table` is drawn for; its columns are known.
    std::string (*write)(const diarization &result, const parley_terminal &terminal);
};

std::span<const output_format> output_formats();

// The text of a format by name. Throws diarization_error where there is none of that name.
std::string write_format(const diarization &result, std::string_view name, const parley_terminal &terminal);

// 1:02:03.450, or 2:03.450 below an hour.
std::string clock_time(double seconds);

// The colour of a speaker, "#0072b2": told apart by people with any kind of colour vision, on light and dark.
const char *speaker_color(int speaker);

std::string write_text(const diarization &result, const parley_terminal &terminal);
std::string write_table(const diarization &result, const parley_terminal &terminal);
std::string write_rttm(const diarization &result, const parley_terminal &terminal);
std::string write_uem(const diarization &result, const parley_terminal &terminal);
std::string write_ctm(const diarization &result, const parley_terminal &terminal);
std::string write_json(const diarization &result, const parley_terminal &terminal);
std::string write_jsonl(const diarization &result, const parley_terminal &terminal);
std::string write_csv(const diarization &result, const parley_terminal &terminal);
std::string write_webvtt(const diarization &result, const parley_terminal &terminal);
std::string write_srt(const diarization &result, const parley_terminal &terminal);
std::string write_audacity(const diarization &result, const parley_terminal &terminal);
std::string write_textgrid(const diarization &result, const parley_terminal &terminal);
std::string write_eaf(const diarization &result, const parley_terminal &terminal);
std::string write_html(const diarization &result, const parley_terminal &terminal);
std::string write_svg(const diarization &result, const parley_terminal &terminal);
std::string write_png(const diarization &result, const parley_terminal &terminal);

#endif
