// SPDX-License-Identifier: Apache-2.0
// The layout of the timeline, which the drawing (SVG) and the picture (PNG) share. Points.
#ifndef PARLEY_FORMATS_TIMELINE_H
#define PARLEY_FORMATS_TIMELINE_H

#include <algorithm>

#include "result.h"

inline constexpr double WIDTH = 1200, MARGIN = 16, LANE = 34, AXIS = 34, TITLE = 36;

inline double height_of(const diarization &result) {
    return TITLE + LANE * static_cast<double>(std::max<size_t>(1, result.speakers.size())) + AXIS;
}

// A round number of seconds, so that about ten marks fit.
inline double tick_of(double duration) {
    static constexpr double STEPS[] = {0.5, 1,   2,   5,   10,   15,   30,   60,
                                       120, 300, 600, 900, 1800, 3600, 7200, 14400};
    for (double step : STEPS)
        if (duration / step <= 12) return step;
    return 28800;
}

#endif
