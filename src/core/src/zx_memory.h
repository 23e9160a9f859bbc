// SPDX-License-Identifier: Apache-2.0
// The memory handle: the single seam through which the signal-processing and network objects take their state
// and their per-call scratch. It is a checked pass-through to the system heap; the handle itself is a fixed
// sentinel with no storage behind it, so it needs no release. Safe from any thread.
#ifndef ZX_MEMORY_H
#define ZX_MEMORY_H

#include <cstddef>
#include <memory>
#include <type_traits>

#include "zx_base.h"

struct zx_memory_t;

// Stores the handle into *object. Always succeeds.
[[nodiscard]] zx_status_t zx_memory_init(zx_memory_t **object);

// `n` > 0 bytes, zeroed if `zero` is set; null when there is no memory. Release with zx_memory_free.
[[nodiscard]] void *zx_memory_allocate(zx_memory_t *object, size_t n, bool zero);

// Gives a block back; a null block is ignored.
void zx_memory_free(zx_memory_t *object, void *ptr);

struct zx_memory_deleter {
    zx_memory_t *memory;
    void operator()(void *block) const { zx_memory_free(memory, block); }
};

// A block from the handle that goes back to it at the end of the scope.
template <class T>
using zx_scratch = std::unique_ptr<T, zx_memory_deleter>;

enum class zx_fill { none, zero };

// `count` elements as scratch; compare with null for lack of memory.
template <class T>
[[nodiscard]] zx_scratch<T[]> zx_scratch_allocate(zx_memory_t *memory, size_t count, zx_fill fill) {
    static_assert(std::is_trivially_default_constructible_v<T> && std::is_trivially_destructible_v<T>);
    void *block = zx_memory_allocate(memory, count * sizeof(T), fill == zx_fill::zero);
    return zx_scratch<T[]>(static_cast<T *>(block), zx_memory_deleter{memory});
}

// `count` zeroed elements of an object's own state.
template <class T>
[[nodiscard]] T *zx_memory_zeroed(zx_memory_t *memory, size_t count = 1) {
    return zx_scratch_allocate<T>(memory, count, zx_fill::zero).release();
}

#endif
