// SPDX-License-Identifier: Apache-2.0
// Samples that come through a pipe, as they come.
#ifndef PARLEY_TOOL_SOURCE_H
#define PARLEY_TOOL_SOURCE_H

#include <atomic>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "system.h"

namespace parley {

// Raw samples of 16 bits, a WAV stream of such samples, or anything else that ffmpeg reads from a pipe. What
// is not raw is kept in a file as well, so that the result in the end is the one of that file.
class source {
public:
    // `path`: "-" is standard input. rate (Hz) and channels of raw samples. Throws std::runtime_error.
    source(const std::string &path, int rate, int channels);

    // Raw samples from an open descriptor, which stays the caller's.
    source(int descriptor, int rate);
    ~source();
    source(const source &) = delete;
    source &operator=(const source &) = delete;

    int rate() const { return rate_; }
    int channels() const { return channels_; }
    bool has_ended() const { return has_ended_; }

    // What broke it, or "".
    const std::string &failure() const { return failure_; }

    // Samples that came within so many milliseconds, whole frames of all channels.
    std::vector<int16_t> take(int wait);

    // All that came, as a file, once no more is wanted; "" for raw samples.
    std::string whole();

private:
    bool fill(int wait);
    void read_header();
    void decode();
    void end_relay();
    void keep_all();
    uint32_t number(size_t at, size_t size) const;

    std::string path_;
    int file_, samples_from_;  // where bytes come from, and samples
    int rate_, channels_;
    std::string bytes_, failure_;
    bool has_ended_ = false;
    std::optional<scratch_file> kept_;
    std::unique_ptr<child_process> decoder_;
    std::atomic<int> relay_error_ = 0;
    std::atomic<bool> ends_relay_ = false;
    std::future<void> relay_;  // from the file to the decoder
};

}  // namespace parley

#endif
