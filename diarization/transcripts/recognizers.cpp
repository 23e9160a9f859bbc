// SPDX-License-Identifier: Apache-2.0
#include "recognizers.h"

#include <algorithm>
#include <filesystem>

#include "errors.h"
#include "markup.h"
#include "system.h"

namespace {

constexpr parley_recognizer KNOWN[] = {
    {"pocketsphinx", "pocketsphinx_continuous -infile {audio} -time yes -logfn {out}.log", "", 60, 1,
     "apt-get install pocketsphinx pocketsphinx-en-us"},
    {"whisper.cpp", "whisper-cli -f {audio} -ojf -of {out} -np", "{out}.json", 600, 0,
     "build it from its sources; the model is its own option: -- -m FILE"},
    {"whisper", "whisper {audio} --output_format json --word_timestamps True --output_dir {folder}",
     "{folder}/audio.json", 600, 0, "pip install openai-whisper"},
    {"whisperx", "whisperx {audio} --output_format json --output_dir {folder}", "{folder}/audio.json", 600, 0,
     "pip install whisperx"},
    {"vosk", "vosk-transcriber -i {audio} -t json -o {out}.json", "{out}.json", 300, 1, "pip install vosk"},
};

// Words between blanks; quotes hold them together.
std::vector<std::string> split(const std::string &command) {
    std::vector<std::string> words;
    char quote = 0;
    bool is_inside = false;
    for (const char c : command) {
        if (quote != 0 ? c == quote : c == '"' || c == '\'') {
            quote = quote != 0 ? '\0' : c;
            if (!is_inside) words.emplace_back();
            is_inside = true;
        } else if (quote == 0 && (c == ' ' || c == '\t')) {
            is_inside = false;
        } else {
            if (!is_inside) words.emplace_back();
            is_inside = true;
            words.back() += c;
        }
    }
    return words;
}

bool takes_audio(const std::vector<std::string> &command) {
    return std::any_of(command.begin(), command.end(),
                       [](const std::string &word) { return word.find("{audio}") != std::string::npos; });
}

// {"name": {"command": "...", "output": "...", "longest": 300, "takes_a_core": true, "remedy": "..."}}
std::vector<recognizer> recognizers_of_user() {
    const std::string path = settings_folder() + "/parley/recognizers.json";
    const std::string text = content_of_file(path);
    std::vector<recognizer> found;
    if (text.empty()) return found;
    try {
        const nlohmann::ordered_json table = parse_json(text);
        for (const auto &[name, entry] : table.items()) {
            recognizer one = {name,
                              split(text_in(entry, "command")),
                              text_in(entry, "output"),
                              entry.value("longest", 300.0),
                              entry.value("takes_a_core", false),
                              text_in(entry, "remedy")};
            if (!takes_audio(one.command))
                throw std::runtime_error("\"command\" of " + name + " has no {audio}");
            if (!(one.longest >= 1)) throw std::runtime_error("\"longest\" of " + name + " is below 1 s");
            found.push_back(std::move(one));
        }
    } catch (const std::exception &error) {
        throw diarization_error(PARLEY_INVALID, path + ": " + error.what());
    }
    return found;
}

std::string filled(std::string text, const std::string &folder) {
    const std::pair<const char *, std::string> values[] = {
        {"{audio}", folder + "/audio.wav"}, {"{out}", folder + "/words"}, {"{folder}", folder}};
    for (const auto &[name, value] : values)
        for (size_t at = 0; (at = text.find(name, at)) != std::string::npos; at += value.size())
            text.replace(at, std::char_traits<char>::length(name), value);
    return text;
}

}  // namespace

std::span<const parley_recognizer> known_recognizers() {
    return KNOWN;
}

recognizer find_recognizer(const std::string &given) {
    const std::vector<recognizer> own = recognizers_of_user();
    std::string names;
    for (const recognizer &one : own) {
        if (one.name == given) return one;
        names += one.name + ", ";
    }
    for (const parley_recognizer &one : KNOWN) {
        if (given == one.name)
            return {one.name, split(one.command), one.output, one.longest, one.takes_a_core != 0, one.remedy};
        names += std::string(one.name) + ", ";
    }
    recognizer command = {"", split(given), "", 300, false, "install it"};
    if (!takes_audio(command.command)) {
        throw diarization_error(PARLEY_INVALID, "there is no recognizer " + given + ", but " + names +
                                                    "and commands with {audio} for the name of a WAV file");
    }
    command.name = command.command[0];
    for (const std::string &word : command.command)
        if (word.find("{out}") != std::string::npos) command.output = word.substr(word.find("{out}"));
    return command;
}

std::vector<std::string> filled_command(const recognizer &used, const std::vector<std::string> &arguments,
                                        const std::string &folder) {
    std::vector<std::string> words;
    for (const std::string &word : used.command) words.push_back(filled(word, folder));
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

std::string written_output(const recognizer &used, const std::string &folder) {
    const std::filesystem::path named = path_of(filled(used.output, folder));
    std::error_code ignored;
    if (std::filesystem::exists(named, ignored)) return text_of(named);
    for (const auto &entry : std::filesystem::directory_iterator(named.parent_path(), ignored))
        if (entry.path().stem() == named.filename() && entry.path().extension() != ".log")
            return text_of(entry.path());
    return "";
}
