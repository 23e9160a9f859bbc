// SPDX-License-Identifier: Apache-2.0
// The options of a run, as the library's table has them, on a command line.
#ifndef PARLEY_TOOL_COMMAND_OPTIONS_H
#define PARLEY_TOOL_COMMAND_OPTIONS_H

#include <CLI/CLI.hpp>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "parley.h"

namespace parley {

class command_options {
public:
    command_options() {
        parley_options_init(&options_, sizeof(options_));
        options_.jobs = 0;
    }
    command_options(const command_options &) = delete;  // the options refer to the texts
    command_options &operator=(const command_options &) = delete;

    // Must outlive the parser. Of the options those of these names are common ones, which --help lists.
    void define(CLI::App *app, const std::set<std::string> &common);

    const parley_options *get() const { return &options_; }

    // Those that were given and that a result depends on, in one text.
    std::string text() const;

private:
    parley_options options_;
    std::deque<std::string> texts_;
    std::map<std::string, std::string> given_;
};

// The files that most commands take beside recordings: --voices and --model.
void define_files(CLI::App *app, std::string *voices, std::string *model);

// --audio: how HTML pages have their sound.
CLI::Option *define_audio(CLI::App *app, std::string *how);

// Throws CLI::ValidationError with what may have been meant by a name that a table of formats lacks.
[[noreturn]] void refuse_format(const std::string &name, const parley_format *(*at)(int32_t));

// Formats by their names or by the extensions of their files. Throws CLI::ValidationError with what may have
// been meant.
std::vector<const parley_format *> formats_named(const std::vector<std::string> &names);

}  // namespace parley

#endif
