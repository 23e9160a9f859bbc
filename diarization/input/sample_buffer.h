// SPDX-License-Identifier: Apache-2.0
// Samples of a recording whose length shows when it ends.
#ifndef PARLEY_SAMPLE_BUFFER_H
#define PARLEY_SAMPLE_BUFFER_H

#include <algorithm>
#include <cstdlib>
#include <new>
#include <span>

#include "errors.h"
#include "zx_parley_internal.h"

// Grows in place where the system can move pages, so that the peak stays near what it holds.
class sample_buffer {
public:
    // Throws std::bad_alloc, and diarization_error beyond 2^31 - 1 samples.
    void append(std::span<const int16_t> samples) {
        const size_t count = samples.size();
        if (count > static_cast<size_t>(INT32_MAX) - count_)
            throw diarization_error(PARLEY_INVALID, "more than 2^31 - 1 samples");
        if (count_ + count > capacity_) {
            const size_t wanted = std::max(count_ + count, capacity_ + capacity_ / 2);
            auto *grown = static_cast<int16_t *>(std::realloc(own_.get(), wanted * sizeof(int16_t)));
            if (!grown) throw std::bad_alloc();
            (void) own_.release();
            own_.reset(grown);
            capacity_ = wanted;
        }
        std::copy(samples.begin(), samples.end(), own_.get() + count_);
        count_ += count;
    }

    size_t count() const { return count_; }

    // Empty afterwards.
    zx_parley_samples_t release() {
        zx_parley_samples_t result;
        result.own = std::move(own_);
        result.pcm = result.own.get();
        result.count = static_cast<int32_t>(count_);
        count_ = capacity_ = 0;
        return result;
    }

private:
    zx_heap_ptr<int16_t> own_;
    size_t count_ = 0, capacity_ = 0;
};

#endif
