// SPDX-License-Identifier: Apache-2.0
// Every allocation fails once: through creation, processing of a buffer and processing of a file of each
// format, the n-th allocation returns null, for every n. The call must then fail with ZX_STATUS_OUT_OF_MEMORY
// (or, inside a third-party decoder, with any status, or succeed where the decoder does without), leave
// nothing behind, and the same engine must give the same result as before.
//
// The allocator of the C library is replaced for the whole program, so this is not built with sanitizers.

#include <dlfcn.h>

#include <atomic>
#include <cstdlib>

#include "model_builder.h"
#include "mp4_builder.h"
#include "segments.h"
#include "zx_parley_internal.h"

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *block);
}

namespace {

std::atomic<bool> is_counting{false};
std::atomic<int64_t> num_allocations{0};  // while counting
std::atomic<int64_t> failing{0};          // number of the one that fails; 0 for none
std::atomic<int64_t> balance{0};          // blocks taken and not given back while counting

bool may_allocate() {
    return !is_counting || ++num_allocations != failing;
}

void *taken(void *block) {
    if (is_counting && block) balance++;
    return block;
}

}  // namespace

extern "C" void *malloc(size_t size) {
    return may_allocate() ? taken(__libc_malloc(size)) : nullptr;
}

extern "C" void *calloc(size_t count, size_t size) {
    return may_allocate() ? taken(__libc_calloc(count, size)) : nullptr;
}

extern "C" void *realloc(void *block, size_t size) {
    if (!may_allocate()) return nullptr;
    return block ? __libc_realloc(block, size) : taken(__libc_realloc(block, size));
}

extern "C" void *aligned_alloc(size_t alignment, size_t size) {
    return may_allocate() ? taken(__libc_memalign(alignment, size)) : nullptr;
}

extern "C" void free(void *block) {
    if (is_counting && block) balance--;
    __libc_free(block);
}

namespace {

// Runs a call with its n-th allocation failing; returns whether there was an n-th.
template <class Call>
bool with_failure(int64_t n, Call call) {
    num_allocations = 0;
    failing = n;
    is_counting = true;
    call();
    is_counting = false;
    return num_allocations >= n;
}

const char MODEL[] = PARLEY_SOURCE_DIR "/test/data/vectors/small.zx";

std::vector<int16_t> audio() {
    auto pcm = read_file<int16_t>(PARLEY_SOURCE_DIR "/test/data/vectors/extremes.s16");
    pcm.resize(100 * 512);
    return pcm;
}

class allocation : public testing::Test {
protected:
    void SetUp() override {
        zx_log_disable();
        zx_parley_t *object = nullptr;
        ASSERT_EQ(zx_parley_init(MODEL, &object), ZX_STATUS_SUCCESS);
        engine_.reset(object);
        std::fflush(stdout);
    }
    void TearDown() override { zx_log_enable(); }

    // Fails each allocation of process(outputs) in turn. `is_ours`: no third-party code allocates on the way.
    template <class Process>
    void fail_each(bool is_ours, Process process) {
        int32_t count = 0;
        zx_parley_segment_t *segments = nullptr;
        ASSERT_EQ(process(&count, &segments), ZX_STATUS_SUCCESS);
        const auto expected = take_segments(segments, count);
        // All of the first 300; behind them frames take the same blocks over and over.
        for (int64_t n = 1;; n += n < 300 ? 1 : 13) {
            count = 0;
            segments = nullptr;
            zx_status_t status = ZX_STATUS_SUCCESS;
            const int64_t before = balance;
            if (!with_failure(n, [&] { status = process(&count, &segments); })) break;
            if (status == ZX_STATUS_SUCCESS) {
                EXPECT_FALSE(is_ours) << "allocation " << n;
                take_segments(segments, count);
            } else {
                ASSERT_TRUE(!is_ours || status == ZX_STATUS_OUT_OF_MEMORY) << "allocation " << n;
                EXPECT_EQ(segments, nullptr);
                EXPECT_TRUE(!is_ours || balance == before) << "allocation " << n;
            }
            count = 0;
            segments = nullptr;
            if (n % 8 != 1) continue;
            ASSERT_EQ(process(&count, &segments), ZX_STATUS_SUCCESS) << "after allocation " << n;
            ASSERT_TRUE(take_segments(segments, count) == expected) << "after allocation " << n;
        }
    }

    zx_owned<zx_parley_t, zx_parley_delete> engine_;
};

}  // namespace

TEST_F(allocation, failing_while_creating_an_engine) {
    for (int64_t n = 1;; n++) {
        zx_parley_t *object = nullptr;
        zx_status_t status = ZX_STATUS_SUCCESS;
        if (!with_failure(n, [&] { status = zx_parley_init(MODEL, &object); })) {
            zx_parley_delete(object);
            break;
        }
        // Opening the file takes a block from the C library.
        EXPECT_TRUE(status == ZX_STATUS_OUT_OF_MEMORY || status == ZX_STATUS_IO_ERROR || object) << n;
        zx_parley_delete(object);
    }
}

TEST_F(allocation, failing_while_processing_a_buffer) {
    const auto pcm = audio();
    fail_each(true, [&](int32_t *count, zx_parley_segment_t **segments) {
        return zx_parley_process(engine_.get(), pcm.data(), static_cast<int32_t>(pcm.size()), count,
                                 segments);
    });
}

TEST_F(allocation, failing_while_processing_a_buffer_on_three_threads) {
    const auto pcm = audio();
    engine_->num_workers = 3;
    engine_->param->classifier->chunk_length_frames = 40;
    engine_->param->classifier->warmup_length_frames = 10;
    fail_each(false, [&](int32_t *count, zx_parley_segment_t **segments) {
        return zx_parley_process(engine_.get(), pcm.data(), static_cast<int32_t>(pcm.size()), count,
                                 segments);
    });
}

TEST_F(allocation, failing_while_processing_files) {
    std::vector<int16_t> stereo;
    for (int16_t sample : audio()) stereo.insert(stereo.end(), {sample, sample});
    std::vector<std::unique_ptr<temporary_file>> built;
    built.push_back(std::make_unique<temporary_file>(wav_bytes(audio(), 16000)));
    built.push_back(std::make_unique<temporary_file>(wav_bytes(stereo, 48000, 2)));
    std::vector<std::string> paths;
    for (const auto &file : built) paths.emplace_back(file->path());
#if PARLEY_WITH_AMR && PARLEY_WITH_AAC && PARLEY_WITH_WEBM
    // Without Vorbis and HE-AAC: libvorbis 1.3.7 and the band replication of FDK-AAC 2.0.2 do not look
    // whether they were given the memory that they asked for.
    built.push_back(std::make_unique<temporary_file>(amr_file_builder(30).bytes()));
    paths.emplace_back(built.back()->path());
    for (const char *name :
         {"flac_s16_stereo_44100.flac", "mp3_cbr64_mono_16000.mp3", "opus_stereo_48000.opus",
          "webm_opus_mono_48000.webm", "mp4_frag_dash_16000.mp4"}) {
        paths.push_back(PARLEY_TEST_DATA "/audio/" + std::string(name));
    }
#endif
    for (const std::string &path : paths) {
        SCOPED_TRACE(path);
        fail_each(false, [&](int32_t *count, zx_parley_segment_t **segments) {
            return zx_parley_process_file(engine_.get(), path.c_str(), count, segments);
        });
    }
}
