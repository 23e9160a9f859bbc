// SPDX-License-Identifier: Apache-2.0
// Numbers out of the bytes of a file.
#ifndef PARLEY_BYTE_READER_H
#define PARLEY_BYTE_READER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "errors.h"
#include "zx_integer.h"

// Takes little-endian numbers from the front of bytes, which may end too early: then it throws `why`.
class byte_reader {
public:
    byte_reader(std::string_view bytes, std::string why) : bytes_(bytes), why_(std::move(why)) {}

    template <class T>
    T take() {
        if (bytes_.size() < sizeof(T)) refuse();
        uint64_t value = 0;
        for (size_t i = 0; i < sizeof(T); i++)
            value |= uint64_t{static_cast<unsigned char>(bytes_[i])} << (8 * i);
        bytes_.remove_prefix(sizeof(T));
        return static_cast<T>(value);
    }

    float take_float() { return zx_bits_as<float>(take<uint32_t>()); }

    void take_floats(uint64_t count, std::vector<float> *values) {
        if (count > bytes_.size() / sizeof(float)) refuse();
        values->resize(static_cast<size_t>(count));
        for (float &value : *values) value = take_float();
    }

    // A number of things of so many bytes each that are still to come.
    size_t take_count(size_t bytes_each) {
        const auto count = take<int32_t>();
        if (count < 0 || static_cast<size_t>(count) > bytes_.size() / bytes_each) refuse();
        return static_cast<size_t>(count);
    }

    std::string_view take_bytes(size_t count) {
        if (count > bytes_.size()) refuse();
        const std::string_view taken = bytes_.substr(0, count);
        bytes_.remove_prefix(count);
        return taken;
    }

    size_t bytes_left() const { return bytes_.size(); }

    [[noreturn]] void refuse() const { throw diarization_error(PARLEY_INVALID, why_); }

private:
    std::string_view bytes_;
    std::string why_;
};

#endif
