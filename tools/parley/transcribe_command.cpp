// SPDX-License-Identifier: Apache-2.0
// Who said what in a recording, the words by a speech recognizer.

#include <csignal>
#include <cstdlib>
#include <memory>

#include "commands.h"
#include "documents.h"
#include "help.h"
#include "progress.h"
#include "system.h"
#include "terminal.h"
#include "transcripts.h"

namespace parley {

namespace transcribing {
namespace {

volatile std::sig_atomic_t was_interrupted = 0;

struct arguments {
    std::string recording, recognizer = "pocketsphinx", result;
    std::vector<std::string> more;  // the recognizer's own
    double time_limit = 0;
    bool by_turn = false, quiet = false;
    transcript_options options;
};

// Diarizing takes less of the time than can be seen.
int report(void *line, double done) {
    static_cast<progress_line *>(line)->update(0, done);
    return was_interrupted == 0;
}

int go_on(void *, double) {
    return was_interrupted == 0;
}

result_ptr words_of(arguments *a, progress_line *progress) {
    transcript_options &options = a->options;
    result_ptr result =
        a->result.empty() ? options.diarize(a->recording, go_on, nullptr) : read_result_file(a->result);
    if (!a->result.empty()) read_sound(options.diarizer(), a->recording, result.get());
    std::vector<const char *> more;
    for (const std::string &argument : a->more) more.push_back(argument.c_str());
    parley_transcription how;
    parley_transcription_init(&how, sizeof(how));
    how.recognizer = a->recognizer.c_str();
    how.arguments = more.data();
    how.num_arguments = static_cast<int32_t>(more.size());
    how.time_limit = a->time_limit;
    how.by_turn = a->by_turn ? 1 : 0;
    how.rule = options.rule();
    how.reach = options.reach;
    check(parley_transcribe(options.diarizer(), result.get(), a->recording.c_str(), &how, options.run.get(),
                            report, progress));
    return result;
}

int run(arguments *a) {
    const parley_format *chosen = a->options.chosen_format();
    if (!chosen) chosen = find_transcript_format("text", "");
    std::FILE *out = take_standard_output();
    check_terminal(*chosen, a->options.output, out);
    // Recognizers run in groups of their own, which an interruption of this program does not reach.
    for (const int signal : {SIGINT, SIGTERM}) std::signal(signal, [](int) { was_interrupted = 1; });
    progress_line progress(1, 1, !a->quiet && is_terminal(stderr) && !is_dumb_terminal());
    result_ptr result;
    try {
        result = words_of(a, &progress);
        progress.clear();
    } catch (...) {
        progress.clear();
        throw;
    }
    if (parley_result_num_words(result.get()) == 0) {
        throw std::runtime_error(a->recording + ": " + a->recognizer + " heard no words in " +
                                 clock(parley_result_duration(result.get())));
    }
    a->options.write(result.get(), a->recording, chosen, out);
    close_standard_output(out);
    return EXIT_SUCCESS;
}

std::string list_of_recognizers() {
    std::string names;
    for (int32_t i = 0; const parley_recognizer *one = parley_recognizer_at(i); i++)
        names += (i > 0 ? ", " : "") + std::string(one->name);
    return names;
}

}  // namespace
}  // namespace transcribing

command transcribe_command(CLI::App *app) {
    using namespace transcribing;
    const auto a = std::make_shared<arguments>();
    app->description("Writes who said what, by a speech recognizer.");
    app->add_option("RECORDING", a->recording, "the recording")->required()->type_name("");
    app->add_option("ARGUMENTS", a->more, "the recognizer's own arguments, behind --")->type_name("");
    app->add_option("--with", a->recognizer, "recognizer by name, or a command with {audio} in it")
        ->type_name("NAME");
    app->add_option("--result", a->result, "who speaks: a result of an earlier run, maybe corrected")
        ->type_name("FILE");
    app->add_flag("--by-turn", a->by_turn, "give the recognizer one speaker after the other");
    app->add_option("--time-limit", a->time_limit, "for each piece of some minutes (none)")
        ->check(CLI::Range(0.0, 86400.0).description(""))
        ->type_name("SECONDS");
    app->add_flag("-q,--quiet", a->quiet, "print no progress");
    a->options.define(app);
    app->footer("Recognizers: " + list_of_recognizers() +
                ".\nThey are programs of others, which have to be installed (pocketsphinx is the default).");
    return [a] { return run(a.get()); };
}

}  // namespace parley
