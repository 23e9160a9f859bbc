// SPDX-License-Identifier: Apache-2.0
#include "zx_audio_util.h"

#include <cstdio>

#include "zx_assert.h"
#include "zx_error.h"
#include "zx_kernels.h"

void zx_audio_util_stereo_to_mono_interleaved(int16_t *output_buffer, const int16_t *input_buffer,
                                              int32_t output_buffer_length) {
    ZX_ASSERT(output_buffer);
    ZX_ASSERT(input_buffer);
    ZX_ASSERT(output_buffer_length >= 0);
    zx_kernels()->loops->mix(output_buffer_length, input_buffer, output_buffer);
}

void zx_audio_util_stereo_to_mono_lr_float(float *output_buffer, const float *l_buffer, const float *r_buffer,
                                           int32_t output_buffer_length) {
    ZX_ASSERT(output_buffer);
    ZX_ASSERT(l_buffer);
    ZX_ASSERT(r_buffer);
    ZX_ASSERT(output_buffer_length >= 0);
    zx_kernels()->loops->mix_float(output_buffer_length, l_buffer, r_buffer, output_buffer);
}

zx_status_t zx_audio_util_stereo_buffer_init(uint32_t num_channels, int16_t **stereo_buffer) {
    *stereo_buffer = nullptr;
    if (num_channels == 1) return ZX_STATUS_SUCCESS;
    if (num_channels != 2) return ZX_STATUS_INVALID_ARGUMENT;
    *stereo_buffer = zx_heap_zeroed<int16_t>(2 * ZX_AUDIO_STEREO_CHUNK);
    return *stereo_buffer ? ZX_STATUS_SUCCESS : ZX_STATUS_OUT_OF_MEMORY;
}

zx_status_t zx_audio_util_refuse_missing(const char *what, const char *library, const char *package) {
    char text[128];
    std::snprintf(text, sizeof(text), "%s needs %s, which is not installed (in Debian the package %s)", what,
                  library, package);
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_state_internal, text);
    return ZX_STATUS_INVALID_ARGUMENT;
}

zx_status_t zx_audio_util_refuse_left_out(const char *option) {
    char text[64];
    std::snprintf(text, sizeof(text), "built without %s", option);
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_state_internal, text);
    return ZX_STATUS_INVALID_ARGUMENT;
}
