// SPDX-License-Identifier: Apache-2.0
// Where the model is.
#ifndef PARLEY_TOOL_MODEL_H
#define PARLEY_TOOL_MODEL_H

#include <string>

#include "library.h"

namespace parley {

// The library's, or the source tree's where none is installed.
std::string find_model();

// The model of that name, or find_model's for "".
diarizer_ptr open_given_model(const std::string &path);

}  // namespace parley

#endif
