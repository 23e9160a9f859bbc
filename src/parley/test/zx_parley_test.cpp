// SPDX-License-Identifier: Apache-2.0
#include "zx_parley.h"

#include <cmath>

#include "model_builder.h"
#include "zx_error.h"
#include "zx_file.h"
#include "zx_parley_internal.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct segment {
    float start, end;
    int32_t tag;
    bool operator==(const segment &) const = default;
};

void PrintTo(const segment &s, std::ostream *out) {
    *out << "(" << s.start << ", " << s.end << ", " << s.tag << ")";
}

std::vector<segment> take(zx_parley_segment_t *segments, int32_t count) {
    std::vector<segment> result;
    for (int32_t i = 0; i < count; i++) {
        result.push_back({segments[i].start_sec, segments[i].end_sec, segments[i].speaker_tag});
    }
    zx_parley_segments_delete(segments);
    return result;
}

std::string read_text(const std::string &path) {
    const auto bytes = read_file<char>(path);
    return std::string(bytes.begin(), bytes.end());
}

// A random model, and audio in which it finds segments.
const char SMALL_MODEL[] = PARLEY_SOURCE_DIR "/test/data/vectors/small.zx";
const char EXTREME_AUDIO[] = PARLEY_SOURCE_DIR "/test/data/vectors/extremes.s16";

auto make_engine(const std::string &model, zx_status_t expected_status = ZX_STATUS_SUCCESS) {
    const temporary_file file(model);
    zx_parley_t *engine = nullptr;
    EXPECT_EQ(zx_parley_init(file.path(), &engine), expected_status);
    EXPECT_EQ(engine == nullptr, expected_status != ZX_STATUS_SUCCESS);
    return owned<zx_parley_delete>(engine);
}

std::vector<segment> diarize(zx_parley_t *engine, const std::vector<int16_t> &pcm) {
    int32_t count = -1;
    zx_parley_segment_t *segments = nullptr;
    EXPECT_EQ(zx_parley_process(engine, pcm.data(), static_cast<int32_t>(pcm.size()), &count, &segments),
              ZX_STATUS_SUCCESS);
    return take(segments, count);
}

// Captures the library's notices and debug lines, which go to standard output.
class zx_parley : public testing::Test {
protected:
    void SetUp() override { zx_log_disable(); }
    void TearDown() override {
        zx_log_enable();
        take_messages();
    }
};

}  // namespace

TEST_F(zx_parley, segmenter_gives_what_its_rules_give) {
    const auto engine = make_engine(model_builder().bytes());
    const std::vector<std::pair<std::vector<uint32_t>, std::vector<segment>>> table = {
        {{0}, {}},
        {{0, 0, 0}, {}},
        {{4}, {{0, 0, 4}}},
        {{1, 1, 2, 2}, {{0, .032f, 1}, {.064f, .096f, 2}}},
        {{1, 1, 0, 0}, {{0, .032f, 1}}},
        {{0, 3, 3}, {{.032f, .064f, 3}}},
        {{0, 0, 3}, {{.064f, .064f, 3}}},
        {{1, 2}, {{0, 0, 1}, {0, .032f, 0}}},         // a change on the last frame is not opened
        {{1, 2, 0}, {{0, 0, 1}, {.032f, .064f, 2}}},  // the end falls on the untagged frame
        {{1, 1, 2, 3, 3},
         {{0, .032f, 1}, {.064f, .128f, 2}, {0, 0, 0}}},  // a run of one frame swallows the next
        {{1, 1, 0, 0, 1, 1}, {{0, .032f, 1}, {.128f, .16f, 1}}},
    };
    for (const auto &[tags, expected] : table) {
        int32_t count = 0;
        zx_parley_segment_t *segments = nullptr;
        ASSERT_EQ(zx_parley_internal_segment(engine.get(), tags.data(), static_cast<int32_t>(tags.size()),
                                             &count, &segments),
                  ZX_STATUS_SUCCESS);
        EXPECT_EQ(segments == nullptr, expected.empty());
        EXPECT_EQ(take(segments, count), expected) << testing::PrintToString(tags);
    }
}

TEST_F(zx_parley, frame_times_are_whole_milliseconds) {
    EXPECT_EQ(zx_parley_frame_to_sec(0), 0.0f);
    EXPECT_EQ(zx_parley_frame_to_sec(1), 0.032f);
    EXPECT_EQ(zx_parley_frame_to_sec(3), 0.096f);
    EXPECT_EQ(zx_parley_frame_to_sec(112499), 3599.968f);
    EXPECT_GT(zx_parley_frame_to_sec(4194303),
              134217.0f);  // the last frame that a 31-bit count of samples can hold
    EXPECT_ASSERTION((void) zx_parley_frame_to_sec(-1), "frame >= 0");
}

TEST_F(zx_parley, argument_faults_are_reported_in_order) {
    const auto engine = make_engine(model_builder().bytes());
    const std::vector<int16_t> pcm(1024);
    int32_t count = 0;
    zx_parley_segment_t *segments = nullptr;
    struct fault {
        zx_status_t status;
        std::string message;
    };
    const auto null = [](const char *name) { return "Argument `" + std::string(name) + "` is NULL."; };
    zx_parley_t *object = nullptr;
    const fault table[] = {
        {zx_parley_init(nullptr, nullptr), null("model_path")},
        {zx_parley_init("x", nullptr), null("object")},
        {zx_parley_process(nullptr, nullptr, 0, nullptr, nullptr), null("object")},
        {zx_parley_process(engine.get(), nullptr, 0, nullptr, nullptr), null("pcm")},
        {zx_parley_process(engine.get(), pcm.data(), 511, nullptr, nullptr),
         "Argument `num_samples` value `511` is less than the minimum acceptable value of `512`."},
        {zx_parley_process(engine.get(), pcm.data(), 512, nullptr, nullptr), null("num_segments")},
        {zx_parley_process(engine.get(), pcm.data(), 512, &count, nullptr), null("segments")},
        {zx_parley_process_file(nullptr, nullptr, nullptr, nullptr), null("object")},
        {zx_parley_process_file(engine.get(), nullptr, nullptr, nullptr), null("audio_path")},
        {zx_parley_process_file(engine.get(), "x", nullptr, nullptr), null("num_segments")},
        {zx_parley_process_file(engine.get(), "x", &count, nullptr), null("segments")},
    };
    for (const fault &row : table) EXPECT_EQ(row.status, ZX_STATUS_INVALID_ARGUMENT) << row.message;
    EXPECT_THAT(take_messages(), ElementsAre(null("segments"))) << "only the last call's message is kept";
    (void) zx_parley_process(engine.get(), pcm.data(), 511, nullptr, nullptr);
    EXPECT_THAT(take_messages(), ElementsAre(table[4].message));
    (void) zx_parley_init("x", nullptr);
    EXPECT_THAT(take_messages(), ElementsAre(null("object")));
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(segments, nullptr);
}

TEST_F(zx_parley, a_missing_model_names_its_path_and_leaves_the_output_alone) {
    auto *engine = reinterpret_cast<zx_parley_t *>(1);
    EXPECT_EQ(zx_parley_init("/nonexistent/model.zx", &engine), ZX_STATUS_IO_ERROR);
    EXPECT_THAT(take_messages(), ElementsAre("Failed to open file `/nonexistent/model.zx`."));
    EXPECT_EQ(engine, reinterpret_cast<zx_parley_t *>(1));
}

TEST_F(zx_parley, a_damaged_model_reports_every_level) {
    make_engine(model_builder().bytes().substr(0, 100), ZX_STATUS_IO_ERROR);
    EXPECT_THAT(take_messages(), ElementsAre("`zx_parley_param_load` failed with status `IO_ERROR`."));
    model_builder misfit;
    misfit.embedding.inputs = 9;
    make_engine(misfit.bytes(), ZX_STATUS_INVALID_ARGUMENT);
    EXPECT_THAT(take_messages(),
                ElementsAre("Argument `input size of the embedding layer` is invalid.",
                            "`zx_parley_internal_init` failed with status `INVALID_ARGUMENT`."));
    model_builder short_reference;
    short_reference.reference_centroid = {1.0f, 0.0f, 0.0f};
    make_engine(short_reference.bytes(), ZX_STATUS_INVALID_ARGUMENT);
    model_builder infinite;
    infinite.thresholds[3] = INFINITY;
    make_engine(infinite.bytes(), ZX_STATUS_INVALID_ARGUMENT);
    EXPECT_THAT(take_messages(), testing::Contains("Argument `background threshold` is invalid."));
}

TEST_F(zx_parley, an_engine_without_feature_extraction_refuses_audio) {
    const temporary_file file(model_builder().bytes());
    const zx_file_ptr stream(zx_fopen(file.path(), "rb"));
    zx_parley_param_t *param = nullptr;
    ASSERT_EQ(zx_parley_param_load(stream.get(), &param), ZX_STATUS_SUCCESS);
    zx_parley_t *object = nullptr;
    ASSERT_EQ(zx_parley_internal_init(param, false, &object), ZX_STATUS_SUCCESS);
    const auto engine = owned<zx_parley_delete>(object);
    const std::vector<int16_t> pcm(512);
    int32_t count;
    zx_parley_segment_t *segments;
    zx_error_prepare();
    EXPECT_EQ(zx_parley_process(engine.get(), pcm.data(), 512, &count, &segments), ZX_STATUS_INVALID_STATE);
    EXPECT_THAT(take_messages(),
                ElementsAre("Internal argument misconfiguration: `object->filterbank is NULL`."));
}

// The shipped model on audio without anybody, and on the shortest audio there is.
TEST_F(zx_parley, silence_constants_and_single_frames_give_a_result) {
    const auto engine = make_engine(read_text(SHIPPED_MODEL));
    for (size_t length : {512u, 1023u, 1024u, 16000u, 200000u}) {
        for (const int16_t value : std::initializer_list<int16_t>{0, 1, -32768, 32767}) {
            const auto segments = diarize(engine.get(), std::vector<int16_t>(length, value));
            EXPECT_TRUE(value != 0 || segments.empty()) << length;
        }
        diarize(engine.get(), random_int16(length, length));
    }
}

TEST_F(zx_parley, calls_are_independent_and_ignore_a_partial_frame) {
    const auto engine = make_engine(read_text(SMALL_MODEL));
    auto pcm = read_file<int16_t>(EXTREME_AUDIO);
    pcm.resize(pcm.size() / 512 * 512);
    const auto first = diarize(engine.get(), pcm);
    EXPECT_FALSE(first.empty());
    diarize(engine.get(), random_int16(30000, 77));
    (void) zx_parley_process(engine.get(), pcm.data(), 100, nullptr, nullptr);
    EXPECT_EQ(diarize(engine.get(), pcm), first);
    pcm.resize(pcm.size() + 511, 12345);
    EXPECT_EQ(diarize(engine.get(), pcm), first);
    EXPECT_EQ(engine->num_tags, -1);
    EXPECT_EQ(engine->tag_frequency, nullptr);
}

// Spans of 4096 hops are computed apart from each other.
TEST_F(zx_parley, features_of_long_audio_do_not_depend_on_the_number_of_threads) {
    constexpr int32_t NUM_FRAMES = 5000;
    const auto pcm = random_int16(NUM_FRAMES * 512, 8, -9000, 9000);
    std::vector<int16_t> expected(NUM_FRAMES * 80), actual(NUM_FRAMES * 80);
    zx_filterbank_t *created = nullptr;
    ASSERT_EQ(zx_filterbank_init(test_memory(), 256, &created), ZX_STATUS_SUCCESS);
    const auto filterbank = owned<zx_filterbank_delete>(created);
    for (size_t hop = 0; hop < 2 * NUM_FRAMES; hop++) {
        ASSERT_EQ(zx_filterbank_compute(created, &pcm[hop * 256], &expected[hop * 40]), ZX_STATUS_SUCCESS);
    }
    zx_parley_t *loaded = nullptr;
    ASSERT_EQ(zx_parley_init(SMALL_MODEL, &loaded), ZX_STATUS_SUCCESS);
    const auto engine = owned<zx_parley_delete>(loaded);
    for (int32_t num_workers : {1, 2, 5}) {
        engine->num_workers = num_workers;
        std::fill(actual.begin(), actual.end(), int16_t{7});
        ASSERT_EQ(zx_parley_internal_features(engine.get(), pcm.data(), NUM_FRAMES, actual.data()),
                  ZX_STATUS_SUCCESS);
        EXPECT_EQ(actual, expected) << num_workers;
    }
}

TEST_F(zx_parley, files_are_diarized_as_their_samples_are) {
    const auto engine = make_engine(read_text(SMALL_MODEL));
    const auto pcm = read_file<int16_t>(EXTREME_AUDIO);
    const temporary_file file(wav_bytes(pcm, 16000));
    int32_t count = -1;
    zx_parley_segment_t *segments = nullptr;
    ASSERT_EQ(zx_parley_process_file(engine.get(), file.path(), &count, &segments), ZX_STATUS_SUCCESS);
    const auto expected = diarize(engine.get(), pcm);
    EXPECT_FALSE(expected.empty());
    EXPECT_EQ(take(segments, count), expected);
}

// Samples of files become features as they come, those in memory all at once: rates above, at and below
// the engine's, lengths on both sides of the borders of blocks, hops and frames, and an ending that is
// short of what was promised.
TEST_F(zx_parley, features_of_files_are_those_of_their_samples) {
    const auto engine = make_engine(read_text(SMALL_MODEL));
    const auto all = random_int16(200000, 5);
    const auto check = [&engine](const std::string &bytes) {
        const temporary_file file(bytes);
        zx_parley_samples_t samples;
        ASSERT_EQ(zx_parley_internal_read(file.path(), INT32_MAX, nullptr, &samples), ZX_STATUS_SUCCESS);
        const int32_t num_frames = samples.count / ZX_PARLEY_FRAME_LENGTH;
        std::vector<int16_t> expected(static_cast<size_t>(num_frames) * ZX_PARLEY_FRAME_SIZE);
        if (num_frames > 0) {
            ASSERT_EQ(zx_parley_internal_features(engine.get(), samples.pcm, num_frames, expected.data()),
                      ZX_STATUS_SUCCESS);
        }
        std::vector<int16_t> heard;
        const zx_parley_listener_t listener = {
            [](void *context, const int16_t *pcm, int32_t num_samples) {
                auto *all_of_it = static_cast<std::vector<int16_t> *>(context);
                all_of_it->insert(all_of_it->end(), pcm, pcm + num_samples);
            },
            &heard};
        for (const int32_t num_workers : {1, 3}) {
            engine->num_workers = num_workers;
            heard.clear();
            zx_parley_samples_t read;
            ASSERT_EQ(zx_parley_internal_read_features(engine.get(), file.path(), INT32_MAX, nullptr,
                                                       &listener, &read),
                      ZX_STATUS_SUCCESS);
            EXPECT_EQ(read.count, samples.count);
            EXPECT_TRUE(std::equal(heard.begin(), heard.end(), samples.pcm, samples.pcm + samples.count));
            ASSERT_EQ(read.feature == nullptr, num_frames == 0);
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), read.feature.get()));
        }
        engine->num_workers = 1;
    };
    for (const int32_t rate : {8000, 16000, 44100, 48000}) {
        for (const ptrdiff_t length : {299, 2999, 32768, 65535, 65537, 66048, 98560, 200000}) {
            SCOPED_TRACE(std::to_string(rate) + " Hz, " + std::to_string(length) + " samples");
            check(wav_bytes({all.begin(), all.begin() + length}, rate));
        }
    }
    // 130 frames, of which the last ones are missing.
    const std::string whole = wav_bytes({all.begin(), all.begin() + ptrdiff_t{3} * 512 * 130}, 48000);
    check(whole.substr(0, whole.size() - 600));
}

TEST_F(zx_parley, bad_files_report_their_level) {
    const auto engine = make_engine(model_builder().bytes());
    int32_t count = -1;
    zx_parley_segment_t *segments = nullptr;
    const auto process = [&](const std::string &bytes) {
        const temporary_file file(bytes);
        return zx_parley_process_file(engine.get(), file.path(), &count, &segments);
    };
    EXPECT_EQ(zx_parley_process_file(engine.get(), "/nonexistent.wav", &count, &segments),
              ZX_STATUS_IO_ERROR);
    EXPECT_THAT(take_messages(), ElementsAre("`zx_audio_file` failed to init with status `IO_ERROR`."));
    EXPECT_EQ(process(std::string(100, 'x')), ZX_STATUS_INVALID_ARGUMENT);
    EXPECT_THAT(take_messages(),
                ElementsAre("`zx_audio_file` failed to init with status `INVALID_ARGUMENT`."));
    EXPECT_EQ(process(wav_bytes(std::vector<int16_t>(2000), 16000).substr(0, 2044)), ZX_STATUS_IO_ERROR);
    EXPECT_THAT(take_messages(), ElementsAre(HasSubstr("Failed to read (fread) from file ptr `")));
    EXPECT_EQ(process(wav_bytes(std::vector<int16_t>(511), 16000)), ZX_STATUS_INVALID_ARGUMENT);
    EXPECT_THAT(take_messages(), ElementsAre(HasSubstr("`num_samples` value `511`")));
}

TEST_F(zx_parley, constants_and_null_deletes) {
    EXPECT_STREQ(zx_parley_version(), "1.0.0");
    EXPECT_EQ(zx_sample_rate(), 16000);
    zx_parley_delete(nullptr);
    zx_parley_segments_delete(nullptr);
    zx_free(nullptr);
    zx_free(std::malloc(3));
}
