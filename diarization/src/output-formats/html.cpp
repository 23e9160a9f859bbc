// The page: web/player with the diarization and the sound inside, so that one file is all there is to send.

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "formats.h"
#include "markup.h"
#include "player_assets.h"

namespace {

constexpr uintmax_t LARGEST_EMBEDDED = 64 << 20;  // bytes; beyond that the page refers to the file beside it

std::string base64(const std::string &bytes) {
    static constexpr char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t group = 0;
        for (size_t k = 0; k < 3; k++)
            group = group << 8 | (i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0u);
        for (size_t k = 0; k < 4; k++)
            text += i + k <= bytes.size() ? DIGITS[group >> (18 - 6 * k) & 63] : '=';
    }
    return text;
}

const char *media_type(const std::string &path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    static constexpr struct {
        const char *extension, *type;
    } TYPES[] = {{".wav", "audio/wav"}, {".flac", "audio/flac"}, {".mp3", "audio/mpeg"},
                 {".ogg", "audio/ogg"}, {".opus", "audio/ogg"},  {".m4a", "audio/mp4"},
                 {".mp4", "audio/mp4"}, {".webm", "audio/webm"}};
    for (const auto &[known, type] : TYPES)
        if (extension == known) return type;
    return "application/octet-stream";
}

// The attribute of <audio>; nothing where there is no file to be had, as for standard input.
std::string audio_source(const std::string &path) {
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(path, error);
    if (error) return "";
    if (size > LARGEST_EMBEDDED)
        return "src=\"" + escape_xml(std::filesystem::path(path).filename().string()) + "\"";
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return std::string("src=\"data:") + media_type(path) + ";base64," + base64(bytes) + "\"";
}

// In one pass, so that nothing inside a value is taken for a place to fill.
std::string fill_template(const std::string &page,
                          std::initializer_list<std::pair<const char *, std::string>> values) {
    std::string result;
    size_t at = 0;
    while (at < page.size()) {
        size_t next = std::string::npos;
        const std::pair<const char *, std::string> *found = nullptr;
        for (const auto &value : values) {
            if (const size_t where = page.find(value.first, at); where < next) {
                next = where;
                found = &value;
            }
        }
        result += page.substr(at, next - at);
        if (!found) break;
        result += found->second;
        at = next + std::char_traits<char>::length(found->first);
    }
    return result;
}

}  // namespace

std::string write_html(const diarization &result, const parley_terminal &) {
    nlohmann::ordered_json data = to_json(result);
    data["waveform"] = nlohmann::ordered_json::array();
    for (float peak : result.waveform) data["waveform"].push_back(std::round(double{peak} * 1000) / 1000);
    std::string json = dump_json(data, -1);
    // A "</script>" in a name must not end the element.
    for (size_t at = 0; (at = json.find('<', at)) != std::string::npos; at++) json.replace(at, 1, "\\u003c");
    return fill_template(PLAYER_PAGE, {{"@PARLEY_TITLE@", escape_xml(result.recording)},
                                       {"@PARLEY_STYLE@", PLAYER_STYLE},
                                       {"@PARLEY_AUDIO@", audio_source(result.path)},
                                       {"@PARLEY_DATA@", json},
                                       {"@PARLEY_SCRIPT@", PLAYER_SCRIPT}});
}
