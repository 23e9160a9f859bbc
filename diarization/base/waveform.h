// SPDX-License-Identifier: Apache-2.0
// The waveform of samples that come in pieces, at the engine's rate: the loudest of every twentieth of a
// second.
#ifndef PARLEY_WAVEFORM_H
#define PARLEY_WAVEFORM_H

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "result.h"

class waveform_drawer {
public:
    void add(const int16_t *samples, size_t count) {
        while (count > 0) {
            const size_t done = num_samples_ % SAMPLES_A_PEAK, n = std::min(count, SAMPLES_A_PEAK - done);
            if (done == 0) peaks_.push_back(0);
            int loudest = 0;
            for (size_t i = 0; i < n; i++) loudest = std::max(loudest, std::abs(int{samples[i]}));
            peaks_.back() = std::max(peaks_.back(), std::min(1.0F, static_cast<float>(loudest) / 32767));
            num_samples_ += n;
            samples += n;
            count -= n;
        }
    }
    const std::vector<float> &peaks() const { return peaks_; }
    void clear() { *this = {}; }

private:
    static constexpr size_t SAMPLES_A_PEAK = 16000 / WAVEFORM_RATE;

    size_t num_samples_ = 0;
    std::vector<float> peaks_;
};

#endif
