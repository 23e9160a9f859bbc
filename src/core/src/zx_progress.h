// SPDX-License-Identifier: Apache-2.0
// How a long step tells how far it is, and how it is told to stop.
#ifndef ZX_PROGRESS_H
#define ZX_PROGRESS_H

#include <cstdint>

struct zx_progress_t {
    // Called now and then with the share of the step that is done, 0 to 1, never falling. False: stop; the
    // step then ends with ZX_STATUS_STOP_ITERATION.
    bool (*report)(void *context, double done);
    void *context;
};

// Reports `done` of `total` > 0 parts. False: stop. A null progress never stops.
[[nodiscard]] inline bool zx_progress_report(const zx_progress_t *progress, int64_t done, int64_t total) {
    return !progress ||
           progress->report(progress->context, static_cast<double>(done) / static_cast<double>(total));
}

#endif
