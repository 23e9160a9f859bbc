// SPDX-License-Identifier: Apache-2.0
// Every file of a collection of real and damaged audio files, with the outcome that its index expects of
// each: format, status, counts, rate and channels, the result of reading it whole, and the samples
// themselves.

#include <fstream>
#include <map>
#include <sstream>

#include "support.h"
#include "zx_audio_file.h"

namespace {

const std::string FOLDER = PARLEY_TEST_DATA "/audio/";

struct index_row {
    std::string file, format, adapter_status, count, channels, rate, reader_status, count_16k, read_status,
        crc;
};

void PrintTo(const index_row &row, std::ostream *out) {
    *out << row.file;
}

std::vector<index_row> read_index() {
    std::ifstream index(PARLEY_SOURCE_DIR "/test/data/audio/INDEX.tsv");
    std::vector<index_row> rows;
    std::string line;
    std::getline(index, line);  // column names
    while (std::getline(index, line)) {
        std::istringstream columns(line);
        index_row row;
        for (std::string *cell :
             {&row.file, &row.format, &row.adapter_status, &row.count, &row.channels, &row.rate,
              &row.reader_status, &row.count_16k, &row.read_status, &row.crc}) {
            std::getline(columns, *cell, '\t');
        }
        rows.push_back(row);
    }
    return rows;
}

// What the index leaves open is refused: no samples, a count that does not fit 31 bits, a rate of 0.
std::string expected_reader_status(const index_row &row) {
    return row.reader_status.front() == '(' ? "INVALID_ARGUMENT" : row.reader_status;
}

uint32_t crc32(const std::vector<int16_t> &samples) {
    uint32_t crc = 0xFFFFFFFF;
    for (int16_t sample : samples) {
        for (int shift : {0, 8}) {
            crc ^= static_cast<uint32_t>(sample >> shift) & 0xFF;
            for (int bit = 0; bit < 8; bit++) crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320 : 0);
        }
    }
    return ~crc;
}

std::string hexadecimal(uint32_t value) {
    char text[9];
    std::snprintf(text, sizeof(text), "%08x", value);
    return text;
}

const std::map<std::string, zx_audio_format_t> FORMATS = {
    {"-", -1},
    {"unknown", ZX_AUDIO_FORMAT_UNKNOWN},
    {"flac", ZX_AUDIO_FORMAT_FLAC},
    {"isobmff", ZX_AUDIO_FORMAT_ISOBMFF},
    {"mp3", ZX_AUDIO_FORMAT_MP3},
    {"opus", ZX_AUDIO_FORMAT_OPUS},
    {"vorbis", ZX_AUDIO_FORMAT_VORBIS},
    {"wav", ZX_AUDIO_FORMAT_WAV},
    {"webm", ZX_AUDIO_FORMAT_WEBM},
};

auto open(const index_row &row, zx_status_t *status) {
    zx_audio_file_t *reader = nullptr;
    *status = zx_audio_file_init((FOLDER + row.file).c_str(), &reader);
    EXPECT_EQ(reader == nullptr, *status != ZX_STATUS_SUCCESS);
    return owned<zx_audio_file_delete>(reader);
}

class audio_index : public testing::TestWithParam<index_row> {
protected:
    void SetUp() override { zx_log_disable(); }
    void TearDown() override { zx_log_enable(); }
};

}  // namespace

TEST_P(audio_index, file_gives_what_the_index_expects) {
    const index_row &row = GetParam();
    zx_audio_format_t format = -1;
    (void) zx_audio_file_get_format((FOLDER + row.file).c_str(), &format);
    EXPECT_EQ(row.format == "-" ? -1 : format, FORMATS.at(row.format));

    zx_status_t status;
    const auto reader = open(row, &status);
    ASSERT_EQ(zx_status_to_string(status), expected_reader_status(row));
    if (!reader) return;
    EXPECT_EQ(std::to_string(zx_audio_file_num_original_samples(reader.get())), row.count);
    EXPECT_EQ(std::to_string(reader->adapter.num_channels_fn(reader->adapter.object)), row.channels);
    EXPECT_EQ(std::to_string(zx_audio_file_sample_rate(reader.get())), row.rate);
    const int32_t num_samples = zx_audio_file_num_samples(reader.get());
    ASSERT_EQ(std::to_string(num_samples), row.count_16k);

    const zx_heap_ptr<int16_t> all(zx_heap_zeroed<int16_t>(static_cast<size_t>(num_samples) + 1));
    status = zx_audio_file_read(reader.get(), num_samples, all.get());
    EXPECT_EQ(zx_status_to_string(status), row.read_status.substr(0, row.read_status.find(' ')));
    if (row.read_status.find("silent") != std::string::npos) {
        const int silent = std::stoi(row.read_status.substr(row.read_status.find("last ") + 5));
        for (int i = 1; i <= silent; i++) ASSERT_EQ(all.get()[num_samples - i], 0) << i;
    }

    // Lossless formats and the fixed-point AMR decoder give the same samples everywhere; the others nearly
    // so.
    zx_status_t again;
    const auto own_rate = open(row, &again);
    const int32_t count = zx_audio_file_num_original_samples(own_rate.get());
    if (row.read_status != "SUCCESS") return;
    std::vector<int16_t> pcm(static_cast<size_t>(count));
    ASSERT_EQ(own_rate->adapter.read_fn(own_rate->adapter.object, count, pcm.data()), ZX_STATUS_SUCCESS);
    // A predictor index that does not exist stands for nothing in particular.
    const bool is_exact = (row.format == "wav" && row.file != "bad_wav_ms_predictor_255.wav") ||
                          row.format == "flac" || row.file.find("amr") != std::string::npos;
    EXPECT_TRUE(!is_exact || hexadecimal(crc32(pcm)) == row.crc);
    EXPECT_EQ(own_rate->adapter.read_fn(own_rate->adapter.object, 1, pcm.data()), ZX_STATUS_IO_ERROR);
}

INSTANTIATE_TEST_SUITE_P(files, audio_index, testing::ValuesIn(read_index()), [](const auto &row) {
    std::string name = row.param.file;
    for (char &c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
});
