// SPDX-License-Identifier: Apache-2.0
// Per-band mean removal and scaling of Q10 feature rows, with statistics from the model file.
//
// Block in the model file: dimension D (int32, >= 1), mean (D x int16, Q10), scale (D x int16, Q10).
#ifndef ZX_NORMALIZATION_H
#define ZX_NORMALIZATION_H

#include <cstdint>
#include <cstdio>

#include "zx_base.h"

struct zx_normalization_param_t {
    int32_t dimension;
    int16_t *mean;   // Q10
    int16_t *scale;  // Q10, typically the inverse standard deviation
};

// Reads the block at the file's position. ZX_STATUS_INVALID_ARGUMENT: dimension below 1; ZX_STATUS_IO_ERROR:
// short read; ZX_STATUS_OUT_OF_MEMORY. On failure *param is null. The caller owns *param.
[[nodiscard]] zx_status_t zx_normalization_param_load(FILE *file, zx_normalization_param_t **param);

// Releases the block; null is accepted.
void zx_normalization_param_delete(zx_normalization_param_t *param);

// y[t][d] = saturate16((scale[d] (x[t][d] - mean[d])) >> 10) for num_frames > 0 rows of D values; y may equal
// x.
void zx_normalization_process(const zx_normalization_param_t *param, const int16_t *x, int16_t *y,
                              int32_t num_frames);

#endif
