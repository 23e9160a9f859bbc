#include "zx_parley_pair_heap.h"

#include <memory>

#include "zx_assert.h"
#include "zx_heap.h"

static_assert(sizeof(zx_parley_pair_t) == 12, "the bound on the memory of the agglomeration counts on it");

zx_status_t zx_parley_pair_heap_init(uint32_t capacity, zx_parley_pair_heap_t **object) {
    ZX_ASSERT(object);
    *object = nullptr;
    std::unique_ptr<zx_parley_pair_heap_t, zx_deleter<zx_parley_pair_heap_delete>> o(
        zx_heap_zeroed<zx_parley_pair_heap_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    const size_t num_slots = static_cast<size_t>(capacity) + 1;
    o->pairs = static_cast<zx_parley_pair_t *>(std::malloc(num_slots * sizeof(zx_parley_pair_t)));
    if (!o->pairs) return ZX_STATUS_OUT_OF_MEMORY;
    o->capacity = capacity;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_parley_pair_heap_delete(zx_parley_pair_heap_t *object) {
    if (!object) return;
    std::free(object->pairs);
    std::free(object);
}

// Up, past parents with strictly larger keys.
void zx_parley_pair_heap_insert(zx_parley_pair_heap_t *object, const zx_parley_pair_t &pair) {
    ZX_ASSERT(object);
    ZX_ASSERT(object->size < object->capacity);
    zx_parley_pair_t *pairs = object->pairs;
    uint32_t i = ++object->size;
    for (; i > 1 && pairs[i / 2].distance > pair.distance; i /= 2) pairs[i] = pairs[i / 2];
    pairs[i] = pair;
}

// The last pair moves to the front and down, past the smaller of its children where that is smaller (of equal ones the
// left). The pair that is in the last slot then is not looked at as a child: the order of merges follows from it.
bool zx_parley_pair_heap_pop(zx_parley_pair_heap_t *object, zx_parley_pair_t *pair) {
    ZX_ASSERT(object);
    ZX_ASSERT(pair);
    if (object->size == 0) return false;
    zx_parley_pair_t *pairs = object->pairs;
    *pair = pairs[1];
    const zx_parley_pair_t moved = pairs[object->size--];
    const uint64_t size = object->size;
    uint64_t i = 1;
    for (uint64_t child = 2; child < size; child = 2 * i) {
        if (child + 1 < size && pairs[child + 1].distance < pairs[child].distance) child++;
        if (!(pairs[child].distance < moved.distance)) break;
        pairs[i] = pairs[child];
        i = child;
    }
    pairs[i] = moved;
    return true;
}
