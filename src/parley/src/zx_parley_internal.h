// SPDX-License-Identifier: Apache-2.0
// The engine object and the one pipeline: samples, features, embeddings, tags, segments. The public functions
// of zx_parley.h, and everything that needs more than they tell, go through it.
#ifndef ZX_PARLEY_INTERNAL_H
#define ZX_PARLEY_INTERNAL_H

#include <cstdint>

#include "zx_base.h"
#include "zx_filterbank.h"
#include "zx_heap.h"
#include "zx_memory.h"
#include "zx_parley.h"
#include "zx_parley_classifier.h"
#include "zx_parley_cluster.h"
#include "zx_parley_param.h"
#include "zx_progress.h"

inline constexpr int32_t ZX_PARLEY_FRAME_LENGTH = 512;  // samples; one embedding and one tag each (32 ms)
inline constexpr int32_t ZX_PARLEY_HOP_LENGTH = 256;    // samples; one filterbank row each, two rows a frame
inline constexpr int32_t ZX_PARLEY_FRAME_SIZE = 2 * ZX_FILTERBANK_NUM_BANDS;  // feature values per frame

struct zx_parley_t {
    zx_memory_t *memory;
    zx_filterbank_t *filterbank;  // null when built without feature extraction
    zx_parley_param_t *param;
    zx_parley_classifier_t *classifier;
    zx_parley_cluster_t *cluster;
    int32_t num_workers;     // threads on which features and embeddings are computed; 1 unless set otherwise
    int32_t num_tags;        // of the clustering run in progress, background included; -1 between runs
    int32_t *tag_frequency;  // num_tags counters of the run in progress, all zero; null between runs
};

// What takes the place of the model's thresholds in one run.
struct zx_parley_thresholds_t {
    float offline;
    float prune;
    float segment;
    float background;
};

// Samples of a recording: borrowed, or owned, and then released as soon as the features are there; or the
// features that they were made into as they were read. Of samples, features, embeddings and the priority
// queue of merges each is large for long audio.
struct zx_parley_samples_t {
    zx_heap_ptr<int16_t> own;
    const int16_t *pcm = nullptr;  // null where there are features, or no sample
    int32_t count = 0;
    double media_seconds = 0;  // how long the file's container says that the audio takes; 0 where it does not
    zx_heap_ptr<int16_t> feature;  // rows before normalization
};

// Is given the samples of a file in pieces, in their order.
struct zx_parley_listener_t {
    void (*hear)(void *context, const int16_t *pcm, int32_t num_samples);
    void *context;
};

enum class zx_parley_stage { decoding, features, embeddings, clustering };

// How a run tells how far it is: the share of a stage that is done, 0 to 1, at its begin, now and then, and
// at its end.
// False ends the run with ZX_STATUS_STOP_ITERATION.
struct zx_parley_progress_t {
    bool (*report)(void *context, zx_parley_stage stage, double done);
    void *context;
};

// Builds an engine from loaded parameters, which it owns from then on, also when this fails:
// ZX_STATUS_INVALID_ARGUMENT for parts that do not fit together, ZX_STATUS_OUT_OF_MEMORY. Leaves messages. On
// failure *object is null.
[[nodiscard]] zx_status_t zx_parley_internal_init(zx_parley_param_t *param, bool with_feature_extraction,
                                                  zx_parley_t **object);

// ---- The pipeline. Everything here leaves messages; ZX_STATUS_STOP_ITERATION means that `progress`, which
// may be null, asked to stop.

// Decodes a whole file. The reader's status when it cannot be opened, ZX_STATUS_IO_ERROR when it cannot be
// read, ZX_STATUS_OUT_OF_MEMORY. Of a file that promises more than `max_samples` samples nothing is decoded:
// `samples` then holds that count alone.
[[nodiscard]] zx_status_t zx_parley_internal_read(const char *audio_path, int64_t max_samples,
                                                  const zx_parley_progress_t *progress,
                                                  zx_parley_samples_t *samples);

// The same up to where the file cannot be read any further, which is no error.
[[nodiscard]] zx_status_t zx_parley_internal_read_part(const char *audio_path,
                                                       const zx_parley_progress_t *progress,
                                                       zx_parley_samples_t *samples);

// At least 512 samples to samples->feature, unless it is there; releases the samples.
// ZX_STATUS_INVALID_ARGUMENT, ZX_STATUS_INVALID_STATE (no feature extraction), ZX_STATUS_OUT_OF_MEMORY.
[[nodiscard]] zx_status_t zx_parley_internal_make_features(zx_parley_t *object, zx_parley_samples_t *samples,
                                                           const zx_parley_progress_t *progress);

// At least 512 samples to samples->count / 512 rows of embeddings; releases samples and features on the way.
// ZX_STATUS_INVALID_ARGUMENT, ZX_STATUS_INVALID_STATE (no feature extraction), ZX_STATUS_OUT_OF_MEMORY.
[[nodiscard]] zx_status_t zx_parley_internal_embed(zx_parley_t *object, zx_parley_samples_t *samples,
                                                   const zx_parley_progress_t *progress,
                                                   zx_heap_ptr<float> *d_vector);

// One tag for each of num_frames > 0 rows, with `thresholds` or, if null, the model's. `rows`: which rows of
// d_vector these are, rising; null: the first ones. ZX_STATUS_OUT_OF_MEMORY.
[[nodiscard]] zx_status_t zx_parley_internal_cluster(zx_parley_t *object, const float *d_vector,
                                                     const int32_t *rows, int32_t num_frames,
                                                     const zx_parley_thresholds_t *thresholds,
                                                     const zx_parley_progress_t *progress,
                                                     uint32_t *clusters);

// All of it on the caller's thread, samples or a file to segments, the caller's to free. Features are
// held whole (160 bytes a frame); the samples of a file and embeddings pass by in blocks.
[[nodiscard]] zx_status_t zx_parley_internal_run(zx_parley_t *object, const int16_t *pcm, int32_t num_samples,
                                                 int32_t *num_segments, zx_parley_segment_t **segments);
[[nodiscard]] zx_status_t zx_parley_internal_run_file(zx_parley_t *object, const char *audio_path,
                                                      int32_t *num_segments, zx_parley_segment_t **segments);

// ---- Its steps

// 512 * num_frames > 0 samples to num_frames frames of 80 values: two filterbank rows each, before
// normalization. ZX_STATUS_OUT_OF_MEMORY.
[[nodiscard]] zx_status_t zx_parley_internal_features(zx_parley_t *object, const int16_t *pcm,
                                                      int32_t num_frames, int16_t *feature,
                                                      const zx_progress_t *progress = nullptr);

// The features of a file, computed as its samples come, of which few are held; null where there is not a
// whole frame. `listener`, which may be null, hears the samples. Of a file that promises more than
// `max_samples` nothing is decoded. The statuses of zx_parley_internal_read and zx_parley_internal_features.
[[nodiscard]] zx_status_t zx_parley_internal_read_features(zx_parley_t *object, const char *audio_path,
                                                           int64_t max_samples,
                                                           const zx_parley_progress_t *progress,
                                                           const zx_parley_listener_t *listener,
                                                           zx_parley_samples_t *samples);

// Filterbank rows of num_frames > 0 frames, before normalization, to as many rows of embeddings.
// ZX_STATUS_OUT_OF_MEMORY.
[[nodiscard]] zx_status_t zx_parley_internal_embed_rows(zx_parley_t *object, const int16_t *rows,
                                                        int32_t num_frames, float *d_vector);

// Normalizes num_frames > 0 filterbank rows (two per network frame) in place.
void zx_parley_internal_preprocess(zx_parley_t *object, int16_t *feature, int32_t num_frames);

// Normalized features of num_frames network frames to one tag per frame. ZX_STATUS_OUT_OF_MEMORY, with a
// message.
[[nodiscard]] zx_status_t zx_parley_internal_process(zx_parley_t *object, const int16_t *feature,
                                                     int32_t num_frames, uint32_t *clusters);

// Turns runs of equal tags into segments, the caller's to free; *num_segments is 0 on entry. Without a tagged
// frame the array is null. ZX_STATUS_OUT_OF_MEMORY, with a message, leaves 0 and null.
[[nodiscard]] zx_status_t zx_parley_internal_segment(zx_parley_t *object, const uint32_t *clusters,
                                                     int32_t num_frames, int32_t *num_segments,
                                                     zx_parley_segment_t **segments);

// Forgets the clustering run in progress.
void zx_parley_internal_reset(zx_parley_t *object);

// Start of a frame in seconds, rounded to milliseconds in single precision.
float zx_parley_frame_to_sec(int32_t frame);

#endif
