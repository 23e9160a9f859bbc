// SPDX-License-Identifier: Apache-2.0
#include "zx_check_status.h"

#include "support.h"
#include "zx_file.h"

TEST(zx_check_status, logs_and_returns_the_status) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(zx_check_status("src/a.cpp", 12, ZX_STATUS_KEY_ERROR), ZX_STATUS_KEY_ERROR);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[DEBUG] `src/a.cpp:12`: status `KEY_ERROR` not `ZX_STATUS_SUCCESS`\n");
}

TEST(zx_check_status, frees_pointers_up_to_the_first_null) {
    void *kept = std::malloc(1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(
        zx_check_status_free_all("a", 1, ZX_STATUS_IO_ERROR, std::malloc(8), std::malloc(8), nullptr, kept),
        ZX_STATUS_IO_ERROR);
    testing::internal::GetCapturedStdout();
    std::free(kept);  // a double free if it had been released; a leak of the others if they had not
}

TEST(zx_file, reads_little_endian_values_and_reports_short_reads) {
    const temporary_file file(std::string("\x01\x80\xFE\xFF\xFF\xFF\x00\x00\x80\x3F\xFF", 11));
    const zx_file_ptr stream(zx_fopen(file.path(), "rb"));
    int16_t narrow;
    int32_t wide;
    float real;
    int8_t bytes[2];
    ASSERT_EQ(zx_file_read_int16(stream.get(), &narrow, 1), ZX_STATUS_SUCCESS);
    ASSERT_EQ(zx_file_read_int32(stream.get(), &wide, 1), ZX_STATUS_SUCCESS);
    ASSERT_EQ(zx_file_read_float(stream.get(), &real, 1), ZX_STATUS_SUCCESS);
    EXPECT_EQ(narrow, -32767);
    EXPECT_EQ(wide, -2);
    EXPECT_EQ(real, 1.0f);
    EXPECT_EQ(zx_file_read_int8(stream.get(), bytes, 2), ZX_STATUS_IO_ERROR);
}

TEST(zx_file, counts_must_lie_between_one_and_the_maximum) {
    for (const auto &[value, status] :
         std::vector<std::pair<int32_t, zx_status_t>>{{INT32_MIN, ZX_STATUS_INVALID_ARGUMENT},
                                                      {0, ZX_STATUS_INVALID_ARGUMENT},
                                                      {1, ZX_STATUS_SUCCESS},
                                                      {7, ZX_STATUS_SUCCESS},
                                                      {8, ZX_STATUS_INVALID_ARGUMENT}}) {
        const temporary_file file(bytes_of(value));
        const zx_file_ptr stream(zx_fopen(file.path(), "rb"));
        int32_t count;
        EXPECT_EQ(zx_file_read_count(stream.get(), &count, 7), status) << value;
    }
    EXPECT_ASSERTION((void) zx_fopen(nullptr, "rb"), "path");
    EXPECT_ASSERTION((void) zx_fopen("x", nullptr), "mode");
}
