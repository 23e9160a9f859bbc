// SPDX-License-Identifier: Apache-2.0
#include "zx_file.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "zx_assert.h"
#if defined(_WIN32)
#include <windows.h>

#include <cwchar>
#endif

static_assert(sizeof(float) == 4 && std::numeric_limits<float>::is_iec559, "float values are IEEE binary32");

namespace {

template <class T>
zx_status_t read_little_endian(FILE *file, T *values, size_t count) {
    if (std::fread(values, sizeof(T), count, file) != count) return ZX_STATUS_IO_ERROR;
    if constexpr (std::endian::native == std::endian::big && sizeof(T) > 1) {
        unsigned char *bytes = reinterpret_cast<unsigned char *>(values);
        for (size_t i = 0; i < count; i++) std::reverse(bytes + i * sizeof(T), bytes + (i + 1) * sizeof(T));
    }
    return ZX_STATUS_SUCCESS;
}

}  // namespace

#if defined(_WIN32)

wchar_t *zx_file_system_name(const char *path) {
    constexpr int MOST = 32768;                                       // characters, the system's own limit
    constexpr wchar_t LONG_FORM[] = L"\\\\?\\", NETWORK[] = L"\\\\";  // how names begin that may be long
    zx_heap_ptr<wchar_t> name(zx_heap_zeroed<wchar_t>(MOST)), whole(zx_heap_zeroed<wchar_t>(MOST + 4));
    if (!name || !whole) return nullptr;
    if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path, -1, name.get(), MOST) == 0) return nullptr;
    std::wmemcpy(whole.get(), LONG_FORM, 4);
    const DWORD length = GetFullPathNameW(name.get(), MOST, whole.get() + 4, nullptr);
    const bool is_long =
        length >= MAX_PATH && length < MOST && std::wmemcmp(whole.get() + 4, NETWORK, 2) != 0;
    return is_long ? whole.release() : name.release();
}

#endif

FILE *zx_fopen(const char *path, const char *mode) {
    ZX_ASSERT(path);
    ZX_ASSERT(mode);
#if defined(_WIN32)
    const zx_heap_ptr<wchar_t> name(zx_file_system_name(path));
    wchar_t wide_mode[8];
    if (!name || MultiByteToWideChar(CP_UTF8, 0, mode, -1, wide_mode, 8) == 0) return nullptr;
    return _wfopen(name.get(), wide_mode);
#else
    return std::fopen(path, mode);
#endif
}

zx_status_t zx_file_read_int8(FILE *file, int8_t *values, size_t count) {
    return read_little_endian(file, values, count);
}

zx_status_t zx_file_read_int16(FILE *file, int16_t *values, size_t count) {
    return read_little_endian(file, values, count);
}

zx_status_t zx_file_read_int32(FILE *file, int32_t *values, size_t count) {
    return read_little_endian(file, values, count);
}

zx_status_t zx_file_read_float(FILE *file, float *values, size_t count) {
    return read_little_endian(file, values, count);
}

zx_status_t zx_file_read_count(FILE *file, int32_t *count, int32_t maximum) {
    const zx_status_t status = zx_file_read_int32(file, count, 1);
    if (status != ZX_STATUS_SUCCESS) return status;
    return *count >= 1 && *count <= maximum ? ZX_STATUS_SUCCESS : ZX_STATUS_INVALID_ARGUMENT;
}
