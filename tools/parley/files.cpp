#include "files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <system_error>

namespace parley {

namespace {

[[noreturn]] void fail(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Copies until the source ends. False, with errno, on failure: EFBIG beyond `most` bytes.
bool copy(int from, int to, uint64_t most) {
    char block[1 << 16];
    for (uint64_t all = 0;;) {
        const ssize_t got = read(from, block, sizeof(block));
        if (got <= 0) return got == 0;
        all += static_cast<uint64_t>(got);
        if (all > most) {
            errno = EFBIG;
            return false;
        }
        if (!write_all(to, block, static_cast<size_t>(got))) return false;
    }
}

}  // namespace

bool write_all(int file, const char *data, size_t size) {
    while (size > 0) {
        const ssize_t written = write(file, data, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

int open_nameless_file() {
    std::string name = (std::filesystem::temp_directory_path() / "parley.XXXXXX").string();
    const int file = mkostemp(name.data(), O_CLOEXEC);
    if (file < 0) fail(name);
    unlink(name.c_str());
    return file;
}

std::string read_text(const std::string &path) {
    if (path == "-") return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error(path + ": cannot be opened");
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (file.bad()) throw std::runtime_error(path + ": cannot be read");
    return text;
}

void write_atomically(const std::string &path, const std::string &content) {
    const std::filesystem::path target(path);
    std::string name = ".";
    name.append(target.filename().string()).append(".").append(std::to_string(getpid())).append(".part");
    const std::string part = (target.parent_path() / name).string();
    std::FILE *file = std::fopen(part.c_str(), "wb");
    if (!file) fail(part);
    const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed || std::rename(part.c_str(), path.c_str()) != 0) {
        const int reason = errno;
        std::remove(part.c_str());
        errno = reason;
        fail(path);
    }
}

bool is_stream(const std::string &path) {
    struct stat status {};
    return path == "-" ||
           (stat(path.c_str(), &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode)));
}

spooled_stream::spooled_stream(const std::string &path, uint64_t most) {
    file_ = open_nameless_file();
    path_ = "/proc/self/fd/" + std::to_string(file_);
    const int source = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY);
    const bool copied = source >= 0 && copy(source, file_, most);
    const int reason = errno;
    if (source > STDIN_FILENO) close(source);
    if (!copied) {
        close(file_);
        errno = reason;
        const std::string shown = path == "-" ? "standard input" : path;
        if (reason == EFBIG)
            throw std::runtime_error(shown + ": is more than the " + std::to_string(most) +
                                     " bytes allowed (--max-input)");
        fail(shown);
    }
}

spooled_stream::~spooled_stream() {
    close(file_);
}

}  // namespace parley
