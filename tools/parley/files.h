// SPDX-License-Identifier: Apache-2.0
// Files of the tool's own: texts, results that are there whole or not at all, standard input as a file.
#ifndef PARLEY_TOOL_FILES_H
#define PARLEY_TOOL_FILES_H

#include <cstdint>
#include <string>
#include <string_view>

#include "system.h"

namespace parley {

// Throws std::system_error with the reason that errno holds.
[[noreturn]] void throw_errno(const std::string &what);

// A whole file, or standard input for "-". Throws std::runtime_error.
std::string read_text(const std::string &path);

// Writes a file so that it is there whole or not at all. Throws std::system_error.
void write_atomically(const std::string &path, std::string_view content);

// From now on a signal that ends the program takes files with it that are only half there.
void remove_parts_on_signals();

// Whether a path can be read only once, from its beginning to its end: standard input ("-"), a pipe.
bool is_stream(const std::string &path);

// The rest of a stream as a file. Throws std::system_error, and std::runtime_error for one of more than
// `max_bytes` bytes.
class spooled_stream {
public:
    spooled_stream(const std::string &path, uint64_t max_bytes);
    const std::string &path() const { return file_.path(); }

private:
    scratch_file file_;
};

}  // namespace parley

#endif
