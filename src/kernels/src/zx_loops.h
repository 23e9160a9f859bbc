// SPDX-License-Identifier: Apache-2.0
// The loops of zx_kernels.h, for the files that compile them: one for each variant, with flags of its own.
// All of it is local to the file that includes this, and calls nothing that the linker could take from
// another file: code for a newer processor must not end up in the plain variant.
#ifndef ZX_LOOPS_H
#define ZX_LOOPS_H

#include "zx_fma.h"
#include "zx_integer.h"
#include "zx_kernels.h"

namespace {  // NOLINT(cert-dcl59-cpp): a copy for each file is what is wanted

void update_cell(int32_t count, const int16_t *input_gate, const int16_t *candidate, int16_t *cell) {
    for (int32_t i = 0; i < count; i++) {
        // Q15 x Q15 = Q30 and Q10 x Q15 = Q25, both rounded to Q10 and added in 32 bits.
        const int16_t forget_gate = zx_sub_int16(INT16_MAX, input_gate[i]);
        const int32_t taken_up = (input_gate[i] * candidate[i] + (1 << 19)) >> 20;
        const int32_t kept = (cell[i] * forget_gate + (1 << 14)) >> 15;
        cell[i] = zx_int32_to_int16(taken_up + kept);
    }
}

void gate_output(int32_t count, const int16_t *gate, int16_t *y) {
    for (int32_t i = 0; i < count; i++) {
        y[i] = zx_int32_to_int16(zx_mult_shift_right_int32(gate[i], y[i], 20));
    }
}

void add(int32_t count, const int16_t *x, int16_t *y) {
    for (int32_t i = 0; i < count; i++) y[i] = zx_add_int16(y[i], x[i]);
}

void normalize_rows(int32_t dimension, int32_t num_rows, const int16_t *mean, const int16_t *scale,
                    const int16_t *x, int16_t *y) {
    for (int32_t r = 0; r < num_rows; r++, x += dimension, y += dimension) {
        for (int32_t d = 0; d < dimension; d++) y[d] = zx_int32_to_int16((scale[d] * (x[d] - mean[d])) >> 10);
    }
}

void preemphasize(int32_t count, int16_t previous, const int16_t *x, float *y) {
    constexpr float COEFFICIENT = -0.97f;
    y[0] = zx_fma(COEFFICIENT, static_cast<float>(previous), static_cast<float>(x[0]));
    for (int32_t i = 1; i < count; i++) {
        y[i] = zx_fma(COEFFICIENT, static_cast<float>(x[i - 1]), static_cast<float>(x[i]));
    }
}

// With Z the transform of the pairs, the spectrum of the real signal at bin k combines Z[k] and Z[256 -
// k]: their sum and difference are the spectra of the even and the odd samples.
void separate_pairs(const float *sines, const float *pairs, float *spectrum) {
    constexpr int32_t NUM_PAIRS = 256, QUARTER_PERIOD = 128;
    constexpr float SCALE = 1.0f / 512;
    spectrum[0] = (pairs[0] + pairs[1]) * SCALE;
    spectrum[1] = 0.0f;
    for (int32_t k = 1; k < NUM_PAIRS; k++) {
        const float re = pairs[2 * k], im = pairs[2 * k + 1];
        const float mirror_re = pairs[2 * (NUM_PAIRS - k)], mirror_im = pairs[2 * (NUM_PAIRS - k) + 1];
        const float sine = sines[k], cosine = sines[k + QUARTER_PERIOD];
        const float sum_re = re + mirror_re, sum_im = im + mirror_im;
        const float difference_re = mirror_re - re, difference_im = im - mirror_im;
        spectrum[2 * k] = zx_fma(sine, difference_re, zx_fma(cosine, sum_im, sum_re)) * SCALE;
        spectrum[2 * k + 1] = zx_fma(-sine, sum_im, zx_fma(cosine, difference_re, difference_im)) * SCALE;
    }
    spectrum[2 * NUM_PAIRS] = (pairs[0] - pairs[1]) * SCALE;
    spectrum[2 * NUM_PAIRS + 1] = 0.0f;
}

void power(int32_t num_bins, const float *spectrum, float *y) {
    for (int32_t k = 0; k < num_bins; k++) {
        const float re = spectrum[2 * k], im = spectrum[2 * k + 1];
        y[k] = zx_fma(re, re, im * im);
    }
}

void weigh_bands(int32_t num_bands, const int16_t *edges, const float *rising, const float *falling,
                 const float *power, float *y) {
    for (int32_t b = 0; b < num_bands; b++) {
        // The weights are reached by repeated addition and subtraction: models are trained on their rounding.
        float energy = 0.0f;
        float weight = 0.0f;
        for (int32_t k = edges[b]; k < edges[b + 1]; k++) {
            energy = zx_fma(power[k], weight, energy);
            weight += rising[b];
        }
        for (int32_t k = edges[b + 1]; k < edges[b + 2]; k++) {
            energy = zx_fma(power[k], weight, energy);
            weight -= falling[b];
        }
        y[b] = energy;
    }
}

int64_t dot(int32_t count, const int16_t *x, const int16_t *y) {
    int64_t sum = 0;
    for (int32_t i = 0; i < count; i++) sum += x[i] * y[i];
    return sum;
}

float dot_float(int32_t count, const float *x, const float *y) {
    float sum = 0.0f;
    for (int32_t i = 0; i < count; i++) sum = zx_fma(x[i], y[i], sum);
    return sum;
}

void average(int32_t count, float *centroid, float weight, const float *other, float other_weight) {
    const float sum = weight + other_weight;
    for (int32_t i = 0; i < count; i++) {
        centroid[i] = zx_fma(centroid[i], weight, other[i] * other_weight) / sum;
    }
}

// Four rows at once: what is added to a sum waits for memory each time.
void sum_up(int32_t dimension, int32_t num_rows, const float *const *rows, float *sums) {
    for (; num_rows >= 4; num_rows -= 4, rows += 4) {
        const float *x0 = rows[0], *x1 = rows[1], *x2 = rows[2], *x3 = rows[3];
        for (int32_t d = 0; d < dimension; d++) sums[d] = sums[d] + x0[d] + x1[d] + x2[d] + x3[d];
    }
    for (; num_rows > 0; num_rows--, rows++) {
        for (int32_t d = 0; d < dimension; d++) sums[d] += (*rows)[d];
    }
}

constexpr int32_t GROUP = ZX_KERNELS_GROUP;

void distances(int32_t dimension, int32_t num_groups, const float *x, const float *centroids, float *y) {
    for (int32_t g = 0; g < num_groups; g++, y += GROUP) {
        float sums[GROUP] = {};
        for (int32_t d = 0; d < dimension; d++, centroids += GROUP) {
            for (int32_t k = 0; k < GROUP; k++) sums[k] = zx_fma(x[d], centroids[k], sums[k]);
        }
        for (int32_t k = 0; k < GROUP; k++) y[k] = (1.0f - sums[k]) / 2.0f;
    }
}

// Four rows at once, as below.
void distances_of_rows(int32_t dimension, int32_t num_rows, const float *rows, const float *centroid,
                       float *y) {
    for (int32_t row = 0; row < num_rows; row += 4) {
        const float *x[4];
        for (int32_t k = 0; k < 4; k++) x[k] = rows + ptrdiff_t{std::min(row + k, num_rows - 1)} * dimension;
        float sums[4] = {};
        for (int32_t d = 0; d < dimension; d++)
            for (int32_t k = 0; k < 4; k++) sums[k] = zx_fma(x[k][d], centroid[d], sums[k]);
        for (int32_t k = 0; k < std::min(4, num_rows - row); k++) y[row + k] = (1.0f - sums[k]) / 2.0f;
    }
}

// Four rows at once: a sum waits for the one before, so that several have to be on the way. Where fewer are
// left, the last of them is computed more than once.
void products(int32_t dimension, int32_t num_rows, const float *const *rows, int32_t num_groups,
              const float *centroids, float *y) {
    const int32_t width = num_groups * GROUP;
    for (; num_rows > 0; num_rows -= 4, rows += 4, y += 4 * width) {
        const int32_t second = num_rows > 1 ? 1 : 0, third = num_rows > 2 ? 2 : second,
                      fourth = num_rows > 3 ? 3 : third;
        const float *x0 = rows[0], *x1 = rows[second], *x2 = rows[third], *x3 = rows[fourth], *c = centroids;
        for (int32_t g = 0; g < num_groups; g++) {
            float sums0[GROUP] = {}, sums1[GROUP] = {}, sums2[GROUP] = {}, sums3[GROUP] = {};
            for (int32_t d = 0; d < dimension; d++, c += GROUP) {
                for (int32_t k = 0; k < GROUP; k++) {
                    sums0[k] += x0[d] * c[k];
                    sums1[k] += x1[d] * c[k];
                    sums2[k] += x2[d] * c[k];
                    sums3[k] += x3[d] * c[k];
                }
            }
            float *to = y + g * GROUP;
            for (int32_t k = 0; k < GROUP; k++) {
                to[k] = sums0[k];
                to[second * width + k] = sums1[k];
                to[third * width + k] = sums2[k];
                to[fourth * width + k] = sums3[k];
            }
        }
    }
}

int16_t truncate(float x) {
    if (x >= 32767.0f) return INT16_MAX;
    if (x <= -32768.0f) return INT16_MIN;
    return static_cast<int16_t>(x);
}

// Neighbouring outputs are computed side by side, each in its own order of k, so that their sums fill vector
// registers.
void filter(int32_t num_outputs, int32_t order, const int16_t *x, const float *taps, int16_t *y) {
    constexpr int32_t WIDTH = 64, MAX_HISTORY = 512;
    const int32_t history = 2 * order;
    int32_t j = 0;
    for (; history <= MAX_HISTORY && j + WIDTH <= num_outputs; j += WIDTH) {
        float values[MAX_HISTORY + WIDTH];
        for (int32_t i = 0; i < history + WIDTH; i++) values[i] = static_cast<float>(x[j + i]);
        float sums[WIDTH] = {};
        for (int32_t k = 0; k <= history; k++) {
            const float *newest = values + history - k;
            const float tap = taps[k];
            for (int32_t b = 0; b < WIDTH; b++) sums[b] = zx_fma(newest[b], tap, sums[b]);
        }
        for (int32_t b = 0; b < WIDTH; b++) y[j + b] = truncate(sums[b]);
    }
    for (; j < num_outputs; j++) {
        const int16_t *newest = x + j + history;
        float sum = 0.0f;
        for (int32_t k = 0; k <= history; k++) sum = zx_fma(static_cast<float>(newest[-k]), taps[k], sum);
        y[j] = truncate(sum);
    }
}

void mix(int32_t count, const int16_t *stereo, int16_t *y) {
    for (int32_t i = 0; i < count; i++) y[i] = static_cast<int16_t>((stereo[2 * i] + stereo[2 * i + 1]) / 2);
}

void mix_float(int32_t count, const float *left, const float *right, float *y) {
    for (int32_t i = 0; i < count; i++) y[i] = (left[i] + right[i]) / 2.0f;
}

constexpr zx_loops_t LOOPS = {
    update_cell, gate_output,       add,      normalize_rows, preemphasize, separate_pairs,
    power,       weigh_bands,       dot,      dot_float,      average,      sum_up,
    distances,   distances_of_rows, products, filter,         mix,          mix_float};

}  // namespace

#endif
