// SPDX-License-Identifier: Apache-2.0
// People who are known from earlier recordings: add, list, remove, forget.

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>

#include "commands.h"
#include "files.h"
#include "model.h"
#include "system.h"
#include "terminal.h"
#include "voices.h"

namespace fs = std::filesystem;

namespace parley {

std::string own_voices_file() {
    if (const char *path = std::getenv("PARLEY_VOICES")) return path;
    return settings_folder() + "/parley/voices.json";
}

std::string read_voices_file(const std::string &path) {
    return fs::exists(path_of(path)) ? read_text(path) : "";
}

std::string read_voices(const std::string &given) {
    if (!given.empty()) return read_text(given);
    const char *path = std::getenv("PARLEY_VOICES");
    return path ? read_voices_file(path) : "";
}

void name_known(parley_result *result, const std::string &voices, double threshold) {
    if (!voices.empty()) check(parley_result_name_voices(result, voices.c_str(), threshold));
}

namespace knowing_voices {
namespace {

struct arguments {
    std::string file = own_voices_file(), name, recording, model;
    int speaker = 0;
    std::optional<double> from, to;
    bool all = false;
};

std::string taken(parley_status status, char *text) {
    check(status);
    const text_ptr owned(text);
    return text;
}

void write_voices_file(const std::string &path, const std::string &text) {
    const fs::path file = path_of(path);
    if (file.has_parent_path()) fs::create_directories(file.parent_path());
    write_atomically(path, text);
    fs::permissions(file, fs::perms::owner_read |
                              fs::perms::owner_write);  // what voices sound like is nobody else's business
}

// The speaker that is meant: the given one, the one heard most in the given stretch, or the only one.
int32_t speaker_of(const arguments &a, const parley_result *result) {
    const int32_t count = parley_result_num_speakers(result);
    if (a.speaker > 0) return a.speaker - 1;
    std::vector<double> heard(static_cast<size_t>(count));
    for (int32_t i = 0; i < parley_result_num_segments(result); i++) {
        const parley_segment s = parley_result_segment(result, i);
        heard[static_cast<size_t>(s.speaker)] += std::max(
            0.0, std::min(s.end, a.to.value_or(s.end)) - std::max(s.start, a.from.value_or(s.start)));
    }
    const auto longest = std::ranges::max_element(heard);
    if (count == 0 || *longest <= 0) throw std::runtime_error(a.recording + ": nobody speaks there");
    if (!a.from && !a.to && count > 1)
        throw std::runtime_error(a.recording + ": holds " + std::to_string(count) +
                                 " speakers; say which with --speaker K, or when with --from and --to");
    return static_cast<int32_t>(longest - heard.begin());
}

struct known_sample {
    std::string name, date, source;
    double seconds = 0;
};

// Person by person, those of each in the order in which they were added.
std::vector<known_sample> samples_of(const std::string &voices) {
    std::vector<known_sample> samples;
    for (int32_t person = 0;; person++) {
        char *name = nullptr;
        check(parley_voices_at(voices.c_str(), person, &name, nullptr));
        if (!name) return samples;
        const text_ptr owned_name(name);
        for (int32_t i = 0;; i++) {
            char date[11] = "", *source = nullptr;
            double seconds = 0;
            check(parley_voices_sample_at(voices.c_str(), person, i, &seconds, date, &source));
            if (!source) break;
            const text_ptr owned_source(source);
            samples.push_back({name, date, source, seconds});
        }
    }
}

int add(const arguments &a) {
    const std::string before = read_voices_file(a.file);
    const diarizer_ptr diarizer = open_given_model(a.model);
    parley_result *made = nullptr;
    parley_options options;
    parley_options_init(&options, sizeof(options));
    options.keep_embeddings = a.from || a.to;
    check(parley_diarize_file(diarizer.get(), a.recording.c_str(), &options, nullptr, nullptr, &made));
    const result_ptr result(made);
    const int32_t speaker = speaker_of(a, made);
    char *text = nullptr;
    const bool is_part = a.from || a.to;
    const double start = a.from.value_or(0), end = a.to.value_or(parley_result_duration(made));
    if (is_part && end <= start) throw std::runtime_error("--to lies before --from");
    const parley_status status = parley_voices_add(before.c_str(), a.name.c_str(), made, speaker,
                                                   is_part ? start : 0, is_part ? end : 0, &text);
    const std::string voices = taken(status, text);
    write_voices_file(a.file, voices);
    double seconds = 0;
    for (const known_sample &sample : samples_of(voices))
        if (sample.name == a.name) seconds = sample.seconds;  // the last is the one that was added
    std::printf("%s: %.1f s of %s\n", a.name.c_str(), seconds, a.recording.c_str());
    return EXIT_SUCCESS;
}

int list(const arguments &a) {
    for (const known_sample &s : samples_of(read_voices_file(a.file)))
        std::printf("%s\t%.1f s\t%s\t%s\n", printable(s.name).c_str(), s.seconds, s.date.c_str(),
                    printable(s.source).c_str());
    return EXIT_SUCCESS;
}

int remove(const arguments &a) {
    char *text = nullptr;
    const parley_status status =
        parley_voices_remove(read_voices_file(a.file).c_str(), a.name.c_str(), &text);
    write_voices_file(a.file, taken(status, text));
    return EXIT_SUCCESS;
}

int forget(const arguments &a) {
    if (!a.all)
        throw std::runtime_error(
            "forget takes --all: every voice is lost then; one goes with parley voices remove NAME");
    fs::remove(path_of(a.file));
    return EXIT_SUCCESS;
}

}  // namespace
}  // namespace knowing_voices

command voices_command(CLI::App *app) {
    using namespace knowing_voices;
    const auto a = std::make_shared<arguments>();
    const auto chosen = std::make_shared<int (*)(const arguments &)>(nullptr);
    app->description("Keeps voices of known people.");
    app->require_subcommand(1);
    const auto sub = [&](const char *name, const char *what, int (*run)(const arguments &)) {
        CLI::App *made = app->add_subcommand(name, what);
        made->add_option("--voices", a->file, "file of voices ($PARLEY_VOICES or your settings)")
            ->type_name("FILE");
        made->parse_complete_callback([chosen, run] { *chosen = run; });
        return made;
    };
    CLI::App *adding = sub("add", "Adds a voice, or another sample of one.", add);
    adding->add_option("NAME", a->name, "name of the person")->required()->type_name("");
    adding->add_option("RECORDING", a->recording, "recording in which the person speaks")
        ->required()
        ->type_name("");
    adding->add_option("--speaker", a->speaker, "number of the person among the speakers heard")
        ->check(CLI::Range(1, 1000).description(""))
        ->type_name("K");
    adding->add_option("--from", a->from, "begin of what the person says there")->type_name("SECONDS");
    adding->add_option("--to", a->to, "end of it")->type_name("SECONDS");
    adding->add_option("-m,--model", a->model, "model file ($PARLEY_MODEL)")->type_name("FILE");
    sub("list", "Lists the samples: name, seconds, date, recording.", list);
    sub("remove", "Removes a voice.", remove)
        ->add_option("NAME", a->name, "name of the person")
        ->required()
        ->type_name("");
    sub("forget", "Removes every voice.", forget)->add_flag("--all", a->all, "confirm that");
    return [a, chosen] { return (*chosen)(*a); };
}

}  // namespace parley
