// The arithmetic of fully connected layers for several rows of input at once, in one version per kind of
// processor.
// All versions give the same bits: sums of integers modulo 2^32 do not depend on their order.
//
// The plain version walks the weights as the model stores them, by zx_fc_process_generic, which says what is
// computed; compilers turn it into vector code of their own. The others read a packed copy: blocks of 16
// outputs, each with the 16 values at which its sums start (rounding and bias, Q17, 32 bits) and then, for
// four inputs at a time, 4 bytes for every output: w[i] w[i + 2] w[i + 1] w[i + 3]. The low bytes of its two
// 16-bit halves are the weights of the first pair of inputs and the high bytes those of the second, so that
// shifts alone make 16-bit weights of them, which is cheaper than the conversion of bytes. One vector
// instruction then multiplies a pair of inputs with the weights of 16 (or 8) outputs and adds each pair of
// products, sums never have to be added across a vector, and a load of weights serves several rows. Missing
// outputs and missing last inputs have zero weights.
#ifndef ZX_FC_KERNELS_H
#define ZX_FC_KERNELS_H

#include <cstddef>
#include <cstdint>

#include "zx_fc.h"

inline constexpr int32_t ZX_FC_BLOCK = 16;  // outputs
inline constexpr int32_t ZX_FC_GROUP = 4;   // inputs

// One version. `process` computes y[r] = W x[r] + b, or adds it to y[r], for num_rows > 0 rows, of which the
// next one lies x_stride and y_stride values further on (either may be negative).
struct zx_fc_kernel_t {
    const char *name;
    bool needs_packing;
    bool (*is_supported)();
    void (*process)(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride, int16_t *y,
                    ptrdiff_t y_stride);
};

// All versions that this build knows, fastest first; the last one runs everywhere.
const zx_fc_kernel_t *zx_fc_kernels(size_t *count);

// The fastest version that this processor runs.
const zx_fc_kernel_t *zx_fc_best_kernel();

// Sizes in bytes of the packed weights, and what they hold.
size_t zx_fc_packed_size(const zx_fc_param_t *param);
void zx_fc_pack(const zx_fc_param_t *param, int8_t *packed);

#endif
