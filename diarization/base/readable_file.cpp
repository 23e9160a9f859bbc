// SPDX-License-Identifier: Apache-2.0
#include "readable_file.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "errors.h"
#include "system.h"

namespace fs = std::filesystem;

void check_is_readable(const std::string &path, const std::string &subject) {
    const fs::path file = file_at(path);
    std::error_code error;
    const fs::file_status status = fs::status(file, error);
    if (status.type() == fs::file_type::not_found)
        throw diarization_error(PARLEY_MISSING, subject + ": there is no such file");
    if (fs::is_directory(status))
        throw diarization_error(PARLEY_INVALID, subject + ": is a folder, not a file");
    if (!error && fs::is_regular_file(status)) {  // a pipe may be opened only once
        if (!std::ifstream(file, std::ios::binary)) error.assign(errno, std::generic_category());
        std::error_code ignored;
        if (!error && fs::file_size(file, ignored) == 0)
            throw diarization_error(PARLEY_INVALID, subject + ": is empty");
    }
    if (error) throw diarization_error(PARLEY_UNREADABLE, subject + ": cannot be opened: " + error.message());
}

std::string kind_of_file(const std::string &path) {
    std::string kind(4, '\0');
    std::ifstream(file_at(path), std::ios::binary)
        .read(kind.data(), static_cast<std::streamsize>(kind.size()));
    return kind;
}

bool is_text(const std::string &path) {
    char bytes[512];
    std::ifstream file(file_at(path), std::ios::binary);
    file.read(bytes, sizeof(bytes));
    const auto count = static_cast<std::ptrdiff_t>(file.gcount());
    return count > 0 && std::all_of(bytes, bytes + count, [](char c) {
               const auto byte = static_cast<unsigned char>(c);
               return byte >= ' ' || (byte >= '\t' && byte <= '\r');
           });
}
