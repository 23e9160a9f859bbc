#include "writing.h"

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cwchar>

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

// Widths of characters, which the C library knows by locale.
class width_table {
public:
    width_table() : unicode_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {
        if (unicode_) before_ = uselocale(unicode_);
    }
    ~width_table() {
        if (!unicode_) return;
        uselocale(before_);
        freelocale(unicode_);
    }
    width_table(const width_table &) = delete;
    width_table &operator=(const width_table &) = delete;

    // Of the character that begins at `at`, which becomes the place behind it.
    size_t next(const std::string &utf8, size_t *at) const {
        const auto first = static_cast<unsigned char>(utf8[*at]);
        const size_t length = first < 0xC0 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
        auto code = static_cast<wchar_t>(length == 1 ? first : first & (0x7F >> length));
        size_t end = *at + 1;
        for (; end < *at + length && end < utf8.size() && (utf8[end] & 0xC0) == 0x80; end++)
            code = static_cast<wchar_t>(code << 6 | (utf8[end] & 0x3F));
        *at = end;
        const int width = wcwidth(code);
        return width < 0 ? 1 : static_cast<size_t>(width);
    }

private:
    locale_t unicode_, before_ = nullptr;
};

}  // namespace

size_t columns_of(const std::string &utf8) {
    const width_table widths;
    size_t columns = 0;
    for (size_t at = 0; at < utf8.size();) columns += widths.next(utf8, &at);
    return columns;
}

std::string cut_to(const std::string &utf8, size_t columns) {
    if (columns_of(utf8) <= columns) return utf8;
    const width_table widths;
    size_t taken = 0, end = 0;
    for (size_t at = 0; at < utf8.size();) {
        taken += widths.next(utf8, &at);
        if (taken + 1 > columns) break;
        end = at;
    }
    return utf8.substr(0, end) + "…";
}
