// SPDX-License-Identifier: Apache-2.0
// Work side by side.
#ifndef PARLEY_TOOL_WORKERS_H
#define PARLEY_TOOL_WORKERS_H

#include <cstddef>
#include <functional>

namespace parley {

// Runs work(worker, item) for every item of 0 .. count - 1, on `workers` threads, each item once.
void run_workers(int workers, size_t count, const std::function<void(int worker, size_t item)> &work);

}  // namespace parley

#endif
