// SPDX-License-Identifier: Apache-2.0
// How well a hypothesis agrees with a reference of who spoke when.
//
// Time is cut at every boundary of either, and each piece weighed exactly (there is no grid). In a piece
// where the reference has R speakers, the hypothesis H, and C of them belong together,
//
//   missed speech = max(R - H, 0)   false alarm = max(H - R, 0)   confusion = min(R, H) - C
//
// and the diarization error rate (DER) is their sum over the speech of the reference, the sum of R. Which
// hypothesis speaker belongs to which reference speaker is chosen once per recording, one to one, so that the
// sum of C is largest in what is scored.
//
// Not scored: what lies outside the UEM; the collar, that many seconds to either side of every boundary of
// the reference; on request, pieces with several reference speakers. Without a UEM a recording is scored from
// the first to the last boundary of either file.
//
// The Jaccard error rate (JER) is the mean over reference speakers of 1 - |r and h| / |r or h|, with h the
// speaker mapped to r so that the mean is smallest; without collar, overlaps included.
#ifndef PARLEY_SCORE_H
#define PARLEY_SCORE_H

#include <string>
#include <vector>

#include "rttm.h"

struct score_options {
    double collar = 0;  // seconds to either side
    bool skip_overlap = false;
};

// Seconds, which add up over recordings.
struct score {
    double speech = 0;  // of the reference, each speaker counted
    double missed = 0;
    double false_alarm = 0;
    double confusion = 0;
    double jaccard_errors = 0;  // summed over reference speakers
    int num_speakers = 0;       // of the reference
    int num_found = 0;          // of the hypothesis
    int num_recordings = 0;
    int num_counted_right = 0;  // recordings with as many speakers in both
    int count_error = 0;        // |found - there|, summed over recordings
    int num_small = 0;          // recordings with 2 to 4 speakers,
    int num_small_right = 0;    // and those of them with as many in both

    double der() const;  // percent; infinite when there is no speech but an error
    double jer() const;  // percent
    score &operator+=(const score &other);
};

// Scores one recording; `parts` are the spans to look at, all of it if null.
score score_recording(const std::vector<turn> &reference, const std::vector<turn> &hypothesis,
                      const std::vector<span> *parts, const score_options &options);

// What `parley score` prints: for each collar a table of rates, of all recordings and, if `each`, of every
// one.
std::string score_table(const rttm &reference, const rttm &hypothesis, const uem *parts,
                        const std::vector<double> &collars, bool skip_overlap, bool each);

#endif
