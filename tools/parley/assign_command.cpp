// A transcript with who speaks.

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "commands.h"
#include "files.h"
#include "model.h"
#include "room.h"
#include "terminal.h"

namespace parley {

namespace {

struct arguments {
    std::string words, source, model, names;
    double reach = 1.0;
    int speakers = 0;
};

using turns_ptr = std::unique_ptr<parley_turn, releaser<parley_free>>;

// The turns of a recording, which is diarized; `result` keeps their names.
std::vector<parley_turn> diarize(const arguments &a, result_ptr *result) {
    parley_options options;
    parley_options_init(&options);
    options.min_speakers = options.max_speakers = a.speakers;
    if (!a.names.empty()) options.names = a.names.c_str();
    const diarizer_ptr diarizer = open_model(a.model.empty() ? find_model() : a.model);
    parley_result *made = nullptr;
    check(parley_diarize_file(diarizer.get(), a.source.c_str(), &options, nullptr, nullptr, &made));
    result->reset(made);
    std::vector<parley_turn> turns;
    for (int32_t i = 0; i < parley_result_num_segments(made); i++) {
        const parley_segment s = parley_result_segment(made, i);
        turns.push_back({s.start, s.end, parley_result_speaker(made, s.speaker).name});
    }
    return turns;
}

int run(const arguments &a) {
    std::FILE *out = take_standard_output();
    const std::string transcript = read_text(a.words);
    std::vector<parley_turn> turns;
    result_ptr result;
    turns_ptr read;
    if (std::filesystem::path(a.source).extension() == ".rttm") {
        const std::string text = read_text(a.source);
        parley_turn *first = nullptr;
        int32_t count = 0;
        check(parley_read_rttm(text.c_str(), text.size(), a.source.c_str(), &first, &count));
        read.reset(first);
        turns.assign(first, first + count);
    } else {
        turns = diarize(a, &result);
    }
    char *text = nullptr;
    size_t size = 0;
    if (parley_assign(transcript.c_str(), transcript.size(), turns.data(), static_cast<int32_t>(turns.size()),
                      a.reach, &text, &size) != PARLEY_OK) {
        throw std::runtime_error(a.words + ": " + parley_message());
    }
    const text_ptr owned(text);
    std::fwrite(text, 1, size, out);
    close_standard_output(out);
    return EXIT_SUCCESS;
}

}  // namespace

command assign_command(CLI::App *app) {
    const auto a = std::make_shared<arguments>();
    app->description("Adds who speaks to a transcript: every word or caption gets its speaker.");
    app->add_option("--words", a->words,
                    "JSON (Whisper's, Vosk's), TSV, WebVTT, SRT or CTM; - is standard input")
        ->required()
        ->type_name("FILE");
    app->add_option("SOURCE", a->source, "the recording, or an RTTM file about it")
        ->required()
        ->type_name("");
    app->add_option("--reach", a->reach, "how far from a segment a word outside of all may lie (1)")
        ->check(CLI::Range(0.0, 3600.0).description(""))
        ->type_name("SECONDS");
    app->add_option("-n,--speakers", a->speakers, "exactly that many speakers")
        ->check(CLI::Range(1, 1000).description(""))
        ->type_name("N");
    app->add_option("--names", a->names, "of the first speakers heard")->type_name("A,B,...");
    app->add_option("-m,--model", a->model, "the model (or $PARLEY_MODEL)")->type_name("FILE");
    app->footer("The transcript comes back on standard output in the format it has.");
    return [a] { return run(*a); };
}

}  // namespace parley
