// SPDX-License-Identifier: Apache-2.0
#include "zx_parley_util.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "zx_assert.h"
#include "zx_check_status.h"
#include "zx_heap.h"
#include "zx_kernels.h"
#include "zx_math.h"

namespace {

// Gives the vector room for `capacity` indices, which must not be less than it holds.
zx_status_t reserve(zx_parley_vector_t *object, int64_t capacity) {
    if (capacity > INT32_MAX) return zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);
    void *data = std::realloc(object->data, static_cast<size_t>(capacity) * sizeof(uint32_t));
    if (!data) return zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);
    object->data = static_cast<uint32_t *>(data);
    object->capacity = static_cast<int32_t>(capacity);
    return ZX_STATUS_SUCCESS;
}

}  // namespace

zx_status_t zx_parley_vector_init(int32_t capacity, zx_parley_vector_t **object) {
    ZX_ASSERT(capacity > 0);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_parley_vector_t *o = zx_heap_zeroed<zx_parley_vector_t>();
    if (!o) return zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);
    o->data = zx_heap_zeroed<uint32_t>(static_cast<size_t>(capacity));
    if (!o->data) return zx_check_status_free_all(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY, o, nullptr);
    o->capacity = capacity;
    *object = o;
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_parley_vector_insert(zx_parley_vector_t *object, uint32_t index) {
    ZX_ASSERT(object);
    if (object->size == object->capacity) {
        const zx_status_t status = reserve(object, int64_t{2} * object->capacity);
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    object->data[object->size++] = index;
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_parley_vector_merge(zx_parley_vector_t *object, const zx_parley_vector_t *other) {
    ZX_ASSERT(object);
    const int64_t size = int64_t{object->size} + other->size;
    if (size > object->capacity) {
        const zx_status_t status = reserve(object, 2 * size);
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    std::memcpy(object->data + object->size, other->data,
                static_cast<size_t>(other->size) * sizeof(uint32_t));
    object->size = static_cast<int32_t>(size);
    return ZX_STATUS_SUCCESS;
}

void zx_parley_vector_delete(zx_parley_vector_t *object) {
    if (!object) return;
    std::free(object->data);
    std::free(object);
}

zx_status_t zx_parley_cluster_node_init(const float *centroid, int32_t dimension, float weight, int32_t id,
                                        zx_parley_vector_t *frames, zx_parley_cluster_node_t **object) {
    ZX_ASSERT(centroid);
    ZX_ASSERT(dimension > 0);
    ZX_ASSERT(weight > 0);
    ZX_ASSERT(id >= 0);
    ZX_ASSERT(frames);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_parley_cluster_node_t *o = zx_heap_zeroed<zx_parley_cluster_node_t>();
    if (!o) return zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);
    o->centroid = zx_heap_zeroed<float>(static_cast<size_t>(dimension));
    if (!o->centroid)
        return zx_check_status_free_all(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY, o, nullptr);
    std::memcpy(o->centroid, centroid, static_cast<size_t>(dimension) * sizeof(float));
    o->weight = weight;
    o->id = id;
    o->frames = frames;
    *object = o;
    return ZX_STATUS_SUCCESS;
}

void zx_parley_cluster_node_delete(zx_parley_cluster_node_t *object) {
    if (!object) return;
    std::free(object->centroid);
    zx_parley_vector_delete(object->frames);
    std::free(object);
}

zx_status_t zx_parley_cluster_node_update(zx_parley_cluster_node_t *object, const float *centroid,
                                          int32_t dimension, float weight, zx_parley_vector_t *frames) {
    ZX_ASSERT(object);
    ZX_ASSERT(centroid);
    ZX_ASSERT(dimension > 0);
    ZX_ASSERT(weight > 0);
    ZX_ASSERT(frames);
    zx_parley_cluster_average(object->centroid, object->weight, centroid, weight, dimension);
    object->weight += weight;
    const zx_status_t status = zx_parley_vector_merge(object->frames, frames);
    zx_parley_vector_delete(frames);
    return status;
}

void zx_parley_cluster_average(float *centroid, float weight, const float *other, float other_weight,
                               int32_t dimension) {
    zx_kernels()->loops->average(dimension, centroid, weight, other, other_weight);
    zx_normalize_float(dimension, centroid, centroid);
}

zx_status_t zx_parley_list_init(zx_parley_list_t **object) {
    ZX_ASSERT(object);
    *object = zx_heap_zeroed<zx_parley_list_t>();
    return *object ? ZX_STATUS_SUCCESS : zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);
}

void zx_parley_list_insert(zx_parley_list_t *object, zx_parley_cluster_node_t *node) {
    ZX_ASSERT(object);
    ZX_ASSERT(node);
    if (object->head) {
        object->head->prev = node;
        node->next = object->head;
    } else {
        object->tail = node;
    }
    object->head = node;
    object->size++;
}

void zx_parley_list_remove(zx_parley_list_t *object, zx_parley_cluster_node_t *node) {
    ZX_ASSERT(object);
    ZX_ASSERT(node);
    if (object->head == node) object->head = node->next;
    if (object->tail == node) object->tail = node->prev;
    if (node->prev) node->prev->next = node->next;
    if (node->next) node->next->prev = node->prev;
    zx_parley_cluster_node_delete(node);
    object->size--;
}

void zx_parley_list_reset(zx_parley_list_t *object) {
    ZX_ASSERT(object);
    while (object->head) zx_parley_list_remove(object, object->head);
}

void zx_parley_list_delete(zx_parley_list_t *object) {
    if (!object) return;
    zx_parley_list_reset(object);
    std::free(object);
}

zx_status_t zx_parley_heap_init(uint32_t capacity, zx_parley_heap_t **object) {
    ZX_ASSERT(static_cast<int32_t>(capacity) >= 0);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_parley_heap_t *o = zx_heap_zeroed<zx_parley_heap_t>();
    if (!o) return zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);
    o->nodes = zx_heap_zeroed<void *>(static_cast<size_t>(capacity) + 1);
    if (!o->nodes) return zx_check_status_free_all(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY, o, nullptr);
    o->capacity = capacity;
    *object = o;
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_parley_heap_insert(zx_parley_heap_t *object, void *node) {
    ZX_ASSERT(object);
    ZX_ASSERT(node);
    if (object->size == object->capacity) {
        const zx_status_t status = zx_parley_heap_resize(object);
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    object->nodes[++object->size] = node;
    zx_parley_heap_bubble_up(object);
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_parley_heap_resize(zx_parley_heap_t *object) {
    ZX_ASSERT(object);
    if (object->capacity > UINT32_MAX / 2)
        return zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);
    const uint32_t capacity = object->capacity > 0 ? 2 * object->capacity : 1;
    void *nodes = std::realloc(object->nodes, (static_cast<size_t>(capacity) + 1) * sizeof(void *));
    if (!nodes) return zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);
    object->nodes = static_cast<void **>(nodes);
    object->capacity = capacity;
    return ZX_STATUS_SUCCESS;
}

void *zx_parley_heap_pop(zx_parley_heap_t *object) {
    ZX_ASSERT(object);
    if (object->size == 0) return nullptr;
    void *record = object->nodes[1];
    object->nodes[1] = object->nodes[object->size];
    object->nodes[object->size] = nullptr;
    object->size--;
    if (object->size > 1) zx_parley_heap_bubble_down(object);
    return record;
}

int32_t zx_parley_heap_compare(const void *n1, const void *n2) {
    ZX_ASSERT(n1);
    ZX_ASSERT(n2);
    const float key1 = *static_cast<const float *>(n1);
    const float key2 = *static_cast<const float *>(n2);
    return key1 < key2 ? 1 : key1 > key2 ? -1 : 0;
}

void zx_parley_heap_bubble_up(zx_parley_heap_t *object) {
    ZX_ASSERT(object);
    void **nodes = object->nodes;
    for (uint32_t i = object->size; i > 1; i /= 2) {
        if (zx_parley_heap_compare(nodes[i / 2], nodes[i]) >= 0) return;
        std::swap(nodes[i / 2], nodes[i]);
    }
}

void zx_parley_heap_bubble_down(zx_parley_heap_t *object) {
    ZX_ASSERT(object);
    ZX_ASSERT(object->size > 0);
    void **nodes = object->nodes;
    const uint64_t size = object->size;
    for (uint64_t i = 1; i < size;) {
        uint64_t best = i;
        for (uint64_t child = 2 * i; child <= 2 * i + 1 && child < size; child++) {
            if (zx_parley_heap_compare(nodes[child], nodes[best]) > 0) best = child;
        }
        if (best == i) return;
        std::swap(nodes[i], nodes[best]);
        i = best;
    }
}

void zx_parley_heap_delete(zx_parley_heap_t *object) {
    if (!object) return;
    for (uint32_t i = object->size; i >= 1; i--) std::free(object->nodes[i]);
    std::free(object->nodes);
    std::free(object);
}
