// SPDX-License-Identifier: Apache-2.0
#include "zx_codec_opus.h"

#include <algorithm>
#include <set>

#include "support.h"
#include "zx_codec_vorbis.h"
#include "zx_container_ogg.h"

namespace {

// Writes packets as pages of Ogg streams, one page a packet.
class ogg_writer {
public:
    void begin_stream(int serial) {
        ogg_stream_init(&stream_, serial);
        number_ = 0;
    }
    void end_stream() { ogg_stream_clear(&stream_); }

    void packet(const std::string &content) {
        ogg_packet packet = {};
        packet.packet = reinterpret_cast<unsigned char *>(const_cast<char *>(content.data()));
        packet.bytes = static_cast<long>(content.size());
        packet.b_o_s = number_ == 0;
        packet.packetno = number_++;
        ogg_stream_packetin(&stream_, &packet);
        ogg_page page;
        while (ogg_stream_flush(&stream_, &page) != 0) {
            bytes.append(reinterpret_cast<char *>(page.header), static_cast<size_t>(page.header_len));
            bytes.append(reinterpret_cast<char *>(page.body), static_cast<size_t>(page.body_len));
        }
    }

    std::string bytes;

private:
    ogg_stream_state stream_;
    int64_t number_ = 0;
};

std::string opus_head(char channels, int32_t rate) {
    return std::string("OpusHead\x01") + channels + bytes_of(int16_t{312}, rate, int16_t{0}) + '\0';
}

// Packets of 20 ms of a tone.
std::vector<std::string> opus_packets(int count, int rate, int channels) {
    int error;
    OpusEncoder *encoder = opus_encoder_create(rate, channels, OPUS_APPLICATION_AUDIO, &error);
    EXPECT_EQ(error, OPUS_OK);
    std::vector<std::string> packets;
    for (int p = 0; p < count; p++) {
        std::vector<int16_t> pcm(static_cast<size_t>(rate / 50 * channels));
        for (size_t i = 0; i < pcm.size(); i++) pcm[i] = static_cast<int16_t>(i % 100 * 100);
        std::string packet(1500, '\0');
        packet.resize(static_cast<size_t>(opus_encode(
            encoder, pcm.data(), rate / 50, reinterpret_cast<unsigned char *>(packet.data()), 1500)));
        packets.push_back(packet);
    }
    opus_encoder_destroy(encoder);
    return packets;
}

std::string opus_file(const std::vector<std::string> &packets) {
    ogg_writer writer;
    writer.begin_stream(1);
    for (const std::string &packet : packets) writer.packet(packet);
    writer.end_stream();
    return writer.bytes;
}

auto open_opus(const std::string &bytes, zx_status_t expected_status = ZX_STATUS_SUCCESS) {
    const temporary_file file(bytes);
    void *decoder = reinterpret_cast<void *>(1);
    EXPECT_EQ(zx_codec_opus_init(file.path(), &decoder), expected_status);
    EXPECT_EQ(decoder == nullptr, expected_status != ZX_STATUS_SUCCESS);
    return zx_owned<void, zx_codec_opus_delete>(decoder);
}

const std::string TAGS = "OpusTags" + bytes_of(int32_t{0}, int32_t{0});

// The packets of the collection's files with a suffix, file by file.
std::vector<std::vector<std::string>> packets_of_files(const std::string &suffix) {
    std::set<std::filesystem::path> paths;
    for (const auto &entry : std::filesystem::directory_iterator(PARLEY_TEST_DATA "/audio"))
        if (entry.path().extension() == suffix) paths.insert(entry.path());
    std::vector<std::vector<std::string>> files;
    for (const auto &path : paths) {
        zx_container_ogg_t *opened = nullptr;
        if (zx_container_ogg_init(path.c_str(), &opened) != ZX_STATUS_SUCCESS) continue;
        const auto container = owned<zx_container_ogg_delete>(opened);
        files.emplace_back();
        ogg_packet packet;
        while (zx_container_ogg_read_ogg_page(opened) == ZX_STATUS_SUCCESS) {
            while (zx_container_ogg_stream_packetout(opened, &packet) == 1)
                files.back().emplace_back(reinterpret_cast<char *>(packet.packet),
                                          static_cast<size_t>(packet.bytes));
        }
    }
    return files;
}

// Overwrites some bytes, mostly of the head, or cuts or empties the packet.
std::string damage(std::string packet, random_numbers *random) {
    const auto size = static_cast<int32_t>(packet.size());
    switch (random->between(0, 4)) {
        case 0:
            return packet;
        case 1:
            return packet.substr(0, static_cast<size_t>(random->between(0, std::min(size, 4))));
        case 2:
            return packet.substr(0, static_cast<size_t>(random->between(0, size)));
        default:
            break;
    }
    for (int32_t i = random->between(1, 6); i > 0 && size > 0; i--)
        packet[static_cast<size_t>(random->between(0, std::min(size - 1, i < 4 ? 3 : size - 1)))] =
            static_cast<char>(random->next());
    return packet;
}

ogg_packet packet_of(const std::string &bytes) {
    ogg_packet packet = {};
    packet.packet = reinterpret_cast<unsigned char *>(const_cast<char *>(bytes.data()));
    packet.bytes = static_cast<long>(bytes.size());
    return packet;
}

class zx_codec_opus : public testing::Test {
protected:
    void SetUp() override { zx_log_disable(); }
    void TearDown() override { zx_log_enable(); }
};

}  // namespace

TEST_F(zx_codec_opus, every_decoded_sample_counts_and_reads_continue) {
    for (int channels : {1, 2}) {
        std::vector<std::string> packets = {opus_head(static_cast<char>(channels), 48000), TAGS};
        for (const std::string &packet : opus_packets(10, 48000, channels)) packets.push_back(packet);
        const std::string bytes = opus_file(packets);
        const auto whole = open_opus(bytes), pieces = open_opus(bytes);
        ASSERT_EQ(zx_codec_opus_num_samples(whole.get()), 9600);
        EXPECT_EQ(zx_codec_opus_num_channels(whole.get()), channels);
        EXPECT_EQ(zx_codec_opus_sample_rate(whole.get()), 48000);
        std::vector<int16_t> expected(9600), actual(9600);
        ASSERT_EQ(zx_codec_opus_read(whole.get(), 9600, expected.data()), ZX_STATUS_SUCCESS);
        for (int32_t i = 0; i < 9600; i += 320) {
            ASSERT_EQ(zx_codec_opus_read(pieces.get(), 320, &actual[static_cast<size_t>(i)]),
                      ZX_STATUS_SUCCESS);
        }
        EXPECT_EQ(actual, expected);
        EXPECT_EQ(zx_codec_opus_read(whole.get(), 1, actual.data()), ZX_STATUS_IO_ERROR);
    }
}

TEST_F(zx_codec_opus, headers_that_make_no_sense_are_refused) {
    const std::string audio = opus_packets(1, 48000, 1)[0];
    const std::tuple<const char *, std::vector<std::string>, zx_status_t> table[] = {
        {"six channels", {opus_head(6, 48000), TAGS, audio}, ZX_STATUS_INVALID_ARGUMENT},
        {"no channels", {opus_head(0, 48000), TAGS, audio}, ZX_STATUS_INVALID_STATE},
        {"a rate that Opus does not know", {opus_head(1, 44100), TAGS, audio}, ZX_STATUS_INVALID_STATE},
        {"a header cut short", {opus_head(1, 48000).substr(0, 15), TAGS, audio}, ZX_STATUS_INVALID_ARGUMENT},
        {"audio before the header", {TAGS, audio, opus_head(1, 48000)}, ZX_STATUS_INVALID_STATE},
        {"no audio", {opus_head(1, 48000), TAGS}, ZX_STATUS_INVALID_ARGUMENT},
        {"a damaged packet", {opus_head(1, 48000), TAGS, std::string(50, '\xFF')}, ZX_STATUS_INVALID_STATE},
    };
    for (const auto &[what, packets, status] : table) {
        SCOPED_TRACE(what);
        open_opus(opus_file(packets), status);
    }
}

TEST_F(zx_codec_opus, counting_finds_what_decoding_gives) {
    random_numbers random(1);
    std::vector<std::vector<std::string>> files = packets_of_files(".opus");
    for (int channels : {1, 2}) files.push_back(opus_packets(50, 48000, channels));
    files.emplace_back(200, std::string(40, '\0'));
    int counted = 0, refused = 0;
    for (int32_t rate : {8000, 12000, 16000, 24000, 48000}) {
        OpusDecoder *created = nullptr;
        ASSERT_EQ(zx_codec_opus_decoder_init(static_cast<uint32_t>(rate), 2, &created), ZX_STATUS_SUCCESS);
        const auto decoder = owned<opus_decoder_destroy>(created);
        for (const auto &packets : files) {
            for (size_t i = 0; i < std::min<size_t>(packets.size(), 200); i++) {
                const std::string bytes = damage(packets[i], &random);
                const ogg_packet packet = packet_of(bytes);
                const int32_t room = i % 2 == 0 ? ZX_CODEC_OPUS_MAX_FRAMES : 8192;
                std::vector<int16_t> pcm(2 * static_cast<size_t>(room));
                const int expected = opus_decode(created, packet.packet, static_cast<int32_t>(packet.bytes),
                                                 pcm.data(), room, 0);
                uint64_t count = 7;
                const zx_status_t status =
                    zx_codec_opus_count_packet(&packet, static_cast<uint32_t>(rate), room, &count);
                ASSERT_EQ(status, expected < 0 ? ZX_STATUS_INVALID_STATE : ZX_STATUS_SUCCESS)
                    << expected << " of " << packet.bytes << " bytes";
                ASSERT_EQ(count, 7 + static_cast<uint64_t>(std::max(expected, 0)));
                (expected < 0 ? refused : counted)++;
            }
        }
    }
    EXPECT_GT(counted, 2000);
    EXPECT_GT(refused, 500);
}

// Two files behind each other play one after the other.
TEST_F(zx_codec_opus, chained_streams_follow_each_other) {
    ogg_writer writer;
    for (int serial : {1, 2}) {
        writer.begin_stream(serial);
        writer.packet(opus_head(1, 16000));
        writer.packet(TAGS);
        for (const std::string &packet : opus_packets(5, 16000, 1)) writer.packet(packet);
        writer.end_stream();
    }
    const auto decoder = open_opus(writer.bytes);
    ASSERT_EQ(zx_codec_opus_num_samples(decoder.get()), 3200);
    std::vector<int16_t> pcm(3200);
    EXPECT_EQ(zx_codec_opus_read(decoder.get(), 3200, pcm.data()), ZX_STATUS_SUCCESS);
}

TEST(zx_codec_vorbis, packets_that_are_not_its_headers_are_refused) {
    void *decoder = nullptr;
    const temporary_file no_identification(opus_file({"\x03vorbis", "x", "y"}));
    EXPECT_EQ(zx_codec_vorbis_init(no_identification.path(), &decoder), ZX_STATUS_INVALID_ARGUMENT);
    const temporary_file empty_header(opus_file({"\x01vorbis", "x", "y"}));
    EXPECT_EQ(zx_codec_vorbis_init(empty_header.path(), &decoder), ZX_STATUS_INVALID_STATE);
    const temporary_file other(opus_file({opus_head(1, 48000), TAGS}));
    EXPECT_EQ(zx_codec_vorbis_init(other.path(), &decoder), ZX_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zx_codec_vorbis_init("/nonexistent", &decoder), ZX_STATUS_IO_ERROR);
    EXPECT_EQ(decoder, nullptr);
}

TEST(zx_codec_vorbis, counting_finds_what_decoding_gives) {
    random_numbers random(2);
    int counted = 0, refused = 0;
    for (const auto &packets : packets_of_files(".ogg")) {
        if (packets.size() < 4) continue;
        zx_codec_vorbis_state_t counting = {}, decoding = {};
        bool is_vorbis = true;
        for (zx_codec_vorbis_state_t *state : {&counting, &decoding}) {
            zx_codec_vorbis_state_init(state);
            for (size_t i = 0; i < 3 && is_vorbis; i++) {
                ogg_packet packet = packet_of(packets[i]);
                packet.b_o_s = i == 0;
                is_vorbis = vorbis_synthesis_headerin(&state->info, &state->comment, &packet) == 0;
            }
            is_vorbis = is_vorbis && state->info.channels <= 2 &&
                        zx_codec_vorbis_start_synthesis(state) == ZX_STATUS_SUCCESS;
        }
        for (size_t i = 3; i < packets.size() && is_vorbis; i++) {
            const std::string bytes = damage(packets[i], &random);
            ogg_packet packet = packet_of(bytes);
            packet.packetno = static_cast<int64_t>(i);
            packet.granulepos = i % 3 == 0 ? random.between(0, 600 * static_cast<int32_t>(i)) : -1;
            packet.e_o_s = random.between(0, 20) == 0 || i + 1 == packets.size();
            uint64_t count = 0;
            int32_t expected = 0;
            std::vector<int16_t> pcm(8192);
            const zx_status_t status = zx_codec_vorbis_read_packet(&decoding, &packet, pcm.data(), &expected);
            ASSERT_EQ(zx_codec_vorbis_count_packet(&counting, &packet, &count), status) << "packet " << i;
            ASSERT_EQ(count, status == ZX_STATUS_SUCCESS ? static_cast<uint64_t>(expected) : 0);
            (status == ZX_STATUS_SUCCESS ? counted : refused)++;
        }
        zx_codec_vorbis_state_clear(&counting);
        zx_codec_vorbis_state_clear(&decoding);
    }
    EXPECT_GT(counted, 200);
    EXPECT_GT(refused, 20);
}
