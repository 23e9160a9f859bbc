// SPDX-License-Identifier: Apache-2.0
// The kernels by name, for the table of all (zx_kernels.cpp). Which of them a build has, CMakeLists.txt says.
#ifndef ZX_KERNEL_FUNCTIONS_H
#define ZX_KERNEL_FUNCTIONS_H

#include <cstddef>
#include <cstdint>

#include "zx_fc_layer.h"
#include "zx_kernels.h"

extern const zx_loops_t ZX_LOOPS_PLAIN, ZX_LOOPS_AVX2, ZX_LOOPS_AVX512;

void zx_sigmoid_plain(int32_t count, const int16_t *x, int16_t *y);
void zx_tanh_plain(int32_t count, const int16_t *x, int16_t *y);
void zx_sigmoid_avx2(int32_t count, const int16_t *x, int16_t *y);
void zx_tanh_avx2(int32_t count, const int16_t *x, int16_t *y);
void zx_sigmoid_avx512(int32_t count, const int16_t *x, int16_t *y);
void zx_tanh_avx512(int32_t count, const int16_t *x, int16_t *y);
void zx_sigmoid_neon(int32_t count, const int16_t *x, int16_t *y);
void zx_tanh_neon(int32_t count, const int16_t *x, int16_t *y);

// The readable transform of 256 complex numbers: bit-reversed in, natural order out; sign -1: forward.
void zx_fft_complex_DIT_RN_generic(float *buffer, float sign);
void zx_transform_avx2(float *buffer, float sign);
void zx_transform_neon(float *buffer, float sign);

void zx_fc_layer_plain(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                       int16_t *y, ptrdiff_t y_stride);
void zx_fc_layer_avx2(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                      int16_t *y, ptrdiff_t y_stride);
void zx_fc_layer_vnni(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                      int16_t *y, ptrdiff_t y_stride);
void zx_fc_layer_neon(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                      int16_t *y, ptrdiff_t y_stride);
void zx_fc_layer_dotprod(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                         int16_t *y, ptrdiff_t y_stride);
void zx_fc_layer_wasm(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                      int16_t *y, ptrdiff_t y_stride);
void zx_fc_layer_amx(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                     int16_t *y, ptrdiff_t y_stride);

// Whether AMX, on a processor that has it, gives what the plain variant gives for a small layer.
bool zx_fc_amx_agrees();

#endif
