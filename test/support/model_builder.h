// SPDX-License-Identifier: Apache-2.0
// Builds model files with chosen dimensions and random weights.
#ifndef PARLEY_TEST_MODEL_BUILDER_H
#define PARLEY_TEST_MODEL_BUILDER_H

#include <cmath>
#include <string>
#include <vector>

#include "support.h"

struct fc_shape {
    int32_t inputs;
    int32_t outputs;
};

struct rnn_shape {
    fc_shape input_projection;
    fc_shape hidden_projection;
};

inline rnn_shape make_rnn_shape(int32_t inputs, int32_t hidden) {
    return {{inputs, 3 * hidden}, {hidden, 3 * hidden}};
}

// A model description whose defaults fit together: 80 inputs, one layer of 8, embeddings of 4.
struct model_builder {
    std::string magic = "parley";
    std::string version = "1.0.0";
    int32_t normalization_dimension = 40;
    std::vector<rnn_shape> forward = {make_rnn_shape(80, 8)};
    std::vector<rnn_shape> backward = {make_rnn_shape(80, 8)};
    fc_shape embedding = {8, 4};
    int32_t chunk_length_frames = 20;
    int32_t warmup_length_frames = 5;
    std::vector<float> thresholds = {0.2f, 0.28f, 0.13f, 0.05f};  // offline, prune, segment, background
    std::vector<float> reference_centroid = {0.5f, 0.5f, 0.5f, 0.5f};
    uint64_t seed = 1;

    std::string classifier_block() const {
        random_numbers random(seed);
        std::string bytes = bytes_of(normalization_dimension);
        for (int32_t d = 0; d < normalization_dimension; d++) bytes += bytes_of(int16_t{-9000});
        for (int32_t d = 0; d < normalization_dimension; d++) bytes += bytes_of(int16_t{700});
        bytes += bytes_of(static_cast<int32_t>(forward.size()));
        for (const std::vector<rnn_shape> &direction : {forward, backward}) {
            for (const rnn_shape &layer : direction) {
                bytes += fc_block(layer.input_projection, random) + fc_block(layer.hidden_projection, random);
            }
        }
        return bytes + fc_block(embedding, random) + bytes_of(chunk_length_frames, warmup_length_frames);
    }

    std::string cluster_block() const {
        std::string bytes;
        for (float threshold : thresholds) bytes += bytes_of(threshold);
        bytes += bytes_of(static_cast<int32_t>(reference_centroid.size()));
        for (float value : reference_centroid) bytes += bytes_of(value);
        return bytes;
    }

    std::string bytes() const { return magic + version + classifier_block() + cluster_block(); }

    static std::string fc_block(fc_shape shape, random_numbers &random) {
        std::string bytes = bytes_of(shape.inputs, shape.outputs);
        for (int64_t i = 0; i < int64_t{shape.outputs} * (1 + shape.inputs); i++) {
            bytes += static_cast<char>(random.between(-40, 40));
        }
        return bytes;
    }
};

#endif
