// SPDX-License-Identifier: Apache-2.0
// Fingerprints of everything that the engine computes, a line each, for comparison between machines:
// features, embeddings, tags and segments of the models and audio given, and of the stages alone on numbers
// of their own. Needs nothing but the library, so that it also runs where no test framework is to be had
// (scripts/same-bits).
//
// Of models with trees that choose among divisions also the divisions of a recording, what is said of each,
// what each would cost, and the confidence of the segments.
//
//     bits FOLDER AUDIO MODEL...       FOLDER: test/data/vectors; AUDIO: speech of several people
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "candidates.h"
#include "level.h"
#include "overlap_detection.h"
#include "parameters.h"
#include "resegmentation.h"
#include "segments.h"
#include "speech_detection.h"
#include "zx_audio_file.h"
#include "zx_fft.h"
#include "zx_file.h"
#include "zx_heap.h"
#include "zx_log_switch.h"
#include "zx_math.h"
#include "zx_parley_internal.h"
#include "zx_resampler.h"

namespace {

// FNV-1a over the values' bytes in little-endian order.
template <class T>
uint64_t fingerprint(const T *values, size_t count) {
    uint64_t hash = 14695981039346656037u;
    for (size_t i = 0; i < count; i++) {
        uint64_t bits = 0;
        if constexpr (sizeof(T) == 8) {
            std::memcpy(&bits, &values[i], 8);
        } else if constexpr (sizeof(T) == 4) {
            uint32_t word;
            std::memcpy(&word, &values[i], 4);
            bits = word;
        } else {
            bits = static_cast<uint16_t>(values[i]);
        }
        for (size_t b = 0; b < sizeof(T); b++) hash = (hash ^ ((bits >> (8 * b)) & 255)) * 1099511628211u;
    }
    return hash;
}

template <class T>
void print(const std::string &what, const std::vector<T> &values) {
    std::printf("%-28s %016llx\n", what.c_str(),
                static_cast<unsigned long long>(fingerprint(values.data(), values.size())));
}

std::vector<int16_t> read_pcm(const std::string &path) {
    const zx_file_ptr file(zx_fopen(path.c_str(), "rb"));
    if (!file) return {};
    std::fseek(file.get(), 0, SEEK_END);
    std::vector<int16_t> pcm(static_cast<size_t>(std::ftell(file.get())) / 2);
    std::rewind(file.get());
    if (zx_file_read_int16(file.get(), pcm.data(), pcm.size()) != ZX_STATUS_SUCCESS) return {};
    return pcm;
}

bool print_model(const char *path, const std::vector<int16_t> &pcm) {
    zx_parley_t *object = nullptr;
    if (zx_parley_init(path, &object) != ZX_STATUS_SUCCESS) return false;
    const zx_owned<zx_parley_t, zx_parley_delete> engine(object);
    const char *slash = std::strrchr(path, '/');
    const std::string name = slash ? slash + 1 : path;
    const auto num_frames = static_cast<int32_t>(pcm.size() / ZX_PARLEY_FRAME_LENGTH);

    std::vector<int16_t> features(static_cast<size_t>(num_frames) * ZX_PARLEY_FRAME_SIZE);
    if (zx_parley_internal_features(object, pcm.data(), num_frames, features.data()) != ZX_STATUS_SUCCESS)
        return false;
    zx_parley_internal_preprocess(object, features.data(), 2 * num_frames);
    print(name + " features", features);

    const auto embedding_size = static_cast<size_t>(object->param->classifier->embedding->output_dimension);
    zx_parley_samples_t samples;
    samples.pcm = pcm.data();
    samples.count = static_cast<int32_t>(pcm.size());
    zx_heap_ptr<float> rows;
    if (zx_parley_internal_embed(object, &samples, nullptr, &rows) != ZX_STATUS_SUCCESS) return false;
    const std::vector<float> embeddings(rows.get(),
                                        rows.get() + static_cast<size_t>(num_frames) * embedding_size);
    print(name + " embeddings", embeddings);

    std::vector<uint32_t> tags(static_cast<size_t>(num_frames));
    if (zx_parley_internal_cluster(object, rows.get(), nullptr, num_frames, nullptr, nullptr, tags.data()) !=
        ZX_STATUS_SUCCESS) {
        return false;
    }
    zx_parley_internal_reset(object);
    print(name + " tags", tags);

    int32_t count = 0;
    zx_parley_segment_t *segments = nullptr;
    if (zx_parley_process(object, pcm.data(), static_cast<int32_t>(pcm.size()), &count, &segments) !=
        ZX_STATUS_SUCCESS)
        return false;
    std::vector<uint32_t> words(3 * static_cast<size_t>(count));
    if (count > 0) std::memcpy(words.data(), segments, words.size() * sizeof(uint32_t));
    zx_parley_segments_delete(segments);
    print(name + " segments", words);
    return true;
}

// The divisions of the first half minute of a recording, for a model with trees.
bool print_divisions(const char *path, const char *audio) {
    const zx_file_ptr file(zx_fopen(path, "rb"));
    std::string bytes;
    for (int byte; file && (byte = std::fgetc(file.get())) != EOF;) bytes += static_cast<char>(byte);
    const model_parameters parameters = read_model_sections(bytes, path).parameters;
    if (parameters.candidate_costs.is_empty()) return true;
    zx_parley_t *object = nullptr;
    if (zx_parley_init(path, &object) != ZX_STATUS_SUCCESS) return false;
    const zx_owned<zx_parley_t, zx_parley_delete> engine(object);
    zx_parley_samples_t samples;
    if (zx_parley_internal_read(audio, INT32_MAX, nullptr, &samples) != ZX_STATUS_SUCCESS) return false;
    samples.count = std::min(samples.count, 30 * 16000);
    const int32_t num_frames = samples.count / ZX_PARLEY_FRAME_LENGTH;
    if (zx_parley_internal_make_features(object, &samples, nullptr) != ZX_STATUS_SUCCESS) return false;
    if (parameters.level) {
        int16_t *features = samples.feature.get();
        const int64_t num_rows = 2 * int64_t{num_frames};
        amplify(features, num_rows, gain_to(*parameters.level, level_of(features, num_rows)));
    }
    zx_heap_ptr<float> rows;
    if (zx_parley_internal_embed(object, &samples, nullptr, &rows) != ZX_STATUS_SUCCESS) return false;
    const frames all = {rows.get(), num_frames, object->param->classifier->embedding->output_dimension};
    print("log odds of speech", speech_log_odds(all, parameters.speech, 1));
    if (!parameters.overlap.is_empty())
        print("log odds of overlap", overlap_log_odds(all, parameters.overlap, 1));
    const zx_parley_cluster_param_t *model = object->param->cluster;

    clustering_input input;
    input.embeddings = &all;
    input.background.assign(model->reference_centroid, model->reference_centroid + all.size);
    input.min_background_distance = 0.8 * double{model->background_threshold};
    input.first_labels.resize(static_cast<size_t>(num_frames));
    if (zx_parley_internal_cluster(object, rows.get(), nullptr, num_frames, nullptr, nullptr,
                                   input.first_labels.data()) != ZX_STATUS_SUCCESS)
        return false;
    input.engine_labels = input.first_labels;
    resegment(all, input.background.data(), {.merge_threshold = double{model->offline_threshold}},
              &input.engine_labels);
    const frame_blocks blocks(all);
    const candidate_set candidates(input, blocks);
    std::vector<uint32_t> labels;
    std::vector<double> features, costs, confidence;
    for (const candidate_features &row : candidates.features()) {
        features.insert(features.end(), row.begin(), row.end());
        costs.push_back(parameters.candidate_costs.evaluate(row));
    }
    for (size_t i = 0; i < costs.size(); i++) {
        const tags found = candidates.labels_of_frames(i, 1);
        labels.insert(labels.end(), found.begin(), found.end());
        for (const segment &s : segments_of(all, found, centroids_of(all, found), input.background.data(),
                                            {costs[i], 0}, parameters.segment_confidence))
            confidence.push_back(s.confidence);
    }
    print("divisions", labels);
    print("features of divisions", features);
    print("costs of divisions", costs);
    print("confidence", confidence);
    return true;
}

// The stages alone. A kernel of the resampler is not among them: sine and cosine are the C library's.
void print_stages(const std::vector<int16_t> &pcm) {
    std::vector<int16_t> all(65536), out(all.size());
    for (size_t i = 0; i < all.size(); i++) all[i] = static_cast<int16_t>(i);
    zx_sigmoid(65536, all.data(), out.data());
    print("sigmoid", out);
    zx_tanh(65536, all.data(), out.data());
    print("tanh", out);
    for (size_t i = 0; i < 63; i++) out[i] = zx_log10(static_cast<int64_t>((uint64_t{1} << i) * 3 / 2));
    out.resize(63);
    print("log10", out);
    std::vector<float> roots(2000);
    for (size_t i = 0; i < roots.size(); i++) {
        const uint64_t n = i;
        roots[i] = zx_inverse_sqrt(static_cast<float>(n * n * n + 1) * 0.001f);
    }
    print("inverse square root", roots);

    std::vector<float> kernel(101);
    for (size_t i = 0; i < kernel.size(); i++) kernel[i] = static_cast<float>((i * 37) % 101) / 5000.0f;
    std::vector<int16_t> filtered(4000 - 100);
    (void) low_pass_filter(pcm.data(), 4000, filtered.data(), kernel.data(), 50);
    print("low-pass filter", filtered);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: bits FOLDER AUDIO MODEL...\n");
        return 2;
    }
    zx_log_disable();
    const std::vector<int16_t> pcm = read_pcm(std::string(argv[1]) + "/extremes.s16");
    if (pcm.size() < 4000) {
        std::fprintf(stderr, "bits: no audio in %s\n", argv[1]);
        return 1;
    }
    print_stages(pcm);
    for (int i = 3; i < argc; i++) {
        if (!print_model(argv[i], pcm) || !print_divisions(argv[i], argv[2])) {
            std::fprintf(stderr, "bits: %s cannot be run\n", argv[i]);
            return 1;
        }
    }
    return 0;
}
