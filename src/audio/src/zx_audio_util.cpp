#include "zx_audio_util.h"

#include "zx_assert.h"
#include "zx_multiversion.h"

ZX_MULTIVERSION
void zx_audio_util_stereo_to_mono_interleaved(int16_t *output_buffer, const int16_t *input_buffer,
                                              int32_t output_buffer_length) {
    ZX_ASSERT(output_buffer);
    ZX_ASSERT(input_buffer);
    ZX_ASSERT(output_buffer_length >= 0);
    for (int32_t i = 0; i < output_buffer_length; i++) {
        output_buffer[i] = static_cast<int16_t>((input_buffer[2 * i] + input_buffer[2 * i + 1]) / 2);
    }
}

ZX_MULTIVERSION
void zx_audio_util_stereo_to_mono_lr_float(float *output_buffer, const float *l_buffer, const float *r_buffer,
                                           int32_t output_buffer_length) {
    ZX_ASSERT(output_buffer);
    ZX_ASSERT(l_buffer);
    ZX_ASSERT(r_buffer);
    ZX_ASSERT(output_buffer_length >= 0);
    for (int32_t i = 0; i < output_buffer_length; i++) output_buffer[i] = (l_buffer[i] + r_buffer[i]) / 2.0f;
}
