// SPDX-License-Identifier: Apache-2.0
// People who are known from earlier recordings: a file of voices, and their names for the speakers of a
// result.
#ifndef PARLEY_VOICES_H
#define PARLEY_VOICES_H

#include <string>
#include <vector>

#include "result.h"

struct voice_sample {
    std::vector<float> vector;  // of unit length
    double seconds = 0;         // of speech, of which it is the mean; 0 where that is not known
    std::string source;         // the recording's name
    std::string date;           // when it was added, "2025-01-31"
};

struct voice {
    std::string name;
    std::vector<voice_sample> samples;
};

struct voice_list {
    std::string model;  // which one's vectors these are
    std::vector<voice> people;
};

// The list that a text holds; an empty text is an empty list. Throws diarization_error: PARLEY_UNREADABLE
// for what is damaged, of another format, doubled names, vectors that are none.
voice_list read_voices(const std::string &text);

std::string write_voices(const voice_list &voices);

// Another sample of a person, of vectors of `model`; the same once more takes the place of the one before.
// Throws diarization_error where the list is of another model or the sample has less than SHORTEST_SAMPLE
// seconds.
void add_voice(voice_list *voices, const std::string &name, const std::string &model, voice_sample sample);

inline constexpr double SHORTEST_SAMPLE = 3;

// Gives known people their names: each speaker to at most one, each person to at most one, so that the sum
// of the cosines above `threshold` is largest; a person's cosine is that of the nearest sample. Speakers
// remember it as their similarity. Throws diarization_error where the list is of another model.
void name_voices(diarization *result, const voice_list &voices, double threshold);

#endif
