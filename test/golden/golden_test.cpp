// SPDX-License-Identifier: Apache-2.0
// Every stage of the engine against what an independent implementation gave, bit for bit.

#include <filesystem>

#include "support.h"
#include "zx_audio_file.h"
#include "zx_parley_internal.h"

namespace fs = std::filesystem;

namespace {

struct vector_set {
    std::string name;
    fs::path model;
    fs::path input;
    fs::path expected;
};

void PrintTo(const vector_set &set, std::ostream *out) {
    *out << set.expected;
}

// All <model>-<input> folders.
std::vector<vector_set> find_sets() {
    const fs::path root = PARLEY_SOURCE_DIR "/test/data/vectors";
    std::vector<vector_set> sets;
    for (const fs::directory_entry &entry : fs::directory_iterator(root)) {
        const std::string name = entry.path().filename().string();
        const size_t dash = name.find('-');
        if (!entry.is_directory() || dash == std::string::npos) continue;
        const std::string model = name.substr(0, dash);
        sets.push_back({model + "_" + name.substr(dash + 1), root / (model + ".zx"),
                        root / (name.substr(dash + 1) + ".s16"), entry.path()});
    }
    std::sort(sets.begin(), sets.end(), [](const auto &a, const auto &b) { return a.name < b.name; });
    return sets;
}

class golden : public testing::TestWithParam<vector_set> {};

template <class T>
void expect_equal_bits(const std::vector<T> &actual, const std::vector<T> &expected, const char *stage) {
    ASSERT_EQ(actual.size(), expected.size()) << stage;
    for (size_t i = 0; i < actual.size(); i++) {
        ASSERT_EQ(std::memcmp(&actual[i], &expected[i], sizeof(T)), 0)
            << stage << " differ at " << i << ": " << actual[i] << " instead of " << expected[i];
    }
}

}  // namespace

TEST_P(golden, every_stage_agrees_to_the_last_bit) {
    const vector_set &set = GetParam();
    zx_log_disable();
    zx_parley_t *object = nullptr;
    ASSERT_EQ(zx_parley_init(set.model.string().c_str(), &object), ZX_STATUS_SUCCESS) << set.model;
    const auto engine = owned<zx_parley_delete>(object);
    const auto pcm = read_file<int16_t>(set.input);
    const auto num_frames = static_cast<int32_t>(pcm.size() / ZX_PARLEY_FRAME_LENGTH);

    std::vector<int16_t> features(static_cast<size_t>(num_frames) * ZX_PARLEY_FRAME_SIZE);
    for (size_t hop = 0; hop < 2 * static_cast<size_t>(num_frames); hop++) {
        ASSERT_EQ(zx_filterbank_compute(engine->filterbank, &pcm[hop * ZX_PARLEY_HOP_LENGTH],
                                        &features[hop * ZX_FILTERBANK_NUM_BANDS]),
                  ZX_STATUS_SUCCESS);
    }
    zx_filterbank_reset(engine->filterbank);
    expect_equal_bits(features, read_file<int16_t>(set.expected / "features.i16"), "features");
    const std::vector<int16_t> rows = features;
    zx_parley_internal_preprocess(engine.get(), features.data(), 2 * num_frames);
    expect_equal_bits(features, read_file<int16_t>(set.expected / "features_norm.i16"),
                      "normalized features");

    const int32_t embedding_size = engine->param->classifier->embedding->output_dimension;
    std::vector<float> embeddings(static_cast<size_t>(num_frames) * static_cast<size_t>(embedding_size));
    ASSERT_EQ(zx_parley_internal_embed_rows(engine.get(), rows.data(), num_frames, embeddings.data()),
              ZX_STATUS_SUCCESS);
    expect_equal_bits(embeddings, read_file<float>(set.expected / "embeddings.f32"), "embeddings");

    std::vector<uint32_t> tags(static_cast<size_t>(num_frames));
    ASSERT_EQ(zx_parley_internal_cluster(engine.get(), embeddings.data(), nullptr, num_frames, nullptr,
                                         nullptr, tags.data()),
              ZX_STATUS_SUCCESS);
    zx_parley_internal_reset(engine.get());
    expect_equal_bits(tags, read_file<uint32_t>(set.expected / "tags.u32"), "tags");
    // The same of every second half second, once where it lies and once apart.
    std::vector<int32_t> rows_of_some;
    std::vector<float> some;
    for (int32_t f = 0; f < num_frames; f++) {
        if (f / 16 % 2 == 0) continue;
        rows_of_some.push_back(f);
        const auto row = embeddings.begin() + std::ptrdiff_t{f} * embedding_size;
        some.insert(some.end(), row, row + embedding_size);
    }
    std::vector<uint32_t> tags_of_some(rows_of_some.size()), tags_apart(rows_of_some.size());
    const auto num_some = static_cast<int32_t>(rows_of_some.size());
    ASSERT_EQ(zx_parley_internal_cluster(engine.get(), embeddings.data(), rows_of_some.data(), num_some,
                                         nullptr, nullptr, tags_of_some.data()),
              ZX_STATUS_SUCCESS);
    zx_parley_internal_reset(engine.get());
    ASSERT_EQ(zx_parley_internal_cluster(engine.get(), some.data(), nullptr, num_some, nullptr, nullptr,
                                         tags_apart.data()),
              ZX_STATUS_SUCCESS);
    zx_parley_internal_reset(engine.get());
    expect_equal_bits(tags_of_some, tags_apart, "tags of some");
    std::vector<uint32_t> tags_at_once(tags.size());
    ASSERT_EQ(zx_parley_internal_process(engine.get(), features.data(), num_frames, tags_at_once.data()),
              ZX_STATUS_SUCCESS);
    zx_parley_internal_reset(engine.get());
    expect_equal_bits(tags_at_once, tags, "tags of both steps at once");

    int32_t num_segments;
    zx_parley_segment_t *segments = nullptr;
    ASSERT_EQ(zx_parley_process(engine.get(), pcm.data(), static_cast<int32_t>(pcm.size()), &num_segments,
                                &segments),
              ZX_STATUS_SUCCESS);
    const auto bytes = reinterpret_cast<const char *>(segments);
    expect_equal_bits(std::vector<char>(bytes, bytes + static_cast<size_t>(num_segments) * sizeof(*segments)),
                      read_file<char>(set.expected / "segments.bin"), "segments");
    zx_parley_segments_delete(segments);
    zx_log_enable();
}

INSTANTIATE_TEST_SUITE_P(vectors, golden, testing::ValuesIn(find_sets()),
                         [](const auto &set) { return set.param.name; });

// Sine and cosine differ between C libraries in their last bit, hence a tolerance of 1.
TEST(golden_resampler, agrees_within_one) {
    for (int32_t rate : {8000, 22050, 44100, 48000}) {
        const std::string name = PARLEY_TEST_DATA "/resampler/rate" + std::to_string(rate);
        const auto expected = read_file<int16_t>(name + "-to-16000.s16");
        const temporary_file wav(wav_bytes(read_file<int16_t>(name + ".s16"), rate));
        zx_audio_file_t *reader = nullptr;
        ASSERT_EQ(zx_audio_file_init(wav.path(), &reader), ZX_STATUS_SUCCESS);
        const auto owner = owned<zx_audio_file_delete>(reader);
        ASSERT_EQ(zx_audio_file_num_samples(reader), static_cast<int32_t>(expected.size())) << rate;
        std::vector<int16_t> actual(expected.size() + 1);
        ASSERT_EQ(zx_audio_file_read(reader, static_cast<int32_t>(expected.size()), actual.data()),
                  ZX_STATUS_SUCCESS);
        for (size_t i = 0; i < expected.size(); i++)
            ASSERT_NEAR(actual[i], expected[i], 1) << rate << " at " << i;
    }
}
