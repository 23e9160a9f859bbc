// SPDX-License-Identifier: Apache-2.0
#include "source.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace parley {

source::source(const std::string &path, int rate, int channels)
    : path_(path), rate_(rate), channels_(channels) {
    file_ = samples_from_ = path == "-" ? STDIN_FILENO : open_to_read(path);
    if (file_ < 0) throw std::system_error(errno, std::generic_category(), path);
    while (bytes_.size() < 12 && fill(-1)) {
    }
    if (bytes_.compare(0, 4, "RIFF") == 0) {
        keep_all();
        read_header();
        return;
    }
    for (const char *begin :
         {"fLaC", "OggS", "ID3", "RF64", "FORM", "\xFF\xFB", "\xFF\xF1", "\x1A\x45\xDF\xA3"}) {
        if (!bytes_.starts_with(begin)) continue;
        keep_all();
        decode();
        return;
    }
}

source::source(int descriptor, int rate)
    : path_("microphone"), file_(-1), samples_from_(descriptor), rate_(rate), channels_(1) {}

source::~source() {
    end_relay();
    if (file_ > STDIN_FILENO) close(file_);
}

std::vector<int16_t> source::take(int wait) {
    fill(wait);
    const size_t frame = sizeof(int16_t) * static_cast<size_t>(channels_);
    const size_t size = bytes_.size() / frame * frame;
    std::vector<int16_t> samples(size / sizeof(int16_t));
    if (size > 0) std::memcpy(samples.data(), bytes_.data(), size);
    bytes_.erase(0, size);
    return samples;
}

std::string source::whole() {
    end_relay();
    return kept_ ? kept_->path() : "";
}

// Without a reader the decoder stops to read, too, and the relay would wait for it.
void source::end_relay() {
    if (!relay_.valid()) return;
    decoder_->close_output();
    ends_relay_ = true;
    relay_.get();
    if (relay_error_ != 0) failure_ = std::strerror(relay_error_);
}

bool source::fill(int wait) {
    if (!wait_for_bytes(samples_from_, wait)) return true;
    char block[1 << 16];
    const std::ptrdiff_t got = read_some(samples_from_, block, sizeof(block));
    if (got > 0) {
        bytes_.append(block, static_cast<size_t>(got));
        if (kept_ && !decoder_ && !write_all(kept_->descriptor(), block, static_cast<size_t>(got)))
            failure_ = std::strerror(errno);
        return true;
    }
    if (got < 0) failure_ = std::strerror(errno);
    has_ended_ = true;
    return false;
}

void source::keep_all() {
    kept_.emplace();
    if (!write_all(kept_->descriptor(), bytes_.data(), bytes_.size()))
        throw std::system_error(errno, std::generic_category(), path_);
}

uint32_t source::number(size_t at, size_t size) const {
    uint32_t value = 0;
    for (size_t i = size; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes_[at + i]);
    return value;
}

// Chunks up to the samples, which go on to the end of the stream whatever their size says.
void source::read_header() {
    const auto need = [&](size_t size) {
        while (bytes_.size() < size && fill(-1)) {
        }
        if (bytes_.size() < size) throw std::runtime_error(path_ + ": ends within its header");
    };
    for (size_t at = 12;; at += 8 + number(at + 4, 4) + number(at + 4, 4) % 2) {
        need(at + 8);
        if (bytes_.compare(at, 4, "data") == 0) {
            bytes_.erase(0, at + 8);
            return;
        }
        if (number(at + 4, 4) > 1 << 20) throw std::runtime_error(path_ + ": its header is damaged");
        need(at + 8 + number(at + 4, 4));
        if (bytes_.compare(at, 4, "fmt ") != 0) continue;
        need(at + 24);
        const uint32_t kind = number(at + 8, 2), bits = number(at + 22, 2);
        if ((kind != 1 && kind != 0xFFFE) || bits != 16 || number(at + 10, 2) == 0) {
            decode();
            return;
        }
        channels_ = static_cast<int>(number(at + 10, 2));
        rate_ = static_cast<int>(number(at + 12, 4));
    }
}

// ffmpeg as a child between the stream and the samples.
void source::decode() {
    decoder_ = std::make_unique<child_process>(
        std::vector<std::string>{
            "ffmpeg", "-v",    "quiet",  "-probesize", "65536", "-fflags", "nobuffer", "-protocol_whitelist",
            "pipe",   "-i",    "pipe:0", "-map",       "0:a:0", "-vn",     "-ac",      "1",
            "-ar",    "16000", "-f",     "s16le",      "pipe:1"},
        true);
    if (!decoder_->has_started()) {
        throw std::runtime_error(
            path_ +
            ": is neither raw samples of 16 bits nor WAV of such; anything else takes ffmpeg, which "
            "is not installed");
    }
    samples_from_ = decoder_->output();
    rate_ = 16000;
    channels_ = 1;
    relay_ = std::async(std::launch::async, [this, first = std::move(bytes_)] {
        bool goes_on = write_all(decoder_->input(), first.data(), first.size());
        while (goes_on && !ends_relay_) {
            if (!wait_for_bytes(file_, 200)) continue;
            char block[1 << 16];
            const std::ptrdiff_t got = read_some(file_, block, sizeof(block));
            const auto size = static_cast<size_t>(std::max<std::ptrdiff_t>(got, 0));
            const bool is_kept = got > 0 && write_all(kept_->descriptor(), block, size);
            if (got != 0 && !is_kept) relay_error_ = errno;
            goes_on = is_kept && write_all(decoder_->input(), block, size);
        }
        decoder_->close_input();
    });
    bytes_.clear();
}

}  // namespace parley
