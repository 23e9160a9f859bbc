// SPDX-License-Identifier: Apache-2.0
// parley.h for C++: owners, failures as exceptions, texts as strings.
#ifndef PARLEY_TOOL_LIBRARY_H
#define PARLEY_TOOL_LIBRARY_H

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "parley.h"

namespace parley {

struct parley_error : std::runtime_error {
    explicit parley_error(parley_status status_)
        : std::runtime_error(parley_message()), status(status_), details(parley_details()) {}
    parley_status status;
    std::string details;
};

inline void check(parley_status status) {
    if (status != PARLEY_OK) throw parley_error(status);
}

template <auto release>
struct releaser {
    template <class T>
    void operator()(T *object) const {
        release(object);
    }
};

using diarizer_ptr = std::unique_ptr<parley_diarizer, releaser<parley_close>>;
using result_ptr = std::unique_ptr<parley_result, releaser<parley_result_delete>>;
using text_ptr = std::unique_ptr<char, releaser<parley_free>>;

inline diarizer_ptr open_model(const std::string &path) {
    parley_diarizer *opened = nullptr;
    check(parley_open(path.c_str(), &opened));
    return diarizer_ptr(opened);
}

inline std::string write(const parley_result *result, const std::string &format,
                         const parley_terminal &terminal) {
    std::string text;
    const auto append = [](void *context, const char *data, size_t size) {
        static_cast<std::string *>(context)->append(data, size);
        return 1;
    };
    check(parley_write(result, format.c_str(), &terminal, append, &text));
    return text;
}

inline std::string write_words(const parley_result *result, const char *format) {
    char *text = nullptr;
    size_t size = 0;
    check(parley_write_words(result, format, &text, &size));
    const text_ptr owned(text);
    return {text, size};
}

// Null if there is none of that name.
inline const parley_format *find_format(std::string_view name) {
    for (int32_t i = 0; const parley_format *format = parley_format_at(i); i++)
        if (name == format->name) return format;
    return nullptr;
}

// The format that writes files with this extension, with its dot or without; null if none does.
inline const parley_format *find_format_of_files(std::string_view extension) {
    if (extension.starts_with('.')) extension.remove_prefix(1);
    for (int32_t i = 0; const parley_format *format = parley_format_at(i); i++)
        if (extension == std::string_view(format->extension).substr(1)) return format;
    return nullptr;
}

inline std::string clock(double seconds) {
    char text[32];
    parley_clock(seconds, text);
    return text;
}

}  // namespace parley

#endif
