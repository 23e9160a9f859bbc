// SPDX-License-Identifier: Apache-2.0
#include "media.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "system.h"
#include "writing.h"

std::string media_type(const std::string &file) {
    static constexpr struct {
        size_t at;
        std::string_view bytes;
        const char *type;
    } KNOWN[] = {{0, "RIFF", "audio/wav"},
                 {0, "fLaC", "audio/flac"},
                 {0, "OggS", "audio/ogg"},
                 {4, "ftyp", "audio/mp4"},
                 {0, "\x1A\x45\xDF\xA3", "audio/webm"},
                 {0, "ID3", "audio/mpeg"},
                 {0, "FORM", "audio/aiff"},
                 {0, ".snd", "audio/basic"}};
    std::array<char, 8> bytes{};
    std::ifstream(file_at(file), std::ios::binary).read(bytes.data(), bytes.size());
    const std::string_view begin(bytes.data(), bytes.size());
    for (const auto &known : KNOWN)
        if (begin.substr(known.at, known.bytes.size()) == known.bytes) return known.type;
    const bool is_mpeg = begin[0] == '\xFF' && (begin[1] & 0xE0) == 0xE0;
    return is_mpeg ? "audio/mpeg" : "application/octet-stream";
}

std::string url_of_path(const std::string &path) {
    std::string name = path, url;
    if constexpr (std::filesystem::path::preferred_separator != '/')
        std::replace(name.begin(), name.end(), static_cast<char>(std::filesystem::path::preferred_separator),
                     '/');
    for (const char c : name) {
        const bool is_plain = std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                              std::string_view("-._~/").find(c) != std::string_view::npos;
        url += is_plain && static_cast<unsigned char>(c) < 0x80
                   ? std::string(1, c)
                   : line("%%%02X", static_cast<unsigned char>(c));
    }
    return url;
}

std::string path_of_url(const std::string &url) {
    if (url.find("://") != std::string::npos) return "";
    std::string path;
    for (size_t i = url.starts_with("./") ? 2 : 0; i < url.size(); i++) {
        const std::string digits = url[i] == '%' ? url.substr(i + 1, 2) : "";
        char *end = nullptr;
        const auto code = static_cast<char>(std::strtol(digits.c_str(), &end, 16));
        const bool is_encoded = digits.size() == 2 && *end == '\0' && code != 0;
        path += is_encoded ? code : url[i];
        i += is_encoded ? 2 : 0;
    }
    return path;
}

namespace {

// What stands before the first folder is a drive's letter on Windows, and goes into a URL as it is.
std::string url_of_file(const std::filesystem::path &whole) {
    const std::string drive = text_of(whole.root_name());
    return "file://" + (drive.empty() ? "" : "/" + drive) +
           url_of_path(text_of(whole.root_directory() / whole.relative_path()));
}

}  // namespace

media media_of(const diarization &result) {
    namespace fs = std::filesystem;
    const fs::path path = path_of(result.path);
    const bool is_linked = result.sound && !result.sound->empty();
    const std::string beside = is_linked ? *result.sound : url_of_path(text_of(path.filename()));
    std::error_code error;
    const bool is_there = fs::is_regular_file(file_at(result.path), error);
    return {is_there ? url_of_file(fs::absolute(path, error).lexically_normal()) : url_of_path(result.path),
            (beside.starts_with('.') ? "" : "./") + beside,
            media_type(result.file.empty() ? result.path : result.file)};
}
