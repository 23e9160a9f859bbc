// SPDX-License-Identifier: Apache-2.0
#include "model.h"

namespace parley {

std::string find_model() {
    char *found = nullptr;
    const parley_status status = parley_find_model(&found);
    const text_ptr owned(found);
    if (status == PARLEY_MISSING) return PARLEY_SOURCE_MODEL;
    check(status);
    return found;
}

diarizer_ptr open_given_model(const std::string &path) {
    return open_model(path.empty() ? find_model() : path);
}

}  // namespace parley
