// The numeric kernels that features, network and clustering share: table-driven
// logarithm, sigmoid and tanh, dot products, the fast inverse square root and what is built on it. All are
// pure functions.
//
// Number formats: Q10 is a signed 16-bit value with 10 fractional bits (1024 is 1.0), Q15 one with 15 (32767
// stands for 1.0), Q20 the product of two Q10 values. A shift to the right is arithmetic (towards minus
// infinity).
#ifndef ZX_MATH_H
#define ZX_MATH_H

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

// log10(x / 2^63) in Q10 for x >= 0; -32768 for 0. From 2^30 on the lowest bit of x is not looked at.
int16_t zx_log10(int64_t x);

// Logistic function of `length` >= 1 Q10 values in Q15, by linear interpolation on a grid of 1/16, clamped at
// -8 and 7.9375. y may equal x.
void zx_sigmoid(int32_t length, const int16_t *x, int16_t *y);

// tanh(v) = 2 sigmoid(2 v) - 1: Q10 in, Q15 out, from -32746 to 32742. y may equal x.
void zx_tanh(int32_t length, const int16_t *x, int16_t *y);

// Dot product of two Q10 vectors as a real number; the sum is exact (64 bits).
float zx_dot(int32_t length, const int16_t *x, const int16_t *y);

// About 1 / sqrt(x) for x > 0: an estimate from the exponent and one correction step, relative error below
// 7e-4.
float zx_inverse_sqrt(float x);

// A Q10 value as a real number.
constexpr float zx_q510_to_float(int16_t x) {
    return static_cast<float>(x) / 1024.0f;
}

// Scales a vector to unit length. The vector must not be all zeros: the inverse square root asserts it.
void zx_normalize_q510(int32_t length, const int16_t *x, float *y);
void zx_normalize_float(int32_t length, const float *x, float *y);  // y may equal x

// x y / (|x| |y|), or the plain dot product if bit 0 of `is_normalized` says that both have unit length. Sums
// run in index order by fused multiply-add.
float zx_cosine_similarity(int32_t length, const float *x, const float *y, uint32_t is_normalized);

#endif
