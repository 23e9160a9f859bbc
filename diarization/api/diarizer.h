// From a recording to the answer: embeddings, clustering with as many speakers as asked for, refinement,
// segments, names.
#ifndef PARLEY_DIARIZER_H
#define PARLEY_DIARIZER_H

#include <cstdint>
#include <string>
#include <vector>

#include "engine.h"
#include "parley.h"
#include "result.h"

// Samples that come from the caller instead of from a file.
struct given_samples {
    const int16_t *values;  // interleaved
    int64_t num_frames;
    int32_t num_channels;
    int32_t rate;  // Hz
};

class diarizer {
public:
    // Throws diarization_error, as everything here.
    explicit diarizer(const std::string &model_path) : engine_(model_path) {}

    // `path` names the recording; with `samples` nothing is read from there.
    diarization run(const std::string &path, const given_samples *samples, const parley_options &options,
                    const progress_function &progress);

    // Who speaks in which frame.
    tags find_speakers(const frames &all, const parley_options &options, const progress_function &progress,
                       std::string *note);

    // Fills segments and speakers of `result`, whose duration is known. Speakers are numbered as they are
    // heard, or with `by_tag` by their tags.
    void tell(const frames &all, const tags &which, const parley_options &options, bool by_tag,
              diarization *result);

    engine *own_engine() { return &engine_; }

private:
    void run_channels(const std::string &path, const given_samples *samples, const parley_options &options,
                      const progress_function &progress, diarization *result);
    engine engine_;
};

// Throws diarization_error for values out of range and for options that contradict each other.
void check_options(const parley_options &options);

// The thresholds of a run: the model's where `options` names none.
thresholds thresholds_of(const parley_options &options, const thresholds &own);

// Runs of equal tags but 0, with the tag in place of the speaker, and how sure each is.
std::vector<segment> segments_of(const frames &all, const tags &which, const centroids &speakers,
                                 const float *background);

// Applies merge_gap, min_duration and pad, in that order, to segments ordered by start.
void tidy_segments(std::vector<segment> *segments, double duration, const parley_options &options);

#endif
