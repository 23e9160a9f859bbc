#include "zx_parley_cluster.h"

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <memory>

#include "zx_assert.h"
#include "zx_check_status.h"
#include "zx_file.h"
#include "zx_heap.h"
#include "zx_log.h"
#include "zx_math.h"

static_assert(offsetof(zx_parley_cluster_pair_t, distance) == 0, "the heap's key comes first");

namespace {

constexpr int32_t INITIAL_FRAMES = 100;      // capacity of a new cluster's frame vector
constexpr float MIN_SEGMENT_FRAMES = 15.0f;  // shorter clusters do not survive the first prune

using zx_vector_ptr = std::unique_ptr<zx_parley_vector_t, zx_deleter<zx_parley_vector_delete>>;
using zx_heap_of_pairs_ptr = std::unique_ptr<zx_parley_heap_t, zx_deleter<zx_parley_heap_delete>>;

}  // namespace

zx_status_t zx_parley_cluster_param_load(FILE *stream, zx_parley_cluster_param_t **param) {
    ZX_ASSERT(param);
    *param = nullptr;
    std::unique_ptr<zx_parley_cluster_param_t, zx_deleter<zx_parley_cluster_param_delete>> p(
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
    std::unique_ptr<zx_parley_cluster_t, zx_deleter<zx_parley_cluster_delete>> o(
        zx_heap_zeroed<zx_parley_cluster_t>());
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
                                      int32_t num_input, uint32_t *num_clusters, uint32_t *clusters) {
    ZX_ASSERT(object);
    ZX_ASSERT(input);
    ZX_ASSERT(dimension > 0);
    ZX_ASSERT(num_input > 0);
    ZX_ASSERT(num_clusters);
    ZX_ASSERT(clusters);
    zx_status_t status = zx_parley_cluster_segmentation(object, input, dimension, num_input);
    if (status == ZX_STATUS_SUCCESS) status = zx_parley_cluster_segmentation_prune(object, dimension);
    if (status == ZX_STATUS_SUCCESS) status = zx_parley_cluster_offline(object, dimension);
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
    const zx_parley_cluster_param_t *param = object->param;
    zx_parley_list_t *clusters = object->clusters;
    zx_status_t status = open_cluster(clusters, param->reference_centroid, dimension, -1);
    if (status != ZX_STATUS_SUCCESS) return status;
    zx_parley_cluster_node_t *background = clusters->head;

    for (int32_t i = 0; i < num_input; i++, input += dimension) {
        if (zx_parley_cluster_cosine_distance(dimension, background->centroid, input) <
            param->background_threshold) {
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

zx_status_t insert_pair(zx_parley_heap_t *heap, int32_t dimension, zx_parley_cluster_node_t *a,
                        zx_parley_cluster_node_t *b) {
    zx_heap_ptr<zx_parley_cluster_pair_t> pair(zx_heap_zeroed<zx_parley_cluster_pair_t>());
    if (!pair) return zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);
    *pair = {
        .distance = zx_parley_cluster_cosine_distance(dimension, a->centroid, b->centroid),
        .id_a = a->id,
        .weight_a = a->weight,
        .id_b = b->id,
        .weight_b = b->weight,
        .a = a,
        .b = b,
    };
    const zx_status_t status = zx_parley_heap_insert(heap, pair.get());
    if (status != ZX_STATUS_SUCCESS) return zx_check_status(__FILE__, __LINE__, status);
    (void) pair.release();  // the heap owns it now
    return ZX_STATUS_SUCCESS;
}

}  // namespace

zx_status_t zx_parley_cluster_offline(zx_parley_cluster_t *object, int32_t dimension) {
    ZX_ASSERT(object);
    ZX_ASSERT(dimension > 0);
    zx_parley_list_t *clusters = object->clusters;

    // Room for twice the initial pairs. A heap counts to 2^31: more could not be held in memory anyway.
    const uint64_t capacity = uint64_t{clusters->size} * (clusters->size - 1);
    if (capacity > INT32_MAX) return zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);
    zx_parley_heap_t *pairs = nullptr;
    zx_status_t status = zx_parley_heap_init(static_cast<uint32_t>(capacity), &pairs);
    if (status != ZX_STATUS_SUCCESS) return zx_check_status(__FILE__, __LINE__, status);
    const zx_heap_of_pairs_ptr heap(pairs);
    for (zx_parley_cluster_node_t *a = clusters->head; a; a = a->next) {
        for (zx_parley_cluster_node_t *b = a->next; b; b = b->next) {
            status = insert_pair(heap.get(), dimension, a, b);
            if (status != ZX_STATUS_SUCCESS) return status;
        }
    }

    // Which ids have been merged away. Ids rise with creation, so the newest node has the largest.
    const zx_heap_ptr<bool> is_removed(zx_heap_zeroed<bool>(static_cast<size_t>(clusters->head->id) + 1));
    if (!is_removed) return ZX_STATUS_OUT_OF_MEMORY;

    while (clusters->size >= 2) {
        const zx_heap_ptr<zx_parley_cluster_pair_t> pair(
            static_cast<zx_parley_cluster_pair_t *>(zx_parley_heap_pop(heap.get())));
        if (!pair) {
            zx_log("[DEBUG] heap is empty\n");
            break;
        }
        // A removed node no longer exists: its id is all that may be looked at.
        if (is_removed.get()[pair->id_a] || is_removed.get()[pair->id_b]) continue;
        if (pair->weight_a != pair->a->weight || pair->weight_b != pair->b->weight) continue;
        if (pair->distance > object->param->offline_threshold) break;

        zx_parley_cluster_node_t *survivor = pair->id_a < pair->id_b ? pair->a : pair->b;
        zx_parley_cluster_node_t *absorbed = survivor == pair->a ? pair->b : pair->a;
        status = zx_parley_cluster_merge(dimension, survivor, absorbed);
        if (status != ZX_STATUS_SUCCESS) return status;
        is_removed.get()[absorbed->id] = true;
        zx_parley_list_remove(clusters, absorbed);
        for (zx_parley_cluster_node_t *x = clusters->head; x; x = x->next) {
            if (x == survivor) continue;
            status = insert_pair(heap.get(), dimension, survivor, x);
            if (status != ZX_STATUS_SUCCESS) return status;
        }
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
