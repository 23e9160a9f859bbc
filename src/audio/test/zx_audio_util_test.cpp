// SPDX-License-Identifier: Apache-2.0
#include "zx_audio_util.h"

#include "support.h"

TEST(zx_audio_util, interleaved_stereo_is_averaged_towards_zero) {
    const int16_t stereo[] = {1, 2, -1, -2, -3, 0, 32767, 32767, -32768, -32768, 32767, -32768};
    int16_t mono[6];
    zx_audio_util_stereo_to_mono_interleaved(mono, stereo, 6);
    EXPECT_THAT(mono, testing::ElementsAre(1, -1, -1, 32767, -32768, 0));
    zx_audio_util_stereo_to_mono_interleaved(mono, stereo, 0);
    EXPECT_EQ(mono[0], 1);
    EXPECT_ASSERTION(zx_audio_util_stereo_to_mono_interleaved(mono, stereo, -1), "output_buffer_length >= 0");
}

TEST(zx_audio_util, planar_stereo_is_averaged_in_single_precision) {
    const float l[] = {1.0f, 0.1f}, r[] = {0.0f, 0.3f};
    float mono[2];
    zx_audio_util_stereo_to_mono_lr_float(mono, l, r, 2);
    EXPECT_THAT(mono, testing::ElementsAre(0.5f, (0.1f + 0.3f) / 2.0f));
}
