#include "media.h"

#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <string_view>

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
    std::ifstream(file, std::ios::binary).read(bytes.data(), bytes.size());
    const std::string_view begin(bytes.data(), bytes.size());
    for (const auto &known : KNOWN)
        if (begin.substr(known.at, known.bytes.size()) == known.bytes) return known.type;
    const bool is_mpeg = begin[0] == '\xFF' && (begin[1] & 0xE0) == 0xE0;
    return is_mpeg ? "audio/mpeg" : "application/octet-stream";
}

std::string url_of_path(const std::string &path) {
    std::string url;
    for (const char c : path) {
        const bool is_plain = std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                              std::string_view("-._~/").find(c) != std::string_view::npos;
        url += is_plain && static_cast<unsigned char>(c) < 0x80
                   ? std::string(1, c)
                   : line("%%%02X", static_cast<unsigned char>(c));
    }
    return url;
}

media media_of(const diarization &result) {
    namespace fs = std::filesystem;
    const fs::path path(result.path);
    std::error_code error;
    const bool is_there = fs::is_regular_file(path, error);
    return {is_there ? "file://" + url_of_path(fs::absolute(path, error).lexically_normal().string())
                     : url_of_path(result.path),
            url_of_path("./" + path.filename().string()),
            media_type(result.file.empty() ? result.path : result.file)};
}
