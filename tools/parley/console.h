// The tool's streams: results, messages, and what the terminals behind them can do.
#ifndef PARLEY_TOOLS_CONSOLE_H
#define PARLEY_TOOLS_CONSOLE_H

#include <cstdio>
#include <string>

#include "diarizer.h"
#include "formats.h"

inline constexpr int EXIT_USAGE = 2;

// Standard output, for results alone: from here on libraries that print there print nowhere. Throws
// std::system_error.
std::FILE *take_standard_output();

// Closes it; throws std::system_error if not everything could be written.
void close_standard_output(std::FILE *stream);

// The terminal behind a stream. `color`: always, never, or auto (a terminal, and NO_COLOR is not set).
terminal terminal_of(std::FILE *stream, const std::string &color);
bool is_terminal(std::FILE *stream);

// "parley: subject: IO_ERROR" with the engine's messages below, and what to do about it where that is known;
// in one line, with the innermost message, if `brief`.
void print_error(const std::string &subject, const engine_error &error, bool brief = false);

// $PARLEY_MODEL, the installed model, or the source tree's.
std::string find_model();

// Writes a file so that it is there whole or not at all. Throws std::system_error.
void write_atomically(const std::string &path, const std::string &content);

#endif
