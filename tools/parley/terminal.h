// SPDX-License-Identifier: Apache-2.0
// The tool's streams: results, messages, and what the terminals behind them can do.
#ifndef PARLEY_TOOL_TERMINAL_H
#define PARLEY_TOOL_TERMINAL_H

#include <cstdio>
#include <exception>
#include <string>

#include "parley.h"

namespace parley {

inline constexpr int EXIT_USAGE = 2;

// Standard output, for results alone: from here on libraries that print there print nowhere. Throws
// std::system_error.
std::FILE *take_standard_output();

// Closes it; throws std::system_error if not everything could be written.
void close_standard_output(std::FILE *stream);

// Whether $TERM says that nothing but plain lines can be shown.
bool is_dumb_terminal();

// The terminal behind a stream. `color`: always, never, or auto (a terminal that is not dumb, and NO_COLOR is
// not set).
parley_terminal terminal_of(std::FILE *stream, const std::string &color);

// Writes a text; through $PAGER, if that is set, where a terminal has fewer lines than it.
void show(std::FILE *stream, const std::string &text);

// A text of one line with ? in place of control characters, by which names of files could move the cursor.
std::string printable(std::string text);

// "parley: " and what went wrong, with what the engine said about it if `verbose`.
void print_error(const std::exception &error, bool verbose = false);

}  // namespace parley

#endif
