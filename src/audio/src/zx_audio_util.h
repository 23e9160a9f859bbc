// Down-mixing of stereo to mono. Inside a reader, "samples" are mono samples and "frames" hold one sample per
// channel; a stereo frame becomes one mono sample.
#ifndef ZX_AUDIO_UTIL_H
#define ZX_AUDIO_UTIL_H

#include <cstdint>

// output[i] = (input[2 i] + input[2 i + 1]) / 2, truncated towards zero, for output_buffer_length >= 0
// frames.
void zx_audio_util_stereo_to_mono_interleaved(int16_t *output_buffer, const int16_t *input_buffer,
                                              int32_t output_buffer_length);

// output[i] = (l[i] + r[i]) / 2 in single precision, for output_buffer_length >= 0 frames.
void zx_audio_util_stereo_to_mono_lr_float(float *output_buffer, const float *l_buffer, const float *r_buffer,
                                           int32_t output_buffer_length);

#endif
