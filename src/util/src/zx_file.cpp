#include "zx_file.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "zx_assert.h"

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

FILE *zx_fopen(const char *path, const char *mode) {
    ZX_ASSERT(path);
    ZX_ASSERT(mode);
    return std::fopen(path, mode);
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
