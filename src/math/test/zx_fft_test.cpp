// SPDX-License-Identifier: Apache-2.0
#include "zx_fft.h"

#include <array>
#include <cmath>
#include <complex>
#include <numbers>

#include "support.h"

namespace {

using spectrum = std::array<float, 2 * ZX_FFT_NUM_BINS>;

spectrum transform(const std::vector<float> &x) {
    zx_fft_t *fft = nullptr;
    EXPECT_EQ(zx_fft_init(test_memory(), &fft), ZX_STATUS_SUCCESS);
    const auto owner = owned<zx_fft_delete>(fft);
    spectrum y;
    y.fill(NAN);
    EXPECT_EQ(zx_fft_forward(fft, x.data(), y.data()), ZX_STATUS_SUCCESS);
    return y;
}

// The definition, in double precision, with the scaling of the transform.
std::complex<double> slow_bin(const std::vector<float> &x, int k) {
    std::complex<double> sum = 0;
    for (size_t n = 0; n < 512; n++) {
        const auto phase = static_cast<double>((n * static_cast<size_t>(k)) % 512);
        sum += double{x[n]} * std::polar(1.0, -2 * std::numbers::pi * phase / 512);
    }
    return sum / (k == 0 || k == 256 ? 512.0 : 256.0);
}

}  // namespace

TEST(zx_fft, agrees_with_the_definition_on_noise) {
    std::vector<float> x;
    for (int16_t sample : random_int16(512, 5)) x.push_back(sample);
    const spectrum y = transform(x);
    for (int k = 0; k <= 256; k++) {
        const std::complex<double> expected = slow_bin(x, k);
        const auto bin = static_cast<size_t>(2 * k);
        EXPECT_NEAR(y[bin], expected.real(), 0.01) << k;
        EXPECT_NEAR(y[bin + 1], expected.imag(), 0.01) << k;
    }
    EXPECT_EQ(y[1], 0.0f);
    EXPECT_EQ(y[513], 0.0f);
}

TEST(zx_fft, has_uneven_scaling) {
    EXPECT_THAT(transform(std::vector<float>(512, 0.0f)), testing::Each(0.0f));
    EXPECT_EQ(transform(std::vector<float>(512, 3.0f))[0], 3.0f);
    for (int k : {1, 17, 128, 255}) {
        std::vector<float> x(512);
        for (size_t n = 0; n < 512; n++) {
            x[n] = static_cast<float>(std::cos(2 * std::numbers::pi * k * static_cast<double>(n) / 512));
        }
        const spectrum y = transform(x);
        for (int bin = 0; bin <= 256; bin++) {
            EXPECT_NEAR(y[static_cast<size_t>(2 * bin)], bin == k ? 1.0 : 0.0, 1e-5) << k << " " << bin;
        }
    }
}
