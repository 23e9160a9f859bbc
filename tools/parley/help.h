// SPDX-License-Identifier: Apache-2.0
// What --help prints: a screen of what is asked for most, with --help-all everything.
#ifndef PARLEY_TOOL_HELP_H
#define PARLEY_TOOL_HELP_H

#include <CLI/CLI.hpp>
#include <string>

namespace parley {

// The group of options that --help-all lists and --help does not.
inline constexpr const char *MORE_OPTIONS = "More options";

class help_formatter : public CLI::Formatter {
public:
    help_formatter() { column_width(28); }

    std::string make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const override;

private:
    std::string options_of(const CLI::App *app, bool with_more) const;
};

}  // namespace parley

#endif
