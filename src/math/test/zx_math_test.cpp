// SPDX-License-Identifier: Apache-2.0
#include "zx_math.h"

#include <algorithm>
#include <cmath>

#include "support.h"

namespace {

double sigmoid(double v) {
    return 1.0 / (1.0 + std::exp(-v));
}

}  // namespace

TEST(zx_math, integer_helpers_saturate) {
    EXPECT_EQ(zx_int32_to_int16(32768), 32767);
    EXPECT_EQ(zx_int32_to_int16(-32769), -32768);
    EXPECT_EQ(zx_int64_to_int32(int64_t{1} << 31), INT32_MAX);
    EXPECT_EQ(zx_int64_to_int32(-(int64_t{1} << 31) - 1), INT32_MIN);
    EXPECT_EQ(zx_add_int16(32767, 1), 32767);
    EXPECT_EQ(zx_sub_int16(-32768, 1), -32768);
    EXPECT_EQ(zx_mult_shift_right_int32(32767, 32767, 20), 1024);
    EXPECT_EQ(zx_mult_shift_right_int32(-1, 1, 1), 0);  // halves go up
    EXPECT_EQ(zx_mult_shift_right_int32(INT32_MAX, INT32_MAX, 1), INT32_MAX);
    EXPECT_ASSERTION((void) zx_mult_shift_right_int32(1, 1, 0), "shift_right > 0");
}

TEST(zx_log10, meets_known_values) {
    EXPECT_EQ(zx_log10(0), -32768);
    EXPECT_EQ(zx_log10(1), -19405);
    EXPECT_EQ(zx_log10(int64_t{1} << 62), -309);
    EXPECT_EQ(zx_log10(INT64_MAX), 0);
    EXPECT_ASSERTION((void) zx_log10(-1), "x >= 0");
}

// Each doubling counts 308 instead of 308.25, so the error grows to 16 Q10 units over the 63 octaves.
TEST(zx_log10, follows_the_logarithm_over_its_whole_range) {
    random_numbers random(1);
    int16_t previous = INT16_MIN;
    for (int bits = 0; bits < 63; bits++) {
        for (int i = 0; i < 64; i++) {
            const int64_t x = static_cast<int64_t>(std::ldexp(1.0 + i / 64.0, bits));
            const int16_t y = zx_log10(x);
            EXPECT_NEAR(y, 1024 * std::log10(std::ldexp(static_cast<double>(x), -63)), 17.0) << x;
            EXPECT_GE(y, previous) << x;
            previous = y;
        }
    }
}

TEST(zx_sigmoid, whole_domain_is_within_the_interpolation_error) {
    uint32_t checksum = 0;
    int16_t previous = 0;
    for (int32_t x = -32768; x <= 32767; x++) {
        const int16_t input = static_cast<int16_t>(x);
        int16_t y;
        zx_sigmoid(1, &input, &y);
        const double clamped = std::min(std::max(x, -8192), 8128) / 1024.0;
        ASSERT_NEAR(y, 32767 * sigmoid(clamped), 4.0) << x;
        ASSERT_GE(y, previous) << x;
        previous = y;
        checksum = checksum * 31 + static_cast<uint16_t>(y);
    }
    EXPECT_EQ(checksum, 233403117u);
}

TEST(zx_tanh, whole_domain_is_odd_within_its_rounding) {
    for (int32_t x = -32768; x <= 32767; x++) {
        const int16_t input = static_cast<int16_t>(x);
        int16_t y;
        zx_tanh(1, &input, &y);
        const double clamped = std::min(std::max(x, -4096), 4064) / 1024.0;
        ASSERT_NEAR(y, 32768 * std::tanh(clamped), 10.0) << x;
    }
}

TEST(zx_sigmoid_and_tanh, meet_known_values_in_place) {
    int16_t x[] = {0, 32767, -32768, 64, 8128, 32};
    zx_sigmoid(6, x, x);
    EXPECT_THAT(x, testing::ElementsAre(16384, 32755, 11, 16895, 32755, (16384 + 16895) / 2));
    int16_t z[] = {0, 32767, -32768};
    zx_tanh(3, z, z);
    EXPECT_THAT(z, testing::ElementsAre(0, 32742, -32746));
    EXPECT_ASSERTION(zx_sigmoid(0, x, x), "length > 0");
}

// Bit for bit what the processor or the C library computes: arbitrary bits, and sums near ties, where
// rounding twice shows.
TEST(zx_fma, in_double_precision_rounds_once) {
#if defined(__MINGW32__) && !defined(__FMA__)
    GTEST_SKIP() << "its C library rounds twice";
#endif
    random_numbers random(3);
    const auto any = [&] { return std::bit_cast<float>(random.next()); };
    for (int i = 0; i < 1000000; i++) {
        float a = any(), b = any(), c = any();
        if (i % 4 != 0) {  // terms of similar size, down to where results are subnormal
            const int32_t exponent = i % 4 == 1 ? 0 : random.between(-200, 40);
            a = std::ldexp(static_cast<float>(random.between(-(1 << 24), 1 << 24)), exponent / 2);
            b = std::ldexp(static_cast<float>(random.between(-(1 << 24), 1 << 24)), exponent - exponent / 2);
            c = std::ldexp(static_cast<float>(random.between(-(1 << 24), 1 << 24)),
                           exponent + random.between(-30, 50));
        }
        if (i % 4 == 3) {  // half a unit of the sum, and a little more or less
            int32_t exponent;
            (void) std::frexp(c, &exponent);
            a = std::ldexp(1.0f + std::ldexp(static_cast<float>(random.between(-1, 1)), -23), exponent - 25);
            b = 1.0f + std::ldexp(static_cast<float>(random.between(-1, 1)), -23);
        }
        const float expected = std::fma(a, b, c), got = zx_fma_in_double(a, b, c);
        if (std::isnan(expected)) {
            ASSERT_TRUE(std::isnan(got)) << a << " * " << b << " + " << c;
        } else {
            ASSERT_EQ(std::bit_cast<uint32_t>(got), std::bit_cast<uint32_t>(expected))
                << std::hexfloat << a << " * " << b << " + " << c;
        }
    }
}

TEST(zx_dot, sums_exactly_in_64_bits) {
    const std::vector<int16_t> x(100000, -32768);
    EXPECT_EQ(zx_dot(100000, x.data(), x.data()), 1024.0f * 100000.0f);
    const auto a = random_int16(777, 1), b = random_int16(777, 2);
    int64_t sum = 0;
    for (size_t i = 0; i < a.size(); i++) sum += int64_t{a[i]} * b[i];
    EXPECT_EQ(zx_dot(777, a.data(), b.data()), static_cast<float>(sum) / 1048576.0f);
}

TEST(zx_inverse_sqrt, is_close_over_all_magnitudes) {
    double worst = 0;
    for (float x = 1e-30f; x < 1e30f; x *= 1.0173f) {
        worst = std::max(worst, std::abs(double{zx_inverse_sqrt(x)} * std::sqrt(double{x}) - 1.0));
    }
    EXPECT_LT(worst, 7e-4);
    EXPECT_GT(worst, 1e-4);  // one correction step and not two
    EXPECT_ASSERTION((void) zx_inverse_sqrt(0.0f), "x > 0.0f");
}

TEST(zx_normalize, gives_unit_length) {
    const auto x = random_int16(63, 3);
    std::vector<float> y(63), z(63);
    zx_normalize_q510(63, x.data(), y.data());
    EXPECT_NEAR(zx_cosine_similarity(63, y.data(), y.data(), 1), 1.0f, 2e-3f);
    for (size_t i = 0; i < x.size(); i++) z[i] = x[i];
    zx_normalize_float(63, z.data(), z.data());
    EXPECT_NEAR(zx_cosine_similarity(63, z.data(), y.data(), 1), 1.0f, 2e-3f);
    const int16_t zeros[4] = {};
    EXPECT_ASSERTION(zx_normalize_q510(4, zeros, y.data()), "x > 0.0f");
}

TEST(zx_cosine_similarity, only_bit_0_of_the_flag_counts) {
    const float x[] = {3.0f, 0.0f}, y[] = {2.0f, 0.0f};
    EXPECT_EQ(zx_cosine_similarity(2, x, y, 1), 6.0f);
    EXPECT_EQ(zx_cosine_similarity(2, x, y, 3), 6.0f);
    EXPECT_NEAR(zx_cosine_similarity(2, x, y, 2), 1.0f, 2e-3f);
    EXPECT_NEAR(zx_cosine_similarity(2, x, y, 0), 1.0f, 2e-3f);
}
