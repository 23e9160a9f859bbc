// SPDX-License-Identifier: Apache-2.0
// Integer helpers of the numeric kernels: bounds, saturation, rounding shifts. A shift to the right is
// arithmetic (towards minus infinity).
#ifndef ZX_INTEGER_H
#define ZX_INTEGER_H

#include <algorithm>
#include <cstdint>

#include "zx_assert.h"

constexpr int16_t zx_min_int16(int16_t a, int16_t b) {
    return std::min(a, b);
}
constexpr int16_t zx_max_int16(int16_t a, int16_t b) {
    return std::max(a, b);
}
constexpr int32_t zx_min_int32(int32_t a, int32_t b) {
    return std::min(a, b);
}
constexpr int32_t zx_max_int32(int32_t a, int32_t b) {
    return std::max(a, b);
}
constexpr int64_t zx_min_int64(int64_t a, int64_t b) {
    return std::min(a, b);
}
constexpr int64_t zx_max_int64(int64_t a, int64_t b) {
    return std::max(a, b);
}

// std::bit_cast, which the standard library of WebAssembly's compiler lacks.
template <class To, class From>
constexpr To zx_bits_as(From value) {
    return __builtin_bit_cast(To, value);
}

// Saturation to 16 bits.
constexpr int16_t zx_int32_to_int16(int32_t x) {
    return static_cast<int16_t>(zx_max_int32(zx_min_int32(x, INT16_MAX), INT16_MIN));
}

// Saturation to 32 bits.
constexpr int32_t zx_int64_to_int32(int64_t x) {
    return static_cast<int32_t>(zx_max_int64(zx_min_int64(x, INT32_MAX), INT32_MIN));
}

// Saturating sum and difference.
constexpr int16_t zx_add_int16(int16_t a, int16_t b) {
    return zx_int32_to_int16(a + b);
}
constexpr int16_t zx_sub_int16(int16_t a, int16_t b) {
    return zx_int32_to_int16(a - b);
}

// saturate32((a b + 2^(shift_right - 1)) >> shift_right), product in 64 bits; shift_right >= 1.
constexpr int32_t zx_mult_shift_right_int32(int32_t a, int32_t b, int32_t shift_right) {
    ZX_ASSERT(shift_right > 0);
    const int64_t half = int64_t{1} << (shift_right - 1);
    return zx_int64_to_int32((int64_t{a} * b + half) >> shift_right);
}

#endif
