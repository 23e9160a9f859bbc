// SPDX-License-Identifier: Apache-2.0
#include "documents.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <string_view>

#include "files.h"
#include "system.h"
#include "terminal.h"

namespace fs = std::filesystem;

namespace parley {

bool is_result_file(const std::string &path) {
    static constexpr std::string_view EXTENSIONS[] = {".json", ".jsonl", ".rttm", ".csv",     ".eaf",
                                                      ".srt",  ".vtt",   ".txt",  ".TextGrid"};
    const std::string extension = text_of(path_of(path).extension());
    return std::ranges::find(EXTENSIONS, extension) != std::end(EXTENSIONS);
}

result_ptr read_result_file(const std::string &path) {
    const std::string text = read_text(path);
    parley_result *made = nullptr;
    check(parley_read_result(text.data(), text.size(), path.c_str(), &made));
    return result_ptr(made);
}

std::string recording_of(const parley_result *result, const std::string &result_file) {
    const fs::path named = path_of(parley_result_path(result));
    std::error_code ignored;
    for (const fs::path &path : {named, path_of(result_file).parent_path() / named.filename()})
        if (!named.empty() && fs::is_regular_file(path, ignored)) return text_of(path);
    return "";
}

void link_audio(const std::string &how, const std::string &recording, const std::string &page,
                parley_result *result) {
    const int64_t embedded = how == "auto" ? -1 : how == "embed" ? INT64_MAX : 0;
    if (how == "none") check(parley_result_link_audio(result, "", 0));
    if (how == "none" || is_stream(recording)) return;
    fs::path target = fs::absolute(path_of(recording));
    const fs::path folder = fs::absolute(page.empty() ? "page" : path_of(page)).parent_path();
    if (how == "copy" && !page.empty() && folder != target.parent_path()) {
        const fs::path copy = path_of(page).replace_extension(target.extension());
        fs::copy_file(target, copy, fs::copy_options::overwrite_existing);
        target = fs::absolute(copy);
    }
    char *url = nullptr;
    check(parley_url_of_path(text_of(target.lexically_relative(folder)).c_str(), &url));
    const text_ptr owned(url);
    check(parley_result_link_audio(result, url, embedded));
}

bool is_page(const parley_format &format) {
    return format.name == std::string_view("html");
}

bool refers_to_audio(const parley_format &format) {
    return is_page(format) || format.name == std::string_view("eaf");
}

bool is_for_terminals(const parley_format &format) {
    const std::string_view kind = format.media_type;
    return kind != "text/html" && !kind.starts_with("image/") && !kind.starts_with("application/vnd.");
}

const parley_format *find_transcript_format(const std::string &name, const std::string &output) {
    const std::string extension = text_of(path_of(output).extension());
    for (int32_t i = 0; const parley_format *format = parley_transcript_format_at(i); i++)
        if (name.empty() ? extension == format->extension : name == format->name) return format;
    return nullptr;
}

void check_terminal(const parley_format &format, const std::string &output, std::FILE *out) {
    if (output.empty() && is_terminal(out) && !is_for_terminals(format))
        throw CLI::ValidationError(std::string(format.name) + " is nothing for a terminal: -o FILE" +
                                   format.extension + " writes it");
}

void put_document(const std::string &text, const std::string &output, std::FILE *out) {
    if (!output.empty()) return write_atomically(output, text);
    show(out, text);
}

}  // namespace parley
