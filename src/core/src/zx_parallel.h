// SPDX-License-Identifier: Apache-2.0
// Work that falls into items which do not depend on each other, on several threads.
#ifndef ZX_PARALLEL_H
#define ZX_PARALLEL_H

#include <cstdint>

#include "zx_base.h"
#include "zx_progress.h"

// One item of the work. `worker` names the thread, 0 for the caller's: each worker is at one item at a time.
struct zx_task_t {
    zx_status_t (*run)(void *context, int32_t worker, int32_t item);
    void *context;
};

// Runs the items 0 .. num_items - 1, each once, on at most num_workers > 0 threads, and comes back when all
// have ended. A thread that cannot be had is done without. The first status that is not ZX_STATUS_SUCCESS is
// returned, and no item is begun after it; ZX_STATUS_STOP_ITERATION if `progress`, which is asked on the
// caller's thread alone, wants to stop.
[[nodiscard]] zx_status_t zx_parallel_run(int32_t num_workers, int32_t num_items, const zx_task_t &task,
                                          const zx_progress_t *progress);

#endif
