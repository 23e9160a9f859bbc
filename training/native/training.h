// What the training pipeline takes from the engine and from compiled code, as plain C functions for its
// Python side (parley_training/native.py declares them again).
//
// Functions that return int32_t return a zx_status_t. Buffers handed out through a pointer to a pointer are
// the caller's, to be released with training_free.
#ifndef PARLEY_TRAINING_H
#define PARLEY_TRAINING_H

#include <cstdint>

#define TRAINING_API __attribute__((visibility("default")))

extern "C" {

// ---- The front end

TRAINING_API void training_free(void *block);

// Reads an audio file of any supported format as mono samples at 16 kHz.
TRAINING_API int32_t training_read_audio(const char *path, int16_t **samples, int64_t *num_samples);

// Plays samples `speed` times as fast (0.5 < speed < 2), pitch and formants included, by converting their
// rate.
TRAINING_API int32_t training_change_speed(const int16_t *samples, int64_t num_samples, double speed,
                                           int16_t **result, int64_t *num_result);

// The filterbank's rows, before normalization: rows takes (num_samples / 256) * 40 values in Q10.
TRAINING_API int32_t training_features(const int16_t *samples, int64_t num_samples, int16_t *rows);

// Adds reverberation to band energies (rows x bands, in place): what a row adds to the rows after it falls by
// decay[b] a row and starts at tail[b] of its energy. `texture` (same shape) makes the tail fluctuate.
TRAINING_API void training_reverberate(float *energies, int64_t rows, int32_t bands, const float *decay,
                                       const float *tail, const float *texture);

// ---- An engine, opened up

struct training_engine;

TRAINING_API int32_t training_engine_open(const char *model_path, training_engine **engine);
TRAINING_API void training_engine_close(training_engine *engine);

// The size of the embedding, and the lengths in frames that the model names.
TRAINING_API int32_t training_engine_dimension(const training_engine *engine);

// Replaces the lengths of the model; warmup >= 1 and 3 * warmup < chunk.
TRAINING_API void training_engine_set_chunks(training_engine *engine, int32_t chunk, int32_t warmup);

// Rows of training_features (two a frame) to num_frames unit embeddings.
TRAINING_API int32_t training_engine_embed(training_engine *engine, const int16_t *rows, int32_t num_frames,
                                           float *embeddings);

// Embeddings to one tag per frame, with thresholds offline, prune, segment, background instead of the
// model's.
TRAINING_API int32_t training_engine_cluster(training_engine *engine, const float *embeddings,
                                             int32_t num_frames, const float *thresholds, uint32_t *tags);

// Tags to segments as the tool writes them to RTTM: `segments` takes up to num_frames pairs of seconds,
// `speakers` as many tags. The number of segments goes to *num_segments.
TRAINING_API int32_t training_engine_segment(training_engine *engine, const uint32_t *tags,
                                             int32_t num_frames, double *segments, int32_t *speakers,
                                             int32_t *num_segments);

// ---- Scoring

// Times are pairs (start, end) in seconds, speakers numbers. result: speech, missed, false alarm, confusion
// (seconds), speakers there, speakers found.
TRAINING_API void training_score(int32_t num_reference, const double *reference_times,
                                 const int32_t *reference_speakers, int32_t num_hypothesis,
                                 const double *hypothesis_times, const int32_t *hypothesis_speakers,
                                 double collar, int32_t skip_overlap, double *result);

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
