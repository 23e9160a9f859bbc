// SPDX-License-Identifier: Apache-2.0
// Where two speak at once, and who the second is. The network is trained so that a frame's embedding, which
// tells the speaker, also tells a mixture of voices; a few seconds around it decide.
#ifndef PARLEY_OVERLAP_DETECTION_H
#define PARLEY_OVERLAP_DETECTION_H

#include <vector>

#include "frames.h"
#include "parameters.h"

// The logarithm of the odds that at least two speak in a frame, for each frame: what the network's last layer
// gives for two less the higher of what it gives for nobody and for one. Layers see zeros beyond the
// recording's ends.
std::vector<float> overlap_log_odds(const frames &embeddings, const overlap_network &network,
                                    int num_threads);

// The second speaker of each frame, 0 where there is none. Of all ways to call the frames in which somebody
// speaks overlapped or not, the one with the largest sum of log odds over the overlapped frames, less 4 a
// change. A stretch's second speaker is the one, other than its first, who speaks nearest to it; what a
// change of speakers leaves of a stretch counts from 0.1 s on.
tags second_speakers(const tags &labels, const std::vector<float> &log_odds);

// The probability that two speak during a stretch, by its mean log odds.
double overlap_probability(const std::vector<float> &log_odds, const run &stretch);

#endif
