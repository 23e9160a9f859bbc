// SPDX-License-Identifier: Apache-2.0
// Words out of a recording, by a recognizer that runs as a child.
#ifndef PARLEY_TRANSCRIBING_H
#define PARLEY_TRANSCRIBING_H

#include <string>
#include <vector>

#include "engine.h"
#include "recognizers.h"
#include "result.h"
#include "transcript.h"

struct transcription {
    recognizer used;
    std::vector<std::string> arguments;  // behind the recognizer's own
    double time_limit = 0;               // seconds for each piece; 0: as long as it takes
    bool by_turn = false;                // a piece never holds two speakers, but where they overlap
    int jobs = 1;                        // recognizers at a time, of those that take one core each
};

// What is said in samples (16 kHz, mono) about which `result` tells who speaks when, by start. Throws
// diarization_error: PARLEY_MISSING where the recognizer is not installed, PARLEY_FAILED with its own words
// where it fails, PARLEY_CANCELLED.
std::vector<spoken_word> transcribe(const zx_parley_samples_t &samples, const diarization &result,
                                    const transcription &how, const speakers_over_time &speakers,
                                    const progress_function &progress);

#endif
