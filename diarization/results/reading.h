// SPDX-License-Identifier: Apache-2.0
// Results that were written earlier, maybe corrected since, as a result again.
#ifndef PARLEY_RESULTS_READING_H
#define PARLEY_RESULTS_READING_H

#include <string>

#include "result.h"

// A result out of a file's text; which format it is shows from its beginning:
//
//   JSON      as it is written here, words and notes included
//   RTTM      about one recording
//   CSV       with a header that names start, end and speaker
//   EAF       a tier a speaker
//   TextGrid  a tier a speaker, intervals without text are pauses
//   SRT       "Name: text" or the name alone
//   WebVTT    with voices, <v Name>
//   Audacity  labels that are names
//
// `name` is that of the text, for messages. Where the text does not tell the recording's name and length,
// the name is the text's own, and the length the last end. Throws std::runtime_error for what is none of
// them, and for times that make no sense.
diarization read_result(const std::string &text, const std::string &name);

#endif
