// The engine object and the steps of the diarization pipeline behind the public functions of zx_parley.h.
#ifndef ZX_PARLEY_INTERNAL_H
#define ZX_PARLEY_INTERNAL_H

#include <cstdint>

#include "zx_base.h"
#include "zx_filterbank.h"
#include "zx_memory.h"
#include "zx_parley.h"
#include "zx_parley_classifier.h"
#include "zx_parley_cluster.h"
#include "zx_parley_param.h"

inline constexpr int32_t ZX_PARLEY_FRAME_LENGTH = 512;  // samples; one embedding and one tag each (32 ms)
inline constexpr int32_t ZX_PARLEY_HOP_LENGTH = 256;    // samples; one filterbank row each, two rows a frame
inline constexpr int32_t ZX_PARLEY_FRAME_SIZE = 2 * ZX_FILTERBANK_NUM_BANDS;  // feature values per frame

struct zx_parley_t {
    zx_memory_t *memory;
    zx_filterbank_t *filterbank;  // null when built without feature extraction
    zx_parley_param_t *param;
    zx_parley_classifier_t *classifier;
    zx_parley_cluster_t *cluster;
    int32_t num_tags;        // of the clustering run in progress, background included; -1 between runs
    int32_t *tag_frequency;  // num_tags counters of the run in progress, all zero; null between runs
};

// Builds an engine from loaded parameters, which it owns from then on, also when this fails:
// ZX_STATUS_INVALID_ARGUMENT for parts that do not fit together, ZX_STATUS_OUT_OF_MEMORY. Leaves messages. On
// failure *object is null.
[[nodiscard]] zx_status_t zx_parley_internal_init(zx_parley_param_t *param, bool with_feature_extraction,
                                                  zx_parley_t **object);

// 512 * num_frames > 0 samples to num_frames frames of 80 values: two filterbank rows each, before
// normalization. ZX_STATUS_OUT_OF_MEMORY.
[[nodiscard]] zx_status_t zx_parley_internal_features(zx_parley_t *object, const int16_t *pcm,
                                                      int32_t num_frames, int16_t *feature);

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
