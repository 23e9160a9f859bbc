// Transcripts with times, as speech recognizers write them: read, given speakers, and written as they came.
#ifndef PARLEY_TRANSCRIPT_H
#define PARLEY_TRANSCRIPT_H

#include <string>
#include <vector>

#include "rttm.h"

// Who speaks during [start, end]: who speaks longest in it; where nobody does, who speaks within `reach`
// seconds, the nearest first; nobody ("") otherwise.
std::string speaker_at(const std::vector<turn> &turns, double start, double end, double reach);

// The transcript `text` with a speaker for every word or caption. Which format it is shows from its
// beginning:
//
//   JSON    Whisper-style {"segments": [{"start", "end", "text", "words": [{"start", "end", "word"}]}]}, also
//   a
//           bare list of such segments or words: a "speaker" is added to every object with "start" and "end";
//           a segment with words gets the speaker of most of their time
//   WebVTT  a voice tag, <v Name>, before the caption's text
//   SRT     "Name: " before the caption's text
//   CTM     the fields for type and speaker at the end of the line (and for confidence, NA where there is
//   none)
//
// Throws std::runtime_error for what is none of them, with the number of the line where there is one.
std::string assign_speakers(const std::string &text, const std::vector<turn> &turns, double reach);

#endif
