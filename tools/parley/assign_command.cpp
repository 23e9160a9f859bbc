// SPDX-License-Identifier: Apache-2.0
// A transcript with who speaks.

#include <cstdlib>
#include <memory>

#include "commands.h"
#include "documents.h"
#include "files.h"
#include "system.h"
#include "terminal.h"
#include "transcripts.h"

namespace parley {

namespace assigning {
namespace {

struct arguments {
    std::string words, source, recording;
    transcript_options options;
};

void check_words(parley_status status, const std::string &words) {
    if (status == PARLEY_INVALID) throw std::runtime_error(words + ": " + parley_message());
    check(status);
}

int run(arguments *a) {
    transcript_options &options = a->options;
    const parley_format *chosen = options.chosen_format();
    std::FILE *out = take_standard_output();
    if (chosen) check_terminal(*chosen, options.output, out);
    const std::string transcript = read_text(a->words);
    result_ptr result;
    std::string recording = a->recording;
    if (is_result_file(a->source)) {
        result = read_result_file(a->source);
        if (recording.empty()) recording = recording_of(result.get(), a->source);
        if (chosen && is_page(*chosen)) read_sound(options.diarizer(), recording, result.get());
    } else {
        recording = a->source;
        result = options.diarize(a->source, nullptr, nullptr);
    }
    if (chosen) {
        check_words(parley_result_add_words(result.get(), transcript.c_str(), transcript.size(),
                                            options.reach, options.rule()),
                    a->words);
        options.write(result.get(), recording, chosen, out);
    } else {
        char *text = nullptr;
        size_t size = 0;
        check_words(parley_result_assign(result.get(), transcript.c_str(), transcript.size(), options.reach,
                                         &text, &size),
                    a->words);
        const text_ptr owned(text);
        put_document({text, size}, options.output, out);
    }
    close_standard_output(out);
    return EXIT_SUCCESS;
}

}  // namespace
}  // namespace assigning

command assign_command(CLI::App *app) {
    using namespace assigning;
    const auto a = std::make_shared<arguments>();
    app->description("Adds speakers to the words of a transcript.");
    app->add_option("--words", a->words, "transcript: JSON, TSV, WebVTT, SRT, CTM")
        ->required()
        ->type_name("FILE");
    app->add_option("SOURCE", a->source, "the recording, or a result about it: JSON, RTTM, EAF ...")
        ->required()
        ->type_name("");
    app->add_option("--recording", a->recording, "the recording of such a result, for pages")
        ->type_name("FILE");
    a->options.define(app);
    app->footer(
        "Segments and captions end where the speaker changes. Without -f, and without a name\n"
        "of a file that tells the format, the transcript keeps its own.");
    return [a] { return run(a.get()); };
}

}  // namespace parley
