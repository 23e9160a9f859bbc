#include "zx_container_isobmff.h"

#include <cstdint>
#include <cstring>

#include "zx_assert.h"
#include "zx_file.h"

namespace {

// Big-endian unsigned value of `size` bytes.
uint64_t read_big_endian(const unsigned char *bytes, size_t size) {
    uint64_t value = 0;
    for (size_t i = 0; i < size; i++) value = value << 8 | bytes[i];
    return value;
}

bool read_bytes(FILE *file, void *bytes, size_t count) {
    return std::fread(bytes, 1, count, file) == count;
}

}  // namespace

bool zx_container_isobmff_is_compatible_brand(const char *brand) {
    ZX_ASSERT(brand);
    for (const char *known : {"3gp4", "3gp5", "3gp6", "iso2", "isom", "mp41", "mp42"}) {
        if (std::memcmp(brand, known, 4) == 0) return true;
    }
    return false;
}

bool zx_container_isobmff_is_compatible_file(const char *path) {
    ZX_ASSERT(path);
    const zx_file_ptr file(zx_fopen(path, "rb"));
    unsigned char header[16];
    if (!file || !read_bytes(file.get(), header, 8) || std::memcmp(header + 4, "ftyp", 4) != 0) return false;
    uint64_t size = read_big_endian(header, 4);
    uint64_t header_size = 8;
    if (size == 1) {  // the size follows in 64 bits
        if (!read_bytes(file.get(), header + 8, 8)) return false;
        size = read_big_endian(header + 8, 8);
        header_size = 16;
    }
    // A box too small for its own fields is left to the reader, which refuses it with a status.
    if (size < header_size + 8) return true;
    bool is_compatible = false;
    for (uint64_t left = size - header_size, index = 0; left > 0; index++) {
        char brand[4];
        const size_t length = left < sizeof(brand) ? static_cast<size_t>(left) : sizeof(brand);
        if (!read_bytes(file.get(), brand, length)) return false;
        // The major brand, its version, then the compatible brands.
        if (index != 1 && length == sizeof(brand)) {
            is_compatible = is_compatible || zx_container_isobmff_is_compatible_brand(brand);
        }
        left -= length;
    }
    return is_compatible;
}
