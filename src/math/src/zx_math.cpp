// SPDX-License-Identifier: Apache-2.0
#include "zx_math.h"

#include <array>
#include <bit>
#include <cfloat>

#include "zx_kernels.h"
#include "zx_math_tables.h"

static_assert(FLT_EVAL_METHOD == 0, "single-precision results must not carry excess precision");
static_assert(ZX_LOG10_TABLE[0] == -617 && ZX_LOG10_TABLE[512] == -308);

int16_t zx_log10(int64_t x) {
    ZX_ASSERT(x >= 0);
    if (x == 0) return INT16_MIN;
    int32_t shift = 0;
    if (x >= int64_t{1} << 30) {  // makes room in [2^62, 2^63), and is kept for smaller inputs too
        x >>= 1;
        shift = -1;
    }
    const int32_t doublings = std::max(std::countl_zero(static_cast<uint64_t>(x)) - 2, 0);  // to [2^61, 2^62)
    x <<= doublings;
    shift += doublings;
    const int64_t index = ((x + (int64_t{1} << 51)) >> 52) - 512;
    constexpr int32_t LOG10_2_Q26 = 0x1340000;  // 308 << 16; 1024 log10(2) is 308.25
    return zx_sub_int16(ZX_LOG10_TABLE[static_cast<size_t>(index)],
                        static_cast<int16_t>((shift * LOG10_2_Q26) >> 16));
}

void zx_sigmoid(int32_t length, const int16_t *x, int16_t *y) {
    ZX_ASSERT(length > 0);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    zx_kernels()->sigmoid(length, x, y);
}

void zx_tanh(int32_t length, const int16_t *x, int16_t *y) {
    ZX_ASSERT(length > 0);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    zx_kernels()->tanh(length, x, y);
}

float zx_dot(int32_t length, const int16_t *x, const int16_t *y) {
    ZX_ASSERT(length > 0);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    return static_cast<float>(zx_kernels()->loops->dot(length, x, y)) / 1048576.0f;  // Q20
}

float zx_inverse_sqrt(float x) {
    ZX_ASSERT(x > 0.0f);
    constexpr float C1 = zx_bits_as<float>(0x3F343637u);  // 0.70395225
    constexpr float C2 = zx_bits_as<float>(0x4018E962u);  // 2.3892446
    const float y = zx_bits_as<float>(0x5F1FFFF9u - (zx_bits_as<uint32_t>(x) >> 1));
    return y * (C1 * zx_fma(-(x * y), y, C2));
}

void zx_normalize_q510(int32_t length, const int16_t *x, float *y) {
    ZX_ASSERT(length > 0);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    const float inverse_length = zx_inverse_sqrt(zx_dot(length, x, x));
    for (int32_t i = 0; i < length; i++) y[i] = zx_q510_to_float(x[i]) * inverse_length;
}

void zx_normalize_float(int32_t length, const float *x, float *y) {
    ZX_ASSERT(length > 0);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    const float inverse_length = zx_inverse_sqrt(zx_kernels()->loops->dot_float(length, x, x));
    for (int32_t i = 0; i < length; i++) y[i] = x[i] * inverse_length;
}

float zx_cosine_similarity(int32_t length, const float *x, const float *y, uint32_t is_normalized) {
    ZX_ASSERT(length > 0);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    const auto dot = zx_kernels()->loops->dot_float;
    const float product = dot(length, x, y);
    if (is_normalized & 1) return product;
    return product * (zx_inverse_sqrt(dot(length, x, x)) * zx_inverse_sqrt(dot(length, y, y)));
}
