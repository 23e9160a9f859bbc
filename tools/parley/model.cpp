// SPDX-License-Identifier: Apache-2.0
#include "model.h"

#include <cstdlib>
#include <filesystem>

#include "system.h"

namespace parley {

std::string find_model() {
    if (const char *path = std::getenv("PARLEY_MODEL"); path && *path) return path;
    if (const std::filesystem::path program = path_of(program_path()); !program.empty()) {
        std::error_code error;
        const std::filesystem::path installed = program.parent_path() / PARLEY_SHARE_FROM_BIN / "parley.zx";
        if (std::filesystem::exists(installed, error)) return text_of(installed.lexically_normal());
    }
    return PARLEY_SOURCE_MODEL;
}

diarizer_ptr open_given_model(const std::string &path) {
    return open_model(path.empty() ? find_model() : path);
}

}  // namespace parley
