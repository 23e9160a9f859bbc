// SPDX-License-Identifier: Apache-2.0
// Opening of files, and reading of the packed little-endian values that model files are made of, on hosts of
// either byte order. A short read is ZX_STATUS_IO_ERROR; the stream's position is then unspecified.
#ifndef ZX_FILE_H
#define ZX_FILE_H

#include <cstdint>
#include <cstdio>
#include <memory>

#include "zx_base.h"
#include "zx_heap.h"

// fopen with asserted arguments; null on failure.
[[nodiscard]] FILE *zx_fopen(const char *path, const char *mode);

#if defined(_WIN32)
// A name of a file as Windows takes it, the caller's to free: names are UTF-8 here, whatever the system's
// code page is, and those of more than 260 characters need another notation there. Null for lack of memory or
// a name that is not UTF-8.
[[nodiscard]] wchar_t *zx_file_system_name(const char *path);
#endif

// Opens a file by a library that takes names: what narrow(name) gives, or on Windows wide(name), the
// library's function for names as that system has them; nothing (null, false) where there is no such name.
template <class Narrow, class Wide>
[[nodiscard]] auto zx_file_open_by(const char *path, [[maybe_unused]] Narrow narrow,
                                   [[maybe_unused]] Wide wide) {
#if defined(_WIN32)
    const zx_heap_ptr<wchar_t> name(zx_file_system_name(path));
    return name ? wide(name.get()) : decltype(wide(name.get())){};
#else
    return narrow(path);
#endif
}

struct zx_file_closer {
    void operator()(FILE *file) const { std::fclose(file); }
};
using zx_file_ptr = std::unique_ptr<FILE, zx_file_closer>;

// Reads `count` values, in file order.
[[nodiscard]] zx_status_t zx_file_read_int8(FILE *file, int8_t *values, size_t count);
[[nodiscard]] zx_status_t zx_file_read_int16(FILE *file, int16_t *values, size_t count);
[[nodiscard]] zx_status_t zx_file_read_int32(FILE *file, int32_t *values, size_t count);
[[nodiscard]] zx_status_t zx_file_read_float(FILE *file, float *values, size_t count);

// Reads one signed 32-bit count, which must lie in [1, maximum]; ZX_STATUS_INVALID_ARGUMENT otherwise.
[[nodiscard]] zx_status_t zx_file_read_count(FILE *file, int32_t *count, int32_t maximum = INT32_MAX);

#endif
