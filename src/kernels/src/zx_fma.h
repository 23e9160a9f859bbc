// SPDX-License-Identifier: Apache-2.0
// Fused multiply-add with the same bits on every machine.
#ifndef ZX_FMA_H
#define ZX_FMA_H

#include <cmath>
#include <cstdint>

#include "zx_integer.h"

// a b + c, rounded once, from sums and products in double precision: what std::fma gives. The product is
// exact (48 bits); the sum is rounded to odd, that is, where it is inexact the last bit of its 53 is set
// whichever way it was rounded, so that the second rounding, to 24 bits, cannot mistake it for a tie or for
// exact (Boldo and Melquiond). The error of the sum is exact (Knuth's TwoSum); it is not a number where the
// sum is infinite or none.
inline float zx_fma_in_double(float a, float b, float c) {
    const double product = static_cast<double>(a) * b;
    const double sum = product + c;
    const double added = sum - product;
    const double error = (product - (sum - added)) + (c - added);
    auto bits = zx_bits_as<int64_t>(sum);
    const bool is_even = (bits & 1) == 0;
    if (is_even && (error > 0 || error < 0)) bits += (error > 0) == (sum > 0) ? 1 : -1;
    return static_cast<float>(zx_bits_as<double>(bits));
}

// a b + c, rounded once. WebAssembly has no such instruction; calling the C library there makes the whole
// engine a third slower. MinGW's C library rounds twice.
inline float zx_fma(float a, float b, float c) {
#if defined(__wasm__) || (defined(__MINGW32__) && !defined(__FMA__))
    return zx_fma_in_double(a, b, c);
#else
    return std::fma(a, b, c);
#endif
}

#endif
