// SPDX-License-Identifier: Apache-2.0
// The network: turns a run of feature frames into one speaker embedding of unit length per frame.
// Normalization, a stack of bidirectional recurrent layers whose two directions are added, a linear embedding
// layer, scaling to unit length. Long input is processed in overlapping chunks, so that recurrent state never
// runs further than a chunk.
//
// Block in the model file: the normalization block (dimension 40), num_layers L (int32, >= 1), L recurrent
// blocks of the forward direction, L of the backward direction, the embedding layer's block,
// chunk_length_frames K (int32,
// >= 1), warmup_length_frames W (int32, 1 to K; processing needs 3 W < K).
#ifndef ZX_PARLEY_CLASSIFIER_H
#define ZX_PARLEY_CLASSIFIER_H

#include <cstdint>
#include <cstdio>

#include "zx_base.h"
#include "zx_fc.h"
#include "zx_heap.h"
#include "zx_normalization.h"
#include "zx_progress.h"
#include "zx_rnn.h"

struct zx_parley_classifier_param_t {
    zx_fc_param_t *embedding;
    zx_normalization_param_t *normalization;
    zx_rnn_param_t **backward;  // num_layers blocks, layer 0 first
    zx_rnn_param_t **forward;
    int32_t num_layers;
    int32_t chunk_length_frames;
    int32_t warmup_length_frames;
};

struct zx_parley_classifier_t {
    const zx_parley_classifier_param_t *param;  // borrowed
    zx_fc_t *embedding;
    zx_rnn_t **backward;  // num_layers objects
    zx_rnn_t **forward;
};

// Reads the block at the file's position. ZX_STATUS_INVALID_ARGUMENT: a count out of range;
// ZX_STATUS_IO_ERROR: short read; ZX_STATUS_OUT_OF_MEMORY. On failure *param is null. The caller owns *param.
// That the dimensions fit together is not examined here: see zx_parley_classifier_param_inconsistency.
[[nodiscard]] zx_status_t zx_parley_classifier_param_load(FILE *file, zx_parley_classifier_param_t **param);

// Releases the block; null is accepted.
void zx_parley_classifier_param_delete(zx_parley_classifier_param_t *param);

// Names the first dimension that does not fit the others, a constant string, or null if all do. With
// `normalization_dimension` and `frame_size` values per row and frame of features: every layer's projections
// have 3 H outputs; layer 0 takes a frame and layer l + 1 what layer l gives; both directions are alike; H of
// layer 0 is the largest (the layers share a scratch row); the embedding layer takes what the last layer
// gives.
const char *zx_parley_classifier_param_inconsistency(const zx_parley_classifier_param_t *param,
                                                     int32_t normalization_dimension, int32_t frame_size);

// Creates a classifier that borrows `param`. ZX_STATUS_OUT_OF_MEMORY leaves *object null.
[[nodiscard]] zx_status_t zx_parley_classifier_init(const zx_parley_classifier_param_t *param,
                                                    zx_parley_classifier_t **object);

// Releases the classifier; null is accepted.
void zx_parley_classifier_delete(zx_parley_classifier_t *object);

// Normalizes num_frames > 0 rows of the normalization dimension in place (two rows per network frame).
void zx_parley_classifier_preprocess(const zx_parley_classifier_t *object, int16_t *feature,
                                     int32_t num_frames);

// Where rows of embeddings go that are not to be kept: num_rows of them from frame first_frame on.
struct zx_parley_rows_sink_t {
    zx_status_t (*take)(void *context, const float *rows, int32_t first_frame, int32_t num_rows);
    void *context;
};

// feature: num_frames > 0 frames of normalized Q10 values. d_vector: num_frames rows of E floats of unit
// length. Chunks go to num_workers > 0 threads, which changes no bit. Asserts 3 W < K and, through the
// inverse square root, that no embedding is all zeros. With a sink, d_vector needs room for the rows of
// zx_parley_classifier_rows_at_once only: it is given them a group of chunks after the other, in the
// order of the frames, computed on the caller's thread. A status of its ends the run.
// ZX_STATUS_OUT_OF_MEMORY; ZX_STATUS_STOP_ITERATION if `progress` asks to stop.
[[nodiscard]] zx_status_t zx_parley_classifier_process(const zx_parley_classifier_t *object,
                                                       const int16_t *feature, int32_t num_frames,
                                                       float *d_vector,
                                                       const zx_progress_t *progress = nullptr,
                                                       int32_t num_workers = 1,
                                                       const zx_parley_rows_sink_t *sink = nullptr);

// The same of all frames, from the end of the recording on: features are given back to the system as soon as
// they are not needed any more, so that they and the embeddings are never there at once.
[[nodiscard]] zx_status_t zx_parley_classifier_process_releasing(const zx_parley_classifier_t *object,
                                                                 zx_heap_ptr<int16_t> *feature,
                                                                 int32_t num_frames, float *d_vector,
                                                                 const zx_progress_t *progress,
                                                                 int32_t num_workers);

int32_t zx_parley_classifier_rows_at_once(const zx_parley_classifier_t *object, int32_t num_frames);

// The same for one chunk of at most K frames.
[[nodiscard]] zx_status_t zx_parley_classifier_internal_process_chunk(zx_parley_classifier_t *object,
                                                                      const int16_t *feature,
                                                                      int32_t num_frames, float *d_vector);

#endif
