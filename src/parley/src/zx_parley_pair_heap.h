// SPDX-License-Identifier: Apache-2.0
// The priority queue of the agglomeration: candidate merges, taken in the order in which zx_parley_heap takes
// records of the same keys inserted in the same order, its peculiarities included. A candidate is 8 bytes in
// the heap's one array, where a record of its own takes 64 with its pointer and its block; there is no
// allocation but the first.
#ifndef ZX_PARLEY_PAIR_HEAP_H
#define ZX_PARLEY_PAIR_HEAP_H

#include <cstdint>

#include "zx_base.h"

struct zx_parley_pair_t {
    float distance;   // the key
    uint32_t number;  // of the candidate; what it stands for is the caller's to know
};

struct zx_parley_pair_heap_t {
    uint32_t capacity;
    uint32_t size;
    zx_parley_pair_t *pairs;  // capacity + 1 slots, used from 1; at a multiple of 64 bytes
};

// Creates an empty heap for `capacity` pairs, of whose memory only what is used is touched.
// ZX_STATUS_OUT_OF_MEMORY leaves *object null.
[[nodiscard]] zx_status_t zx_parley_pair_heap_init(uint32_t capacity, zx_parley_pair_heap_t **object);

// Releases the heap; null is accepted.
void zx_parley_pair_heap_delete(zx_parley_pair_heap_t *object);

// Adds a pair; there must be room.
void zx_parley_pair_heap_insert(zx_parley_pair_heap_t *object, const zx_parley_pair_t &pair);

// Takes the first pair; false when the heap is empty.
[[nodiscard]] bool zx_parley_pair_heap_pop(zx_parley_pair_heap_t *object, zx_parley_pair_t *pair);

#endif
