// SPDX-License-Identifier: Apache-2.0
// A recording's embeddings as a file, so that its speakers can be sought again without the recording and
// without the network.
#ifndef PARLEY_EMBEDDINGS_FILE_H
#define PARLEY_EMBEDDINGS_FILE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine.h"

struct recording_embeddings {
    std::string model;  // whose embeddings they are
    int64_t num_samples = 0;
    std::vector<float> waveform;
    embedding_table rows;
};

// 20 bytes that name the format, then little-endian: 64 bits of FNV-1a of all that follows; the number of
// samples (64 bits); the numbers of bytes of the model's name, of peaks of the waveform, of frames and of an
// embedding's values (32 bits each); the name; the peaks; the embeddings (floats).
std::string write_embeddings(const std::string &model, int64_t num_samples,
                             const std::vector<float> &waveform, const frames &rows);

// Throws diarization_error for what is no such file or is damaged; `name` is for its message.
recording_embeddings read_embeddings(std::string_view bytes, const std::string &name);

#endif
