#include "recordings.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <map>
#include <sstream>
#include <stdexcept>

#include "files.h"
#include "system.h"

namespace fs = std::filesystem;

namespace parley {

namespace {

bool looks_like_audio(const fs::path &path) {
    std::string extension = text_of(path.extension());
    std::ranges::transform(extension, extension.begin(), [](unsigned char c) { return std::tolower(c); });
    static constexpr std::array KNOWN = {
        ".wav", ".wave", ".flac", ".mp3",  ".ogg",  ".oga", ".opus", ".m4a",  ".m4b", ".m4v",
        ".mp4", ".3gp",  ".3gpp", ".webm", ".weba", ".aac", ".amr",  ".awb",  ".mkv", ".mka",
        ".mov", ".aif",  ".aiff", ".aifc", ".caf",  ".au",  ".w64",  ".rf64", ".wma", ".ac3"};
    return std::ranges::find(KNOWN, extension) != KNOWN.end();
}

void add_folder(const fs::path &folder, std::vector<recording_file> *list, left_out *others) {
    std::error_code error;
    std::vector<fs::path> found;
    for (auto entry =
             fs::recursive_directory_iterator(folder, fs::directory_options::skip_permission_denied, error);
         !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
        std::error_code ignored;  // of links to what is not there
        if (!entry->is_regular_file(ignored)) continue;
        if (looks_like_audio(entry->path())) {
            found.push_back(entry->path());
        } else if (others->count++ == 0) {
            others->example = text_of(entry->path());
        }
    }
    if (error) throw std::runtime_error(text_of(folder) + ": " + error.message());
    std::ranges::sort(found);
    for (const fs::path &path : found)
        list->push_back({text_of(path), text_of(path.lexically_relative(folder).replace_extension())});
}

void add(const std::string &argument, std::vector<recording_file> *list, left_out *others) {
    std::error_code error;
    if (argument == "-") {
        list->push_back({"-", "stdin"});
    } else if (fs::is_directory(path_of(argument), error)) {
        add_folder(path_of(argument), list, others);
    } else if (!fs::exists(path_of(argument), error) && argument.find_first_of("*?[") != std::string::npos) {
        const std::vector<std::string> paths = files_like(argument);
        if (paths.empty()) throw std::runtime_error(argument + ": nothing matches");
        for (const std::string &path : paths) add(path, list, others);
    } else {
        list->push_back({argument, stem_of(argument)});
    }
}

}  // namespace

std::vector<recording_file> list_recordings(const std::vector<std::string> &arguments,
                                            const std::vector<std::string> &manifests, left_out *others) {
    std::vector<recording_file> list;
    for (const std::string &argument : arguments) add(argument, &list, others);
    for (const std::string &manifest : manifests) {
        if (fs::is_directory(path_of(manifest)))
            throw std::runtime_error(manifest + ": is a folder, not a list");
        std::istringstream file(read_text(manifest));
        for (std::string line; std::getline(file, line);) {
            while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) line.pop_back();
            if (!line.empty() && line[0] != '#') add(line, &list, others);
        }
    }
    std::map<std::string, int> uses;
    for (const recording_file &r : list) uses[r.output]++;
    for (recording_file &r : list)
        if (uses[r.output] > 1) r.output += text_of(path_of(r.path).extension());
    return list;
}

void check_outputs(const std::vector<recording_file> &recordings) {
    std::map<std::string, std::string> taken;
    for (const recording_file &r : recordings) {
        const auto [other, is_new] = taken.emplace(r.output, r.path);
        if (!is_new) {
            throw std::runtime_error(
                other->second + " and " + r.path +
                " would be written to the same file: name folders, or one of them at a time");
        }
    }
}

}  // namespace parley
