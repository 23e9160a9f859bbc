// SPDX-License-Identifier: Apache-2.0
#include "zx_error.h"

#include <thread>

#include "support.h"
#include "zx_log.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

void push(const std::string &name) {
    zx_error_log_error("file.cpp", 1, &zx_error_msg_invalid_argument_null, name.c_str());
}

// Runs on a thread of its own, whose record in the process-wide table is new.
template <class Body>
void on_new_thread(Body body) {
    std::thread(body).join();
}

class zx_error : public testing::Test {
protected:
    void SetUp() override { testing::internal::CaptureStdout(); }
    void TearDown() override {
        if (!is_released_) testing::internal::GetCapturedStdout();
    }
    std::string output() {
        is_released_ = true;
        return testing::internal::GetCapturedStdout();
    }

private:
    bool is_released_ = false;
};

// Collects without the helper of other tests, since this fixture captures the output itself.
std::vector<std::string> collect(zx_status_t expected_status) {
    char **messages = reinterpret_cast<char **>(1);
    int32_t depth = -1;
    EXPECT_EQ(zx_get_error_stack(&messages, &depth), expected_status);
    if (expected_status != ZX_STATUS_SUCCESS) {
        EXPECT_EQ(messages, nullptr);
        EXPECT_EQ(depth, 0);
        return {};
    }
    std::vector<std::string> result(messages, messages + depth);
    for (int32_t i = depth; i < 8; i++) EXPECT_STREQ(messages[i], "");
    zx_free_error_stack(messages);
    return result;
}

}  // namespace

TEST(zx_status_to_string, names_every_status_and_nothing_else) {
    const char *names[] = {"SUCCESS",        "OUT_OF_MEMORY", "IO_ERROR",      "INVALID_ARGUMENT",
                           "STOP_ITERATION", "KEY_ERROR",     "INVALID_STATE", "RUNTIME_ERROR"};
    for (int32_t status = 0; status < 8; status++) EXPECT_STREQ(zx_status_to_string(status), names[status]);
    for (int32_t status : {-1, 8, INT32_MAX, INT32_MIN}) EXPECT_EQ(zx_status_to_string(status), nullptr);
}

TEST_F(zx_error, messages_come_innermost_first_and_once) {
    on_new_thread([] {
        zx_error_prepare();
        push("inner");
        push("outer");
        EXPECT_THAT(collect(ZX_STATUS_SUCCESS),
                    ElementsAre("Argument `inner` is NULL.", "Argument `outer` is NULL."));
        EXPECT_THAT(collect(ZX_STATUS_INVALID_STATE), IsEmpty());
    });
    EXPECT_THAT(output(), HasSubstr("(zx_error) Unable to find error stack for `"));
}

TEST_F(zx_error, each_public_call_starts_a_fresh_stack) {
    on_new_thread([] {
        zx_error_prepare();
        push("first call");
        zx_error_prepare();
        push("second call");
        push("second call, outer");
        EXPECT_THAT(collect(ZX_STATUS_SUCCESS), SizeIs(2));
    });
}

TEST_F(zx_error, a_ninth_message_is_dropped_without_a_trace) {
    on_new_thread([] {
        zx_error_prepare();
        for (int i = 1; i <= 9; i++) push("number " + std::to_string(i));
        const std::vector<std::string> messages = collect(ZX_STATUS_SUCCESS);
        ASSERT_THAT(messages, SizeIs(8));
        EXPECT_THAT(messages.back(), HasSubstr("number 8"));
    });
    EXPECT_THAT(output(), Not(HasSubstr("number 9")));
}

TEST_F(zx_error, long_messages_are_cut_to_255_characters) {
    on_new_thread([] {
        zx_error_prepare();
        push(std::string(300, 'x'));
        EXPECT_THAT(collect(ZX_STATUS_SUCCESS), ElementsAre("Argument `" + std::string(245, 'x')));
    });
}

TEST_F(zx_error, internal_text_is_preferred_and_a_missing_one_replaced) {
    on_new_thread([] {
        zx_error_prepare();
        zx_error_log_error("f", 1, &zx_error_msg_alloc, "pcm");
        const zx_error_msg_t empty = {0xAB, nullptr, nullptr};
        zx_error_log_error("f", 2, &empty);
        EXPECT_THAT(collect(ZX_STATUS_SUCCESS),
                    ElementsAre("Failed to allocate memory for `pcm`.", "Orlenta Error (code `000000AB`)"));
    });
}

TEST_F(zx_error, notices_are_printed_with_the_log_off_and_debug_lines_are_not) {
    zx_log_disable();
    zx_log("[DEBUG] hidden\n");
    on_new_thread([] {
        zx_error_prepare();
        push("shown");
        collect(ZX_STATUS_SUCCESS);
    });
    zx_log_enable();
    zx_log("[DEBUG] %d\n", 42);
    const std::string text = output();
    EXPECT_THAT(text,
                testing::ContainsRegex("\\(zx_error\\) \\(\\w+ frame 0\\) Argument `shown` is NULL.\n"));
    EXPECT_THAT(text, HasSubstr("[DEBUG] 42\n"));
    EXPECT_THAT(text, Not(HasSubstr("hidden")));
}
