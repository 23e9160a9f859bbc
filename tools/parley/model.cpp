#include "model.h"

#include <cstdlib>
#include <filesystem>

namespace parley {

std::string find_model() {
    if (const char *path = std::getenv("PARLEY_MODEL"); path && *path) return path;
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        const std::filesystem::path installed = program.parent_path() / PARLEY_SHARE_FROM_BIN / "parley.zx";
        if (std::filesystem::exists(installed, error)) return installed.lexically_normal().string();
    }
    return PARLEY_SOURCE_MODEL;
}

}  // namespace parley
