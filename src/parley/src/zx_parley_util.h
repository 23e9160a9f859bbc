// SPDX-License-Identifier: Apache-2.0
// Containers of the clustering: the frames of a cluster (vector), the clusters themselves (nodes in a doubly
// linked list, newest first) and the priority queue of pairs to merge (binary min-heap). Null pointers and
// bad sizes are assertion failures; running out of memory is ZX_STATUS_OUT_OF_MEMORY, reported through
// zx_check_status.
#ifndef ZX_PARLEY_UTIL_H
#define ZX_PARLEY_UTIL_H

#include <cstdint>

#include "zx_base.h"

// ---- Frame indices in the order they were added.

struct zx_parley_vector_t {
    int32_t capacity;
    int32_t size;
    uint32_t *data;
};

// Creates an empty vector with room for `capacity` > 0 indices; *object is null on failure.
[[nodiscard]] zx_status_t zx_parley_vector_init(int32_t capacity, zx_parley_vector_t **object);

// Appends one index; doubles the capacity when full. On failure the vector is unchanged.
[[nodiscard]] zx_status_t zx_parley_vector_insert(zx_parley_vector_t *object, uint32_t index);

// Appends all indices of `other`, which stays as it is. When they do not fit, the capacity becomes twice the
// new size. On failure the vector is unchanged.
[[nodiscard]] zx_status_t zx_parley_vector_merge(zx_parley_vector_t *object, const zx_parley_vector_t *other);

// Releases the vector; null is accepted.
void zx_parley_vector_delete(zx_parley_vector_t *object);

// ---- A cluster: one candidate speaker.

struct zx_parley_cluster_node_t {
    float *centroid;                 // owned; of unit length after every update
    float weight;                    // number of frames it stands for
    int32_t id;                      // >= 0, rising in order of creation within a run
    zx_parley_vector_t *frames;      // owned
    zx_parley_cluster_node_t *next;  // older neighbour in the list
    zx_parley_cluster_node_t *prev;  // newer neighbour
};

// Creates a node with a copy of `centroid` (`dimension` floats, taken as they are). It owns `frames` from
// then on; on failure `frames` stays with the caller and *object is null.
[[nodiscard]] zx_status_t zx_parley_cluster_node_init(const float *centroid, int32_t dimension, float weight,
                                                      int32_t id, zx_parley_vector_t *frames,
                                                      zx_parley_cluster_node_t **object);

// Releases the node with its frames; null is accepted.
void zx_parley_cluster_node_delete(zx_parley_cluster_node_t *object);

// Absorbs one observation of the given weight: weighted mean of the centroids, scaled to unit length;
// `frames` are appended and deleted in every case. Returns the status of the append.
[[nodiscard]] zx_status_t zx_parley_cluster_node_update(zx_parley_cluster_node_t *object,
                                                        const float *centroid, int32_t dimension,
                                                        float weight, zx_parley_vector_t *frames);

// centroid <- unit length of (centroid w + other w_other) / (w + w_other), with one fused multiply-add per
// element.
void zx_parley_cluster_average(float *centroid, float weight, const float *other, float other_weight,
                               int32_t dimension);

// ---- The list of clusters; it owns its nodes.

struct zx_parley_list_t {
    uint32_t size;
    zx_parley_cluster_node_t *head;  // the newest node
    zx_parley_cluster_node_t *tail;  // the oldest
};

// Creates an empty list; *object is null on failure.
[[nodiscard]] zx_status_t zx_parley_list_init(zx_parley_list_t **object);

// Puts a node at the head.
void zx_parley_list_insert(zx_parley_list_t *object, zx_parley_cluster_node_t *node);

// Unlinks and destroys a node of the list.
void zx_parley_list_remove(zx_parley_list_t *object, zx_parley_cluster_node_t *node);

// Destroys all nodes.
void zx_parley_list_reset(zx_parley_list_t *object);

// Destroys all nodes and the list; null is accepted.
void zx_parley_list_delete(zx_parley_list_t *object);

// ---- Min-heap of records whose first member is a float key. Records in the heap are owned by it. It defines
// the order of merges; the agglomeration itself uses zx_parley_pair_heap, which keeps that order in an eighth
// of the memory.

struct zx_parley_heap_t {
    uint32_t capacity;
    uint32_t size;
    void **nodes;  // capacity + 1 slots, used from 1; the children of slot i are 2 i and 2 i + 1
};

// Creates an empty heap; `capacity` >= 0 as a signed value. *object is null on failure.
[[nodiscard]] zx_status_t zx_parley_heap_init(uint32_t capacity, zx_parley_heap_t **object);

// Adds a heap-allocated record; doubles the capacity when full. On failure the caller keeps the record.
[[nodiscard]] zx_status_t zx_parley_heap_insert(zx_parley_heap_t *object, void *node);

// Doubles the capacity (to at least 1). On failure the heap is unchanged.
[[nodiscard]] zx_status_t zx_parley_heap_resize(zx_parley_heap_t *object);

// Takes the record in slot 1, which the caller then owns; null when the heap is empty. See bubble_down for
// the order.
[[nodiscard]] void *zx_parley_heap_pop(zx_parley_heap_t *object);

// 1 if the key of n1 is smaller, -1 if it is larger, 0 otherwise.
int32_t zx_parley_heap_compare(const void *n1, const void *n2);

// Moves the record in the last slot up, past parents with strictly larger keys.
void zx_parley_heap_bubble_up(zx_parley_heap_t *object);

// Moves the record in slot 1 down. The last occupied slot is not compared as a child. Trained thresholds are
// tuned to the merge order that follows from it, in which a record can be popped before a smaller one: keep
// it.
void zx_parley_heap_bubble_down(zx_parley_heap_t *object);

// Releases the heap and the records in it; null is accepted.
void zx_parley_heap_delete(zx_parley_heap_t *object);

#endif
