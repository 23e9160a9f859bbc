// SPDX-License-Identifier: Apache-2.0
// A result of an earlier run, maybe corrected, in another format.

#include <cstdlib>
#include <memory>

#include "commands.h"
#include "documents.h"
#include "model.h"
#include "system.h"
#include "terminal.h"
#include "transcripts.h"

namespace parley {

namespace converting {
namespace {

struct arguments {
    std::string file, format, output, recording, audio = "auto", model;
    bool without_words = false;
};

// Both tables have some of the names: where there are words they count, but in JSON, which holds them beside
// the segments.
struct choice {
    const parley_format *format;
    bool of_words;
};

choice choose(const arguments &a, const parley_result *result, bool on_terminal) {
    const std::string extension = text_of(path_of(a.output).extension());
    const parley_format *segments =
        a.format.empty() ? find_format_of_files(extension) : find_format(a.format);
    const parley_format *words = find_transcript_format(a.format, a.output);
    const bool has_words = parley_result_num_words(result) > 0 && !a.without_words;
    const bool is_json = words && words->name == std::string_view("json");
    if (words && has_words && !is_json && !is_page(*words)) return {words, true};
    if (segments) return {segments, false};
    if (words) throw CLI::ValidationError(std::string(words->name) + " takes words, and there are none");
    if (!a.format.empty()) throw CLI::ValidationError("unknown format " + a.format);
    if (!a.output.empty()) throw CLI::ValidationError(a.output + " names no format: -f NAME does");
    return {find_format(on_terminal ? "table" : "text"), false};
}

int run(const arguments &a) {
    std::FILE *out = take_standard_output();
    const result_ptr result = read_result_file(a.file);
    const bool on_terminal = a.output.empty() && is_terminal(out);
    const auto [format, of_words] = choose(a, result.get(), on_terminal);
    const std::string recording = a.recording.empty() ? recording_of(result.get(), a.file) : a.recording;
    check_terminal(*format, a.output, out);
    const bool needs_sound = !of_words && (!is_for_terminals(*format) || refers_to_audio(*format));
    if (!recording.empty() && needs_sound) {
        const diarizer_ptr diarizer = open_given_model(a.model);
        read_sound(diarizer.get(), recording, result.get());
        link_audio(is_page(*format) ? a.audio : "link", recording, a.output, result.get());
    }
    const parley_terminal terminal = on_terminal ? terminal_of(out, "auto") : parley_terminal{0, 0};
    put_document(
        of_words ? write_words(result.get(), format->name) : write(result.get(), format->name, terminal),
        a.output, out);
    close_standard_output(out);
    return EXIT_SUCCESS;
}

}  // namespace
}  // namespace converting

command convert_command(CLI::App *app) {
    using namespace converting;
    const auto a = std::make_shared<arguments>();
    app->description("Writes an earlier result in another format.");
    app->add_option("RESULT", a->file, "JSON, RTTM, CSV, EAF, TextGrid, SRT, WebVTT, Audacity labels")
        ->required()
        ->type_name("");
    app->add_option("-f,--format", a->format, "format, of results or of words (by the file's name)")
        ->type_name("NAME");
    app->add_option("-o,--output", a->output, "file to write (standard output)")->type_name("FILE");
    app->add_option("--recording", a->recording, "the recording, for pages (the one that RESULT names)")
        ->type_name("FILE");
    define_audio(app, &a->audio);
    app->add_flag("--without-words", a->without_words, "segments alone");
    app->add_option("-m,--model", a->model, "model file ($PARLEY_MODEL)")->type_name("FILE");
    return [a] { return run(*a); };
}

}  // namespace parley
