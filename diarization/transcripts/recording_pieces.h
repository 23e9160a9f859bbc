// SPDX-License-Identifier: Apache-2.0
// Where a long recording can be cut for a recognizer, so that no word is torn.
#ifndef PARLEY_RECORDING_PIECES_H
#define PARLEY_RECORDING_PIECES_H

#include <vector>

#include "result.h"
#include "rttm.h"

// Stretches of about `longest` seconds, in order and not overlapping, that hold all speech of a result and a
// little around it: they end in its pauses, the longest there are near the end; where there is none, where
// the speaker changes or the sound is softest. Pauses of more than ten seconds are left out. `by_turn`: a new
// one begins wherever the speaker changes.
std::vector<span> pieces_of(const diarization &result, double longest, bool by_turn);

#endif
