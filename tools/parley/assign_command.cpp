// A transcript with who speaks.

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "command_options.h"
#include "commands.h"
#include "files.h"
#include "library.h"
#include "model.h"
#include "system.h"
#include "terminal.h"
#include "voices.h"

namespace parley {

namespace assigning {
namespace {

struct arguments {
    std::string words, source, model, voices, format, output;
    double reach = 1.0;
    command_options options;
};

using turns_ptr = std::unique_ptr<parley_turn, releaser<parley_free>>;

result_ptr diarize(const arguments &a) {
    const std::string voices = read_voices(a.voices);
    const diarizer_ptr diarizer = open_model(a.model.empty() ? find_model() : a.model);
    parley_result *made = nullptr;
    check(parley_diarize_file(diarizer.get(), a.source.c_str(), a.options.get(), nullptr, nullptr, &made));
    result_ptr result(made);
    name_known(made, voices, 0);
    return result;
}

// Whose names the result keeps.
std::vector<parley_turn> turns_of(const parley_result *result) {
    std::vector<parley_turn> turns;
    for (int32_t i = 0; i < parley_result_num_segments(result); i++) {
        const parley_segment s = parley_result_segment(result, i);
        turns.push_back({s.start, s.end, parley_result_speaker(result, s.speaker).name});
    }
    return turns;
}

void check_words(parley_status status, const std::string &words) {
    if (status != PARLEY_OK) throw std::runtime_error(words + ": " + parley_message());
}

int run(const arguments &a) {
    std::FILE *out = take_standard_output();
    const std::string transcript = read_text(a.words);
    std::vector<parley_turn> turns;
    result_ptr result;
    turns_ptr read;
    const bool is_page = a.format == "html";
    if (path_of(a.source).extension() == ".rttm") {
        if (is_page) throw std::runtime_error("a page needs the recording itself, not an RTTM file");
        const std::string text = read_text(a.source);
        parley_turn *first = nullptr;
        int32_t count = 0;
        check(parley_read_rttm(text.c_str(), text.size(), a.source.c_str(), &first, &count));
        read.reset(first);
        turns.assign(first, first + count);
    } else {
        result = diarize(a);
        turns = turns_of(result.get());
    }
    char *text = nullptr;
    size_t size = 0;
    if (is_page) {
        check_words(parley_result_add_words(result.get(), transcript.c_str(), transcript.size(), a.reach),
                    a.words);
        check(parley_write_text(result.get(), "html", &text, &size));
    } else {
        check_words(parley_assign(transcript.c_str(), transcript.size(), turns.data(),
                                  static_cast<int32_t>(turns.size()), a.reach,
                                  a.format.empty() ? nullptr : a.format.c_str(), &text, &size),
                    a.words);
    }
    const text_ptr owned(text);
    if (a.output.empty()) {
        std::fwrite(text, 1, size, out);
    } else {
        write_atomically(a.output, {text, size});
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
    app->add_option("SOURCE", a->source, "the recording, or an RTTM file about it")
        ->required()
        ->type_name("");
    app->add_option("-f,--format", a->format, "text, markdown, srt, vtt, json, html")
        ->check(CLI::IsMember({"text", "markdown", "srt", "vtt", "json", "html"}).description(""))
        ->type_name("NAME");
    app->add_option("--reach", a->reach, "words may lie that far from a segment (1)")
        ->check(CLI::Range(0.0, 3600.0).description(""))
        ->type_name("SECONDS");
    app->add_option("-o,--output", a->output, "file to write (standard output)")->type_name("FILE");
    a->options.define(app, {"speakers", "names"});
    define_files(app, &a->voices, &a->model);
    app->footer(
        "Segments and captions end where the speaker changes. Without -f the transcript\n"
        "keeps its format.");
    return [a] { return run(*a); };
}

}  // namespace parley
