// SPDX-License-Identifier: Apache-2.0
#include "recording_pieces.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double AROUND = 0.4;          // seconds of silence that go with speech
constexpr double LONG_PAUSE = 10;       // seconds
constexpr double SHORTEST_PAUSE = 0.2;  // seconds in which a cut tears no word

// The softest place between two times, by the waveform; the middle without one.
double softest(const diarization &result, double start, double end) {
    const auto first = static_cast<size_t>(start * WAVEFORM_RATE);
    const auto last =
        std::min(static_cast<size_t>(std::max(0.0, end) * WAVEFORM_RATE), result.waveform.size());
    if (last <= first) return (start + end) / 2;
    const auto begin = result.waveform.begin();
    const auto found = std::min_element(begin + static_cast<std::ptrdiff_t>(first),
                                        begin + static_cast<std::ptrdiff_t>(last));
    return (static_cast<double>(found - begin) + 0.5) / WAVEFORM_RATE;
}

// Stretches in which somebody speaks, whoever it is, or `by_turn` each speaker's own.
std::vector<span> speech_of(const diarization &result, bool by_turn) {
    std::vector<span> spoken;
    int last = -1;
    for (const segment &s : result.segments) {
        if (s.is_overlap) continue;
        const bool goes_on = !spoken.empty() && s.start - spoken.back().end < SHORTEST_PAUSE;
        if (goes_on && (!by_turn || s.speaker == last || s.start < spoken.back().end)) {
            spoken.back().end = std::max(spoken.back().end, s.end);
        } else {
            spoken.push_back({s.start, s.end});
        }
        last = s.speaker;
    }
    return spoken;
}

}  // namespace

std::vector<span> pieces_of(const diarization &result, double longest, bool by_turn) {
    std::vector<span> pieces;
    const std::vector<span> spoken = speech_of(result, by_turn);
    const auto cut = [&](size_t i) {  // behind stretch i
        const double pause = spoken[i + 1].start - spoken[i].end;
        return pause < SHORTEST_PAUSE ? spoken[i].end : softest(result, spoken[i].end, spoken[i + 1].start);
    };
    for (size_t first = 0; first < spoken.size();) {
        // As many stretches as fit; of the pauses in the last half of it the longest.
        size_t end = first + 1;
        while (end < spoken.size() && !by_turn && spoken[end].end - spoken[first].start <= longest &&
               spoken[end].start - spoken[end - 1].end <= LONG_PAUSE)
            end++;
        const bool is_full =
            end < spoken.size() && !by_turn && spoken[end].start - spoken[end - 1].end <= LONG_PAUSE;
        size_t best = end;
        for (size_t i = end; is_full && i > first + 1; i--) {
            if (spoken[i - 1].end - spoken[first].start < longest / 2) break;
            const auto pause = [&](size_t at) { return spoken[at].start - spoken[at - 1].end; };
            if (pause(i) > pause(best)) best = i;
        }
        double start = std::max(0.0, spoken[first].start - AROUND);
        if (!pieces.empty()) start = std::max(start, std::min(cut(first - 1), spoken[first].start));
        double stop = std::min(result.duration, spoken[best - 1].end + AROUND);
        if (best < spoken.size()) stop = std::min(stop, std::max(cut(best - 1), spoken[best - 1].end));
        // Somebody who goes on and on is cut where it is softest.
        while (stop - start > 1.5 * longest) {
            const double at = softest(result, start + longest * 0.75, start + longest * 1.25);
            pieces.push_back({start, at});
            start = at;
        }
        pieces.push_back({start, stop});
        first = best;
    }
    return pieces;
}
