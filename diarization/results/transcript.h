// Transcripts with times, as speech recognizers write them: read, given speakers, and written as they came
// or in a format for reading.
#ifndef PARLEY_TRANSCRIPT_H
#define PARLEY_TRANSCRIPT_H

#include <string>
#include <string_view>
#include <vector>

#include "result.h"
#include "rttm.h"

// Turns, ready to be asked who speaks.
class speakers_over_time {
public:
    // `reach`: seconds from a turn up to which it stands in where nobody speaks.
    speakers_over_time(std::vector<turn> turns, double reach);

    // Who speaks during [start, end]: who speaks longest in it; where nobody does, the nearest within reach;
    // nobody ("") otherwise.
    std::string at(double start, double end) const;

private:
    std::vector<turn> turns_;     // by start
    std::vector<double> latest_;  // the latest end so far
    double reach_;
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
//
// Segments and captions with text end where the speaker changes. Words without times of their own share
// their caption's by their length. Throws std::runtime_error for what is none of them, with the number of
// the line where there is one.
std::string assign_speakers(const std::string &text, const speakers_over_time &speakers);

// The words of such a transcript, by start: find_words may find none, where objects have times and no text,
// and read_words throws std::runtime_error then.
std::vector<spoken_word> find_words(const std::string &text, const speakers_over_time &speakers);
std::vector<spoken_word> read_words(const std::string &text, const speakers_over_time &speakers);

// Throws std::runtime_error unless at least half of the words begin in a recording of so many seconds: times
// may be of another unit, or of another recording.
void check_words_lie_within(const std::vector<spoken_word> &words, double seconds);

// Words as "text" (a paragraph a turn), "markdown", "srt", "vtt" (captions of at most two lines) or "json".
// Throws std::runtime_error for another format.
std::string write_words(const std::vector<spoken_word> &words, std::string_view format);

#endif
