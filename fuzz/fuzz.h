// SPDX-License-Identifier: Apache-2.0
// Shared by the fuzz targets: numbers taken from the fuzzer's bytes, the bytes as a file, and what a target
// does when a property does not hold.
//
// Every target is a function LLVMFuzzerTestOneInput that must return for any bytes. It is linked either with
// libFuzzer, which invents inputs, or with replay.cpp, which takes them from files.
#ifndef PARLEY_FUZZ_H
#define PARLEY_FUZZ_H

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// Aborts, which the fuzzer takes for a finding.
inline void fuzz_require(bool holds, const char *property) {
    if (holds) return;
    std::fprintf(stderr, "property does not hold: %s\n", property);
    std::abort();
}

// Takes numbers from the front of the input; zeros when it is used up.
class fuzz_bytes {
public:
    fuzz_bytes(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    template <class T>
    T take() {
        T value{};
        const size_t n = size_ < sizeof(T) ? size_ : sizeof(T);
        std::memcpy(&value, data_, n);
        data_ += n;
        size_ -= n;
        return value;
    }
    // A number from low to high.
    int32_t between(int32_t low, int32_t high) {
        return low + static_cast<int32_t>(take<uint32_t>() % (static_cast<uint32_t>(high - low) + 1));
    }
    const uint8_t *data() const { return data_; }
    size_t size() const { return size_; }

private:
    const uint8_t *data_;
    size_t size_;
};

// A file of this process that is given new content for every input.
class fuzz_file {
public:
    fuzz_file() {
        const char *folder = std::getenv("TMPDIR");
        path_ = std::string(folder ? folder : "/tmp") + "/parley-fuzz-" + std::to_string(getpid());
    }
    ~fuzz_file() { std::remove(path_.c_str()); }
    const char *with(const uint8_t *data, size_t size) {
        FILE *file = std::fopen(path_.c_str(), "wb");
        fuzz_require(
            file && (size == 0 || std::fwrite(data, 1, size, file) == size) && std::fclose(file) == 0,
            "the temporary file can be written");
        return path_.c_str();
    }

private:
    std::string path_;
};

#endif
