// SPDX-License-Identifier: Apache-2.0
// What a model knows beside its network: how embeddings become speakers. It stands behind the last field that
// the engine reads, which ignores it; docs/model-file.md has the layout.
#ifndef PARLEY_PARAMETERS_H
#define PARLEY_PARAMETERS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "regression_trees.h"

// Features of a candidate (clustering/candidates.h). More come at the end, so that former models' trees stay.
inline constexpr int32_t NUM_CANDIDATE_FEATURES = 48;
// Features of a segment (clustering/segments.h).
inline constexpr int32_t NUM_SEGMENT_FEATURES = 10;

// A network with one hidden layer that hears whether somebody speaks (clustering/speech_detection.h).
struct speech_network {
    std::vector<int32_t> contexts;  // odd numbers of frames: its inputs are their means around a frame
    int32_t dimension = 0;          // of a frame
    std::vector<float> weights;     // num_units() rows of contexts.size() * dimension
    std::vector<float> biases;
    std::vector<float> output_weights;
    float output_bias = 0;

    size_t num_units() const { return biases.size(); }
    size_t num_inputs() const { return contexts.size() * static_cast<size_t>(dimension); }
    bool is_empty() const { return biases.empty(); }
};

// A layer of a network over time: an output of frame f is its bias and the sum over taps t and inputs of
// weight times the input of frame f + (t - taps / 2) dilation.
struct convolution {
    int32_t num_inputs = 0;
    int32_t taps = 0;  // an odd number
    int32_t dilation = 0;
    std::vector<float> weights;  // for each output a row of taps * num_inputs
    std::vector<float> biases;
};

// Hears whether two speak at once (clustering/overlap_detection.h). Behind the first layer and behind every
// second one negative values become 0; the second of each pair between the first and the last layer adds to
// what the pair takes in; the last has three outputs: nobody speaks, one, more.
struct overlap_network {
    std::vector<convolution> layers;

    bool is_empty() const { return layers.empty(); }
};

struct model_parameters {
    speech_network speech;
    regression_trees candidate_costs;     // what choosing a candidate would cost: log(share of speech + 0.02)
    regression_trees segment_confidence;  // the share of a segment in which its speaker speaks
    overlap_network overlap;
    std::optional<int32_t> level;  // to which quiet recordings are brought (base/level.h), if any
};

struct model_sections {
    std::string_view network;     // what the engine reads
    model_parameters parameters;  // empty where the file has none
};

// Takes a model file apart, whose bytes `file` must outlive the result. Throws diarization_error where the
// parameters are damaged, of another version or of another network; `name` is for its message.
model_sections read_model_sections(std::string_view file, const std::string &name);

// FNV-1a of 64 bits.
uint64_t hash_of(std::string_view bytes);

#endif
