// What is the same everywhere: MinGW has these functions of POSIX.
#include "system.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

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
