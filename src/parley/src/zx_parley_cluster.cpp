#include "zx_parley_cluster.h"

#include <cfloat>
#include <cmath>
#include <memory>

#include "zx_assert.h"
#include "zx_check_status.h"
#include "zx_file.h"
#include "zx_heap.h"
#include "zx_log.h"
#include "zx_math.h"
#include "zx_multiversion.h"
#include "zx_parley_pair_heap.h"

namespace {

constexpr int32_t INITIAL_FRAMES = 100;      // capacity of a new cluster's frame vector
constexpr float MIN_SEGMENT_FRAMES = 15.0f;  // shorter clusters do not survive the first prune

using zx_vector_ptr = std::unique_ptr<zx_parley_vector_t, zx_deleter<zx_parley_vector_delete>>;

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
                                      int32_t num_input, uint32_t *num_clusters, uint32_t *clusters,
                                      const zx_progress_t *progress) {
    ZX_ASSERT(object);
    ZX_ASSERT(input);
    ZX_ASSERT(dimension > 0);
    ZX_ASSERT(num_input > 0);
    ZX_ASSERT(num_clusters);
    ZX_ASSERT(clusters);
    zx_status_t status = zx_parley_cluster_segmentation(object, input, dimension, num_input);
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

// What the agglomeration knows of the clusters, by their places in the list at its start. Centroids are kept a second
// time, in groups of GROUP clusters whose values of one dimension lie side by side: then the distances of a cluster from
// a whole group are computed at once, each with its sum in order of the dimensions.
struct agglomeration {
    static constexpr int32_t GROUP = 16;
    int32_t dimension;
    int32_t num_clusters;
    zx_parley_cluster_node_t **nodes;  // null for those merged away
    int32_t *last_merge;               // the last merge that a cluster survived; -1 for none
    int32_t *survivors;                // of the merges, by their numbers
    int32_t num_merges;
    float *centroids;  // ceil(num_clusters / GROUP) x dimension x GROUP
    float *distances;  // room for a distance from every cluster, in whole groups
};

void agglomeration_delete(agglomeration *object) {
    if (!object) return;
    std::free(object->distances);
    std::free(object->centroids);
    std::free(object->survivors);
    std::free(object->last_merge);
    std::free(object->nodes);
    std::free(object);
}

using agglomeration_ptr = std::unique_ptr<agglomeration, zx_deleter<agglomeration_delete>>;

void copy_centroid(agglomeration *object, int32_t place) {
    const float *centroid = object->nodes[place]->centroid;
    float *to = object->centroids +
                static_cast<size_t>(place / agglomeration::GROUP * agglomeration::GROUP) *
                    static_cast<size_t>(object->dimension) +
                place % agglomeration::GROUP;
    for (int32_t d = 0; d < object->dimension; d++, to += agglomeration::GROUP) *to = centroid[d];
}

// Null for lack of memory.
agglomeration_ptr make_agglomeration(const zx_parley_list_t *clusters, int32_t dimension) {
    agglomeration_ptr o(zx_heap_zeroed<agglomeration>());
    if (!o) return nullptr;
    const size_t count = clusters->size;
    const size_t whole_groups = (count - 1) / agglomeration::GROUP + 1;
    o->dimension = dimension;
    o->num_clusters = static_cast<int32_t>(count);
    o->nodes = zx_heap_zeroed<zx_parley_cluster_node_t *>(count);
    o->last_merge = zx_heap_zeroed<int32_t>(count);
    o->survivors = zx_heap_zeroed<int32_t>(count);
    o->centroids =
        zx_heap_zeroed<float>(whole_groups * agglomeration::GROUP * static_cast<size_t>(dimension));
    o->distances = zx_heap_zeroed<float>(whole_groups * agglomeration::GROUP);
    if (!o->nodes || !o->last_merge || !o->survivors || !o->centroids || !o->distances) return nullptr;
    int32_t place = 0;
    for (zx_parley_cluster_node_t *node = clusters->head; node; node = node->next, place++) {
        o->nodes[place] = node;
        o->last_merge[place] = -1;
        copy_centroid(o.get(), place);
    }
    return o;
}

// The distances of a centroid from all clusters of the groups from that of `first` on, as
// zx_parley_cluster_cosine_distance gives them.
ZX_MULTIVERSION
void compute_distances(const agglomeration *object, const float *centroid, int32_t first) {
    constexpr int32_t GROUP = agglomeration::GROUP;
    const size_t dimension = static_cast<size_t>(object->dimension);
    for (int32_t place = first / GROUP * GROUP; place < object->num_clusters; place += GROUP) {
        const float *group = object->centroids + static_cast<size_t>(place) * dimension;
        float sums[GROUP] = {};
        for (size_t d = 0; d < dimension; d++, group += GROUP) {
            for (int32_t k = 0; k < GROUP; k++) sums[k] = zx_fma(centroid[d], group[k], sums[k]);
        }
        float *distances = object->distances + place;
        for (int32_t k = 0; k < GROUP; k++) distances[k] = (1.0f - sums[k]) / 2.0f;
    }
}

// Candidates are numbered so that the number alone tells what they stand for: first those made at the start, place a with
// place b as a n + b, then those of merge m, its survivor with place x, as (n + m) n + x.
void insert_pair(zx_parley_pair_heap_t *heap, const agglomeration *object, int32_t row, int32_t place) {
    const uint32_t number = static_cast<uint32_t>(row) * static_cast<uint32_t>(object->num_clusters) +
                            static_cast<uint32_t>(place);
    zx_parley_pair_heap_insert(heap, {object->distances[place], number});
}

// The places of a candidate, or false when it is stale: when either cluster has gone or has grown since.
bool find_pair(const agglomeration *object, uint32_t number, int32_t *a, int32_t *b) {
    const int32_t n = object->num_clusters;
    const int32_t row = static_cast<int32_t>(number / static_cast<uint32_t>(n));
    const int32_t merge =
        row < n ? -1 : row - n;  // before the first one, or the merge that made the candidate
    *a = merge < 0 ? row : object->survivors[merge];
    *b = static_cast<int32_t>(number % static_cast<uint32_t>(n));
    return object->nodes[*a] && object->nodes[*b] && object->last_merge[*a] == merge &&
           object->last_merge[*b] <= merge;
}

}  // namespace

// With n clusters there are n (n - 1) / 2 pairs at first and at most (n - 1)(n - 2) / 2 more, one with each other cluster
// after each merge: one array of n (n - 1) pairs holds them all, and their numbers are below 2 n^2.
zx_status_t zx_parley_cluster_offline(zx_parley_cluster_t *object, int32_t dimension,
                                      const zx_progress_t *progress) {
    ZX_ASSERT(object);
    ZX_ASSERT(dimension > 0);
    zx_parley_list_t *clusters = object->clusters;
    const uint64_t capacity = uint64_t{clusters->size} * (clusters->size - 1);
    if (capacity > INT32_MAX) return zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);
    static_assert((2ull * 46341 - 1) * 46341 <= UINT32_MAX && 46342ull * 46341 > INT32_MAX,
                  "numbers fit 32 bits");

    zx_parley_pair_heap_t *pairs = nullptr;
    zx_status_t status = zx_parley_pair_heap_init(static_cast<uint32_t>(capacity), &pairs);
    if (status != ZX_STATUS_SUCCESS) return zx_check_status(__FILE__, __LINE__, status);
    const std::unique_ptr<zx_parley_pair_heap_t, zx_deleter<zx_parley_pair_heap_delete>> heap(pairs);
    const agglomeration_ptr state = make_agglomeration(clusters, dimension);
    if (!state) return zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);
    const int32_t num_clusters = state->num_clusters;
    for (int32_t a = 0; a + 1 < num_clusters; a++) {
        compute_distances(state.get(), state->nodes[a]->centroid, a + 1);
        for (int32_t b = a + 1; b < num_clusters; b++) insert_pair(heap.get(), state.get(), a, b);
    }

    while (clusters->size >= 2) {
        zx_parley_pair_t pair;
        if (!zx_parley_pair_heap_pop(heap.get(), &pair)) {
            zx_log("[DEBUG] heap is empty\n");
            break;
        }
        int32_t a, b;
        if (!find_pair(state.get(), pair.number, &a, &b)) continue;
        if (pair.distance > object->param->offline_threshold) break;

        const int32_t survivor = state->nodes[a]->id < state->nodes[b]->id ? a : b;
        const int32_t absorbed = survivor == a ? b : a;
        status = zx_parley_cluster_merge(dimension, state->nodes[survivor], state->nodes[absorbed]);
        if (status != ZX_STATUS_SUCCESS) return status;
        zx_parley_list_remove(clusters, state->nodes[absorbed]);
        state->nodes[absorbed] = nullptr;
        const int32_t merge = state->num_merges++;
        state->survivors[merge] = survivor;
        state->last_merge[survivor] = merge;
        copy_centroid(state.get(), survivor);
        compute_distances(state.get(), state->nodes[survivor]->centroid, 0);
        for (int32_t x = 0; x < num_clusters; x++) {
            if (x != survivor && state->nodes[x])
                insert_pair(heap.get(), state.get(), num_clusters + merge, x);
        }
        if (!zx_progress_report(progress, merge, num_clusters)) return ZX_STATUS_STOP_ITERATION;
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
