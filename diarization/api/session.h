// SPDX-License-Identifier: Apache-2.0
// A recording that is still going on: samples come in pieces, the result about what was heard so far
// whenever it is asked for, and in the end the very result that the whole recording gets.
#ifndef PARLEY_SESSION_H
#define PARLEY_SESSION_H

#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "channels.h"
#include "diarizer.h"
#include "frames.h"
#include "level.h"
#include "zx_filterbank.h"
#include "zx_parley_chunks.h"

class session {
public:
    // Samples will be interleaved, at `rate` Hz. Throws diarization_error, as everything here.
    session(diarizer *owner, const std::string &name, const parley_options &options, int32_t num_channels,
            int32_t rate);

    void feed(const int16_t *interleaved, int64_t num_frames);

    // The result about what was heard so far; false if there is nothing new. Only what new samples change
    // goes through the network again. Clustering takes at most `share` of the time that passes; in between
    // new frames go to the nearest of the speakers found. Speakers keep their number, also when the
    // clustering finds others.
    bool update(double share, diarization *state);

    // The result, as if all had come at once. Nothing can be fed any more.
    diarization end();

private:
    void hear(std::span<const int16_t> samples);
    void embed(int32_t tolerance);
    zx_parley_chunk_layout_t layout() const;
    void embed_chunk(const zx_parley_chunk_t &chunk);
    void keep_numbers(const tags &found);
    void extend();
    frames embeddings() const;
    diarization empty_result() const;

    using clock = std::chrono::steady_clock;

    diarizer *owner_;
    std::string name_, prefix_, names_;
    parley_options options_;
    int32_t num_channels_;
    sample_converter converter_;
    zx_owned<zx_filterbank_t, zx_filterbank_delete> filterbank_;
    std::vector<int16_t> pending_;  // mono, before conversion: less than a block
    std::vector<int16_t> hop_;      // samples of a row that is not complete
    int64_t num_samples_ = 0;       // at the engine's rate
    waveform_drawer waveform_;

    std::vector<int16_t> rows_;  // before normalization
    int32_t num_frames_ = 0;
    level_meter meter_;      // of rows_
    int32_t gain_ = 0;       // with which embeddings_ were made
    int32_t num_final_ = 0;  // chunks whose rows no more samples change
    std::vector<float> embeddings_;
    int32_t size_;  // of an embedding

    tags labels_;  // numbers that stay; of as many frames as were told
    uint32_t next_number_ = 1;
    division_evidence evidence_;  // of the last clustering
    clock::time_point last_clustering_{};
    clock::duration clustering_took_{};
};

#endif
