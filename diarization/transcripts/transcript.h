// SPDX-License-Identifier: Apache-2.0
// Transcripts with times, as speech recognizers write them: read, given speakers, and written as they came
// or in a format for reading.
#ifndef PARLEY_TRANSCRIPT_H
#define PARLEY_TRANSCRIPT_H

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "parley.h"
#include "result.h"
#include "rttm.h"

// Whose voice is heard between two times, in seconds.
using voice_function = std::function<std::string(double start, double end)>;

// Turns, ready to be asked who speaks.
class speakers_over_time {
public:
    // `reach`: seconds from a turn up to which somebody stands in where nobody speaks: whose voice it is, if
    // that can be told, or else the nearest.
    speakers_over_time(std::vector<turn> turns, double reach, voice_function voice = nullptr);

    // Who speaks during [start, end]: who speaks longest in it; where nobody does, who stands in; nobody ("")
    // otherwise.
    std::string at(double start, double end) const;

    // Whether more than one do.
    bool is_shared(double start, double end) const;

private:
    std::vector<turn> turns_;     // by start
    std::vector<double> latest_;  // the latest end so far
    double reach_;
    voice_function voice_;

    // Calls f(turn) for what lies within reach of [start, end].
    template <class F>
    void for_each_near(double start, double end, F f) const;
};

// The transcript `text` with a speaker for every word or caption. Which format it is shows from its
// beginning:
//
//   JSON    Whisper-style {"segments": [{"start", "end", "text", "words": [{"start", "end", "word"}]}]}, also
//           a bare list of such segments or words: a "speaker" is added to every object with "start" and
//           "end" (or "offsets")
//   WebVTT  a voice tag, <v Name>, before the caption's text
//   SRT     "Name: " before the caption's text
//   TSV     a column more
//   CTM     the fields for type and speaker at the end of the line (and for confidence, NA where there is
//           none)
//   Sphinx  lines of word, start, end and probability, as PocketSphinx gives them with -time yes: the speaker
//           at the end
//
// Segments and captions with text end where the speaker changes. Words without times of their own share
// their caption's by their length. Throws std::runtime_error for what is none of them, with the number of
// the line where there is one.
std::string assign_speakers(const std::string &text, const speakers_over_time &speakers);

// A word that two speakers share goes with its sentence, if it is the sentence's first or last.
void keep_sentences_together(const speakers_over_time &speakers, std::vector<spoken_word> *words);

// The words of such a transcript, by start: find_words may find none, where objects have times and no text,
// and read_words throws std::runtime_error then.
std::vector<spoken_word> find_words(const std::string &text, const speakers_over_time &speakers);
std::vector<spoken_word> read_words(const std::string &text, const speakers_over_time &speakers);

// Throws std::runtime_error unless at least half of the words begin in a recording of so many seconds: times
// may be of another unit, or of another recording.
void check_words_lie_within(const std::vector<spoken_word> &words, double seconds);

struct transcript_format {
    parley_format shown;
    // About a recording of this name; null where it takes a whole result.
    std::string (*write)(const std::vector<spoken_word> &words, const std::string &recording);
};

std::span<const transcript_format> transcript_formats();

// Words in one of these formats. Throws std::runtime_error for another one.
std::string write_words(const std::vector<spoken_word> &words, std::string_view format,
                        const std::string &recording);

#endif
