// SPDX-License-Identifier: Apache-2.0
// Recurrent layer in fixed point: a memory cell with an input gate i, a candidate g and an output gate o, and
// the forget gate tied to 1 - i. One call processes one frame.
//
//   (i, g, o) = (sigmoid, tanh, sigmoid)(W x + U h + b)        gates in Q15
//   c = i g + (1 - i) c        h = o tanh(c)                   state in Q10
//
// Block in the model file: the input projection (I to 3H), then the hidden projection (H to 3H), both as
// zx_fc blocks; their outputs are three runs of H: input gate, candidate, output gate.
#ifndef ZX_RNN_H
#define ZX_RNN_H

#include <cstdint>
#include <cstdio>

#include "zx_base.h"
#include "zx_fc.h"
#include "zx_memory.h"

struct zx_rnn_param_t {
    zx_fc_param_t *input_projection;
    zx_fc_param_t *hidden_projection;
};

struct zx_rnn_t {
    zx_memory_t *memory;
    const zx_rnn_param_t *param;  // borrowed
    int16_t *hidden_state;        // h, H values, Q10
    int16_t *cell_state;          // c, H values, Q10
    zx_fc_t *input_projection;
    zx_fc_t *hidden_projection;
};

// Reads the block at the file's position; fails as zx_fc_param_load does. The two dimensions are not
// compared. On failure *param is null. The caller owns *param.
[[nodiscard]] zx_status_t zx_rnn_param_load(FILE *file, zx_rnn_param_t **param);

// Releases the block; null is accepted.
void zx_rnn_param_delete(zx_rnn_param_t *param);

// The hidden size H.
int32_t zx_rnn_param_hidden_size(const zx_rnn_param_t *param);

// Creates a layer with zero state that borrows `param`. ZX_STATUS_OUT_OF_MEMORY leaves *object null.
[[nodiscard]] zx_status_t zx_rnn_init(zx_memory_t *memory, const zx_rnn_param_t *param, zx_rnn_t **object);

// Releases the layer; null is accepted.
void zx_rnn_delete(zx_rnn_t *object);

// x: I values, y: H values (Q10); they must not overlap. ZX_STATUS_OUT_OF_MEMORY leaves y and the state
// untouched.
[[nodiscard]] zx_status_t zx_rnn_process(zx_rnn_t *object, const int16_t *x, int16_t *y);

// Sets the state to zero.
void zx_rnn_reset(zx_rnn_t *object);

// A run of frames and where its outputs go.
struct zx_rnn_sequence_t {
    const int16_t *x;    // num_frames x I values
    int16_t *y;          // num_frames x H values; not the memory of x
    int32_t num_frames;  // > 0
};

// Runs the layer over several sequences, each from zero state, and leaves its own state alone. The results
// are those of zx_rnn_process frame by frame; all frames' input projections and all sequences' steps being
// known, they are computed together, which is several times as fast. Forwards in time outputs are stored;
// backwards, from the last frame to the first, they are added to what y holds, saturating at 16 bits.
// Sequences must come in falling order of num_frames.
// ZX_STATUS_OUT_OF_MEMORY leaves some outputs.
enum class zx_rnn_direction { forward, backward };
[[nodiscard]] zx_status_t zx_rnn_process_sequences(const zx_rnn_t *object, zx_rnn_direction direction,
                                                   int32_t num_sequences, const zx_rnn_sequence_t *sequences);

#endif
