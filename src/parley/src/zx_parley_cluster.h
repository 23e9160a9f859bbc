// SPDX-License-Identifier: Apache-2.0
// Clustering: turns one embedding per frame into one speaker tag per frame, in four passes over a list of
// clusters.
//
//   segmentation     one pass in frame order: a frame joins the background, the current cluster, or opens a
//                    new one
//   first prune      clusters of fewer than 15 frames go to the background
//   agglomeration    the closest pair merges until it is farther apart than the offline threshold
//   final prune      clusters below a size that grows with the input join their nearest cluster or the
//                    background
//
// The background cluster stands for "no speaker": it is seeded with a reference vector of the model, is the
// oldest node of the list (its tail) throughout, and its frames get tag 0. Distances are (1 - x y) / 2 of
// unit vectors.
//
// Block in the model file: offline_threshold, prune_threshold, segment_threshold, background_threshold
// (float), count (int32, >= 1; at least the embedding size), reference_centroid (count x float, unit length).
#ifndef ZX_PARLEY_CLUSTER_H
#define ZX_PARLEY_CLUSTER_H

#include <cstdint>
#include <cstdio>

#include "zx_base.h"
#include "zx_parley_util.h"
#include "zx_progress.h"

struct zx_parley_cluster_param_t {
    float *reference_centroid;
    int32_t count;
    float offline_threshold;     // largest distance at which two clusters merge
    float prune_threshold;       // a small cluster joins its nearest one below this distance
    float segment_threshold;     // a frame joins the current cluster below this distance
    float background_threshold;  // a frame joins the background below this distance
};

struct zx_parley_cluster_t {
    const zx_parley_cluster_param_t *param;  // borrowed
    zx_parley_list_t *clusters;              // empty between runs
};

// Reads the block at the file's position. ZX_STATUS_INVALID_ARGUMENT: count below 1; ZX_STATUS_IO_ERROR:
// short read; ZX_STATUS_OUT_OF_MEMORY. On failure *param is null. The caller owns *param.
[[nodiscard]] zx_status_t zx_parley_cluster_param_load(FILE *stream, zx_parley_cluster_param_t **param);

// Releases the block; null is accepted.
void zx_parley_cluster_param_delete(zx_parley_cluster_param_t *param);

// Names the first value that clustering of `dimension` floats per frame cannot work with, a constant string,
// or null: thresholds and the used part of the reference must be finite, its squared length too, and it must
// be long enough.
const char *zx_parley_cluster_param_inconsistency(const zx_parley_cluster_param_t *param, int32_t dimension);

// Creates a clustering object that borrows `param`. ZX_STATUS_OUT_OF_MEMORY leaves *object null.
[[nodiscard]] zx_status_t zx_parley_cluster_init(const zx_parley_cluster_param_t *param,
                                                 zx_parley_cluster_t **object);

// Releases the object; null is accepted.
void zx_parley_cluster_delete(zx_parley_cluster_t *object);

// input: num_input > 0 embeddings of `dimension` > 0 floats of unit length. clusters: num_input tags, 0 for
// the background, 1, 2, ... for speakers in the order in which their clusters were opened. num_clusters: the
// number of tags, background included. ZX_STATUS_OUT_OF_MEMORY; ZX_STATUS_STOP_ITERATION if `progress` asks
// to stop.
[[nodiscard]] zx_status_t zx_parley_cluster_process(zx_parley_cluster_t *object, const float *input,
                                                    int32_t dimension, int32_t num_input,
                                                    uint32_t *num_clusters, uint32_t *clusters,
                                                    const zx_progress_t *progress = nullptr);

// The four passes and the output of zx_parley_cluster_process.
[[nodiscard]] zx_status_t zx_parley_cluster_segmentation(zx_parley_cluster_t *object, const float *input,
                                                         int32_t dimension, int32_t num_input);
// The first of them for embeddings that come in pieces, of frames from `first` on; and all that comes
// after it, or, with a status that is not ZX_STATUS_SUCCESS, the end of the run without a result.
[[nodiscard]] zx_status_t zx_parley_cluster_segmentation_begin(zx_parley_cluster_t *object,
                                                               int32_t dimension);
[[nodiscard]] zx_status_t zx_parley_cluster_segmentation_take(zx_parley_cluster_t *object, const float *input,
                                                              int32_t dimension, int32_t first,
                                                              int32_t num_input);
[[nodiscard]] zx_status_t zx_parley_cluster_finish(zx_parley_cluster_t *object, zx_status_t status,
                                                   int32_t dimension, int32_t num_input,
                                                   uint32_t *num_clusters, uint32_t *clusters,
                                                   const zx_progress_t *progress = nullptr);
[[nodiscard]] zx_status_t zx_parley_cluster_segmentation_prune(zx_parley_cluster_t *object,
                                                               int32_t dimension);
[[nodiscard]] zx_status_t zx_parley_cluster_offline(zx_parley_cluster_t *object, int32_t dimension,
                                                    const zx_progress_t *progress = nullptr);
[[nodiscard]] zx_status_t zx_parley_cluster_offline_prune(zx_parley_cluster_t *object, int32_t num_frames,
                                                          int32_t dimension);
zx_status_t zx_cluster_generate_output(const zx_parley_cluster_t *object, uint32_t *clusters,
                                       uint32_t *num_clusters);

// The size in frames below which the final prune removes a cluster: 20 up to 80 frames of input, rising
// linearly to 60 at 2000.
int32_t zx_parley_cluster_adaptive_min_cluster_size(int32_t num_frames);

// (1 - x y) / 2 of two vectors of unit length: 0 for equal directions, 0.5 for orthogonal, 1 for opposite
// ones. Not clamped: rounding can carry it slightly past either end.
float zx_parley_cluster_cosine_distance(int32_t length, const float *x, const float *y);

// `object` absorbs centroid, frames and weight of `other`, which is neither unlinked nor freed. When the
// frames cannot be appended the centroid has already moved and the weight has not.
[[nodiscard]] zx_status_t zx_parley_cluster_merge(int32_t dimension, zx_parley_cluster_node_t *object,
                                                  const zx_parley_cluster_node_t *other);

#endif
