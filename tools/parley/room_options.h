// The options of a run, as the room's table has them, on a command line.
#ifndef PARLEY_TOOL_ROOM_OPTIONS_H
#define PARLEY_TOOL_ROOM_OPTIONS_H

#include <CLI/CLI.hpp>
#include <deque>
#include <string>

#include "parley_diarization.h"

namespace parley {

class room_options {
public:
    room_options() {
        parley_options_init(&options_);
        options_.jobs = 0;
    }
    room_options(const room_options &) = delete;  // the options refer to the texts
    room_options &operator=(const room_options &) = delete;

    // Must outlive the parser.
    void define(CLI::App *app);

    const parley_options *get() const { return &options_; }

private:
    parley_options options_;
    std::deque<std::string> texts_;
};

}  // namespace parley

#endif
