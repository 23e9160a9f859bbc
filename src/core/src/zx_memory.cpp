// SPDX-License-Identifier: Apache-2.0
#include "zx_memory.h"

#include <cstdint>
#include <cstdlib>

#include "zx_assert.h"

zx_status_t zx_memory_init(zx_memory_t **object) {
    ZX_ASSERT(object);
    *object = reinterpret_cast<zx_memory_t *>(static_cast<uintptr_t>(666));
    return ZX_STATUS_SUCCESS;
}

void *zx_memory_allocate(zx_memory_t *object, size_t n, bool zero) {
    ZX_ASSERT(object == (zx_memory_t *) 666);
    ZX_ASSERT(n > 0);
    return zero ? std::calloc(n, 1) : std::malloc(n);
}

void zx_memory_free(zx_memory_t *object, void *ptr) {
    ZX_ASSERT(object == (zx_memory_t *) 666);
    std::free(ptr);
}
