// SPDX-License-Identifier: Apache-2.0
// Voice activity detection: where somebody may speak, told by a small network that has heard music, noise,
// animals and machines beside speech. The engine decides it by the distance of a frame from one reference
// vector, which is good for pauses but takes much music for voices; the seconds around a frame tell them
// apart.
#ifndef PARLEY_SPEECH_DETECTION_H
#define PARLEY_SPEECH_DETECTION_H

#include <vector>

#include "frames.h"
#include "parameters.h"

// The logarithm of the odds that somebody speaks in a frame, for each frame:
//
//   offset + sum over units of output max(0, bias + weights (m1, m2, ...))
//
// with the means m of the frames around it, one for each context, or of those there are. It is computed for
// one frame of four, which stands for the four.
std::vector<float> speech_log_odds(const frames &embeddings, const speech_network &network, int num_threads);

// The frames but for stretches in which nobody speaks: of all ways to call frames speech or not, the one with
// the largest sum over the frames of speech of `bias` and log odds, less 150 a change. Where bias and log
// odds are above 3.5 they count ten-fold.
std::vector<int32_t> rows_of_speech(const frames &embeddings, const speech_network &network, double bias,
                                    int num_threads);

#endif
