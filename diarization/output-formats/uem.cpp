// SPDX-License-Identifier: Apache-2.0
#include "formats.h"
#include "writing.h"

std::string write_uem(const diarization &result, const parley_terminal &) {
    return line("%s 1 0.000 %.3f\n", field(result.recording).c_str(), result.duration);
}
