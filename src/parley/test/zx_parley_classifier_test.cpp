// SPDX-License-Identifier: Apache-2.0
#include "zx_parley_classifier.h"

#include <algorithm>

#include "model_builder.h"
#include "zx_file.h"
#include "zx_math.h"

namespace {

auto load(const model_builder &model) {
    const temporary_file file(model.classifier_block());
    const zx_file_ptr stream(zx_fopen(file.path(), "rb"));
    zx_parley_classifier_param_t *param = nullptr;
    EXPECT_EQ(zx_parley_classifier_param_load(stream.get(), &param), ZX_STATUS_SUCCESS);
    return owned<zx_parley_classifier_param_delete>(param);
}

// The embeddings that a new classifier gives, in chunks or as one.
std::vector<float> process(const zx_parley_classifier_param_t *param, const int16_t *feature,
                           int32_t num_frames, bool whole = false, int32_t num_workers = 1) {
    zx_parley_classifier_t *classifier = nullptr;
    EXPECT_EQ(zx_parley_classifier_init(param, &classifier), ZX_STATUS_SUCCESS);
    const auto owner = owned<zx_parley_classifier_delete>(classifier);
    std::vector<float> rows(static_cast<size_t>(num_frames * param->embedding->output_dimension));
    EXPECT_EQ(whole
                  ? zx_parley_classifier_internal_process_chunk(classifier, feature, num_frames, rows.data())
                  : zx_parley_classifier_process(classifier, feature, num_frames, rows.data(), nullptr,
                                                 num_workers),
              ZX_STATUS_SUCCESS);
    return rows;
}

// The same by the way that gives features back, and how often it told of progress.
std::vector<float> process_releasing(const zx_parley_classifier_param_t *param, const int16_t *feature,
                                     int32_t num_frames, int32_t num_workers) {
    zx_parley_classifier_t *classifier = nullptr;
    EXPECT_EQ(zx_parley_classifier_init(param, &classifier), ZX_STATUS_SUCCESS);
    const auto owner = owned<zx_parley_classifier_delete>(classifier);
    std::vector<float> rows(static_cast<size_t>(num_frames * param->embedding->output_dimension));
    const auto count = static_cast<size_t>(num_frames) * 80;
    zx_heap_ptr<int16_t> copy(zx_heap_zeroed<int16_t>(count));
    std::copy(feature, feature + count, copy.get());
    double highest = -1;
    const zx_progress_t progress = {[](void *context, double done) {
                                        auto *before = static_cast<double *>(context);
                                        EXPECT_GE(done, *before);
                                        *before = done;
                                        return done <= 1;
                                    },
                                    &highest};
    EXPECT_EQ(zx_parley_classifier_process_releasing(classifier, &copy, num_frames, rows.data(), &progress,
                                                     num_workers),
              ZX_STATUS_SUCCESS);
    return rows;
}

}  // namespace

// With K = 10 and W = 3: a second chunk starts 6 frames before the end of the first and gives rows from its
// fourth on.
TEST(zx_parley_classifier, long_input_is_pieced_together_from_overlapping_chunks) {
    model_builder model;
    model.chunk_length_frames = 10;
    model.warmup_length_frames = 3;
    const auto param = load(model);
    const auto feature = random_int16(300 * 80, 4, -3000, 3000);
    for (int32_t num_frames : {1, 9, 10, 11, 14, 15, 26, 40, 41, 43, 300}) {  // up to 75 chunks
        const std::vector<float> rows = process(param.get(), feature.data(), num_frames);
        std::vector<float> expected(rows.size());
        int32_t start = 0, skip = 0;
        for (;;) {
            const int32_t length = std::min(10, num_frames - start);
            const std::vector<float> chunk = process(param.get(), feature.data() + start * 80, length, true);
            std::copy(chunk.begin() + skip * 4, chunk.end(), expected.begin() + (start + skip) * 4);
            if (start + length == num_frames) break;
            start += length - 6;
            skip = 3;
        }
        EXPECT_EQ(rows, expected) << num_frames;
        for (int32_t num_workers : {2, 3, 8})
            EXPECT_EQ(process(param.get(), feature.data(), num_frames, false, num_workers), expected);
        for (int32_t num_workers : {1, 2, 8})
            EXPECT_EQ(process_releasing(param.get(), feature.data(), num_frames, num_workers), expected);
        for (size_t t = 0; t < rows.size(); t += 4) {
            EXPECT_NEAR(zx_cosine_similarity(4, &rows[t], &rows[t], 1), 1.0f, 2e-3f);
        }
    }
}

TEST(zx_parley_classifier, layers_may_narrow_and_stack) {
    model_builder model;
    model.forward = model.backward = {make_rnn_shape(80, 12), make_rnn_shape(12, 12), make_rnn_shape(12, 5)};
    model.embedding = {5, 7};
    const auto param = load(model);
    EXPECT_EQ(zx_parley_classifier_param_inconsistency(param.get(), 40, 80), nullptr);
    const auto feature = random_int16(30 * 80, 5, -3000, 3000);
    EXPECT_EQ(process(param.get(), feature.data(), 30).size(), 210u);
}

TEST(zx_parley_classifier, too_long_a_warm_up_loads_and_aborts_when_processing) {
    model_builder model;
    model.chunk_length_frames = model.warmup_length_frames = 20;
    const auto param = load(model);
    const auto feature = random_int16(80, 6);
    EXPECT_ASSERTION(process(param.get(), feature.data(), 1),
                     "3 * warmup_length_frames < chunk_length_frames");
}

TEST(zx_parley_classifier, dimensions_that_do_not_fit_are_named) {
    struct misfit {
        const char *expected;
        void (*change)(model_builder &model);
    };
    const misfit table[] = {
        {"normalization dimension", [](model_builder &m) { m.normalization_dimension = 39; }},
        {"input size of a recurrent layer",
         [](model_builder &m) { m.forward = m.backward = {make_rnn_shape(79, 8)}; }},
        {"input size of a recurrent layer", [](model_builder &m) { m.backward = {make_rnn_shape(81, 8)}; }},
        {"input size of a recurrent layer",
         [](model_builder &m) {
             m.forward = m.backward = {make_rnn_shape(80, 8), make_rnn_shape(7, 8)};
         }},
        {"output size of a recurrent layer's projection",
         [](model_builder &m) { m.forward[0].input_projection.outputs = 23; }},
        {"output size of a recurrent layer's projection",
         [](model_builder &m) { m.backward[0].hidden_projection.outputs = 25; }},
        {"hidden size of the backward layer", [](model_builder &m) { m.backward = {make_rnn_shape(80, 7)}; }},
        {"hidden size above that of the first layer",
         [](model_builder &m) {
             m.forward = m.backward = {make_rnn_shape(80, 8), make_rnn_shape(8, 9)};
             m.embedding.inputs = 9;
         }},
        {"input size of the embedding layer", [](model_builder &m) { m.embedding.inputs = 9; }},
    };
    for (const misfit &row : table) {
        model_builder model;
        row.change(model);
        EXPECT_STREQ(zx_parley_classifier_param_inconsistency(load(model).get(), 40, 80), row.expected);
    }
}
