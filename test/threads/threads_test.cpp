// SPDX-License-Identifier: Apache-2.0
// Many engines on many threads: results as on one thread, messages of the thread's own calls. Built with
// ThreadSanitizer too (preset tsan), which sees what no result shows.

#include <atomic>
#include <barrier>
#include <map>
#include <set>
#include <thread>

#include "segments.h"
#include "support.h"

namespace {

const char MODEL[] = PARLEY_SOURCE_DIR "/test/data/vectors/small.zx";

std::string process(zx_parley_t *engine, const std::vector<int16_t> &pcm) {
    int32_t count = 0;
    zx_parley_segment_t *segments = nullptr;
    EXPECT_EQ(zx_parley_process(engine, pcm.data(), static_cast<int32_t>(pcm.size()), &count, &segments),
              ZX_STATUS_SUCCESS);
    return take_segments(segments, count);
}

zx_owned<zx_parley_t, zx_parley_delete> make_engine() {
    zx_parley_t *object = nullptr;
    EXPECT_EQ(zx_parley_init(MODEL, &object), ZX_STATUS_SUCCESS);
    return owned<zx_parley_delete>(object);
}

// Runs a body of (thread number) on many threads at a time.
template <class Body>
void on_threads(int count, Body body) {
    std::vector<std::thread> threads;
    for (int t = 0; t < count; t++) threads.emplace_back(body, t);
    for (std::thread &thread : threads) thread.join();
}

// A path that does not exist, in the messages of the thread that tried it and of no other.
std::string missing_path(int thread, int round) {
    return "/missing/" + std::to_string(thread) + "-" + std::to_string(round) + ".zx";
}

class threads : public testing::Test {
protected:
    void SetUp() override {
        zx_log_disable();
        testing::internal::CaptureStdout();
    }
    void TearDown() override {
        testing::internal::GetCapturedStdout();
        zx_log_enable();
    }
};

}  // namespace

TEST_F(threads, engines_side_by_side_give_what_one_gives_and_messages_stay_apart) {
    constexpr int NUM_THREADS = 12, NUM_ROUNDS = 6;
    auto pcm = read_file<int16_t>(PARLEY_SOURCE_DIR "/test/data/vectors/extremes.s16");
    pcm.resize(40 * 512);
    std::vector<std::string> expected(NUM_ROUNDS);
    for (size_t r = 0; r < expected.size(); r++) {
        expected[r] = process(make_engine().get(), {pcm.begin() + static_cast<int64_t>(r) * 512, pcm.end()});
    }
    on_threads(NUM_THREADS, [&](int t) {
        const auto engine = make_engine();
        for (int r = 0; r < NUM_ROUNDS; r++) {
            // Somebody else's switch must not matter to anybody.
            if (t == 0) r % 2 ? zx_log_disable() : zx_log_enable();
            const size_t round = static_cast<size_t>((r + t) % NUM_ROUNDS);
            EXPECT_EQ(process(engine.get(), {pcm.begin() + static_cast<int64_t>(round) * 512, pcm.end()}),
                      expected[round]);
            zx_parley_t *none = nullptr;
            EXPECT_EQ(zx_parley_init(missing_path(t, r).c_str(), &none), ZX_STATUS_IO_ERROR);
            zx_status_t status;
            EXPECT_THAT(take_messages(&status),
                        testing::ElementsAre("Failed to open file `" + missing_path(t, r) + "`."));
        }
    });
}

// There are 128 records for the messages of threads: with 200 threads failing at the same time 72 find none
// free. Their calls fail as they should, the others' messages are complete, and afterwards all records are
// free again.
TEST_F(threads, two_hundred_failing_at_once) {
    constexpr int NUM_THREADS = 200, NUM_RECORDS = 128;
    for (int round = 0; round < 3; round++) {
        std::atomic<int> num_kept = 0, num_lost = 0;
        std::barrier all_failed(NUM_THREADS);
        on_threads(NUM_THREADS, [&](int t) {
            zx_parley_t *none = nullptr;
            EXPECT_EQ(zx_parley_init(missing_path(t, round).c_str(), &none), ZX_STATUS_IO_ERROR);
            all_failed.arrive_and_wait();
            zx_status_t status;
            const std::vector<std::string> messages = take_messages(&status);
            if (status == ZX_STATUS_SUCCESS) {
                num_kept++;
                EXPECT_THAT(messages,
                            testing::ElementsAre("Failed to open file `" + missing_path(t, round) + "`."));
            } else {
                num_lost++;
                EXPECT_EQ(status, ZX_STATUS_INVALID_STATE);
            }
        });
        EXPECT_EQ(num_kept, NUM_RECORDS);
        EXPECT_EQ(num_lost, NUM_THREADS - NUM_RECORDS);
    }
}
