// The options of a run, as the library's table has them, on a command line.
#ifndef PARLEY_TOOL_COMMAND_OPTIONS_H
#define PARLEY_TOOL_COMMAND_OPTIONS_H

#include <CLI/CLI.hpp>
#include <deque>
#include <string>

#include "parley.h"

namespace parley {

class command_options {
public:
    command_options() {
        parley_options_init(&options_);
        options_.jobs = 0;
    }
    command_options(const command_options &) = delete;  // the options refer to the texts
    command_options &operator=(const command_options &) = delete;

    // Must outlive the parser.
    void define(CLI::App *app);

    const parley_options *get() const { return &options_; }

private:
    parley_options options_;
    std::deque<std::string> texts_;
};

}  // namespace parley

#endif
