// SPDX-License-Identifier: Apache-2.0
// Work on many frames, part by part on several threads.
#ifndef PARLEY_FOR_EACH_PART_H
#define PARLEY_FOR_EACH_PART_H

#include <algorithm>
#include <cstdint>
#include <new>

#include "zx_parallel.h"

// Calls compute(worker, first, end) for the parts [first, end), of up to `size`, of `count` items, on at most
// num_workers > 0 threads at once; `worker` is below that and no two parts at once have the same. Throws
// std::bad_alloc where a part does.
template <typename function>
void for_each_part(int32_t num_workers, int32_t count, int32_t size, const function &compute) {
    struct work {
        const function &compute;
        int32_t count, size;
    } all = {compute, count, size};
    const auto run_part = [](void *context, int32_t worker, int32_t part) -> zx_status_t {
        const auto *self = static_cast<const work *>(context);
        try {
            self->compute(worker, part * self->size, std::min((part + 1) * self->size, self->count));
        } catch (const std::bad_alloc &) {
            return ZX_STATUS_OUT_OF_MEMORY;
        }
        return ZX_STATUS_SUCCESS;
    };
    if (zx_parallel_run(num_workers, (count + size - 1) / size, {run_part, &all}, nullptr) !=
        ZX_STATUS_SUCCESS)
        throw std::bad_alloc();
}

#endif
