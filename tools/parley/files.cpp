// SPDX-License-Identifier: Apache-2.0
#include "files.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <system_error>

namespace parley {

namespace {

// Copies until the source ends. False, with errno, on failure: EFBIG beyond `max_bytes` bytes.
bool copy(int from, int to, uint64_t max_bytes) {
    char block[1 << 16];
    for (uint64_t copied = 0;;) {
        const std::ptrdiff_t got = read_some(from, block, sizeof(block));
        if (got <= 0) return got == 0;
        copied += static_cast<uint64_t>(got);
        if (copied > max_bytes) {
            errno = EFBIG;
            return false;
        }
        if (!write_all(to, block, static_cast<size_t>(got))) return false;
    }
}

// Names of files that are being written, for the handler of signals.
constexpr size_t MAX_PARTS = 64;
std::array<std::atomic<const char *>, MAX_PARTS> parts;

// A name among them for as long as it lives; with more threads than places it is left out.
class listed_part {
public:
    explicit listed_part(const std::string &name) : name_(name) {
        for (auto &place : parts) {
            const char *nothing = nullptr;
            if (!place.compare_exchange_strong(nothing, name_.c_str())) continue;
            place_ = &place;
            return;
        }
    }
    ~listed_part() {
        if (place_) *place_ = nullptr;
    }
    listed_part(const listed_part &) = delete;
    listed_part &operator=(const listed_part &) = delete;

private:
    std::string name_;
    std::atomic<const char *> *place_ = nullptr;
};

extern "C" void remove_parts(int number) {
    for (const auto &part : parts)
        if (const char *name = part) unlink(name);
    std::signal(number, SIG_DFL);
    std::raise(number);
}

}  // namespace

void throw_errno(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void remove_parts_on_signals() {
    std::signal(SIGINT, remove_parts);
    std::signal(SIGTERM, remove_parts);
#if defined(SIGHUP)
    std::signal(SIGHUP, remove_parts);
#endif
}

std::string read_text(const std::string &path) {
    if (path == "-") return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    std::ifstream file(file_at(path), std::ios::binary);
    if (!file) throw std::runtime_error(path + ": cannot be opened");
    std::ostringstream text;
    text << file.rdbuf();
    if (file.bad()) throw std::runtime_error(path + ": cannot be read");
    return std::move(text).str();
}

void write_atomically(const std::string &path, std::string_view content) {
    const std::filesystem::path target = path_of(path);
    static std::atomic<int> number = 0;  // names of 255 bytes leave no room for more
    const std::filesystem::path part =
        target.parent_path() /
        path_of(".parley-" + std::to_string(getpid()) + "-" + std::to_string(number++) + ".part");
    const listed_part listed(text_of(part));
    std::ofstream file(part, std::ios::binary);
    if (!file) throw_errno(text_of(part));
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    std::error_code error(file ? 0 : errno, std::generic_category());
    if (!error) std::filesystem::rename(part, target, error);
    if (!error) return;
    std::error_code ignored;
    std::filesystem::remove(part, ignored);
    throw std::system_error(error, path);
}

bool is_stream(const std::string &path) {
    if (path == "-") return true;
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path_of(path), error);
    return std::filesystem::is_fifo(status) || std::filesystem::is_character_file(status);
}

spooled_stream::spooled_stream(const std::string &path, uint64_t max_bytes) {
    const int source = path == "-" ? STDIN_FILENO : open_to_read(path);
    const bool is_copied = source >= 0 && copy(source, file_.descriptor(), max_bytes);
    const int reason = errno;
    if (source > STDIN_FILENO) close(source);
    if (is_copied) return;
    const std::string shown = path == "-" ? "standard input" : path;
    if (reason == EFBIG)
        throw std::runtime_error(shown + ": is more than the " + std::to_string(max_bytes) +
                                 " bytes allowed (--max-input)");
    errno = reason;
    throw_errno(shown);
}

}  // namespace parley
