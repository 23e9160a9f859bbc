// SPDX-License-Identifier: Apache-2.0
#include "zx_filterbank.h"

#include <array>
#include <cmath>
#include <limits>

#include "support.h"

namespace {

using row = std::array<int16_t, ZX_FILTERBANK_NUM_BANDS>;

auto make_filterbank() {
    zx_filterbank_t *filterbank = nullptr;
    EXPECT_EQ(zx_filterbank_init(test_memory(), 256, &filterbank), ZX_STATUS_SUCCESS);
    return owned<zx_filterbank_delete>(filterbank);
}

row compute(zx_filterbank_t *filterbank, const std::vector<int16_t> &pcm) {
    row y;
    EXPECT_EQ(zx_filterbank_compute(filterbank, pcm.data(), y.data()), ZX_STATUS_SUCCESS);
    return y;
}

row bands_of(const std::vector<float> &power) {
    row y;
    zx_filterbank_postprocess(power.data(), y.data());
    return y;
}

}  // namespace

TEST(zx_filterbank, silence_has_no_energy_anywhere) {
    const auto filterbank = make_filterbank();
    EXPECT_THAT(compute(filterbank.get(), std::vector<int16_t>(256, 0)), testing::Each(-32768));
}

// With a power of 2^30 in one bin, a band's value is 1024 log10 of the bin's weight in it.
TEST(zx_filterbank, bands_are_triangles_between_their_edges) {
    for (int32_t bin = 0; bin <= 256; bin++) {
        std::vector<float> power(257, 0.0f);
        power[static_cast<size_t>(bin)] = 1073741824.0f;
        const row y = bands_of(power);
        for (size_t b = 0; b < y.size(); b++) {
            const double low = FILTERBANK_BAND_EDGES[b], peak = FILTERBANK_BAND_EDGES[b + 1],
                         high = FILTERBANK_BAND_EDGES[b + 2];
            const double weight =
                std::max(0.0, bin < peak ? (bin - low) / (peak - low) : (high - bin) / (high - peak));
            if (weight == 0.0) {
                EXPECT_EQ(y[b], -32768) << bin << " " << b;
            } else {
                EXPECT_NEAR(y[b], 1024 * std::log10(weight), 17.0) << bin << " " << b;
            }
        }
    }
}

TEST(zx_filterbank, preemphasis_carries_the_last_sample_over) {
    const auto filterbank = make_filterbank();
    const std::vector<int16_t> pcm(256, 1000);
    std::vector<float> emphasised(256);
    zx_filterbank_preprocess(filterbank.get(), pcm.data(), emphasised.data());
    EXPECT_EQ(emphasised[0], 1000.0f);
    EXPECT_NEAR(emphasised[1], 30.0f, 1e-4f);
    zx_filterbank_preprocess(filterbank.get(), pcm.data(), emphasised.data());
    EXPECT_NEAR(emphasised[0], 30.0f, 1e-4f);
}

TEST(zx_filterbank, reset_makes_it_new) {
    const auto filterbank = make_filterbank();
    const auto pcm = random_int16(256, 9);
    const row first = compute(filterbank.get(), pcm);
    EXPECT_NE(compute(filterbank.get(), pcm), first);
    zx_filterbank_reset(filterbank.get());
    EXPECT_EQ(compute(filterbank.get(), pcm), first);
}

TEST(zx_filterbank, full_scale_saturates_before_the_logarithm) {
    const row y = bands_of(std::vector<float>(257, 1e30f));
    EXPECT_THAT(y, testing::Each(0));
    const std::pair<float, int64_t> conversions[] = {{9.3e18f, INT64_MAX},
                                                     {-9.3e18f, INT64_MIN},
                                                     {-1.9f, -1},
                                                     {1.9f, 1},
                                                     {std::numeric_limits<float>::infinity(), INT64_MAX}};
    for (const auto &[x, expected] : conversions) EXPECT_EQ(zx_float_to_int64(x), expected) << x;
}
