// SPDX-License-Identifier: Apache-2.0
#include "recordings.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
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

// Of a folder and all below it, but not of links to folders. Other file systems leave a companion beside each
// file that a Mac writes there, which begins with "._".
void find_audio(const fs::path &folder, std::vector<fs::path> *found, left_out *others) {
    std::error_code error;
    for (auto entry = fs::directory_iterator(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        std::error_code ignored;  // of links to what is not there
        const fs::path &path = entry->path();
        if (entry->is_directory(ignored) && !entry->is_symlink(ignored)) find_audio(path, found, others);
        if (!entry->is_regular_file(ignored)) continue;
        if (looks_like_audio(path) && !text_of(path.filename()).starts_with("._")) {
            found->push_back(path);
        } else if (others->count++ == 0) {
            others->example = text_of(path);
        }
    }
    if (error) others->unreadable.push_back(text_of(folder) + ": " + error.message());
}

void add_folder(const fs::path &folder, std::vector<recording_file> *list, left_out *others) {
    std::vector<fs::path> found;
    find_audio(folder, &found, others);
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

// A file that is named twice is one recording.
void drop_repeated(std::vector<recording_file> *list) {
    std::set<fs::path> seen;
    std::erase_if(*list, [&seen](const recording_file &r) {
        std::error_code error;
        const fs::path path = r.path == "-" ? fs::path("-") : fs::weakly_canonical(path_of(r.path), error);
        return !error && !seen.insert(path).second;
    });
}

// The folder in which the recording lies above those that its output names already; false if there is none.
bool put_folder_in_front(recording_file *recording) {
    std::error_code error;
    const fs::path path = fs::absolute(path_of(recording->path), error).lexically_normal();
    const fs::path output = path_of(recording->output);
    auto folder = path.parent_path();
    for (auto part = output.begin(); part != output.end(); ++part)
        if (std::next(part) != output.end()) folder = folder.parent_path();
    if (error || recording->path == "-" || folder.filename().empty()) return false;
    recording->output = text_of(folder.filename() / output);
    return true;
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
    drop_repeated(&list);
    const auto uses = [&list] {
        std::map<std::string, int> result;
        for (const recording_file &r : list) result[r.output]++;
        return result;
    };
    std::map<std::string, int> before = uses();
    for (recording_file &r : list)
        if (before[r.output] > 1) r.output += text_of(path_of(r.path).extension());
    // Names of folders tell apart what is called the same: as many as it takes.
    for (before = uses();;) {
        bool has_grown = false;
        for (recording_file &r : list) has_grown |= before[r.output] > 1 && put_folder_in_front(&r);
        if (!has_grown) break;
        before = uses();
    }
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
