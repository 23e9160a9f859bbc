// SPDX-License-Identifier: Apache-2.0
// Helpers of the tests: ownership of engine objects, files in a temporary folder, captured messages.
#ifndef PARLEY_TEST_SUPPORT_H
#define PARLEY_TEST_SUPPORT_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zx_heap.h"
#include "zx_log_switch.h"
#include "zx_memory.h"

inline const std::string SHIPPED_MODEL = PARLEY_SOURCE_DIR "/models/parley.zx";

// Owns an object of a module through its delete function: owned<zx_fft_delete>(pointer).
template <auto delete_function, class T>
zx_owned<T, delete_function> owned(T *object) {
    return zx_owned<T, delete_function>(object);
}

inline zx_memory_t *test_memory() {
    zx_memory_t *memory = nullptr;
    EXPECT_EQ(zx_memory_init(&memory), ZX_STATUS_SUCCESS);
    return memory;
}

// Asserts that a statement aborts with the given failed precondition.
#define EXPECT_ASSERTION(statement, expression) \
    EXPECT_DEATH(statement, ::testing::HasSubstr("assertion `" expression "` failed"))

// A file with the given bytes that is removed with the object.
class temporary_file {
public:
    explicit temporary_file(std::string_view bytes, const std::string &suffix = "") {
        static int counter = 0;
        path_ = (std::filesystem::temp_directory_path() /
                 ("parley-test-" + std::to_string(getpid()) + "-" + std::to_string(counter++) + suffix))
                    .string();
        std::ofstream(path_, std::ios::binary)
            .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    temporary_file(const temporary_file &) = delete;
    temporary_file &operator=(const temporary_file &) = delete;
    ~temporary_file() {
        std::error_code ignored;  // of Windows, where files that are open stay
        std::filesystem::remove(path_, ignored);
    }
    const char *path() const { return path_.c_str(); }

private:
    std::string path_;
};

// The calling thread's messages, which are gone from the stack afterwards, and the status of asking for them.
inline std::vector<std::string> take_messages(zx_status_t *status) {
    char **messages = nullptr;
    int32_t depth = 0;
    *status = zx_get_error_stack(&messages, &depth);
    std::vector<std::string> result(messages, messages + depth);
    zx_free_error_stack(messages);
    return result;
}

// The same without the library's notice that there are none.
inline std::vector<std::string> take_messages() {
    zx_status_t status;
    testing::internal::CaptureStdout();
    std::vector<std::string> result = take_messages(&status);
    testing::internal::GetCapturedStdout();
    return result;
}

// All values of a file; fails the test if it cannot be read.
template <class T>
std::vector<T> read_file(const std::filesystem::path &path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    EXPECT_FALSE(error) << path << ": " << error.message();
    if (error) return {};
    std::vector<T> values(size / sizeof(T));
    std::ifstream file(path, std::ios::binary);
    file.read(reinterpret_cast<char *>(values.data()),
              static_cast<std::streamsize>(values.size() * sizeof(T)));
    EXPECT_TRUE(file.good()) << path;
    return values;
}

// Little-endian bytes of values, for files built by tests.
template <class... T>
std::string bytes_of(T... values) {
    std::string bytes;
    (bytes.append(reinterpret_cast<const char *>(&values), sizeof(values)), ...);
    return bytes;
}

// A linear congruential generator: the same numbers on every machine.
class random_numbers {
public:
    explicit random_numbers(uint64_t seed) : state_(seed) {}
    uint32_t next() {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return static_cast<uint32_t>(state_ >> 32);
    }
    int32_t between(int32_t low, int32_t high) {  // inclusive
        return low + static_cast<int32_t>(next() % (static_cast<uint32_t>(high - low) + 1));
    }

private:
    uint64_t state_;
};

inline std::vector<int16_t> random_int16(size_t count, uint64_t seed, int16_t low = INT16_MIN,
                                         int16_t high = INT16_MAX) {
    random_numbers random(seed);
    std::vector<int16_t> values(count);
    for (int16_t &value : values) value = static_cast<int16_t>(random.between(low, high));
    return values;
}

// A WAV file of 16-bit PCM.
inline std::string wav_bytes(const std::vector<int16_t> &samples, int32_t rate, int16_t channels = 1) {
    const auto size = static_cast<int32_t>(samples.size() * sizeof(int16_t));
    std::string bytes = "RIFF" + bytes_of(size + 36) + "WAVEfmt " +
                        bytes_of(int32_t{16}, int16_t{1}, channels, rate, rate * channels * 2,
                                 static_cast<int16_t>(channels * 2), int16_t{16}) +
                        "data" + bytes_of(size);
    bytes.append(reinterpret_cast<const char *>(samples.data()), static_cast<size_t>(size));
    return bytes;
}

#endif
