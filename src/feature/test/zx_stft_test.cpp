// SPDX-License-Identifier: Apache-2.0
#include "zx_stft.h"

#include <cmath>

#include "support.h"
#include "zx_stft_tables.h"

namespace {

auto make_stft(int32_t window_shift) {
    zx_stft_t *stft = nullptr;
    EXPECT_EQ(zx_stft_init(test_memory(), window_shift, &stft), ZX_STATUS_SUCCESS);
    return owned<zx_stft_delete>(stft);
}

float window(size_t i) {
    return HALF_HANN_WINDOW[i < 256 ? i : 511 - i];
}

}  // namespace

// Whatever the hop, frame t holds the last 512 samples of the stream so far, with silence before its start.
TEST(zx_stft, frames_are_windows_on_the_stream_for_every_hop) {
    const auto samples = random_int16(4096, 7);
    for (int32_t hop : {1, 100, 255, 256, 257, 300, 511}) {
        const auto stft = make_stft(hop);
        std::vector<float> stream(512, 0.0f);
        for (size_t offset = 0; offset + static_cast<size_t>(hop) <= 2048;
             offset += static_cast<size_t>(hop)) {
            std::vector<float> x(samples.begin() + static_cast<ptrdiff_t>(offset),
                                 samples.begin() + static_cast<ptrdiff_t>(offset) + hop);
            stream.insert(stream.end(), x.begin(), x.end());
            std::vector<float> frame(512);
            zx_stft_forward_preprocess_float(stft.get(), x.data(), frame.data());
            for (size_t i = 0; i < 512; i++)
                ASSERT_EQ(frame[i], stream[stream.size() - 512 + i] * window(i)) << hop;
        }
    }
}

TEST(zx_stft, power_is_the_squared_magnitude_and_reset_forgets_the_stream) {
    const auto stft = make_stft(256);
    std::vector<float> hop(256);
    for (size_t i = 0; i < 256; i++)
        hop[i] = static_cast<float>(std::sin(0.3 * static_cast<double>(i)) * 1000);
    std::vector<float> first(257), second(257), third(257);
    ASSERT_EQ(zx_stft_forward_float_to_magnitude(stft.get(), hop.data(), first.data()), ZX_STATUS_SUCCESS);
    ASSERT_EQ(zx_stft_forward_float_to_magnitude(stft.get(), hop.data(), second.data()), ZX_STATUS_SUCCESS);
    zx_stft_reset(stft.get());
    ASSERT_EQ(zx_stft_forward_float_to_magnitude(stft.get(), hop.data(), third.data()), ZX_STATUS_SUCCESS);
    EXPECT_EQ(first, third);
    EXPECT_NE(first, second);

    const float spectrum[514] = {3.0f, 4.0f, 0.0f, -2.0f};
    zx_stft_complex_to_magnitude(spectrum, first.data());
    EXPECT_EQ(first[0], 25.0f);
    EXPECT_EQ(first[1], 4.0f);
}
