// SPDX-License-Identifier: Apache-2.0
// Resegmentation: once all speakers of a recording are known, every frame goes to the one to whose mean it is
// nearest, by the Viterbi algorithm. Clustering has to decide frame by frame, in order and for good; this
// undoes what it could not know.
#ifndef PARLEY_RESEGMENTATION_H
#define PARLEY_RESEGMENTATION_H

#include "frames.h"

struct resegmentation_options {
    // Taken off the cosines of frames with the background: the higher, the more is speech.
    double speech_bias = 0;
    // Two speakers whose means are no farther apart than this become one; below 0 none do.
    double merge_threshold = -1;
    // A speaker who is left with less is taken out. 0: a twenty-fifth of the recording, from 1 s up to 3.5 s.
    int32_t min_frames = 0;
    // So many speakers are never taken out or merged.
    int min_speakers = 1;
    // So often the path is sought again with the means of the one before, after nobody is taken out any more.
    int rounds = 0;
    // Speakers whose means are nearer to the background than this are taken out.
    double min_background_distance = -1;
    // Of how many frames each row is the mean: 1 but for blocks of frames.
    int32_t frames_a_row = 1;
    int num_threads = 1;
};

// Of all ways to give the frames to the speakers of `labels` and to nobody, the one with the largest sum of
//
//   cosine(frame, mean of its speaker, or `background` for nobody)  over frames   -   3  per change
//
// so that a change pays if the frames after it are nearer by 0.3 for ten frames, say.
//
// Speakers are taken out and merged as `options` has it, one at a time, and the path is sought again.
void resegment(const frames &embeddings, const float *background, const resegmentation_options &options,
               tags *labels);

// Where nobody was found: stretches of 0.4 s whose mean distance to the background is at least `threshold`
// become speaker 1, and resegmentation gives them their borders.
void find_short_speech(const frames &embeddings, const float *background, double speech_bias,
                       double threshold, tags *labels);

#endif
