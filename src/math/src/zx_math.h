// SPDX-License-Identifier: Apache-2.0
// The numeric kernels that features, network and clustering share: table-driven
// logarithm, sigmoid and tanh, dot products, the fast inverse square root and what is built on it. All are
// pure functions.
//
// Number formats: Q10 is a signed 16-bit value with 10 fractional bits (1024 is 1.0), Q15 one with 15 (32767
// stands for 1.0), Q20 the product of two Q10 values. A shift to the right is arithmetic (towards minus
// infinity).
#ifndef ZX_MATH_H
#define ZX_MATH_H

#include <cstdint>

#include "zx_fma.h"
#include "zx_integer.h"

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
