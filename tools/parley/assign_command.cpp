#include "assign_command.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "console.h"
#include "diarizer.h"
#include "rttm.h"
#include "transcript.h"
#include "zx_parley.h"

namespace {

std::string read_text(const std::string &path) {
    if (path == "-") return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error(path + ": cannot be opened");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The turns of an RTTM file about one recording, or of a recording, which is diarized.
std::vector<turn> find_turns(const std::string &path, const std::string &model, const controls &wishes) {
    std::vector<turn> turns;
    if (std::filesystem::path(path).extension() == ".rttm") {
        std::istringstream text(read_text(path));
        const rttm all = read_rttm(text, path);
        if (all.size() > 1) throw std::runtime_error(path + ": holds several recordings");
        if (!all.empty()) turns = all.begin()->second;
        return turns;
    }
    const diarization result = diarizer(model).run(path, wishes);
    for (const segment &s : result.segments)
        turns.push_back({s.start, s.end, result.speakers[static_cast<size_t>(s.speaker)].name});
    return turns;
}

}  // namespace

int assign_command(int argc, char **argv) {
    CLI::App app("Adds who speaks to a transcript: every word or caption gets its speaker.", "parley assign");
    std::string words, source, model;
    double reach = 1.0;
    int speakers = 0;
    controls wishes;
    app.add_option("--words", words, "JSON in Whisper's style, WebVTT, SRT or CTM; - is standard input")
        ->required()
        ->type_name("FILE");
    app.add_option("SOURCE", source, "the recording, or an RTTM file about it")->required()->type_name("");
    app.add_option("--reach", reach, "how far from a segment a word outside of all may lie (1)")
        ->check(CLI::Range(0.0, 3600.0).description(""))
        ->type_name("SECONDS");
    app.add_option("-n,--speakers", speakers, "exactly that many speakers")
        ->check(CLI::Range(1, 1000).description(""))
        ->type_name("N");
    app.add_option("--names", wishes.names, "of the first speakers heard")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("A,B,...");
    app.add_option("-m,--model", model, "the model (or $PARLEY_MODEL)")->type_name("FILE");
    app.footer("The transcript comes back on standard output in the format it has.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &message) {
        return app.exit(message);
    } catch (const CLI::ParseError &error) {
        std::fprintf(stderr, "parley assign: %s\nparley assign --help tells more.\n", error.what());
        return EXIT_USAGE;
    }
    wishes.min_speakers = wishes.max_speakers = speakers;
    try {
        std::FILE *out = take_standard_output();
        zx_log_disable();
        const std::string transcript = read_text(words);
        const std::vector<turn> turns = find_turns(source, model.empty() ? find_model() : model, wishes);
        std::string text;
        try {
            text = assign_speakers(transcript, turns, reach);
        } catch (const std::runtime_error &error) {
            throw std::runtime_error(words + ": " + error.what());
        }
        std::fputs(text.c_str(), out);
        close_standard_output(out);
        return EXIT_SUCCESS;
    } catch (const engine_error &error) {
        print_error(source, error);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "parley assign: %s\n", error.what());
    }
    return EXIT_FAILURE;
}
