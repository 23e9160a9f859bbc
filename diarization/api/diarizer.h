// SPDX-License-Identifier: Apache-2.0
// From a recording to the result: embeddings, clustering with as many speakers as asked for, refinement,
// segments, names.
#ifndef PARLEY_DIARIZER_H
#define PARLEY_DIARIZER_H

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "engine.h"
#include "find_speakers.h"
#include "parley.h"
#include "result.h"
#include "transcribing.h"
#include "transcript.h"
#include "voices.h"

// Samples that come from the caller instead of from a file.
struct given_samples {
    const int16_t *values;  // interleaved
    int64_t num_frames;
    int32_t num_channels;
    int32_t rate;  // Hz
};

// A recording's embeddings, and how far the search for its speakers has come, which results of one recording
// share whatever threads they are on.
struct kept_embeddings {
    explicit kept_embeddings(embedding_table of_recording) : rows(std::move(of_recording)) {}
    const embedding_table rows;
    std::mutex mutex{};  // of what follows
    std::unique_ptr<speaker_search> search{};
};

class diarizer {
public:
    // Throws diarization_error, as everything here.
    explicit diarizer(const std::string &model_path) : engine_(model_path) {}

    // `path` names the recording; with `samples` nothing is read from there.
    diarization run(const std::string &path, const given_samples *samples, const parley_options &options,
                    const progress_function &progress);

    // The same recording with other options of clustering and segments, from the embeddings that `before` has
    // kept.
    diarization recluster(const diarization &before, const parley_options &options);

    // The same of what was kept in a file, which `path` names for messages and the recording.
    diarization recluster_file(std::string_view bytes, const std::string &path,
                               const parley_options &options);

    // Who speaks in which frame.
    clustering_result find(const frames &embeddings, const parley_options &options,
                           const progress_function &progress);

    // Fills segments and speakers of `result`, whose duration is known. Speakers are numbered as they are
    // heard, or with `by_tag` by their tags.
    void fill(const frames &embeddings, const tags &labels, const division_evidence &evidence,
              const parley_options &options, bool by_tag, diarization *result);

    // Takes name, length and waveform of a result's recording from its file.
    void read_audio(const std::string &path, const parley_options &options, const progress_function &progress,
                    diarization *result);

    // What is said in a recording about which `result` is, by whom `speakers` tells.
    std::vector<spoken_word> transcribe(const std::string &path, const diarization &result, transcription how,
                                        const speakers_over_time &speakers, const parley_options &options,
                                        const progress_function &progress);

    engine *own_engine() { return &engine_; }

    // check_options, and that the model can do what is asked for.
    void check(const parley_options &options) const;

private:
    void find_again(kept_embeddings *kept, const parley_options &options, const progress_function &progress,
                    diarization *result);
    void run_channels(const std::string &path, const given_samples *samples, const parley_options &options,
                      const progress_function &progress, diarization *result);
    engine engine_;
};

// What speaker `number` of a result says between two times, in seconds, for a list of voices; all of it if
// the end is not behind the start. Throws diarization_error where there is no such speaker, and for a stretch
// of a result that has not kept its embeddings.
voice_sample sample_of(const diarization &result, int number, double start, double end);

// What recluster_file takes. Throws diarization_error for a result that has not kept its embeddings.
std::string embeddings_of(const diarization &result);

// Who of the speakers a stretch sounds like most; null if the result has not kept its embeddings, in which
// case nobody can tell. Lives as long as the result.
voice_function voice_of(const diarization &result);

// Throws diarization_error for values out of range and for options that contradict each other.
void check_options(const parley_options &options);

// The thresholds of a run: the model's where `options` names none.
thresholds thresholds_of(const parley_options &options, const thresholds &own);

// What a speaker_search is asked for.
clustering_policy policy_of(const parley_options &options, const thresholds &own);

#endif
