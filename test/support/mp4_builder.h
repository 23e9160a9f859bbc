// SPDX-License-Identifier: Apache-2.0
// Builds ISO base media files out of boxes.
#ifndef PARLEY_TEST_MP4_BUILDER_H
#define PARLEY_TEST_MP4_BUILDER_H

#include <string>
#include <vector>

// Big-endian integer of `size` bytes.
inline std::string be(uint64_t value, int size) {
    std::string bytes;
    for (int i = size - 1; i >= 0; i--) bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}
inline std::string be16(uint64_t value) {
    return be(value, 2);
}
inline std::string be32(uint64_t value) {
    return be(value, 4);
}

inline std::string box(const std::string &type, const std::string &content) {
    return be32(8 + content.size()) + type + content;
}
inline std::string full_box(const std::string &type, const std::string &content, uint32_t flags = 0) {
    return box(type, be32(flags) + content);
}

inline std::string audio_entry(const std::string &type, uint16_t channels, uint32_t rate,
                               const std::string &boxes = "") {
    return box(type, std::string(6, '\0') + be16(1) + std::string(8, '\0') + be16(channels) + be16(16) +
                         be32(0) + be32(uint64_t{rate} << 16) + boxes);
}

// The entry of an AAC track: an "esds" box around its AudioSpecificConfig.
inline std::string aac_entry(uint16_t channels, uint32_t rate, const std::string &config) {
    const auto descriptor = [](char tag, const std::string &content) {
        return std::string(1, tag) + static_cast<char>(content.size()) + content;
    };
    const std::string decoder = "\x40\x15" + std::string(11, '\0') + descriptor(5, config);
    return audio_entry("mp4a", channels, rate,
                       full_box("esds", descriptor(3, std::string(3, '\0') + descriptor(4, decoder) +
                                                          descriptor(6, "\x02"))));
}

// A 3GP file with one track, of AMR-NB unless its entry says otherwise. Every part is a member, so that
// tests can damage any of them.
struct amr_file_builder {
    std::vector<std::string> samples;
    uint32_t samples_per_chunk = 1;
    std::string handler = "soun";
    std::string edts;
    uint16_t rate = 8000;
    std::string entry;             // made from the rate where empty
    std::string stsz, stsc, stco;  // made from the samples where empty
    bool has_moov = true;

    // Frames of 12.2 kbit/s with random bits.
    explicit amr_file_builder(size_t num_frames = 20) {
        uint32_t state = 1;
        for (size_t f = 0; f < num_frames; f++) {
            std::string frame(1, '\x3C');  // type 7, good
            for (int i = 0; i < 31; i++)
                frame += static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
            samples.push_back(frame);
        }
    }

    std::string ftyp() const { return box("ftyp", "3gp4" + be32(0) + "isom"); }

    std::string stbl(uint32_t first_offset) const {
        std::string sizes = be32(0) + be32(samples.size()), offsets;
        uint32_t offset = first_offset, num_chunks = 0;
        for (size_t i = 0; i < samples.size(); i++) {
            sizes += be32(samples[i].size());
            if (i % samples_per_chunk == 0) {
                offsets += be32(offset);
                num_chunks++;
            }
            offset += static_cast<uint32_t>(samples[i].size());
        }
        return box("stbl",
                   full_box("stsd", be32(1) + (entry.empty() ? audio_entry("samr", 2, rate) : entry)) +
                       (stsz.empty() ? full_box("stsz", sizes) : stsz) +
                       (stsc.empty() ? full_box("stsc", be32(1) + be32(1) + be32(samples_per_chunk) + be32(1))
                                     : stsc) +
                       (stco.empty() ? full_box("stco", be32(num_chunks) + offsets) : stco));
    }

    std::string moov(uint32_t first_offset) const {
        const std::string mdhd =
            full_box("mdhd", be32(0) + be32(0) + be32(8000) + be32(160 * samples.size()) + be32(0));
        const std::string hdlr = full_box("hdlr", be32(0) + handler + std::string(12, '\0') + "name" + '\0');
        const std::string minf = box("minf", stbl(first_offset));
        return box("moov", box("free", "abc") + box("trak", edts + box("mdia", mdhd + hdlr + minf)));
    }

    std::string bytes() const {
        std::string data;
        for (const std::string &sample : samples) data += sample;
        const auto first_offset = static_cast<uint32_t>(ftyp().size() + 8);
        return ftyp() + box("mdat", data) + (has_moov ? moov(first_offset) : "");
    }
};

#endif
