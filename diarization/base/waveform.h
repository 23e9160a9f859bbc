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
        for (size_t i = 0; i < count; i++) {
            if (num_samples_++ % SAMPLES_A_PEAK == 0) peaks_.push_back(0);
            const float loud = static_cast<float>(std::abs(int{samples[i]})) / 32767;
            peaks_.back() = std::max(peaks_.back(), std::min(1.0F, loud));
        }
    }
    const std::vector<float> &peaks() const { return peaks_; }
    void clear() { *this = {}; }

private:
    static constexpr int64_t SAMPLES_A_PEAK = 16000 / WAVEFORM_RATE;

    int64_t num_samples_ = 0;
    std::vector<float> peaks_;
};

#endif
