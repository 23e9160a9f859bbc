// SPDX-License-Identifier: Apache-2.0
// What goes wrong inside the library, as exceptions; interface.cpp turns them into statuses and messages.
#ifndef PARLEY_ERRORS_H
#define PARLEY_ERRORS_H

#include <stdexcept>
#include <string>
#include <vector>

#include "parley.h"
#include "zx_base.h"

inline constexpr const char *HOW_TO_CONVERT = "ffmpeg -i FILE -ac 1 -ar 16000 new.wav";

struct diarization_error : std::runtime_error {
    diarization_error(parley_status status_, const std::string &message,
                      std::vector<std::string> details_ = {})
        : std::runtime_error(message), status(status_), details(std::move(details_)) {}
    parley_status status;
    std::vector<std::string> details;  // of the engine, the innermost fault first
};

// Throws what the engine left behind if `status`, which it returned while it worked on `subject`, is no
// success.
void check_engine(zx_status_t status, const std::string &subject);

#endif
