#include "writing.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdarg>
#include <cstdio>

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

size_t characters(const std::string &utf8) {
    return static_cast<size_t>(
        std::count_if(utf8.begin(), utf8.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}
