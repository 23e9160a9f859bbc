// SPDX-License-Identifier: Apache-2.0
// The commands of the tool. Each adds its options to a parser and gives what runs it: the exit status.
#ifndef PARLEY_TOOL_COMMANDS_H
#define PARLEY_TOOL_COMMANDS_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

namespace parley {

using command = std::function<int()>;

command diarize_command(CLI::App *app);
command score_command(CLI::App *app);
command assign_command(CLI::App *app);
command transcribe_command(CLI::App *app);
command convert_command(CLI::App *app);
command match_command(CLI::App *app);
command listen_command(CLI::App *app);
command voices_command(CLI::App *app);

// ": did you mean ...?" with a command of `app`, or of its commands, that is nearly a word.
std::string suggested_command(const CLI::App &app, const std::string &word);

}  // namespace parley

#endif
