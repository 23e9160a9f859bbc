// SPDX-License-Identifier: Apache-2.0
#include "parameters.h"

#include "byte_reader.h"
#include "errors.h"

namespace {

constexpr std::string_view MAGIC = "parleycl";
constexpr uint32_t VERSION = 2;
constexpr size_t MAX_CONTEXTS = 16;
constexpr int32_t LONGEST_CONTEXT = 1001;  // frames
constexpr int32_t LARGEST_DIMENSION = 4096;
constexpr size_t MOST_LAYERS = 64, SMALLEST_LAYER = 4 * sizeof(int32_t);
constexpr int32_t MOST_TAPS = 15;

// The end of a file with parameters.
struct footer {
    uint64_t network_hash;
    uint32_t size;  // bytes of the parameters
    uint32_t version;
};
constexpr size_t FOOTER_SIZE = sizeof(footer) + MAGIC.size();

void read_speech_network(byte_reader *from, speech_network *network) {
    network->dimension = from->take<int32_t>();
    const size_t num_units = from->take_count(sizeof(float));
    network->contexts.resize(from->take_count(sizeof(int32_t)));
    const bool is_possible = network->contexts.size() <= MAX_CONTEXTS && network->dimension >= 0 &&
                             network->dimension <= LARGEST_DIMENSION;
    if (!is_possible || (num_units > 0 && network->num_inputs() == 0)) from->refuse();
    for (int32_t &context : network->contexts) {
        context = from->take<int32_t>();
        if (context < 1 || context > LONGEST_CONTEXT || context % 2 == 0) from->refuse();
    }
    from->take_floats(uint64_t{num_units} * network->num_inputs(), &network->weights);
    from->take_floats(num_units, &network->biases);
    from->take_floats(num_units, &network->output_weights);
    network->output_bias = from->take_float();
}

void read_trees(byte_reader *from, int32_t num_features, regression_trees *trees) {
    const auto features_here = from->take<int32_t>();
    trees->roots.resize(from->take_count(sizeof(int32_t)));
    trees->nodes.resize(from->take_count(sizeof(tree_node)));
    for (int32_t &root : trees->roots) root = from->take<int32_t>();
    for (tree_node &node : trees->nodes) {
        node.feature = from->take<int16_t>();
        node.distance = from->take<int16_t>();
        node.value = from->take_float();
    }
    // Every step leads onwards and within the nodes, so that evaluating ends.
    const size_t count = trees->nodes.size();
    if (features_here > num_features) from->refuse();  // fewer are the first of those that there are
    for (const int32_t root : trees->roots)
        if (root < 0 || static_cast<size_t>(root) >= count) from->refuse();
    for (size_t i = 0; i < count; i++) {
        const tree_node &node = trees->nodes[i];
        if (node.feature < 0) continue;
        if (node.feature >= features_here || node.distance < 2 ||
            i + static_cast<size_t>(node.distance) >= count)
            from->refuse();
    }
}

// Weights are whole numbers of 8 bits and a scale for each output.
void read_convolution(byte_reader *from, convolution *layer) {
    layer->num_inputs = from->take<int32_t>();
    const size_t num_outputs = from->take_count(2 * sizeof(float));
    layer->taps = from->take<int32_t>();
    layer->dilation = from->take<int32_t>();
    const bool is_possible = layer->num_inputs > 0 && layer->num_inputs <= LARGEST_DIMENSION &&
                             layer->taps > 0 && layer->taps <= MOST_TAPS && layer->taps % 2 == 1 &&
                             layer->dilation > 0 && layer->dilation <= LONGEST_CONTEXT;
    if (!is_possible) from->refuse();
    std::vector<float> scales;
    from->take_floats(num_outputs, &scales);
    from->take_floats(num_outputs, &layer->biases);
    const size_t width = static_cast<size_t>(layer->num_inputs) * static_cast<size_t>(layer->taps);
    const std::string_view weights = from->take_bytes(width * num_outputs);
    layer->weights.resize(weights.size());
    for (size_t i = 0; i < weights.size(); i++)
        layer->weights[i] = scales[i / width] * static_cast<float>(static_cast<int8_t>(weights[i]));
}

// The first layer, pairs of which the second gives what the first takes, and the last.
void read_overlap_network(byte_reader *from, overlap_network *network) {
    network->layers.resize(from->take_count(SMALLEST_LAYER));
    const size_t count = network->layers.size();
    if (count % 2 != 0 || count > MOST_LAYERS) from->refuse();
    for (size_t l = 0; l < count; l++) {
        convolution &layer = network->layers[l];
        read_convolution(from, &layer);
        const bool fits =
            l == 0 || network->layers[l - 1].biases.size() == static_cast<size_t>(layer.num_inputs);
        const bool adds = l > 0 && l + 1 < count && l % 2 == 0;
        if (!fits || (adds && layer.biases.size() != network->layers[0].biases.size())) from->refuse();
    }
    if (count > 0 && network->layers.back().biases.size() != 3) from->refuse();
}

}  // namespace

uint64_t hash_of(std::string_view bytes) {
    uint64_t hash = 0xcbf29ce484222325;
    for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    return hash;
}

model_sections read_model_sections(std::string_view file, const std::string &name) {
    model_sections result{file, {}};
    if (file.size() < FOOTER_SIZE || file.substr(file.size() - MAGIC.size()) != MAGIC) return result;
    const std::string damaged = name + ": its clustering parameters are damaged";
    byte_reader end(file.substr(file.size() - FOOTER_SIZE), damaged);
    footer last;
    last.network_hash = end.take<uint64_t>();
    last.size = end.take<uint32_t>();
    last.version = end.take<uint32_t>();
    if (last.version != VERSION) {
        throw diarization_error(PARLEY_INVALID, name + ": its clustering parameters are of version " +
                                                    std::to_string(last.version) + ", not " +
                                                    std::to_string(VERSION));
    }
    if (last.size > file.size() - FOOTER_SIZE) end.refuse();
    result.network = file.substr(0, file.size() - FOOTER_SIZE - last.size);
    if (hash_of(result.network) != last.network_hash) {
        throw diarization_error(PARLEY_INVALID,
                                name + ": its clustering parameters were made for another network");
    }
    byte_reader from(file.substr(result.network.size(), last.size), damaged);
    read_speech_network(&from, &result.parameters.speech);
    read_trees(&from, NUM_CANDIDATE_FEATURES, &result.parameters.candidate_costs);
    read_trees(&from, NUM_SEGMENT_FEATURES, &result.parameters.segment_confidence);
    if (from.bytes_left() > 0) read_overlap_network(&from, &result.parameters.overlap);
    if (from.bytes_left() > 0) result.parameters.level = from.take<int16_t>();
    return result;
}
