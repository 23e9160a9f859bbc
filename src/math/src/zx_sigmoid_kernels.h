// Sigmoid and tanh of many values, in one version per kind of processor. All give the same bits: they
// interpolate in ZX_SIGMOID_TABLE by the same integers.
//
// The plain version looks up results that were interpolated when the library was compiled, 32 KiB of them.
// The vector versions interpolate: for a value x in Q10, clamped to [-8192, 8128], with f its low 6 bits and
// low and high the entries on both sides, (low (64 - f) + high f) >> 6. AVX2 gathers each pair of entries
// from memory, AVX-512 holds the whole table in 8 registers and selects from them.
#ifndef ZX_SIGMOID_KERNELS_H
#define ZX_SIGMOID_KERNELS_H

#include <cstddef>
#include <cstdint>

// One version, for length >= 0 values; y may equal x.
struct zx_sigmoid_kernel_t {
    const char *name;
    bool (*is_supported)();
    void (*sigmoid)(int32_t length, const int16_t *x, int16_t *y);
    void (*tanh)(int32_t length, const int16_t *x, int16_t *y);
};

// All versions that this build knows, fastest first; the last one runs everywhere.
const zx_sigmoid_kernel_t *zx_sigmoid_kernels(size_t *count);

// The fastest version that this processor runs.
const zx_sigmoid_kernel_t *zx_sigmoid_best_kernel();

#endif
