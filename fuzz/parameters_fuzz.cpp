// SPDX-License-Identifier: Apache-2.0
// What a model file knows behind its network: whatever loads must give numbers for any embeddings and
// features.
#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "errors.h"
#include "fuzz.h"
#include "parameters.h"
#include "speech_detection.h"

namespace {

void append(uint64_t value, size_t size, std::string *to) {
    for (size_t i = 0; i < size; i++) to->push_back(static_cast<char>(value >> (8 * i)));
}

// The bytes as the parameters of a network, whose hash they name.
std::string model_of(const uint8_t *data, size_t size) {
    std::string file = "network";
    const uint64_t hash = hash_of(file);
    file.append(reinterpret_cast<const char *>(data), size);
    append(hash, 8, &file);
    append(size, 4, &file);
    append(2, 4, &file);  // version
    return file + "parleycl";
}

void evaluate(const model_parameters &parameters) {
    const std::array<double, 3> values = {-1e30, 0, 1e30};
    for (const double value : values) {
        (void) parameters.candidate_costs.evaluate(
            std::vector<double>(size_t{NUM_CANDIDATE_FEATURES}, value));
        (void) parameters.segment_confidence.evaluate(
            std::vector<double>(size_t{NUM_SEGMENT_FEATURES}, value));
    }
    const speech_network &network = parameters.speech;
    if (network.is_empty() || network.dimension > 256) return;
    const int32_t count = 40;
    std::vector<float> frames_of_one(static_cast<size_t>(count * network.dimension));
    for (size_t i = 0; i < frames_of_one.size(); i++) frames_of_one[i] = static_cast<float>(i % 7) - 3;
    const frames all = {frames_of_one.data(), count, network.dimension};
    fuzz_require(speech_log_odds(all, network, 1).size() == size_t{count}, "odds for every frame");
    const std::vector<int32_t> rows = rows_of_speech(all, network, 0, 1);
    fuzz_require(std::is_sorted(rows.begin(), rows.end()) && (rows.empty() || rows.back() < count),
                 "frames in their order");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string made = model_of(data, size), raw(reinterpret_cast<const char *>(data), size);
    for (const std::string &file : {made, raw}) {
        try {
            evaluate(read_model_sections(file, "model").parameters);
        } catch (const diarization_error &) {  // which names what is damaged
        }
    }
    return 0;
}
