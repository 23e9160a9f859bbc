// A second look at who speaks: once all speakers of a recording are known, every frame goes to the one to
// whose mean it is nearest. The clustering has to decide frame by frame, in order and for good; this undoes
// what it could not know.
#ifndef PARLEY_REFINE_H
#define PARLEY_REFINE_H

#include "frames.h"

// Of all ways to give the frames to the speakers of `which` and to nobody, the one with the largest sum of
//
//   cosine(frame, mean of its speaker, or `background` for nobody)  over frames   -   CHANGE_COST  per change
//
// where nobody's frames count `reluctance` less: the higher, the more is speech.
//
// A speaker who is left with less than a twenty-fifth of the recording, from 1 s up to 3.5 s, is taken
// out, two whose means are no farther apart than `same` (the distance at which the clustering merges; its
// own order of merges can stop before) become one, and the rest is decided again, as long as more than
// `fewest` (at least 1) remain.
void refine_tags(const frames &all, const float *background, double reluctance, double same, int fewest,
                 tags *which, int num_threads = 1);

// Where nobody was found: stretches of FEW_WORDS frames whose mean distance to the background is at least
// `threshold` become speaker 1, and refine_tags gives them their borders.
void find_few_words(const frames &all, const float *background, double reluctance, double threshold,
                    tags *which);

#endif
