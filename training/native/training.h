// SPDX-License-Identifier: Apache-2.0
// The recurrent layer of training and what its simulation cannot do fast enough itself, as plain C functions
// for its Python side (parley_training/native.py declares them again). What the engine computes comes from
// parley_stages.h, which the same library holds.
#ifndef PARLEY_TRAINING_H
#define PARLEY_TRAINING_H

#include <cstdint>

#define TRAINING_API __attribute__((visibility("default")))

extern "C" {

// Adds reverberation to band energies (rows x bands, in place): what a row adds to the rows after it falls by
// decay[b] a row and starts at tail[b] of its energy. `texture` (same shape) makes the tail fluctuate.
TRAINING_API void training_reverberate(float *energies, int64_t rows, int32_t bands, const float *decay,
                                       const float *tail, const float *texture);

// ---- The recurrent layer in floating point, one direction

// Shapes, row-major: x frames x batch x inputs; gates frames x batch x 3 units (input, candidate, output
// gate, after their activations); cells, outputs and cell_tanh frames x batch x units; input_weights inputs x
// 3 units; hidden_weights units x 3 units; bias 3 units. `backwards` runs from the last frame to the first.
//
//   i = sigmoid(..)  g = tanh(..)  o = sigmoid(..)   c' = i g + (1 - i) c   h = o tanh(c')
TRAINING_API void training_recurrent_forward(int32_t frames, int32_t batch, int32_t inputs, int32_t units,
                                             int32_t backwards, const float *x, const float *input_weights,
                                             const float *hidden_weights, const float *bias, float *gates,
                                             float *cells, float *outputs, float *cell_tanh);

// The gradient of the same: from d_outputs to d_x (null if not wanted), d_input_weights, d_hidden_weights and
// d_bias, all overwritten. `gates` is overwritten with the gradient before the activations.
TRAINING_API void training_recurrent_backward(int32_t frames, int32_t batch, int32_t inputs, int32_t units,
                                              int32_t backwards, const float *x, const float *input_weights,
                                              const float *hidden_weights, float *gates, const float *cells,
                                              const float *outputs, const float *cell_tanh,
                                              const float *d_outputs, float *d_x, float *d_input_weights,
                                              float *d_hidden_weights, float *d_bias);

}  // extern "C"

#endif
