// SPDX-License-Identifier: Apache-2.0
// The agglomerative pass of the clustering (zx_parley_cluster.h), on the priority queue of
// zx_parley_pair_heap.

#include <cstdint>

#include "zx_assert.h"
#include "zx_check_status.h"
#include "zx_heap.h"
#include "zx_kernels.h"
#include "zx_log.h"
#include "zx_math.h"
#include "zx_parley_cluster.h"
#include "zx_parley_pair_heap.h"

namespace {

// What the agglomeration knows of the clusters, by their places in the list at its start. Centroids are kept
// a second time, in groups of GROUP clusters whose values of one dimension lie side by side: then the
// distances of a cluster from a whole group are computed at once, each with its sum in order of the
// dimensions.
struct agglomeration {
    static constexpr int32_t GROUP = ZX_KERNELS_GROUP;
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

using agglomeration_ptr = zx_owned<agglomeration, agglomeration_delete>;

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
void compute_distances(const agglomeration *object, const float *centroid, int32_t first) {
    constexpr int32_t GROUP = agglomeration::GROUP;
    const int32_t place = first / GROUP * GROUP, num_groups = (object->num_clusters - place - 1) / GROUP + 1;
    zx_kernels()->loops->distances(object->dimension, num_groups, centroid,
                                   object->centroids + ptrdiff_t{place} * object->dimension,
                                   object->distances + place);
}

// Candidates are numbered so that the number alone tells what they stand for: first those made at the start,
// place a with place b as a n + b, then those of merge m, its survivor with place x, as (n + m) n + x.
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

// With n clusters there are n (n - 1) / 2 pairs at first and at most (n - 1)(n - 2) / 2 more, one with each
// other cluster after each merge: one array of n (n - 1) pairs holds them all, and their numbers are below 2
// n^2.
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
    const zx_owned<zx_parley_pair_heap_t, zx_parley_pair_heap_delete> heap(pairs);
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
