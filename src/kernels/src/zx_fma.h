// SPDX-License-Identifier: Apache-2.0
// Fused multiply-add with the same bits on every machine.
#ifndef ZX_FMA_H
#define ZX_FMA_H

#include <cfloat>
#include <cmath>
#include <cstdint>

#include "zx_integer.h"

// a b + c, rounded once, from sums and products in double precision: what std::fma gives. The product is
// exact (48 bits), and the sum rounded twice, to 53 bits and to 24, is what it is rounded once, unless the
// first rounding meets the middle between two floats: bits below the 24 are 1000... then (other ones where
// floats are subnormal). There the sum is rounded to odd instead: where it is inexact, the last of its 53
// bits is set whichever way it was rounded, so that the second rounding cannot mistake it for a tie or for
// exact (Boldo and Melquiond). The error of the sum is exact (Knuth's TwoSum); it is not a number where the
// sum is infinite or none.
inline float zx_fma_in_double(float a, float b, float c) {
    constexpr uint64_t BELOW = 0x1fffffff, MIDDLE = 0x10000000, SMALLEST_NORMAL = 1023 - 126;
    const double product = static_cast<double>(a) * b;
    const double sum = product + c;
    auto bits = zx_bits_as<uint64_t>(sum);
    if ((bits & BELOW) != MIDDLE && (bits << 1 >> 53) >= SMALLEST_NORMAL) return static_cast<float>(sum);
    const double added = sum - product;
    const double error = (product - (sum - added)) + (c - added);
    const bool is_even = (bits & 1) == 0;
    if (is_even && (error > 0 || error < 0)) bits += (error > 0) == (sum > 0) ? uint64_t{1} : ~uint64_t{0};
    return static_cast<float>(zx_bits_as<double>(bits));
}

// a b + c, rounded once. Where the processor has no such instruction, the C library's function is slower, and
// MinGW's rounds twice. Doubles have to be doubles for the other way, which x87 registers make longer.
inline float zx_fma(float a, float b, float c) {
#if defined(__FP_FAST_FMAF) || defined(__FMA__) || defined(__ARM_FEATURE_FMA) || FLT_EVAL_METHOD != 0
    return std::fma(a, b, c);
#else
    return zx_fma_in_double(a, b, c);
#endif
}

#endif
