// SPDX-License-Identifier: Apache-2.0
#include "zx_parley_pair_heap.h"

#if defined(__linux__)
#include <sys/mman.h>
#endif

#include <memory>

#include "zx_assert.h"
#include "zx_heap.h"

static_assert(sizeof(zx_parley_pair_t) == 8, "the bound on the memory of the agglomeration counts on it");

zx_status_t zx_parley_pair_heap_init(uint32_t capacity, zx_parley_pair_heap_t **object) {
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<zx_parley_pair_heap_t, zx_parley_pair_heap_delete> o(zx_heap_zeroed<zx_parley_pair_heap_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    // Whole pages of the large kind where the priority queue is large: its accesses are far apart.
    constexpr size_t LARGE_PAGE = size_t{1} << 21, LINE = 64;
    size_t size = (static_cast<size_t>(capacity) + 1) * sizeof(zx_parley_pair_t);
    const size_t alignment = size >= LARGE_PAGE ? LARGE_PAGE : LINE;
    size = (size + alignment - 1) / alignment * alignment;
    o->pairs = static_cast<zx_parley_pair_t *>(zx_heap_aligned(alignment, size));
    if (!o->pairs) return ZX_STATUS_OUT_OF_MEMORY;
#if defined(__linux__)
    if (alignment == LARGE_PAGE) (void) madvise(o->pairs, size, MADV_HUGEPAGE);
#endif
    o->capacity = capacity;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_parley_pair_heap_delete(zx_parley_pair_heap_t *object) {
    if (!object) return;
    zx_heap_aligned_free(object->pairs);
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

// The last pair moves to the front and down, past the smaller of its children where that is smaller (of equal
// ones the left). The pair that is in the last slot then is not looked at as a child: the order of merges
// follows from it.
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
        // Three levels below lie eight pairs in one line of the cache, of which one will be looked at.
        __builtin_prefetch(pairs + 8 * i);
        if (child + 1 < size && pairs[child + 1].distance < pairs[child].distance) child++;
        if (!(pairs[child].distance < moved.distance)) break;
        pairs[i] = pairs[child];
        i = child;
    }
    pairs[i] = moved;
    return true;
}
