// SPDX-License-Identifier: Apache-2.0
// Where the model is.
#ifndef PARLEY_TOOL_MODEL_H
#define PARLEY_TOOL_MODEL_H

#include <string>

namespace parley {

// $PARLEY_MODEL, the installed model, or the source tree's.
std::string find_model();

}  // namespace parley

#endif
