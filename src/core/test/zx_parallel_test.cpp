// SPDX-License-Identifier: Apache-2.0
#include "zx_parallel.h"

#include <array>
#include <atomic>

#include "support.h"

namespace {

struct counters {
    std::array<std::atomic<int>, 1000> runs{};
    std::array<std::atomic<int>, 64> at_work{};
    int32_t failing = -1;

    static zx_status_t run(void *context, int32_t worker, int32_t item) {
        auto *self = static_cast<counters *>(context);
        EXPECT_EQ(self->at_work[static_cast<size_t>(worker)]++, 0) << "a worker at two items at once";
        self->runs[static_cast<size_t>(item)]++;
        self->at_work[static_cast<size_t>(worker)]--;
        return item == self->failing ? ZX_STATUS_IO_ERROR : ZX_STATUS_SUCCESS;
    }
};

}  // namespace

TEST(zx_parallel, every_item_runs_once) {
    for (int32_t num_workers : {1, 2, 7, 200}) {
        for (int32_t num_items : {0, 1, 3, 1000}) {
            counters c;
            ASSERT_EQ(zx_parallel_run(num_workers, num_items, {counters::run, &c}, nullptr),
                      ZX_STATUS_SUCCESS);
            for (int32_t i = 0; i < 1000; i++)
                ASSERT_EQ(c.runs[static_cast<size_t>(i)], i < num_items ? 1 : 0) << num_workers << " " << i;
        }
    }
}

TEST(zx_parallel, a_failure_and_a_progress_that_stops_end_it) {
    for (int32_t num_workers : {1, 4}) {
        counters failing;
        failing.failing = 20;
        EXPECT_EQ(zx_parallel_run(num_workers, 1000, {counters::run, &failing}, nullptr), ZX_STATUS_IO_ERROR);
        EXPECT_TRUE(num_workers > 1 || failing.runs[21] == 0);

        struct seen {
            double last = 0;
            int calls = 0;
        } reported;
        const zx_progress_t progress = {[](void *context, double done) {
                                            auto *s = static_cast<seen *>(context);
                                            EXPECT_GE(done, s->last);
                                            s->last = done;
                                            return ++s->calls < 5;
                                        },
                                        &reported};
        counters stopped;
        const zx_status_t status = zx_parallel_run(num_workers, 1000, {counters::run, &stopped}, &progress);
        // Others may have taken all that was left before the caller's thread asked again.
        EXPECT_EQ(status, reported.calls == 5 ? ZX_STATUS_STOP_ITERATION : ZX_STATUS_SUCCESS);
        EXPECT_TRUE(num_workers > 1 || reported.calls == 5);
    }
}
