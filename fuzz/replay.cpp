// SPDX-License-Identifier: Apache-2.0
// Feeds files to a fuzz target without a fuzzer: every file named, and every file of every folder named.
// Compilers without libFuzzer replay the kept inputs with it, sanitizers on.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "fuzz.h"

namespace {

bool replay(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::cerr << path.string() << " cannot be read\n";
        return false;
    }
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    std::cerr << path.string() << '\n';  // the last name is the culprit's
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    size_t num_replayed = 0;
    for (int i = 1; i < argc; i++) {
        const std::filesystem::path path = argv[i];
        if (!std::filesystem::is_directory(path)) {
            if (!replay(path)) return 1;
            num_replayed++;
            continue;
        }
        for (const auto &entry : std::filesystem::directory_iterator(path)) {
            if (!entry.is_regular_file()) continue;
            if (!replay(entry.path())) return 1;
            num_replayed++;
        }
    }
    std::cerr << num_replayed << " inputs replayed\n";
    return num_replayed > 0 ? 0 : 1;
}
