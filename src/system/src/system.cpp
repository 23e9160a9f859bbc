// SPDX-License-Identifier: Apache-2.0
// What is the same everywhere: MinGW has these functions of POSIX.
#include "system.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <random>
#include <system_error>

namespace {

constexpr size_t MOST = 1 << 30;  // bytes that one call takes on every system

void close_end(int *end) {
    if (*end >= 0) close(*end);
    *end = -1;
}

}  // namespace

void child_process::close_input() {
    close_end(&input_);
}

void child_process::close_output() {
    close_end(&output_);
}

std::string content_of(const scratch_file &file) {
    std::string text;
    char block[1 << 14];
    lseek(file.descriptor(), 0, SEEK_SET);
    for (std::ptrdiff_t got; (got = read_some(file.descriptor(), block, sizeof(block))) > 0;)
        text.append(block, static_cast<size_t>(got));
    return text;
}

std::string content_of_file(const std::string &path) {
    std::ifstream file(file_at(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::ptrdiff_t read_some(int file, void *to, size_t size) {
    for (;;) {
        const std::ptrdiff_t got = read(file, to, static_cast<unsigned>(std::min(size, MOST)));
        if (got >= 0 || errno != EINTR) return got;
    }
}

bool write_all(int file, const void *data, size_t size) {
    for (const char *at = static_cast<const char *>(data); size > 0;) {
        const std::ptrdiff_t written = write(file, at, static_cast<unsigned>(std::min(size, MOST)));
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        at += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

scratch_folder::scratch_folder() {
    std::random_device random;
    std::error_code error;
    for (int tries = 0; tries < 100; tries++) {
        const std::filesystem::path folder =
            std::filesystem::temp_directory_path() / ("parley." + std::to_string(random()));
        if (!std::filesystem::create_directory(folder, error)) continue;
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
        path_ = text_of(folder);
        return;
    }
    throw std::system_error(error, "a folder for files in between cannot be made");
}

scratch_folder::~scratch_folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_of(path_), ignored);
}
