// SPDX-License-Identifier: Apache-2.0
// A session on one thread while others read its results. Built with ThreadSanitizer too (preset tsan), which
// sees what no result shows.
#include <gtest/gtest.h>
#include <parley.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support.h"
#include "zx_parley_internal.h"

namespace {

const std::string FOLDER = PARLEY_SOURCE_DIR;

// Results, handed from the thread that listens to those that read.
class hand_over {
public:
    void put(parley_result *result) {
        const std::lock_guard lock(mutex_);
        waiting_.push_back(result);
        changed_.notify_one();
    }

    // Null once nothing more comes.
    parley_result *take() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !waiting_.empty() || has_ended_; });
        if (waiting_.empty()) return nullptr;
        parley_result *result = waiting_.front();
        waiting_.pop_front();
        return result;
    }

    void end() {
        const std::lock_guard lock(mutex_);
        has_ended_ = true;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<parley_result *> waiting_;
    bool has_ended_ = false;
};

std::string text_of(const parley_result *result, const char *format) {
    char *text = nullptr;
    size_t size = 0;
    EXPECT_EQ(parley_write_text(result, format, &text, &size), PARLEY_OK) << parley_message();
    const std::string written(text ? text : "", size);
    parley_free(text);
    return written;
}

TEST(threads, results_are_read_while_their_session_goes_on) {
    zx_parley_samples_t samples;
    ASSERT_EQ(zx_parley_internal_read((FOLDER + "/examples/three-voices.wav").c_str(), INT32_MAX, nullptr,
                                      &samples),
              ZX_STATUS_SUCCESS);
    parley_diarizer *diarizer = nullptr;
    ASSERT_EQ(parley_open(SHIPPED_MODEL.c_str(), &diarizer), PARLEY_OK);
    parley_options options;
    parley_options_init(&options, sizeof(options));
    options.jobs = 4;
    parley_session *session = nullptr;
    ASSERT_EQ(parley_listen(diarizer, "x", 1, 16000, &options, &session), PARLEY_OK);

    hand_over results;
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; r++) {
        readers.emplace_back([&results] {
            while (parley_result *result = results.take()) {
                EXPECT_FALSE(text_of(result, "json").empty());
                EXPECT_FALSE(text_of(result, "svg").empty());
                for (int32_t i = 0; i < parley_result_num_segments(result); i++)
                    EXPECT_NE(parley_result_speaker(result, parley_result_segment(result, i).speaker).name,
                              nullptr);
                char *unknown = nullptr;
                EXPECT_EQ(parley_write_text(result, "no-such", &unknown, nullptr), PARLEY_INVALID);
                EXPECT_NE(std::string(parley_message()).find("no-such"), std::string::npos);
                parley_result_delete(result);
            }
        });
    }
    for (int64_t at = 0; at < samples.count; at += 64000) {
        const int64_t count = std::min<int64_t>(64000, samples.count - at);
        ASSERT_EQ(parley_session_feed(session, samples.pcm + at, count), PARLEY_OK);
        parley_result *state = nullptr;
        ASSERT_EQ(parley_session_update(session, 1, &state), PARLEY_OK);
        if (state) results.put(state);
    }
    parley_result *last = nullptr;
    ASSERT_EQ(parley_session_end(session, &last), PARLEY_OK);
    EXPECT_EQ(parley_result_num_speakers(last), 3);
    results.put(last);
    results.end();
    for (std::thread &reader : readers) reader.join();
    parley_session_delete(session);
    parley_close(diarizer);
}

TEST(threads, results_of_one_recording_are_asked_again_side_by_side) {
    parley_diarizer *first = nullptr;
    ASSERT_EQ(parley_open(SHIPPED_MODEL.c_str(), &first), PARLEY_OK);
    parley_options options;
    parley_options_init(&options, sizeof(options));
    options.keep_embeddings = 1;
    parley_result *result = nullptr;
    ASSERT_EQ(parley_diarize_file(first, (FOLDER + "/examples/three-voices.wav").c_str(), &options, nullptr,
                                  nullptr, &result),
              PARLEY_OK);
    std::vector<std::thread> askers;
    for (int32_t speakers = 1; speakers <= 3; speakers++) {
        askers.emplace_back([result, speakers] {
            parley_diarizer *own = nullptr;
            ASSERT_EQ(parley_open(SHIPPED_MODEL.c_str(), &own), PARLEY_OK);
            parley_options asked;
            parley_options_init(&asked, sizeof(asked));
            asked.min_speakers = asked.max_speakers = speakers;
            asked.sensitivity = speakers == 1 ? 0.4 : 0.5;
            parley_result *again = nullptr;
            EXPECT_EQ(parley_recluster(own, result, &asked, &again), PARLEY_OK) << parley_message();
            EXPECT_EQ(parley_result_num_speakers(again), speakers);
            parley_result_delete(again);
            parley_close(own);
        });
    }
    for (std::thread &t : askers) t.join();
    parley_result_delete(result);
    parley_close(first);
}

}  // namespace
