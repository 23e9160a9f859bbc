// SPDX-License-Identifier: Apache-2.0
#include "zx_container_isobmff.h"

#include <filesystem>

#include "mp4_builder.h"
#include "peak_memory.h"
#include "support.h"

namespace {

auto open_isobmff(const std::string &bytes, zx_status_t expected_status = ZX_STATUS_SUCCESS) {
    const temporary_file file(bytes);
    void *reader = reinterpret_cast<void *>(1);
    EXPECT_EQ(zx_container_isobmff_init(file.path(), &reader), expected_status);
    EXPECT_EQ(reader == nullptr, expected_status != ZX_STATUS_SUCCESS);
    return zx_owned<void, zx_container_isobmff_delete>(reader);
}

std::vector<int16_t> read_all(void *reader) {
    std::vector<int16_t> pcm(static_cast<size_t>(zx_container_isobmff_num_samples(reader)));
    EXPECT_EQ(zx_container_isobmff_read(reader, static_cast<int32_t>(pcm.size()), pcm.data()),
              ZX_STATUS_SUCCESS);
    return pcm;
}

std::string edits(const std::vector<uint32_t> &media_times) {
    std::string entries;
    for (uint32_t time : media_times) entries += be32(1000) + be32(time) + be32(0x10000);
    return box("edts", full_box("elst", be32(media_times.size()) + entries));
}

class zx_container_isobmff : public testing::Test {
protected:
    void SetUp() override { zx_log_disable(); }
    void TearDown() override { zx_log_enable(); }
};

}  // namespace

TEST_F(zx_container_isobmff, amr_frames_are_found_however_they_are_stored) {
    amr_file_builder plain(20);
    const auto reader = open_isobmff(plain.bytes());
    EXPECT_EQ(zx_container_isobmff_num_samples(reader.get()), 3200);
    EXPECT_EQ(zx_container_isobmff_num_channels(reader.get()), 1);
    EXPECT_EQ(zx_container_isobmff_sample_rate(reader.get()), 8000);
    const std::vector<int16_t> expected = read_all(reader.get());
    int16_t one_more;
    EXPECT_EQ(zx_container_isobmff_read(reader.get(), 1, &one_more), ZX_STATUS_IO_ERROR);

    amr_file_builder chunks = plain;  // several samples a chunk
    chunks.samples_per_chunk = 5;
    EXPECT_EQ(read_all(open_isobmff(chunks.bytes()).get()), expected);

    amr_file_builder joined = plain;  // several frames a sample, one of them split over two
    joined.samples = {"", ""};
    for (size_t i = 0; i < plain.samples.size(); i++) {
        const std::string &frame = plain.samples[i];
        joined.samples[0] += i < 10 ? frame : i == 10 ? frame.substr(0, 9) : "";
        joined.samples[1] += i > 10 ? frame : i == 10 ? frame.substr(9) : "";
    }
    EXPECT_EQ(read_all(open_isobmff(joined.bytes()).get()), expected);

    const auto pieces = open_isobmff(plain.bytes());
    std::vector<int16_t> pcm(3200);
    for (int32_t i = 0; i < 3200; i += 64) {
        ASSERT_EQ(zx_container_isobmff_read(pieces.get(), 64, &pcm[static_cast<size_t>(i)]),
                  ZX_STATUS_SUCCESS);
    }
    EXPECT_EQ(pcm, expected);
}

TEST_F(zx_container_isobmff, edits_may_only_be_empty_before_the_last) {
    const uint32_t empty = 0xFFFFFFFF;
    const std::pair<std::vector<uint32_t>, zx_status_t> table[] = {
        {{0}, ZX_STATUS_SUCCESS},
        {{empty, 0}, ZX_STATUS_SUCCESS},
        {{empty, empty, 5}, ZX_STATUS_SUCCESS},
        {{0, empty}, ZX_STATUS_INVALID_ARGUMENT},
        {{0, 5}, ZX_STATUS_INVALID_ARGUMENT},
    };
    for (const auto &[media_times, status] : table) {
        amr_file_builder file;
        file.edts = edits(media_times);
        open_isobmff(file.bytes(), status);
    }
    amr_file_builder without_list;
    without_list.edts = box("edts", "");
    open_isobmff(without_list.bytes(), ZX_STATUS_INVALID_ARGUMENT);
}

TEST_F(zx_container_isobmff, warnings_are_debug_lines) {
    amr_file_builder file(60);  // 1.2 s of media, and 1 s of samples once the last frames are short of bits
    file.edts = edits({0xFFFFFFFF, 0});
    for (size_t i = 40; i < 60; i++) file.samples[i] = "\x7C";  // frames without data
    zx_log_enable();
    testing::internal::CaptureStdout();
    open_isobmff(file.bytes());
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_THAT(output, testing::HasSubstr(
                            " [WARN] Supplied audio file contains edits which may result in inaccurate "
                            "timing info\n"));
    EXPECT_THAT(output,
                testing::HasSubstr(" [WARN] Supplied audio file has a media duration discrepancy which may "
                                   "result in inaccurate timing info\n"));
}

TEST_F(zx_container_isobmff, tables_that_disagree_are_refused) {
    struct damage {
        const char *what;
        void (*apply)(amr_file_builder &file);
    };
    const damage table[] = {
        {"no movie", [](amr_file_builder &f) { f.has_moov = false; }},
        {"no sound", [](amr_file_builder &f) { f.handler = "vide"; }},
        {"no samples", [](amr_file_builder &f) { f.samples.clear(); }},
        {"chunk run past the chunks",
         [](amr_file_builder &f) {
             f.stsc = full_box("stsc", be32(2) + be32(1) + be32(1) + be32(1) + be32(99) + be32(1) + be32(1));
         }},
        {"more samples in chunks than sizes",
         [](amr_file_builder &f) { f.stsc = full_box("stsc", be32(1) + be32(1) + be32(2) + be32(1)); }},
        {"samples per chunk past everything",
         [](amr_file_builder &f) {
             f.stsc = full_box("stsc", be32(1) + be32(1) + be32(0xFFFFFFFF) + be32(1));
         }},
        {"a common size for more samples than the file has bytes",
         [](amr_file_builder &f) { f.stsz = full_box("stsz", be32(1) + be32(0x7FFFFFFF)); }},
        {"an empty track", [](amr_file_builder &f) { f.samples = {std::string()}; }},
    };
    for (const damage &row : table) {
        SCOPED_TRACE(row.what);
        amr_file_builder file;
        row.apply(file);
        open_isobmff(file.bytes(), ZX_STATUS_INVALID_ARGUMENT);
    }
}

TEST_F(zx_container_isobmff, boxes_without_media_do_not_take_the_memory_they_claim) {
    for (const char *type : {"ftyp", "moov"}) {
        const std::string brands = std::strcmp(type, "moov") == 0 ? box("ftyp", "isom" + be32(0)) : "";
        const temporary_file file(brands + be32(0xC0000000) + type + "isom" + be32(0));
        std::filesystem::resize_file(file.path(),
                                     uint64_t{3} << 30 | 4096);  // holes take no room on the disk
        void *reader = nullptr;
        EXPECT_EQ(zx_container_isobmff_init(file.path(), &reader), ZX_STATUS_INVALID_ARGUMENT) << type;
        EXPECT_EQ(zx_container_isobmff_is_compatible_file(file.path()), !brands.empty()) << type;
        EXPECT_LT(peak_memory(), 1U << 30) << type;
    }
}

TEST_F(zx_container_isobmff, fragments_continue_the_track) {
    const std::vector<std::string> frames = amr_file_builder(20).samples;
    const std::vector<int16_t> expected = read_all(open_isobmff(amr_file_builder(20).bytes()).get());
    const auto fragmented = [&](const std::vector<uint32_t> &numbers, uint32_t num_trexs) {
        amr_file_builder file(0);
        std::string movie = file.moov(0), trex;
        for (uint32_t i = 0; i < num_trexs; i++) {
            trex += full_box("trex", be32(1 + i) + be32(1) + be32(160) + be32(32) + be32(0));
        }
        movie = box("moov", movie.substr(8) + box("mvex", trex));
        std::string bytes = file.ftyp() + movie;
        for (size_t part = 0; part < 2; part++) {
            const auto moof = [&](uint32_t offset) {
                const std::string other = box("traf", full_box("tfhd", be32(9)) + full_box("trun", be32(5)));
                const std::string own =
                    box("traf", full_box("tfhd", be32(1)) + full_box("trun", be32(10) + be32(offset), 1));
                return box("moof", full_box("mfhd", be32(numbers[part])) + other + own);
            };
            bytes += moof(static_cast<uint32_t>(moof(0).size() + 8));
            std::string data;
            for (size_t i = 0; i < 10; i++) data += frames[10 * part + i];
            bytes += box("mdat", data);
        }
        return bytes;
    };
    EXPECT_EQ(read_all(open_isobmff(fragmented({1, 2}, 1)).get()), expected);
    open_isobmff(fragmented({0, 2}, 1), ZX_STATUS_INVALID_ARGUMENT);
    open_isobmff(fragmented({2, 2}, 1), ZX_STATUS_INVALID_ARGUMENT);
    open_isobmff(fragmented({1, 2}, 2), ZX_STATUS_INVALID_ARGUMENT);
}

// Cuts and overwritten words anywhere: any status, in no time, with nothing read outside or left behind.
TEST_F(zx_container_isobmff, damage_anywhere_is_survived) {
    const std::string bytes = amr_file_builder(3).bytes();
    const auto attempt = [](const std::string &damaged) {
        const temporary_file file(damaged);
        (void) zx_container_isobmff_is_compatible_file(file.path());
        void *reader = nullptr;
        if (zx_container_isobmff_init(file.path(), &reader) == ZX_STATUS_SUCCESS) {
            std::vector<int16_t> pcm(480);
            const int32_t count = std::min(zx_container_isobmff_num_samples(reader), 480);
            if (count > 0) (void) zx_container_isobmff_read(reader, count, pcm.data());
        }
        zx_container_isobmff_delete(reader);
    };
    for (size_t i = 0; i < bytes.size(); i++) {
        attempt(bytes.substr(0, i));
        for (uint32_t value : {0u, 1u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
            std::string damaged = bytes;
            damaged.replace(i, 4, be32(value));
            attempt(damaged);
        }
    }
}

#if PARLEY_WITH_AAC
// Why an AAC track is decoded twice: reading goes on with the decoder in the state in which counting left
// it, so that what the count heard last comes out first (and where noise is coded as such, the random
// numbers go on). Two tracks that begin with the same access units do not begin with the same samples,
// because one of them ends earlier.
TEST_F(zx_container_isobmff, samples_of_aac_begin_with_what_the_count_left) {
    const auto stream =
        read_file<uint8_t>(std::string(PARLEY_TEST_DATA) + "/audio/adts_mpeg4_fff1_16000.aac");
    amr_file_builder long_track(0), short_track(0);
    long_track.entry = short_track.entry = aac_entry(1, 16000, "\x14\x08");  // low complexity, 16 kHz, mono
    constexpr size_t HEADER = 7;                                             // of an ADTS frame
    for (size_t at = 0, length; at + HEADER < stream.size(); at += length) {
        length = (stream[at + 3] & 3u) << 11 | stream[at + 4] << 3 | stream[at + 5] >> 5;
        ASSERT_GT(length, HEADER);
        const auto unit = stream.begin() + static_cast<ptrdiff_t>(at);
        long_track.samples.emplace_back(unit + HEADER, unit + static_cast<ptrdiff_t>(length));
    }
    constexpr size_t FEWER = 9, UNIT = 1024;
    ASSERT_GT(long_track.samples.size(), 2 * FEWER);
    short_track.samples.assign(long_track.samples.begin(), long_track.samples.end() - FEWER);
    const auto expected = read_all(open_isobmff(long_track.bytes()).get());
    const auto samples = read_all(open_isobmff(short_track.bytes()).get());
    ASSERT_EQ(samples.size() + FEWER * UNIT, expected.size());
    EXPECT_FALSE(std::equal(samples.begin(), samples.begin() + UNIT, expected.begin()));
    EXPECT_EQ(samples, read_all(open_isobmff(short_track.bytes()).get()));
}
#endif
