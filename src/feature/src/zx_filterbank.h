// SPDX-License-Identifier: Apache-2.0
// The acoustic front end: each hop of raw 16-bit audio becomes one row of 40 logarithmic band energies in
// fixed point. Pre-emphasis, power spectrum (zx_stft), 40 triangular bands on the mel scale, base-10
// logarithm in Q10.
#ifndef ZX_FILTERBANK_H
#define ZX_FILTERBANK_H

#include <array>
#include <cstdint>

#include "zx_base.h"
#include "zx_memory.h"
#include "zx_stft.h"

inline constexpr int32_t ZX_FILTERBANK_NUM_BANDS = 40;

// FFT bins (31.25 Hz wide): band b rises from edge b to its peak at edge b + 1 and falls to edge b + 2.
inline constexpr std::array<int16_t, ZX_FILTERBANK_NUM_BANDS + 2> FILTERBANK_BAND_EDGES = {
    0,  1,  3,  5,  6,  8,  10, 12,  14,  17,  19,  22,  25,  28,  31,  34,  38,  41,  45,  50,  54,
    59, 64, 70, 76, 82, 89, 96, 103, 111, 120, 129, 138, 148, 159, 171, 183, 196, 210, 225, 240, 257};

struct zx_filterbank_t {
    zx_memory_t *memory;
    int32_t window_shift;        // samples per call (hop)
    int16_t preemphasis_sample;  // the last sample of the previous call
    zx_stft_t *stft;
};

// Creates a filterbank with a hop of window_shift >= 1 samples (the engine uses 256, 16 ms) and a history of
// silence. ZX_STATUS_OUT_OF_MEMORY leaves *object null.
[[nodiscard]] zx_status_t zx_filterbank_init(zx_memory_t *memory, int32_t window_shift,
                                             zx_filterbank_t **object);

// Releases the filterbank; null is accepted.
void zx_filterbank_delete(zx_filterbank_t *object);

// pcm: window_shift samples. y: 40 band energies, lowest band first, 1024 log10(energy / 2^30); -32768 for a
// band without energy. ZX_STATUS_OUT_OF_MEMORY leaves y untouched.
[[nodiscard]] zx_status_t zx_filterbank_compute(zx_filterbank_t *object, const int16_t *pcm, int16_t *y);

// Sets the history to silence, as after creation.
void zx_filterbank_reset(zx_filterbank_t *object);

// The steps around the spectrum: `pcm` becomes window_shift pre-emphasised samples; 257 powers become 40
// energies.
void zx_filterbank_preprocess(zx_filterbank_t *object, const int16_t *pcm, float *emphasised);
void zx_filterbank_postprocess(const float *power, int16_t *y);

// Saturating conversion, truncating towards zero.
int64_t zx_float_to_int64(float x);

#endif
