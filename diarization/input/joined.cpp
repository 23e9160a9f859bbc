// SPDX-License-Identifier: Apache-2.0
#include "joined.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <optional>
#include <vector>

#include "system.h"

namespace {

struct shape {
    uint32_t rate, channels;

    bool operator==(const shape &) const = default;
};

struct mp3_frame {
    shape sound;
    uint32_t size;  // bytes, with its header
};

// A frame of layer 3, from its four bytes (ISO/IEC 11172-3, 2.4.1.3); nothing if they are none.
std::optional<mp3_frame> mp3_frame_of(const uint8_t *h) {
    static constexpr uint32_t RATES[] = {44100, 48000, 32000};
    static constexpr uint32_t KBITS[2][15] = {
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},       // MPEG-2 and 2.5
        {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}};  // MPEG-1
    const uint32_t version = h[1] >> 3 & 3, bits = h[2] >> 4, rate = h[2] >> 2 & 3;
    if (h[0] != 0xFF || (h[1] & 0xE6) != 0xE2 || version == 1 || bits == 0 || bits == 15 || rate == 3)
        return {};
    const bool is_first = version == 3;
    const uint32_t hz = RATES[rate] >> (is_first ? 0 : version == 2 ? 1 : 2);
    const uint32_t size = (is_first ? 144 : 72) * KBITS[is_first][bits] * 1000 / hz + (h[2] >> 1 & 1);
    return mp3_frame{{hz, h[3] >> 6 == 3 ? 1U : 2U}, size};
}

// Bytes here and there, mostly forwards and close together.
class window {
public:
    explicit window(const std::string &path) : file_(file_at(path), std::ios::binary), bytes_(1 << 16) {}

    // False beyond the end.
    bool read(uint64_t at, uint8_t *to, size_t size) {
        if (at < start_ || at + size > start_ + held_) {
            file_.clear();
            file_.seekg(static_cast<std::streamoff>(at));
            file_.read(bytes_.data(), static_cast<std::streamsize>(bytes_.size()));
            start_ = at;
            held_ = static_cast<size_t>(file_.gcount());
            if (size > held_) return false;
        }
        std::memcpy(to, bytes_.data() + (at - start_), size);
        return true;
    }

private:
    std::ifstream file_;
    std::vector<char> bytes_;
    uint64_t start_ = 0;
    size_t held_ = 0;
};

// How far an ID3v2 tag at a place reaches; 0 if there is none.
uint32_t id3_size(const uint8_t *h) {
    if (std::memcmp(h, "ID3", 3) != 0) return 0;
    return 10 + ((h[6] & 127U) << 21 | (h[7] & 127U) << 14 | (h[8] & 127U) << 7 | (h[9] & 127U));
}

bool mp3_changes(window *file) {
    std::optional<shape> first;
    int others = 0;  // frames in a row that are not like the first: a header may be there by chance
    uint64_t at = 0;
    for (std::array<uint8_t, 10> h{}; file->read(at, h.data(), h.size());) {
        if (const uint32_t tag = id3_size(h.data())) {
            at += tag;
            continue;
        }
        const std::optional<mp3_frame> frame = mp3_frame_of(h.data());
        std::array<uint8_t, 4> next{};
        // A frame counts if another of its kind follows it.
        const bool is_frame = frame && file->read(at + frame->size, next.data(), next.size());
        const std::optional<mp3_frame> following = is_frame ? mp3_frame_of(next.data()) : std::nullopt;
        if (!following || following->sound != frame->sound) {
            others = 0;
            at += frame ? frame->size : 1;
            continue;
        }
        if (!first) first = frame->sound;
        others = frame->sound == *first ? 0 : others + 1;
        if (others > 2) return true;
        at += frame->size;
    }
    return false;
}

// Of the first packet of an Opus or Vorbis stream; nothing for others.
std::optional<shape> ogg_shape_of(const uint8_t *packet) {
    const auto u32 = [packet](size_t i) {
        return packet[i] | uint32_t{packet[i + 1]} << 8 | uint32_t{packet[i + 2]} << 16 |
               uint32_t{packet[i + 3]} << 24;
    };
    if (std::memcmp(packet, "OpusHead", 8) == 0) return shape{u32(12), packet[9]};
    if (std::memcmp(packet, "\1vorbis", 7) == 0) return shape{u32(12), packet[11]};
    return {};
}

bool ogg_changes(window *file) {
    constexpr size_t HEADER = 27, FIRST_PACKET = 16;
    std::optional<shape> first;
    uint64_t at = 0;
    for (std::array<uint8_t, HEADER + 255> page{}; file->read(at, page.data(), HEADER);) {
        const size_t segments = page[26];
        if (std::memcmp(page.data(), "OggS", 4) != 0 ||
            !file->read(at + HEADER, page.data() + HEADER, segments))
            return false;
        uint64_t size = HEADER + segments;
        std::array<uint8_t, FIRST_PACKET> packet{};
        const bool begins_stream = (page[5] & 2) != 0 && file->read(at + size, packet.data(), packet.size());
        const std::optional<shape> begun = begins_stream ? ogg_shape_of(packet.data()) : std::nullopt;
        if (begun && first && *begun != *first) return true;
        if (begun) first = begun;
        for (size_t i = 0; i < segments; i++) size += page[HEADER + i];
        at += size;
    }
    return false;
}

}  // namespace

bool changes_on_the_way(const std::string &path) {
    window file(path);
    std::array<uint8_t, 4> begin{};
    if (!file.read(0, begin.data(), begin.size())) return false;
    if (std::memcmp(begin.data(), "OggS", 4) == 0) return ogg_changes(&file);
    if (std::memcmp(begin.data(), "ID3", 3) == 0 || (begin[0] == 0xFF && begin[1] >= 0xE0))
        return mp3_changes(&file);
    return false;
}
