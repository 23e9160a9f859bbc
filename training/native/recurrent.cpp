// SPDX-License-Identifier: Apache-2.0
// The recurrent layer for training: matrix products by BLAS, one call for all input projections and one per
// frame for the hidden ones, activations vectorised by the compiler.

#include <cblas.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "training.h"

namespace {

// Both directions of a layer run on a core each, so BLAS itself must not spawn threads.
const bool single_threaded = (openblas_set_num_threads(1), true);

void multiply(CBLAS_TRANSPOSE transpose_a, CBLAS_TRANSPOSE transpose_b, int32_t m, int32_t n, int32_t k,
              const float *a, const float *b, float beta, float *c) {
    cblas_sgemm(CblasRowMajor, transpose_a, transpose_b, m, n, k, 1.0f, a,
                transpose_a == CblasNoTrans ? k : m, b, transpose_b == CblasNoTrans ? n : k, beta, c, n);
}

// exp overflows beyond 88, and relaxed arithmetic makes a NaN of 1 / (1 + infinity); 20 is as good as
// saturated.
void clamp(float *__restrict values, int32_t count) {
    for (int32_t i = 0; i < count; i++) values[i] = std::min(20.0f, std::max(-20.0f, values[i]));
}

void sigmoid(float *__restrict values, int32_t count) {
#pragma omp simd
    for (int32_t i = 0; i < count; i++) values[i] = 1.0f / (1.0f + expf(-values[i]));
}

void hyperbolic_tangent(const float *values, float *result, int32_t count) {
#pragma omp simd
    for (int32_t i = 0; i < count; i++) result[i] = tanhf(values[i]);
}

}  // namespace

void training_recurrent_forward(int32_t frames, int32_t batch, int32_t inputs, int32_t units,
                                int32_t backwards, const float *x, const float *input_weights,
                                const float *hidden_weights, const float *bias, float *gates, float *cells,
                                float *outputs, float *cell_tanh) {
    const int64_t rows = int64_t{frames} * batch;
    const int64_t gate_step = int64_t{batch} * 3 * units, unit_step = int64_t{batch} * units;
    for (int64_t r = 0; r < rows; r++) {
        std::memcpy(gates + r * 3 * units, bias, sizeof(float) * 3 * static_cast<size_t>(units));
    }
    multiply(CblasNoTrans, CblasNoTrans, static_cast<int32_t>(rows), 3 * units, inputs, x, input_weights, 1,
             gates);
    for (int32_t step = 0; step < frames; step++) {
        const int64_t t = backwards ? frames - 1 - step : step;
        const int64_t before = backwards ? t + 1 : t - 1;
        float *gate = gates + t * gate_step;
        if (step > 0) {
            multiply(CblasNoTrans, CblasNoTrans, batch, 3 * units, units, outputs + before * unit_step,
                     hidden_weights, 1, gate);
        }
        for (int32_t b = 0; b < batch; b++) {
            float *const i = gate + int64_t{b} * 3 * units;
            float *const g = i + units;
            float *const o = g + units;
            const int64_t at = t * unit_step + int64_t{b} * units;
            float *__restrict const c = cells + at;
            float *__restrict const h = outputs + at;
            float *__restrict const tanh_c = cell_tanh + at;
            clamp(i, 3 * units);
            sigmoid(i, units);
            hyperbolic_tangent(g, g, units);
            sigmoid(o, units);
            if (step > 0) {
                const float *const old = cells + before * unit_step + int64_t{b} * units;
                for (int32_t j = 0; j < units; j++) c[j] = old[j] + i[j] * (g[j] - old[j]);
            } else {
                for (int32_t j = 0; j < units; j++) c[j] = i[j] * g[j];
            }
            hyperbolic_tangent(c, tanh_c, units);
            for (int32_t j = 0; j < units; j++) h[j] = o[j] * tanh_c[j];
        }
    }
}

void training_recurrent_backward(int32_t frames, int32_t batch, int32_t inputs, int32_t units,
                                 int32_t backwards, const float *x, const float *input_weights,
                                 const float *hidden_weights, float *gates, const float *cells,
                                 const float *outputs, const float *cell_tanh, const float *d_outputs,
                                 float *d_x, float *d_input_weights, float *d_hidden_weights, float *d_bias) {
    const int64_t rows = int64_t{frames} * batch;
    const int64_t gate_step = int64_t{batch} * 3 * units, unit_step = int64_t{batch} * units;
    // Gradients that reach a frame from the one after it, through the output and through the cell.
    const std::unique_ptr<float[]> d_hidden(new float[static_cast<size_t>(unit_step)]());
    const std::unique_ptr<float[]> d_cell(new float[static_cast<size_t>(unit_step)]());
    for (int32_t step = frames - 1; step >= 0; step--) {
        const int64_t t = backwards ? frames - 1 - step : step;
        const int64_t before = backwards ? t + 1 : t - 1;
        float *gate = gates + t * gate_step;
        for (int32_t b = 0; b < batch; b++) {
            float *__restrict const i = gate + int64_t{b} * 3 * units;
            float *__restrict const g = i + units;
            float *__restrict const o = g + units;
            const int64_t at = t * unit_step + int64_t{b} * units;
            const float *const tanh_c = cell_tanh + at;
            const float *const d_out = d_outputs + at;
            const float *const dh_next = d_hidden.get() + int64_t{b} * units;
            float *__restrict const dc = d_cell.get() + int64_t{b} * units;
            const float *const old = cells + before * unit_step + int64_t{b} * units;
            for (int32_t j = 0; j < units; j++) {
                const float dh = d_out[j] + dh_next[j];
                const float d = dc[j] + dh * o[j] * (1.0f - tanh_c[j] * tanh_c[j]);
                const float c_old = step > 0 ? old[j] : 0.0f;
                dc[j] = d * (1.0f - i[j]);
                o[j] = dh * tanh_c[j] * o[j] * (1.0f - o[j]);
                const float d_gate = d * (g[j] - c_old) * i[j] * (1.0f - i[j]);
                g[j] = d * i[j] * (1.0f - g[j] * g[j]);
                i[j] = d_gate;
            }
        }
        if (step > 0) {
            multiply(CblasNoTrans, CblasTrans, batch, units, 3 * units, gate, hidden_weights, 0,
                     d_hidden.get());
        }
    }
    const auto count = static_cast<int32_t>(rows);
    multiply(CblasTrans, CblasNoTrans, inputs, 3 * units, count, x, gates, 0, d_input_weights);
    // Frame t's hidden projection saw the output of the frame before it, in the direction of the layer.
    const float *const seen = backwards ? outputs + unit_step : outputs;
    const float *const by = backwards ? gates : gates + gate_step;
    multiply(CblasTrans, CblasNoTrans, units, 3 * units, count - batch, seen, by, 0, d_hidden_weights);
    std::fill(d_bias, d_bias + 3 * units, 0.0f);
    for (int64_t r = 0; r < rows; r++) {
        for (int32_t j = 0; j < 3 * units; j++) d_bias[j] += gates[r * 3 * units + j];
    }
    if (d_x) multiply(CblasNoTrans, CblasTrans, count, inputs, 3 * units, gates, input_weights, 0, d_x);
}

void training_reverberate(float *energies, int64_t rows, int32_t bands, const float *decay, const float *tail,
                          const float *texture) {
    const std::unique_ptr<float[]> ringing(new float[static_cast<size_t>(bands)]());
    for (int64_t r = 0; r < rows; r++) {
        for (int32_t b = 0; b < bands; b++) {
            const float direct = energies[r * bands + b];
            float &rest = ringing[static_cast<size_t>(b)];
            energies[r * bands + b] += tail[b] * rest * texture[r * bands + b];
            rest = decay[b] * (rest + direct);
        }
    }
}
