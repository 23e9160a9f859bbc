// SPDX-License-Identifier: Apache-2.0
#include "zx_parley_cluster.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <memory>

#include "zx_assert.h"
#include "zx_check_status.h"
#include "zx_file.h"
#include "zx_heap.h"
#include "zx_kernels.h"
#include "zx_math.h"

namespace {

constexpr int32_t INITIAL_FRAMES = 100;      // capacity of a new cluster's frame vector
constexpr float MIN_SEGMENT_FRAMES = 15.0f;  // shorter clusters do not survive the first prune
constexpr int32_t ROWS_AT_ONCE = 4;          // whose distances from the background are computed together

using zx_vector_ptr = zx_owned<zx_parley_vector_t, zx_parley_vector_delete>;

}  // namespace

zx_status_t zx_parley_cluster_param_load(FILE *stream, zx_parley_cluster_param_t **param) {
    ZX_ASSERT(param);
    *param = nullptr;
    zx_owned<zx_parley_cluster_param_t, zx_parley_cluster_param_delete> p(
        zx_heap_zeroed<zx_parley_cluster_param_t>());
    if (!p) return ZX_STATUS_OUT_OF_MEMORY;
    for (float *threshold :
         {&p->offline_threshold, &p->prune_threshold, &p->segment_threshold, &p->background_threshold}) {
        const zx_status_t status = zx_file_read_float(stream, threshold, 1);
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    zx_status_t status = zx_file_read_count(stream, &p->count);
    if (status != ZX_STATUS_SUCCESS) return status;
    p->reference_centroid = zx_heap_zeroed<float>(static_cast<size_t>(p->count));
    if (!p->reference_centroid) return ZX_STATUS_OUT_OF_MEMORY;
    status = zx_file_read_float(stream, p->reference_centroid, static_cast<size_t>(p->count));
    if (status != ZX_STATUS_SUCCESS) return status;
    *param = p.release();
    return ZX_STATUS_SUCCESS;
}

void zx_parley_cluster_param_delete(zx_parley_cluster_param_t *param) {
    if (!param) return;
    std::free(param->reference_centroid);
    std::free(param);
}

const char *zx_parley_cluster_param_inconsistency(const zx_parley_cluster_param_t *param, int32_t dimension) {
    if (!std::isfinite(param->offline_threshold)) return "offline threshold";
    if (!std::isfinite(param->prune_threshold)) return "prune threshold";
    if (!std::isfinite(param->segment_threshold)) return "segment threshold";
    if (!std::isfinite(param->background_threshold)) return "background threshold";
    if (param->count < dimension) return "length of the reference centroid";
    float squared_length = 0.0f;  // a value that is not finite makes it so too
    for (int32_t k = 0; k < dimension; k++) {
        squared_length += param->reference_centroid[k] * param->reference_centroid[k];
    }
    return std::isfinite(squared_length) ? nullptr : "reference centroid";
}

zx_status_t zx_parley_cluster_init(const zx_parley_cluster_param_t *param, zx_parley_cluster_t **object) {
    ZX_ASSERT(param);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<zx_parley_cluster_t, zx_parley_cluster_delete> o(zx_heap_zeroed<zx_parley_cluster_t>());
    if (!o) return zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);
    o->param = param;
    const zx_status_t status = zx_parley_list_init(&o->clusters);
    if (status != ZX_STATUS_SUCCESS) return status;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_parley_cluster_delete(zx_parley_cluster_t *object) {
    if (!object) return;
    zx_parley_list_delete(object->clusters);
    std::free(object);
}

zx_status_t zx_parley_cluster_process(zx_parley_cluster_t *object, const float *input, int32_t dimension,
                                      int32_t num_input, uint32_t *num_clusters, uint32_t *clusters,
                                      const zx_progress_t *progress) {
    ZX_ASSERT(object);
    ZX_ASSERT(input);
    ZX_ASSERT(dimension > 0);
    ZX_ASSERT(num_input > 0);
    ZX_ASSERT(num_clusters);
    ZX_ASSERT(clusters);
    const zx_status_t status = zx_parley_cluster_segmentation(object, input, dimension, num_input);
    return zx_parley_cluster_finish(object, status, dimension, num_input, num_clusters, clusters, progress);
}

zx_status_t zx_parley_cluster_finish(zx_parley_cluster_t *object, zx_status_t status, int32_t dimension,
                                     int32_t num_input, uint32_t *num_clusters, uint32_t *clusters,
                                     const zx_progress_t *progress) {
    ZX_ASSERT(object);
    if (status == ZX_STATUS_SUCCESS) status = zx_parley_cluster_segmentation_prune(object, dimension);
    if (status == ZX_STATUS_SUCCESS) status = zx_parley_cluster_offline(object, dimension, progress);
    if (status == ZX_STATUS_SUCCESS) status = zx_parley_cluster_offline_prune(object, num_input, dimension);
    if (status == ZX_STATUS_SUCCESS) status = zx_cluster_generate_output(object, clusters, num_clusters);
    zx_parley_list_reset(object->clusters);  // after a failure too: leftovers would take part in the next run
    return status == ZX_STATUS_SUCCESS ? status : zx_check_status(__FILE__, __LINE__, status);
}

namespace {

// Opens a cluster of weight 1 at the head of the list, with `frame` as its first member unless it is
// negative.
zx_status_t open_cluster(zx_parley_list_t *clusters, const float *centroid, int32_t dimension,
                         int32_t frame) {
    zx_parley_vector_t *vector = nullptr;
    zx_status_t status = zx_parley_vector_init(INITIAL_FRAMES, &vector);
    if (status != ZX_STATUS_SUCCESS) return status;
    zx_vector_ptr frames(vector);
    if (frame >= 0) {
        status = zx_parley_vector_insert(frames.get(), static_cast<uint32_t>(frame));
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    zx_parley_cluster_node_t *node = nullptr;
    status = zx_parley_cluster_node_init(centroid, dimension, 1.0f, static_cast<int32_t>(clusters->size),
                                         frames.get(), &node);
    if (status != ZX_STATUS_SUCCESS) return status;
    (void) frames.release();  // the node owns it now
    zx_parley_list_insert(clusters, node);
    return ZX_STATUS_SUCCESS;
}

zx_status_t extend_cluster(zx_parley_cluster_node_t *node, const float *embedding, int32_t dimension,
                           int32_t frame) {
    zx_parley_vector_t *vector = nullptr;
    zx_status_t status = zx_parley_vector_init(INITIAL_FRAMES, &vector);
    if (status != ZX_STATUS_SUCCESS) return status;
    zx_vector_ptr frames(vector);
    status = zx_parley_vector_insert(frames.get(), static_cast<uint32_t>(frame));
    if (status != ZX_STATUS_SUCCESS) return status;
    return zx_parley_cluster_node_update(node, embedding, dimension, 1.0f, frames.release());
}

// Moves a cluster's frames and weight to the background, whose centroid stays, and destroys the cluster.
zx_status_t send_to_background(zx_parley_list_t *clusters, zx_parley_cluster_node_t *node) {
    zx_parley_cluster_node_t *background = clusters->tail;
    const zx_status_t status = zx_parley_vector_merge(background->frames, node->frames);
    if (status != ZX_STATUS_SUCCESS) return zx_check_status(__FILE__, __LINE__, status);
    background->weight += node->weight;
    zx_parley_list_remove(clusters, node);
    return ZX_STATUS_SUCCESS;
}

}  // namespace

zx_status_t zx_parley_cluster_segmentation(zx_parley_cluster_t *object, const float *input, int32_t dimension,
                                           int32_t num_input) {
    ZX_ASSERT(object);
    ZX_ASSERT(input);
    ZX_ASSERT(dimension > 0);
    ZX_ASSERT(num_input > 0);
    const zx_status_t status = zx_parley_cluster_segmentation_begin(object, dimension);
    return status == ZX_STATUS_SUCCESS
               ? zx_parley_cluster_segmentation_take(object, input, dimension, 0, num_input)
               : status;
}

zx_status_t zx_parley_cluster_segmentation_begin(zx_parley_cluster_t *object, int32_t dimension) {
    ZX_ASSERT(object);
    ZX_ASSERT(dimension > 0);
    return open_cluster(object->clusters, object->param->reference_centroid, dimension, -1);
}

zx_status_t zx_parley_cluster_segmentation_take(zx_parley_cluster_t *object, const float *input,
                                                int32_t dimension, int32_t first, int32_t num_input) {
    ZX_ASSERT(object);
    ZX_ASSERT(input);
    ZX_ASSERT(dimension > 0);
    const zx_parley_cluster_param_t *param = object->param;
    zx_parley_list_t *clusters = object->clusters;
    zx_parley_cluster_node_t *background = clusters->tail;
    zx_status_t status = ZX_STATUS_SUCCESS;
    float from_background[ROWS_AT_ONCE];
    int32_t known = 0, row = 0;  // of these, and the frame's place among them
    for (int32_t i = first; i < first + num_input; i++, row++, input += dimension) {
        if (row == known) {
            // Before the first speaker the background moves from frame to frame.
            known = clusters->head == background ? 1 : std::min(ROWS_AT_ONCE, first + num_input - i);
            row = 0;
            zx_kernels()->loops->distances_of_rows(dimension, known, input, background->centroid,
                                                   from_background);
        }
        if (from_background[row] < param->background_threshold) {
            background->weight += 1.0f;  // the centroid stays
            status = zx_parley_vector_insert(background->frames, static_cast<uint32_t>(i));
        } else if (zx_parley_cluster_cosine_distance(dimension, clusters->head->centroid, input) <
                   param->segment_threshold) {
            // The current cluster is the newest one; before the first speaker that is the background, which
            // moves.
            status = extend_cluster(clusters->head, input, dimension, i);
        } else {
            status = open_cluster(clusters, input, dimension, i);
        }
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_parley_cluster_segmentation_prune(zx_parley_cluster_t *object, int32_t dimension) {
    ZX_ASSERT(object);
    ZX_ASSERT(dimension > 0);
    zx_parley_list_t *clusters = object->clusters;
    zx_parley_cluster_node_t *next = nullptr;
    for (zx_parley_cluster_node_t *node = clusters->head; node != clusters->tail; node = next) {
        next = node->next;
        if (node->weight >= MIN_SEGMENT_FRAMES) continue;
        const zx_status_t status = send_to_background(clusters, node);
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    return ZX_STATUS_SUCCESS;
}

namespace {

// The node other than `node` and the background that is nearest to it; the newer one of equals. Null if there
// is none.
zx_parley_cluster_node_t *find_nearest(const zx_parley_list_t *clusters, const zx_parley_cluster_node_t *node,
                                       int32_t dimension, float *distance) {
    zx_parley_cluster_node_t *nearest = nullptr;
    *distance = FLT_MAX;
    for (zx_parley_cluster_node_t *x = clusters->head; x != clusters->tail; x = x->next) {
        if (x->id == node->id) continue;
        const float d = zx_parley_cluster_cosine_distance(dimension, node->centroid, x->centroid);
        if (d < *distance) {
            *distance = d;
            nearest = x;
        }
    }
    return nearest;
}

}  // namespace

zx_status_t zx_parley_cluster_offline_prune(zx_parley_cluster_t *object, int32_t num_frames,
                                            int32_t dimension) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_frames > 0);
    ZX_ASSERT(dimension > 0);
    zx_parley_list_t *clusters = object->clusters;
    const float min_weight = static_cast<float>(zx_parley_cluster_adaptive_min_cluster_size(num_frames));
    zx_parley_cluster_node_t *next = nullptr;
    for (zx_parley_cluster_node_t *node = clusters->head; node != clusters->tail; node = next) {
        next = node->next;
        if (node->weight >= min_weight) continue;
        float distance;
        zx_parley_cluster_node_t *nearest = find_nearest(clusters, node, dimension, &distance);
        zx_status_t status;
        if (nearest && distance < object->param->prune_threshold) {
            status = zx_parley_cluster_merge(dimension, nearest, node);
            if (status == ZX_STATUS_SUCCESS) zx_parley_list_remove(clusters, node);
        } else {
            status = send_to_background(clusters, node);
        }
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_cluster_generate_output(const zx_parley_cluster_t *object, uint32_t *clusters,
                                       uint32_t *num_clusters) {
    ZX_ASSERT(object);
    ZX_ASSERT(clusters);
    ZX_ASSERT(num_clusters);
    uint32_t tag = 0;
    for (const zx_parley_cluster_node_t *node = object->clusters->tail; node; node = node->prev, tag++) {
        for (int32_t i = 0; i < node->frames->size; i++) clusters[node->frames->data[i]] = tag;
    }
    *num_clusters = tag;
    return ZX_STATUS_SUCCESS;
}

int32_t zx_parley_cluster_adaptive_min_cluster_size(int32_t num_frames) {
    if (num_frames < 80) return 20;
    if (num_frames > 2000) return 60;
    return 20 + (40 * (num_frames - 80)) / 1920;
}

float zx_parley_cluster_cosine_distance(int32_t length, const float *x, const float *y) {
    ZX_ASSERT(length > 0);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    return (1.0f - zx_cosine_similarity(length, x, y, 1)) / 2.0f;
}

zx_status_t zx_parley_cluster_merge(int32_t dimension, zx_parley_cluster_node_t *object,
                                    const zx_parley_cluster_node_t *other) {
    zx_parley_cluster_average(object->centroid, object->weight, other->centroid, other->weight, dimension);
    const zx_status_t status = zx_parley_vector_merge(object->frames, other->frames);
    if (status != ZX_STATUS_SUCCESS) return zx_check_status(__FILE__, __LINE__, status);
    object->weight += other->weight;
    return ZX_STATUS_SUCCESS;
}
