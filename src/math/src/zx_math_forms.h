// What the forms of this module are called, for the table of all (nn/src/zx_kernels.cpp). Which of them a
// build has, CMakeLists.txt says.
#ifndef ZX_MATH_FORMS_H
#define ZX_MATH_FORMS_H

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

void zx_transform_avx2(float *buffer, float sign);
void zx_transform_neon(float *buffer, float sign);

#endif
