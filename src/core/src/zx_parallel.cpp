// SPDX-License-Identifier: Apache-2.0
#include "zx_parallel.h"

#include <atomic>

#if !defined(__EMSCRIPTEN__)
#include <pthread.h>
#endif

#include "zx_assert.h"

namespace {

struct shared_work {
    const zx_task_t *task;
    int32_t num_items;
    std::atomic<int32_t> next{0};
    std::atomic<int32_t> num_done{0};
    std::atomic<zx_status_t> status{ZX_STATUS_SUCCESS};
};

void work_on(shared_work *work, int32_t worker, const zx_progress_t *progress) {
    while (work->status == ZX_STATUS_SUCCESS) {
        zx_status_t status = ZX_STATUS_SUCCESS;
        const int32_t item = work->next++;
        if (item >= work->num_items) return;
        if (!zx_progress_report(progress, work->num_done, work->num_items)) {
            status = ZX_STATUS_STOP_ITERATION;
        } else {
            status = work->task->run(work->task->context, worker, item);
            work->num_done++;
        }
        zx_status_t none = ZX_STATUS_SUCCESS;
        if (status != ZX_STATUS_SUCCESS) work->status.compare_exchange_strong(none, status);
    }
}

#if !defined(__EMSCRIPTEN__)

constexpr int32_t MAX_WORKERS = 64;

struct helper {
    shared_work *work;
    int32_t worker;
    pthread_t thread;
};

void *help(void *argument) {
    const auto *self = static_cast<const helper *>(argument);
    work_on(self->work, self->worker, nullptr);
    return nullptr;
}

#endif

}  // namespace

zx_status_t zx_parallel_run(int32_t num_workers, int32_t num_items, const zx_task_t &task,
                            const zx_progress_t *progress) {
    ZX_ASSERT(num_workers > 0);
    shared_work work = {&task, num_items};
#if defined(__EMSCRIPTEN__)
    work_on(&work, 0, progress);
#else
    helper helpers[MAX_WORKERS];
    int32_t num_helpers = 0;
    for (int32_t w = 1; w < num_workers && w < num_items && w < MAX_WORKERS; w++) {
        helper *h = &helpers[num_helpers];
        *h = {&work, w, {}};
        if (pthread_create(&h->thread, nullptr, help, h) == 0) num_helpers++;
    }
    work_on(&work, 0, progress);
    for (int32_t h = 0; h < num_helpers; h++) (void) pthread_join(helpers[h].thread, nullptr);
#endif
    return work.status;
}
