// SPDX-License-Identifier: Apache-2.0
#include "result_log.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "system.h"

namespace fs = std::filesystem;

namespace parley {

namespace {

constexpr int DIGITS = 16;

// FNV-1a
uint64_t hash(const std::string &text, uint64_t from = 0xcbf29ce484222325) {
    for (const char c : text) from = (from ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    return from;
}

}  // namespace

result_log::result_log(const std::string &folder, const std::string &settings)
    : path_(text_of(path_of(folder) / ".parley")), settings_(hash(settings)) {
    std::ifstream file(file_at(path_), std::ios::binary);
    // A line that a killed run has not finished has no end.
    for (std::string line; std::getline(file, line) && !file.eof();) {
        uint64_t value = 0;
        const char *end = line.data() + line.size();
        if (line.size() > DIGITS && std::from_chars(line.data(), end, value, 16).ptr == &line[DIGITS])
            made_of_[line.substr(DIGITS + 1)] = value;
    }
}

bool result_log::is_current(const std::string &result, const std::string &recording) const {
    const auto found = made_of_.find(result);
    return found != made_of_.end() && found->second == fingerprint(recording);
}

void result_log::add(const std::string &result, const std::string &recording) const {
    if (path_.empty()) return;
    char digits[DIGITS + 1];
    std::snprintf(digits, sizeof(digits), "%016llx", static_cast<unsigned long long>(fingerprint(recording)));
    std::ofstream file(file_at(path_), std::ios::binary | std::ios::app);
    file << std::string(digits) + " " + result + "\n" << std::flush;
    if (!file) throw std::system_error(errno, std::generic_category(), path_);
}

// Of the settings, and of the recording's size and time.
uint64_t result_log::fingerprint(const std::string &recording) const {
    std::error_code ignored;
    const fs::path file = file_at(recording);
    const auto time = fs::last_write_time(file, ignored).time_since_epoch().count();
    return hash(std::to_string(fs::file_size(file, ignored)) + " " + std::to_string(time), settings_);
}

}  // namespace parley
