// What the forms of a layer are called, for the table of all (zx_kernels.cpp). Which of them a build has,
// CMakeLists.txt says.
#ifndef ZX_FC_FORMS_H
#define ZX_FC_FORMS_H

#include <cstddef>
#include <cstdint>

#include "zx_fc.h"

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

// Whether AMX, on a processor that has it, gives what the plain form gives for a small layer.
bool zx_fc_amx_agrees();

#endif
