// SPDX-License-Identifier: Apache-2.0
#include "zx_container_isobmff_boxes.h"

#include "mp4_builder.h"
#include "support.h"

namespace {

const uint8_t *raw(const std::string &bytes) {
    return reinterpret_cast<const uint8_t *>(bytes.data());
}

// Parses a box from memory that ends with it, so that sanitizers see any read behind it.
template <class Box, auto init, auto delete_function, class... Arguments>
auto parse(const std::string &bytes, zx_status_t expected_status, Arguments... arguments) {
    const std::vector<uint8_t> exact(bytes.begin(), bytes.end());
    Box *parsed = nullptr;
    EXPECT_EQ(init(exact.data(), arguments..., &parsed), expected_status);
    return owned<delete_function>(parsed);
}

#define PARSE(name, ...)                                                                \
    (parse<zx_container_isobmff_##name##_box_t, zx_container_isobmff_##name##_box_init, \
           zx_container_isobmff_##name##_box_delete>(__VA_ARGS__))

}  // namespace

TEST(zx_container_isobmff_boxes, headers_may_be_wide_and_never_have_a_version) {
    zx_container_isobmff_box_header_t header;
    zx_container_isobmff_box_header_init(raw(be32(1) + "mdat" + be(0x123456789A, 8)), &header);
    EXPECT_EQ(header.size, 0x123456789Au);
    EXPECT_EQ(header.header_length, 16u);
    EXPECT_STREQ(header.type, "mdat");
    zx_container_isobmff_fullbox_header_t full;
    zx_container_isobmff_fullbox_header_init(raw(be32(12) + "mdhd" + be32(0x01ABCDEF)), &full);
    EXPECT_EQ(full.version, 0);
    EXPECT_EQ(full.flags, 0xABCDEFu);
    EXPECT_EQ(full.header_length, 12u);
    EXPECT_EQ(big_endian_to_host_endian_i16(raw(be16(0xFFFE))), -2);
    EXPECT_EQ(big_endian_to_host_endian_i32(raw(be32(0xFFFFFFFE))), -2);
    EXPECT_EQ(big_endian_to_host_endian_i64(raw(be(~uint64_t{1}, 8))), -2);
}

TEST(zx_container_isobmff_boxes, peeking_leaves_the_position) {
    const temporary_file file("12345" + be32(99) + "moov" + be32(1) + "moof");
    const std::unique_ptr<FILE, int (*)(FILE *)> stream(std::fopen(file.path(), "rb"), std::fclose);
    uint64_t size;
    char type[5];
    std::fseek(stream.get(), 5, SEEK_SET);
    ASSERT_EQ(zx_container_isobmff_box_header_peek_file(stream.get(), &size, type), ZX_STATUS_SUCCESS);
    EXPECT_EQ(size, 99u);
    EXPECT_STREQ(type, "moov");
    EXPECT_EQ(std::ftell(stream.get()), 5);
    for (long position : {13l, 14l, 21l}) {  // a cut wide header, a cut header, the end
        std::fseek(stream.get(), position, SEEK_SET);
        EXPECT_EQ(zx_container_isobmff_box_header_peek_file(stream.get(), &size, type), ZX_STATUS_IO_ERROR);
    }
}

TEST(zx_container_isobmff_boxes, brands_end_with_an_empty_one) {
    const auto ftyp = PARSE(ftyp, box("ftyp", "3gp4" + be32(7) + "isommp42xx"), ZX_STATUS_SUCCESS);
    EXPECT_STREQ(ftyp->major_brand, "3gp4");
    EXPECT_EQ(ftyp->minor_version, 7u);
    ASSERT_EQ(ftyp->num_brands, 2);
    EXPECT_STREQ(ftyp->compatible_brands[1], "mp42");
    EXPECT_STREQ(ftyp->compatible_brands[2], "");
    PARSE(ftyp, box("ftyp", "3gp4"), ZX_STATUS_INVALID_ARGUMENT);
    PARSE(ftyp, box("styp", "3gp4" + be32(0)), ZX_STATUS_INVALID_ARGUMENT);
}

TEST(zx_container_isobmff_boxes, sample_sizes_come_in_four_widths) {
    const std::pair<std::string, std::vector<uint32_t>> table[] = {
        {full_box("stsz", be32(0) + be32(2) + be32(5) + be32(70000)), {5, 70000}},
        {full_box("stsz", be32(32) + be32(3)), {32, 32, 32}},
        {full_box("stz2", be32(16) + be32(2) + be16(5) + be16(600)), {5, 600}},
        {full_box("stz2", be32(8) + be32(2) + "\x05\xFF"), {5, 255}},
        {full_box("stz2", be32(4) + be32(4) + "\x12\x34"), {0x120, 0x12, 0x340, 0x34}},
        {full_box("stz2", be32(4) + be32(3) + "\x12\x34"), {0x120, 0x12, 0x340}},
    };
    for (const auto &[bytes, sizes] : table) {
        const auto stsz = PARSE(stsz, bytes, ZX_STATUS_SUCCESS);
        ASSERT_EQ(stsz->sample_count, sizes.size());
        for (uint32_t i = 0; i < sizes.size(); i++) {
            EXPECT_EQ(zx_container_isobmff_stsz_box_sample_size(stsz.get(), i), sizes[i]);
        }
    }
    PARSE(stsz, full_box("stz2", be32(5) + be32(0)), ZX_STATUS_INVALID_ARGUMENT);
    PARSE(stsz, full_box("stco", be32(0)), ZX_STATUS_INVALID_ARGUMENT);
}

// Counts that the box cannot hold, up to those whose table size would wrap around.
TEST(zx_container_isobmff_boxes, counts_past_the_end_are_refused_without_allocating) {
    for (uint64_t count : {3u, 0x10000000u, 0x15555556u, 0x40000000u, 0x80000000u, 0xFFFFFFFFu}) {
        const std::string two_words = be32(1) + be32(2), count_bytes = be32(count);
        PARSE(stsz, full_box("stsz", be32(0) + count_bytes + two_words), ZX_STATUS_INVALID_ARGUMENT);
        PARSE(stsz, full_box("stz2", be32(16) + count_bytes + be32(1)), ZX_STATUS_INVALID_ARGUMENT);
        PARSE(stsz, full_box("stz2", be32(4) + count_bytes + "\x01"), ZX_STATUS_INVALID_ARGUMENT);
        PARSE(stco, full_box("stco", count_bytes + two_words), ZX_STATUS_INVALID_ARGUMENT);
        PARSE(stco, full_box("co64", count_bytes + two_words), ZX_STATUS_INVALID_ARGUMENT);
        PARSE(stsc, full_box("stsc", count_bytes + two_words + two_words), ZX_STATUS_INVALID_ARGUMENT);
        PARSE(elst, full_box("elst", count_bytes + two_words + two_words), ZX_STATUS_INVALID_ARGUMENT);
        PARSE(stsd, full_box("stsd", count_bytes + box("abcd", std::string(28, 'x'))),
              ZX_STATUS_INVALID_ARGUMENT, "soun");
        PARSE(trun, full_box("trun", count_bytes + two_words, 0x200), ZX_STATUS_INVALID_ARGUMENT);
    }
}

TEST(zx_container_isobmff_boxes, edits_keep_their_signs) {
    const auto elst = PARSE(elst,
                            full_box("elst", be32(2) + be32(9) + be32(0xFFFFFFFF) + be16(1) + be16(0) +
                                                 be32(7) + be32(1024) + be16(0xFFFF) + be16(2)),
                            ZX_STATUS_SUCCESS);
    EXPECT_EQ(elst->media_time[0], -1);
    EXPECT_EQ(elst->media_time[1], 1024);
    EXPECT_EQ(elst->media_rate_integer[1], -1);
    EXPECT_EQ(elst->segment_duration[1], 7u);
}

TEST(zx_container_isobmff_boxes, runs_read_what_their_flags_announce) {
    const auto trun =
        PARSE(trun,
              full_box("trun", be32(2) + be32(0xFFFFFFF0) + be32(10) + be32(11) + be32(20) + be32(21),
                       0x000001 | 0x000100 | 0x000200),
              ZX_STATUS_SUCCESS);
    EXPECT_EQ(trun->data_offset, -16);
    EXPECT_EQ(trun->sample_duration[1], 20u);
    EXPECT_EQ(trun->sample_size[0], 11u);
    EXPECT_EQ(trun->sample_flags, nullptr);
    PARSE(trun, full_box("trun", be32(0)), ZX_STATUS_OUT_OF_MEMORY);
    const auto implicit =
        PARSE(trun, full_box("trun", be32(0xFFFFFFFF)), ZX_STATUS_SUCCESS);  // no table, no memory
    EXPECT_EQ(implicit->sample_count, 0xFFFFFFFFu);

    const auto tfhd =
        PARSE(tfhd, full_box("tfhd", be32(7) + be(0x1122334455, 8) + be32(99), 0x000001 | 0x000010),
              ZX_STATUS_SUCCESS);
    EXPECT_EQ(tfhd->track_ID, 7u);
    EXPECT_EQ(tfhd->base_data_offset, 0x1122334455u);
    EXPECT_EQ(tfhd->default_sample_size, 99u);
    EXPECT_FALSE(tfhd->default_sample_duration_present);
}

TEST(zx_container_isobmff_boxes, descriptor_sizes_have_up_to_four_bytes) {
    const std::tuple<std::string, uint32_t, uint32_t> table[] = {
        {std::string("\x05\0\0\0", 4), 5, 1},
        {std::string("\x81\x00\0\0", 4), 128, 2},
        {"\x80\x80\x80\x22", 0x22, 4},
        {"\xFF\xFF\xFF\xFF", 0x0FFFFFFF, 4},  // the fourth byte is the last in any case
    };
    for (const auto &[bytes, size, count] : table) {
        uint32_t parsed;
        EXPECT_EQ(parse_es_size(raw(bytes), &parsed), count);
        EXPECT_EQ(parsed, size);
    }
}

TEST(zx_container_isobmff_boxes, descriptors_lead_to_the_decoder_configuration) {
    const std::string config = "\x05\x02\x14\x08";
    const std::string decoder = std::string("\x04\x11\x40\x15", 4) + std::string(11, '\0') + config;
    const auto es = [&](char flags, const std::string &optional) {
        return std::string("\x03\x20", 2) + be16(1) + flags + optional + decoder;
    };
    for (const auto &[flags, optional] :
         {std::pair{'\0', std::string()}, {'\x80', be16(2)}, {'\x20', be16(3)}, {'\xA0', be32(4)}}) {
        const auto esds = PARSE(esds, full_box("esds", es(flags, optional)), ZX_STATUS_SUCCESS);
        const auto *info = esds->es_descriptor->decoder_config->decoder_specific_info;
        ASSERT_EQ(info->descriptor.size, 2u);
        EXPECT_EQ(info->data[0], 0x14);
        EXPECT_EQ(esds->es_descriptor->decoder_config->objectTypeIndication, 0x40);
    }
    PARSE(esds, full_box("esds", es('\x40', "")), ZX_STATUS_INVALID_ARGUMENT);  // the stream lies elsewhere
    const std::string whole = es('\0', "");
    for (size_t length = 0; length < whole.size(); length++) {
        PARSE(esds, full_box("esds", whole.substr(0, length)), ZX_STATUS_INVALID_ARGUMENT);
    }
}

TEST(zx_container_isobmff_boxes, the_handler_decides_how_a_track_is_read) {
    amr_file_builder sound;
    const auto moov = PARSE(moov, sound.moov(0), ZX_STATUS_SUCCESS);
    ASSERT_EQ(moov->num_traks, 1);
    const auto *mdia = moov->traks[0]->mdia;
    EXPECT_EQ(mdia->mdhd->timescale, 8000u);
    EXPECT_STREQ(mdia->hdlr->name, "name");
    ASSERT_EQ(mdia->minf->stbl->stsd->num_entries, 1);
    EXPECT_STREQ(mdia->minf->stbl->stsd->entries[0]->header.type, "samr");
    EXPECT_EQ(mdia->minf->stbl->stsd->entries[0]->samplerate, 8000);

    amr_file_builder video;
    video.handler = "vide";
    EXPECT_EQ(PARSE(moov, video.moov(0), ZX_STATUS_SUCCESS)->traks[0]->mdia->minf->stbl->stsd, nullptr);
    PARSE(mdia, box("mdia", box("minf", "")), ZX_STATUS_RUNTIME_ERROR);
}

TEST(zx_container_isobmff_boxes, a_later_child_replaces_an_earlier_one) {
    const auto mfhd = [](uint32_t number) { return full_box("mfhd", be32(number)); };
    const auto moof = PARSE(moof, box("moof", mfhd(1) + mfhd(2)), ZX_STATUS_SUCCESS, uint64_t{77});
    EXPECT_EQ(moof->mfhd->sequence_number, 2u);
    EXPECT_EQ(moof->file_position, 77u);
}

// Children smaller than a header, past their parent, or with a wide size that wraps around.
TEST(zx_container_isobmff_boxes, children_that_do_not_fit_are_refused) {
    const std::string bad[] = {be32(0) + "free",
                               be32(7) + "free",
                               be32(9) + "free",
                               be32(1) + "free",
                               be32(1) + "free" + be32(0),
                               be32(1) + "free" + be(~uint64_t{0}, 8),
                               "fre",
                               be32(1) + "free" + be(15, 8)};
    for (const std::string &child : bad) {
        PARSE(moov, box("moov", child), ZX_STATUS_INVALID_ARGUMENT);
        PARSE(traf, box("traf", full_box("tfhd", be32(1)) + child), ZX_STATUS_INVALID_ARGUMENT);
    }
    PARSE(moov, box("moov", be32(1) + "free" + be(16, 8)), ZX_STATUS_SUCCESS);
}

// Every byte of a movie box replaced by values that make sizes, counts and types wrong: any status, but
// nothing read outside the box and nothing left allocated, which sanitizers watch.
TEST(zx_container_isobmff_boxes, damage_anywhere_is_survived) {
    const std::string moov = amr_file_builder(3).moov(0);
    for (size_t i = 0; i < moov.size(); i++) {
        for (int value : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
            std::string damaged = moov;
            damaged[i] = static_cast<char>(value);
            zx_container_isobmff_box_header_t header;
            zx_container_isobmff_box_header_init(raw(damaged), &header);
            if (header.size > damaged.size() || header.size < 8) continue;  // the caller's to check
            const std::vector<uint8_t> exact(damaged.begin(),
                                             damaged.begin() + static_cast<long>(header.size));
            zx_container_isobmff_moov_box_t *parsed = nullptr;
            (void) zx_container_isobmff_moov_box_init(exact.data(), &parsed);
            zx_container_isobmff_moov_box_delete(parsed);
        }
    }
}
