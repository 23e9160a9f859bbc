// SPDX-License-Identifier: Apache-2.0
// What the commands with words share: who speaks, by an earlier result or by diarizing, and what is written.
#ifndef PARLEY_TOOL_TRANSCRIPTS_H
#define PARLEY_TOOL_TRANSCRIPTS_H

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>

#include "command_options.h"
#include "library.h"

namespace parley {

struct transcript_options {
    std::string format, output, audio = "auto", voices, model;
    double reach = 1.0;
    bool by_time = false;
    command_options run;

    // Must outlive the parser.
    void define(CLI::App *app);

    int32_t rule() const { return by_time ? PARLEY_WORDS_BY_TIME : PARLEY_WORDS_WHOLE_SENTENCES; }

    // The format that is asked for by name or by the output's; null for none. Throws CLI::ValidationError.
    const parley_format *chosen_format() const;

    // The model, which is not loaded before it is needed.
    parley_diarizer *diarizer();

    // The result about a recording, whose voices tell words apart. `progress` may be null.
    result_ptr diarize(const std::string &path, parley_progress progress, void *context);

    // The words of a result, as a page with the sound where it can be had.
    void write(parley_result *result, const std::string &recording, const parley_format *chosen,
               std::FILE *out);

private:
    diarizer_ptr diarizer_;
};

// Pages draw the sound of a recording that a result was not made of; none for "".
void read_sound(parley_diarizer *diarizer, const std::string &recording, parley_result *result);

}  // namespace parley

#endif
