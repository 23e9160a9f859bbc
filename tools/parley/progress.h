// SPDX-License-Identifier: Apache-2.0
// One line on a terminal that says how far the work is.
#ifndef PARLEY_TOOL_PROGRESS_H
#define PARLEY_TOOL_PROGRESS_H

#include <chrono>
#include <cstddef>
#include <mutex>
#include <vector>

namespace parley {

class progress_line {
public:
    // `workers` work on `total` recordings.
    progress_line(size_t total, size_t workers, bool shown);

    // A worker has done that share of its recording.
    void update(size_t worker, double done);

    // A worker has done with its recording.
    void finish(size_t worker);

    // Takes the line away, before something else is printed.
    void clear();

    double seconds() const;

private:
    void draw();

    std::mutex mutex_;
    size_t total_, done_ = 0;
    std::vector<double> shares_;
    bool shown_, drawn_ = false;
    std::chrono::steady_clock::time_point start_, last_;
};

}  // namespace parley

#endif
