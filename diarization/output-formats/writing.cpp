// SPDX-License-Identifier: Apache-2.0
#include "writing.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "system.h"

std::string line(const char *format, ...) {
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    std::string text(static_cast<size_t>(std::vsnprintf(nullptr, 0, format, arguments)) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, again);
    va_end(again);
    va_end(arguments);
    text.pop_back();
    return text;
}

const std::string &name_of(const diarization &result, const segment &s) {
    return result.speakers[static_cast<size_t>(s.speaker)].name;
}

std::string field(std::string name) {
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isspace(c); }, '_');
    return name.empty() ? "<NA>" : name;
}

std::string one_line(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text;
}

std::string caption_time(double seconds, char decimal) {
    const auto milliseconds = static_cast<long long>(std::llround(seconds * 1000));
    char text[64];
    std::snprintf(text, sizeof(text), "%02lld:%02lld:%02lld%c%03lld", milliseconds / 3600000,
                  milliseconds / 60000 % 60, milliseconds / 1000 % 60, decimal, milliseconds % 1000);
    return text;
}

namespace {

// Of the character that begins at `at`, which becomes the place behind it.
size_t next_width(const character_widths &widths, const std::string &utf8, size_t *at) {
    const auto first = static_cast<unsigned char>(utf8[*at]);
    const size_t length = first < 0xC0 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    auto code = static_cast<char32_t>(length == 1 ? first : first & (0x7F >> length));
    size_t end = *at + 1;
    for (; end < *at + length && end < utf8.size() && (utf8[end] & 0xC0) == 0x80; end++)
        code = static_cast<char32_t>(code << 6 | (utf8[end] & 0x3F));
    *at = end;
    return widths.of(code);
}

}  // namespace

size_t columns_of(const std::string &utf8) {
    const character_widths widths;
    size_t columns = 0;
    for (size_t at = 0; at < utf8.size();) columns += next_width(widths, utf8, &at);
    return columns;
}

std::string cut_to(const std::string &utf8, size_t columns) {
    if (columns_of(utf8) <= columns) return utf8;
    const character_widths widths;
    size_t taken = 0, end = 0;
    for (size_t at = 0; at < utf8.size();) {
        taken += next_width(widths, utf8, &at);
        if (taken + 1 > columns) break;
        end = at;
    }
    return utf8.substr(0, end) + "…";
}
