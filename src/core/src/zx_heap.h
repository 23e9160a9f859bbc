// SPDX-License-Identifier: Apache-2.0
// Ownership inside function bodies: heap blocks and half-built objects that release themselves on every early
// return. All library memory comes from functions that can return null, so that running out of it is a
// status.
#ifndef ZX_HEAP_H
#define ZX_HEAP_H

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <type_traits>

// Releases through a module's own delete function, all of which accept null and half-filled (zeroed) records.
template <auto delete_function>
struct zx_deleter {
    template <class T>
    void operator()(T *object) const {
        delete_function(object);
    }
};

// Owns an object of a module: zx_owned<zx_fft_t, zx_fft_delete>.
template <class T, auto delete_function>
using zx_owned = std::unique_ptr<T, zx_deleter<delete_function>>;

struct zx_free_deleter {
    void operator()(void *block) const { std::free(block); }
};

template <class T>
using zx_heap_ptr = std::unique_ptr<T, zx_free_deleter>;

// `count` zeroed elements from the system heap; null when there is no memory or the size does not fit.
template <class T>
T *zx_heap_zeroed(size_t count = 1) {
    static_assert(std::is_trivially_default_constructible_v<T> && std::is_trivially_destructible_v<T>);
    return static_cast<T *>(std::calloc(count, sizeof(T)));
}

// `size` bytes, a multiple of `alignment`, at a multiple of it; null when there is no memory. Windows
// releases such blocks by a function of their own.
inline void *zx_heap_aligned(size_t alignment, size_t size) {
#if defined(_WIN32)
    return _aligned_malloc(size, alignment);
#else
    return std::aligned_alloc(alignment, size);
#endif
}

inline void zx_heap_aligned_free(void *block) {
#if defined(_WIN32)
    _aligned_free(block);
#else
    std::free(block);
#endif
}

#endif
