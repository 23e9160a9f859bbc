// SPDX-License-Identifier: Apache-2.0
// Model files: whatever loads must run. Recurrent layers are driven directly, since a whole run asserts that
// no embedding is all zeros, which a model may well give.
#include <algorithm>
#include <memory>
#include <vector>

#include "fuzz.h"
#include "zx_heap.h"
#include "zx_log_switch.h"
#include "zx_parley_internal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static fuzz_file file;
    zx_log_disable();
    zx_parley_t *object = nullptr;
    const zx_status_t status = zx_parley_init(file.with(data, size), &object);
    fuzz_require((status == ZX_STATUS_SUCCESS) == (object != nullptr), "an engine exactly on success");
    if (!object) {
        char **messages = nullptr;
        int32_t depth = 0;
        fuzz_require(zx_get_error_stack(&messages, &depth) == ZX_STATUS_SUCCESS && depth > 0,
                     "a failure leaves messages");
        zx_free_error_stack(messages);
        return 0;
    }
    const zx_owned<zx_parley_t, zx_parley_delete> engine(object);
    constexpr int32_t NUM_FRAMES = 3;
    std::vector<int16_t> pcm(NUM_FRAMES * ZX_PARLEY_FRAME_LENGTH);
    for (size_t i = 0; i < pcm.size(); i++) pcm[i] = static_cast<int16_t>(i * 40503u);
    std::vector<int16_t> x(NUM_FRAMES * ZX_PARLEY_FRAME_SIZE);
    fuzz_require(zx_parley_internal_features(object, pcm.data(), NUM_FRAMES, x.data()) == ZX_STATUS_SUCCESS,
                 "features are computed");
    zx_parley_internal_preprocess(object, x.data(), 2 * NUM_FRAMES);
    const zx_parley_classifier_param_t *param = object->param->classifier;
    std::vector<int16_t> row(x.begin(), x.begin() + ZX_PARLEY_FRAME_SIZE);
    for (int32_t l = 0; l < param->num_layers; l++) {
        std::vector<int16_t> y(static_cast<size_t>(zx_rnn_param_hidden_size(param->forward[l])));
        for (zx_rnn_t *layer : {object->classifier->forward[l], object->classifier->backward[l]}) {
            fuzz_require(zx_rnn_process(layer, row.data(), y.data()) == ZX_STATUS_SUCCESS, "a layer runs");
        }
        row = y;
    }
    std::vector<int16_t> embedding(static_cast<size_t>(param->embedding->output_dimension));
    zx_fc_process(object->classifier->embedding, row.data(), embedding.data());
    if (3 * int64_t{param->warmup_length_frames} < param->chunk_length_frames &&
        std::any_of(embedding.begin(), embedding.end(), [](int16_t value) { return value != 0; })) {
        std::vector<float> tags(embedding.size(), 0.0f);
        tags[0] = 1.0f;
        uint32_t num_clusters = 0, cluster = 0;
        fuzz_require(
            zx_parley_cluster_process(object->cluster, tags.data(), param->embedding->output_dimension, 1,
                                      &num_clusters, &cluster) == ZX_STATUS_SUCCESS,
            "clustering runs");
    }
    return 0;
}
