// SPDX-License-Identifier: Apache-2.0
// The hot functions of the engine in one table for each kind of processor, and the choice among them.
//
// A variant is a row of functions that compute the same as the plain variant, to the last bit. What a
// compiler makes vector code of by itself is written once, in zx_loops.h, and compiled once for each variant
// with its own flags; what it does not is written for the processor. Both lie in folders of their own, x86/,
// arm/ and wasm/; nothing else knows of a processor.
#ifndef ZX_KERNELS_H
#define ZX_KERNELS_H

#include <cstddef>
#include <cstdint>

struct zx_fc_t;

// Centroids whose values of one dimension lie side by side, so that their sums are computed together.
inline constexpr int32_t ZX_KERNELS_GROUP = 16;

// Loops in plain C++. Counts are >= 0, and in- and outputs lie apart unless said otherwise. Floating
// point runs in index order by fused multiply-add.
struct zx_loops_t {
    // c = i g + (1 - i) c for the cells of a recurrent layer: gates Q15, state Q10, rounded and saturated
    // once.
    void (*update_cell)(int32_t count, const int16_t *input_gate, const int16_t *candidate, int16_t *cell);
    // h = o tanh(c): gate and y (which holds tanh(c) and becomes h) Q15, h Q10.
    void (*gate_output)(int32_t count, const int16_t *gate, int16_t *y);
    // y += x, saturating.
    void (*add)(int32_t count, const int16_t *x, int16_t *y);
    // y = (x - mean) scale, Q10, saturating, for rows of `dimension` values; y may equal x.
    void (*normalize_rows)(int32_t dimension, int32_t num_rows, const int16_t *mean, const int16_t *scale,
                           const int16_t *x, int16_t *y);

    // x[i] - 0.97 x[i - 1] for count > 0 samples, of which `previous` came before.
    void (*preemphasize)(int32_t count, int16_t previous, const int16_t *x, float *y);
    // The spectrum of 512 real numbers, scaled and from bin 0 to 256, out of the transform of their 256
    // pairs; sines[k] = sin(2 pi k / 512), k = 0 .. 383.
    void (*separate_pairs)(const float *sines, const float *pairs, float *spectrum);
    // re^2 + im^2 of each bin.
    void (*power)(int32_t num_bins, const float *spectrum, float *y);
    // Energies of triangular bands, of which band b rises from bin edges[b] to edges[b + 1] and falls to
    // edges[b + 2], by rising[b] and falling[b] from bin to bin.
    void (*weigh_bands)(int32_t num_bands, const int16_t *edges, const float *rising, const float *falling,
                        const float *power, float *y);

    // sum x y, exact.
    int64_t (*dot)(int32_t count, const int16_t *x, const int16_t *y);
    // sum x y.
    float (*dot_float)(int32_t count, const float *x, const float *y);
    // c = (c w + o v) / (w + v), of a centroid of weight w and another of weight v.
    void (*average)(int32_t count, float *centroid, float weight, const float *other, float other_weight);
    // sums += x for each row x in turn.
    void (*sum_up)(int32_t dimension, int32_t num_rows, const float *const *rows, float *sums);
    // (1 - x c) / 2 for each centroid c. These lie in groups of ZX_KERNELS_GROUP.
    void (*distances)(int32_t dimension, int32_t num_groups, const float *x, const float *centroids,
                      float *y);
    // The same of one centroid and num_rows > 0 rows, one after the other.
    void (*distances_of_rows)(int32_t dimension, int32_t num_rows, const float *rows, const float *centroid,
                              float *y);
    // x c for each row x and each centroid c, lying as above: no fused multiply-add, sums and products are
    // rounded each. Row by row.
    void (*products)(int32_t dimension, int32_t num_rows, const float *const *rows, int32_t num_groups,
                     const float *centroids, float *y);

    // y[j] = sum_k x[2 order + j - k] taps[k], k = 0 .. 2 order, truncated to 16 bits with saturation.
    void (*filter)(int32_t num_outputs, int32_t order, const int16_t *x, const float *taps, int16_t *y);
    // (left + right) / 2 of interleaved samples, truncated towards zero, and of channels that lie apart.
    void (*mix)(int32_t count, const int16_t *stereo, int16_t *y);
    void (*mix_float)(int32_t count, const float *left, const float *right, float *y);
};

// How a variant wants a layer's weights, see zx_fc_packing.h.
enum class zx_packing { none, pairs, columns, quads };

struct zx_kernels_t {
    const char *name;
    bool (*is_supported)();  // by this processor
    const zx_loops_t *loops;
    // Logistic function and tanh of count >= 0 values, see zx_math.h; y may equal x.
    void (*sigmoid)(int32_t count, const int16_t *x, int16_t *y);
    void (*tanh)(int32_t count, const int16_t *x, int16_t *y);
    // The transform of 256 complex numbers, see zx_fft_complex_DIT_RN.
    void (*transform)(float *buffer, float sign);
    // y[r] = W x[r] + b, or added to y[r], for num_rows > 0 rows, of which the next one lies x_stride and
    // y_stride values further on (either may be negative).
    void (*layer)(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride, int16_t *y,
                  ptrdiff_t y_stride);
    zx_packing packing;
};

// All variants that this build knows, fastest first; the last one is the plain variant, which runs
// everywhere.
const zx_kernels_t *zx_kernels_all(size_t *count);

// The fastest variant that this processor runs, chosen at the first call.
const zx_kernels_t *zx_kernels();

#endif
