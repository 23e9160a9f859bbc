// SPDX-License-Identifier: Apache-2.0
// The page: web/player with the diarization and the sound inside, so that one file is all there is to send.

#include <cmath>
#include <filesystem>

#include "formats.h"
#include "markup.h"
#include "media.h"
#include "player_assets.h"
#include "system.h"

namespace {

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

std::string attribute(const char *name, const std::string &value) {
    return std::string(name) + "=\"" + escape_xml(value) + "\" ";
}

// The attributes of <audio>: what plays, or why nothing does.
std::string audio_attributes(const diarization &result) {
    const std::string name = text_of(path_of(result.path).filename());
    const auto silent = [](const std::string &why) { return attribute("data-why", why); };
    if (result.sound && result.sound->empty()) return silent("This page was made without sound.");
    const std::string named = attribute("data-name", name);
    const std::string &file = result.file.empty() ? result.path : result.file;
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(file_at(file), error);
    if (error) return silent("There is no sound: " + name + " was not there when this page was made.");
    if (size > static_cast<uintmax_t>(result.max_embedded)) {
        if (!result.sound && name == "-") return silent("There is no sound: it was too long to be kept.");
        return named + attribute("src", result.sound.value_or(url_of_path(name)));
    }
    const std::string bytes = content_of_file(file);
    return named + attribute("src", "data:" + media_type(file) + ";base64," + base64(bytes));
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
    const media about = media_of(result);
    data["media"] = {{"url", about.url}, {"beside", about.beside}, {"type", about.type}};
    std::string json = dump_json(data);
    // A "</script>" in a name must not end the element.
    for (size_t at = 0; (at = json.find('<', at)) != std::string::npos; at++) json.replace(at, 1, "\\u003c");
    return fill_template(PLAYER_PAGE, {{"@PARLEY_TITLE@", escape_xml(result.recording)},
                                       {"@PARLEY_STYLE@", PLAYER_STYLE},
                                       {"@PARLEY_AUDIO@", audio_attributes(result)},
                                       {"@PARLEY_DATA@", json},
                                       {"@PARLEY_SCRIPT@", PLAYER_SCRIPT}});
}
