// SPDX-License-Identifier: Apache-2.0
#include "zx_resampler.h"

#include <cmath>
#include <numbers>
#include <numeric>

#include "support.h"

namespace {

auto make_resampler(int32_t from, int32_t to, zx_status_t expected_status = ZX_STATUS_SUCCESS) {
    zx_resampler_t *resampler = nullptr;
    EXPECT_EQ(zx_resampler_init(from, to, 50, &resampler), expected_status) << from << " to " << to;
    EXPECT_NE(resampler, nullptr);
    return owned<zx_resampler_delete>(resampler);
}

std::vector<int16_t> convert(int32_t from, int32_t to, const std::vector<int16_t> &x, int32_t piece) {
    const auto resampler = make_resampler(from, to);
    std::vector<int16_t> y(x.size() * 2 + 10);
    int32_t total = 0;
    for (size_t i = 0; i < x.size(); i += static_cast<size_t>(piece)) {
        const int32_t length = std::min(piece, static_cast<int32_t>(x.size() - i));
        const int32_t promised =
            zx_resampler_convert_num_samples_to_output_sample_rate(resampler.get(), length);
        const int32_t count =
            zx_resampler_process(resampler.get(), &x[i], length, &y[static_cast<size_t>(total)]);
        EXPECT_NEAR(count, promised, 1);
        total += count;
    }
    y.resize(static_cast<size_t>(total));
    return y;
}

std::vector<int16_t> tone(int32_t rate, double frequency, size_t length) {
    std::vector<int16_t> x(length);
    for (size_t i = 0; i < length; i++) {
        x[i] = static_cast<int16_t>(
            10000 * std::sin(2 * std::numbers::pi * frequency * static_cast<double>(i) / rate));
    }
    return x;
}

double rms(const std::vector<int16_t> &x, size_t from) {
    double sum = 0;
    for (size_t i = from; i < x.size(); i++) sum += 1.0 * x[i] * x[i];
    return std::sqrt(sum / static_cast<double>(x.size() - from));
}

}  // namespace

TEST(zx_resampler_kernel, is_symmetric_with_the_gain_that_zero_stuffing_needs) {
    for (const auto &[ratio, gain] : {std::pair{1.5f, 1.0f}, {2.75625f, 1.0f}, {3.0f, 1.0f}, {0.5f, 2.0f}}) {
        std::vector<float> kernel(101);
        generate_kernel_filter(50, kernel.data(), ratio);
        EXPECT_NEAR(std::accumulate(kernel.begin(), kernel.end(), 0.0f), gain, 1e-5f);
        for (size_t i = 0; i < 50; i++) EXPECT_NEAR(kernel[i], kernel[100 - i], 1e-6f);
        EXPECT_EQ(*std::max_element(kernel.begin(), kernel.end()), kernel[50]);
    }
}

// The blocked loop against the definition, at lengths around the block width, with inputs that saturate.
TEST(zx_resampler, low_pass_filter_is_a_chain_of_fused_multiply_adds) {
    std::vector<float> kernel(101);
    generate_kernel_filter(50, kernel.data(), 0.5f);
    for (int32_t length : {101, 163, 164, 165, 300, 1124}) {
        auto x = random_int16(static_cast<size_t>(length), 5);
        for (size_t i = 0; i < x.size(); i += 3) x[i] = 32767;
        std::vector<int16_t> y(x.size());
        ASSERT_EQ(low_pass_filter(x.data(), length, y.data(), kernel.data(), 50), length - 100);
        for (int32_t j = 100; j < length; j++) {
            float sum = 0.0f;
            for (int32_t k = 0; k <= 100; k++) {
                sum = std::fma(static_cast<float>(x[static_cast<size_t>(j - k)]),
                               kernel[static_cast<size_t>(k)], sum);
            }
            const float expected = std::min(std::max(sum, -32768.0f), 32767.0f);
            ASSERT_EQ(y[static_cast<size_t>(j - 100)], static_cast<int16_t>(expected)) << length << " " << j;
        }
    }
}

TEST(zx_resampler, equal_rates_copy) {
    const auto x = random_int16(5000, 1);
    EXPECT_EQ(convert(16000, 16000, x, 1024), x);
}

// At 48 kHz outputs are filtered samples 0, 3, 6, ...: positions never fall between samples, in whatever
// pieces.
TEST(zx_resampler, whole_ratios_decimate_the_filtered_signal) {
    const auto x = random_int16(9000, 2);
    std::vector<float> kernel(101);
    generate_kernel_filter(50, kernel.data(), 3.0f);
    std::vector<int16_t> padded(100, 0), filtered(9000);
    padded.insert(padded.end(), x.begin(), x.end());
    low_pass_filter(padded.data(), 9100, filtered.data(), kernel.data(), 50);
    for (int32_t piece : {1, 7, 1000, 1024, 9000}) {
        const auto y = convert(48000, 16000, x, piece);
        ASSERT_EQ(y.size(), 3000u) << piece;
        for (size_t i = 0; i < y.size(); i++) ASSERT_EQ(y[i], filtered[3 * i]) << piece;
    }
}

TEST(zx_resampler, passes_speech_and_removes_what_would_alias) {
    for (int32_t rate : {22050, 32000, 44100, 48000, 96000}) {
        const auto pass = convert(rate, 16000, tone(rate, 1000, 40000), 1024);
        EXPECT_NEAR(rms(pass, 200), 10000 / std::numbers::sqrt2, 120) << rate;
        const auto stop = convert(rate, 16000, tone(rate, 10900, 40000), 1024);
        EXPECT_LT(rms(stop, 200), rate == 96000 ? 700 : 120) << rate;
    }
    const auto doubled = convert(8000, 16000, tone(8000, 1000, 20000), 1024);
    ASSERT_EQ(doubled.size(), 40000u);
    EXPECT_NEAR(rms(doubled, 200), 10000 / std::numbers::sqrt2, 120);
}

TEST(zx_resampler, counts_promise_what_processing_gives) {
    for (int32_t rate : {16001, 22050, 24000, 44100, 48000, 192000, 1000003}) {
        const auto resampler = make_resampler(rate, 16000);
        std::vector<int16_t> y(4096);
        random_numbers random(static_cast<uint64_t>(rate));
        for (int round = 0; round < 200; round++) {
            const int32_t wanted = random.between(1, 900);
            const int32_t needed = std::min(
                zx_resampler_convert_num_samples_to_input_sample_rate(resampler.get(), wanted), 1024);
            ASSERT_GE(needed, 1);
            const auto x = random_int16(static_cast<size_t>(needed), random.next());
            const int32_t count = zx_resampler_process(resampler.get(), x.data(), needed, y.data());
            ASSERT_LE(count, wanted + 1) << rate;
            ASSERT_GE(count, needed < 1024 ? wanted : 0) << rate;
        }
    }
    const auto upsampler = make_resampler(8000, 16000);
    EXPECT_EQ(zx_resampler_convert_num_samples_to_output_sample_rate(upsampler.get(), 20000001), 40000002);
    EXPECT_EQ(zx_resampler_convert_num_samples_to_input_sample_rate(upsampler.get(), 40000001), 20000001);
    EXPECT_EQ(zx_resampler_convert_num_samples_to_output_sample_rate(upsampler.get(), INT32_MAX), INT32_MAX);
}

TEST(zx_resampler, reset_makes_it_new) {
    for (int32_t rate : {44100, 8000}) {
        const auto resampler = make_resampler(rate, 16000);
        const auto x = random_int16(1000, 4);
        std::vector<int16_t> first(2000), second(2000);
        const int32_t count = zx_resampler_process(resampler.get(), x.data(), 1000, first.data());
        resampler->reset_fn(resampler->object);
        EXPECT_EQ(zx_resampler_process(resampler.get(), x.data(), 1000, second.data()), count);
        EXPECT_EQ(first, second);
    }
}

TEST(zx_resampler, impossible_ratios_are_refused_and_the_object_can_be_deleted) {
    for (int32_t rate : {1, 7999, 8001, 11025, 12000, 15999, 32000000, INT32_MAX}) {
        make_resampler(rate, 16000, ZX_STATUS_INVALID_ARGUMENT);
    }
    zx_resampler_t *resampler;
    EXPECT_ASSERTION((void) zx_resampler_init(0, 16000, 50, &resampler), "input_frequency > 0");
    EXPECT_ASSERTION((void) zx_resampler_init(16000, 16000, 1, &resampler), "filter_order > 1");
}
