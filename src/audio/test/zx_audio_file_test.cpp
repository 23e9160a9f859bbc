// SPDX-License-Identifier: Apache-2.0
#include "zx_audio_file.h"

#include <filesystem>

#include "mp4_builder.h"
#include "peak_memory.h"
#include "support.h"
#include "zx_error.h"

namespace {

std::string padded(std::string bytes, size_t length = 64) {
    bytes.resize(std::max(length, bytes.size()), '\0');
    return bytes;
}

std::string at(size_t offset, const std::string &start, const std::string &text) {
    std::string bytes = padded(start, offset);
    return padded(bytes + text);
}

std::string ftyp(uint32_t size, const std::string &brands) {
    const char length[] = {0, 0, static_cast<char>(size >> 8), static_cast<char>(size)};
    return std::string(length, 4) + "ftyp" + brands;
}

auto open_audio(const std::string &bytes, zx_status_t expected_status = ZX_STATUS_SUCCESS) {
    const temporary_file file(bytes, ".mp3");  // a name that says nothing
    auto *reader = reinterpret_cast<zx_audio_file_t *>(1);
    EXPECT_EQ(zx_audio_file_init(file.path(), &reader), expected_status);
    EXPECT_EQ(reader == nullptr, expected_status != ZX_STATUS_SUCCESS);
    return owned<zx_audio_file_delete>(reader);
}

}  // namespace

TEST(zx_audio_file, formats_are_found_from_the_first_bytes) {
    const std::pair<std::string, zx_audio_format_t> table[] = {
        {padded("ID3"), ZX_AUDIO_FORMAT_MP3},
        {padded("\xFF\xF3"), ZX_AUDIO_FORMAT_MP3},
        {padded("\xFF\xFB"), ZX_AUDIO_FORMAT_MP3},
        {padded("\xFF\xF9"), ZX_AUDIO_FORMAT_MP3},      // ADTS without CRC passes for MP3
        {padded("\xFF\xF1"), ZX_AUDIO_FORMAT_UNKNOWN},  // ADTS with CRC does not
        {padded("\xFF\xF2"), ZX_AUDIO_FORMAT_UNKNOWN},
        {padded("fLaC"), ZX_AUDIO_FORMAT_FLAC},
        {padded("RIFF"), ZX_AUDIO_FORMAT_WAV},
        {padded("RIFX"), ZX_AUDIO_FORMAT_UNKNOWN},
        {at(28, "OggS", "OpusHead"), ZX_AUDIO_FORMAT_OPUS},
        {at(28, "OggS", "\x01vorbis"), ZX_AUDIO_FORMAT_VORBIS},
        {at(27, "OggS", "OpusHead"), ZX_AUDIO_FORMAT_UNKNOWN},
        {at(28, "OggS", "Speex   "), ZX_AUDIO_FORMAT_UNKNOWN},
        {at(24, "\x1A\x45\xDF\xA3", "webm"), ZX_AUDIO_FORMAT_WEBM},
        {at(24, "\x1A\x45\xDF\xA3", "matroska"), ZX_AUDIO_FORMAT_UNKNOWN},
        {padded(ftyp(16, "isom")), ZX_AUDIO_FORMAT_ISOBMFF},
        {padded(ftyp(24, "M4A xxxxmp42iso2")), ZX_AUDIO_FORMAT_ISOBMFF},
        {padded(ftyp(20, "M4A xxxxqt  mp42")),
         ZX_AUDIO_FORMAT_UNKNOWN},  // the list ends before its last brand
        {padded(ftyp(16, "qt  ")), ZX_AUDIO_FORMAT_UNKNOWN},
        {padded(ftyp(16, "qt  isom")),
         ZX_AUDIO_FORMAT_UNKNOWN},                             // the version of the major brand is no brand
        {padded(ftyp(200, "isom")), ZX_AUDIO_FORMAT_UNKNOWN},  // the box does not fit the file
        {padded(ftyp(0, "isom")), ZX_AUDIO_FORMAT_ISOBMFF},    // left to the reader to refuse
        {padded(""), ZX_AUDIO_FORMAT_UNKNOWN},
    };
    for (const auto &[bytes, expected] : table) {
        const temporary_file file(bytes);
        zx_audio_format_t format = -1;
        EXPECT_EQ(zx_audio_file_get_format(file.path(), &format), ZX_STATUS_SUCCESS);
        EXPECT_EQ(format, expected) << testing::PrintToString(bytes);
    }
}

TEST(zx_audio_file, formats_that_were_left_out_name_their_option) {
    const std::tuple<const char *, bool, std::string> table[] = {
        {"PARLEY_WITH_FLAC", PARLEY_WITH_FLAC, padded("fLaC")},
        {"PARLEY_WITH_MP3", PARLEY_WITH_MP3, padded("ID3")},
        {"PARLEY_WITH_OPUS", PARLEY_WITH_OPUS, at(28, "OggS", "OpusHead")},
        {"PARLEY_WITH_VORBIS", PARLEY_WITH_VORBIS, at(28, "OggS", "\x01vorbis")},
        {"PARLEY_WITH_WEBM", PARLEY_WITH_WEBM, at(24, "\x1A\x45\xDF\xA3", "webm")},
        {"PARLEY_WITH_AMR", PARLEY_WITH_AMR, amr_file_builder().bytes()},
    };
    for (const auto &[option, is_built, bytes] : table) {
        if (is_built) continue;
        zx_error_prepare();
        open_audio(bytes, ZX_STATUS_INVALID_ARGUMENT);
        EXPECT_THAT(take_messages(),
                    testing::ElementsAre("Internal argument misconfiguration: `built without " +
                                         std::string(option) + "`."));
    }
}

TEST(zx_audio_file, files_under_35_bytes_cannot_be_read) {
    for (size_t length : {0u, 34u}) open_audio(padded("RIFF").substr(0, length), ZX_STATUS_IO_ERROR);
    open_audio(padded("RIFF", 35), ZX_STATUS_INVALID_ARGUMENT);
    open_audio(padded("????", 35), ZX_STATUS_INVALID_ARGUMENT);
    zx_audio_file_t *reader;
    EXPECT_EQ(zx_audio_file_init("/nonexistent", &reader), ZX_STATUS_IO_ERROR);
    EXPECT_EQ(zx_audio_file_init("/", &reader), ZX_STATUS_IO_ERROR);  // a folder
}

TEST(zx_audio_file, the_engines_rate_passes_straight_through) {
    const auto x = random_int16(3000, 1);
    const auto reader = open_audio(wav_bytes(x, 16000));
    EXPECT_EQ(reader->resampler, nullptr);
    EXPECT_EQ(zx_audio_file_num_samples(reader.get()), 3000);
    std::vector<int16_t> y(3000);
    ASSERT_EQ(zx_audio_file_read(reader.get(), 1000, y.data()), ZX_STATUS_SUCCESS);
    ASSERT_EQ(zx_audio_file_read(reader.get(), 2000, &y[1000]), ZX_STATUS_SUCCESS);
    EXPECT_EQ(y, x);
    EXPECT_EQ(zx_audio_file_read(reader.get(), 1, y.data()), ZX_STATUS_IO_ERROR);
}

TEST(zx_audio_file, a_header_of_nothing_but_tracks_does_not_cost_gigabytes) {
    const auto append_size = [](std::string *to, size_t size) {  // in eight bytes
        to->append(1, '\1').append(3, '\0').append(be32(static_cast<uint32_t>(size)));
    };
    std::string tracks;
    while (tracks.size() < 8000000) tracks += "\xAE\x83\xD7\x81\x01";  // a track entry of five bytes
    std::string bytes =
        "\x1A\x45\xDF\xA3\x9F\x42\x86\x81\x01\x42\xF7\x81\x01\x42\xF2\x81\x04\x42\xF3\x81\x08\x42\x82\x84webm"
        "\x42\x87\x81\x02\x42\x85\x81\x02\x18\x53\x80\x67";
    append_size(&bytes, tracks.size() + 12);
    bytes += "\x16\x54\xAE\x6B";
    append_size(&bytes, tracks.size());
    bytes += tracks;
    open_audio(bytes, PARLEY_WITH_WEBM ? ZX_STATUS_INVALID_STATE : ZX_STATUS_INVALID_ARGUMENT);
    EXPECT_LT(peak_memory(), 1U << 30);
}

TEST(zx_audio_file, names_are_utf8_in_every_format) {
    const std::filesystem::path folder = std::filesystem::temp_directory_path();
    for (const char *name : {"wav_f32_mono_16000.wav", PARLEY_WITH_FLAC ? "flac_s16_mono_16000.flac" : "",
                             PARLEY_WITH_MP3 ? "mp3_cbr64_mono_16000.mp3" : ""}) {
        if (!*name) continue;
        const std::u8string here = (folder / u8"запись-会议").u8string();
        std::filesystem::copy_file(std::string(PARLEY_TEST_DATA "/audio/") + name, here,
                                   std::filesystem::copy_options::overwrite_existing);
        zx_audio_file_t *reader = nullptr;
        EXPECT_EQ(zx_audio_file_init(reinterpret_cast<const char *>(here.c_str()), &reader),
                  ZX_STATUS_SUCCESS)
            << name;
        zx_audio_file_delete(reader);
        std::filesystem::remove(here);
    }
}

TEST(zx_audio_file, rates_that_cannot_be_converted_are_refused) {
    for (int32_t rate : {4000, 11025, 12000, 15999, 40000000, -16000}) {
        open_audio(wav_bytes(std::vector<int16_t>(2000), rate), ZX_STATUS_INVALID_ARGUMENT);
    }
}

// One promised read gives all samples, and several reads give the same: to the last bit at whole ratios,
// where no position between two samples is rounded.
TEST(zx_audio_file, other_rates_are_resampled_whole_and_in_pieces) {
    const auto x = random_int16(30000, 2, -8000, 8000);
    for (const auto &[rate, expected] :
         {std::pair{8000, 60000}, std::pair{48000, 10000}, std::pair{22050, 21768}}) {
        const auto whole = open_audio(wav_bytes(x, rate));
        EXPECT_EQ(zx_audio_file_sample_rate(whole.get()), rate);
        EXPECT_EQ(zx_audio_file_num_original_samples(whole.get()), 30000);
        const int32_t total = zx_audio_file_num_samples(whole.get());
        EXPECT_EQ(total, expected);
        std::vector<int16_t> y(static_cast<size_t>(total) + 1, 0), z(static_cast<size_t>(total) + 1, 0);
        ASSERT_EQ(zx_audio_file_read(whole.get(), total, y.data()), ZX_STATUS_SUCCESS);
        const auto pieces = open_audio(wav_bytes(x, rate));
        for (int32_t i = 0; i < total; i += 500) {
            const int32_t length = std::min(500, total - i);
            ASSERT_EQ(zx_audio_file_read(pieces.get(), length, &z[static_cast<size_t>(i)]),
                      ZX_STATUS_SUCCESS);
        }
        const int tolerance = rate == 22050 ? 1 : 0;
        for (size_t i = 0; i < y.size(); i++) ASSERT_NEAR(y[i], z[i], tolerance) << rate << " at " << i;
    }
}

// A header that promises more than the file holds: at most 1024 missing outputs are silence, more are an
// error.
TEST(zx_audio_file, a_short_ending_is_silence_up_to_1024_samples) {
    const std::string bytes = wav_bytes(random_int16(48000, 3), 48000);
    const auto read_all = [](const std::string &cut, std::vector<int16_t> *y) {
        const auto reader = open_audio(cut);
        const int32_t total = zx_audio_file_num_samples(reader.get());
        y->assign(static_cast<size_t>(total) + 1, 0);
        return zx_audio_file_read(reader.get(), total, y->data());
    };
    std::vector<int16_t> y;
    EXPECT_EQ(read_all(bytes.substr(0, bytes.size() - 600), &y), ZX_STATUS_SUCCESS);
    EXPECT_EQ(y[15999], 0);
    EXPECT_NE(y[15000], 0);
    EXPECT_EQ(read_all(bytes.substr(0, bytes.size() - 9000), &y), ZX_STATUS_IO_ERROR);
}
