// SPDX-License-Identifier: Apache-2.0
#include "workers.h"

#include <atomic>
#include <future>
#include <vector>

namespace parley {

void run_workers(int workers, size_t count, const std::function<void(int worker, size_t item)> &work) {
    std::atomic<size_t> next = 0;
    const auto loop = [&](int worker) {
        for (size_t item = next++; item < count; item = next++) work(worker, item);
    };
    std::vector<std::future<void>> others;
    for (int w = 1; w < workers; w++) others.push_back(std::async(std::launch::async, loop, w));
    loop(0);
}

}  // namespace parley
