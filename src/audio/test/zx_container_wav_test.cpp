// SPDX-License-Identifier: Apache-2.0
#include "zx_container_wav.h"

#include "support.h"

namespace {

auto open_wav(const std::string &bytes, zx_status_t expected_status = ZX_STATUS_SUCCESS) {
    const temporary_file file(bytes);
    void *wav = reinterpret_cast<void *>(1);
    EXPECT_EQ(zx_container_wav_init(file.path(), &wav), expected_status);
    EXPECT_EQ(wav == nullptr, expected_status != ZX_STATUS_SUCCESS);
    return zx_owned<void, zx_container_wav_delete>(wav);
}

}  // namespace

// Reads of every size continue where the last one stopped, across the down-mix chunks of 1024 frames.
TEST(zx_container_wav, reads_mono_and_stereo_in_pieces) {
    const auto stereo = random_int16(2 * 5000, 1);
    std::vector<int16_t> mono(5000);
    for (size_t i = 0; i < 5000; i++) mono[i] = static_cast<int16_t>((stereo[2 * i] + stereo[2 * i + 1]) / 2);
    for (const auto &[samples, channels] : {std::pair{mono, int16_t{1}}, std::pair{stereo, int16_t{2}}}) {
        const auto wav = open_wav(wav_bytes(samples, 44100, channels));
        EXPECT_EQ(zx_container_wav_num_samples(wav.get()), 5000);
        EXPECT_EQ(zx_container_wav_num_channels(wav.get()), channels);
        EXPECT_EQ(zx_container_wav_sample_rate(wav.get()), 44100);
        std::vector<int16_t> read(5000);
        ASSERT_EQ(zx_container_wav_read(wav.get(), 2500, read.data()), ZX_STATUS_SUCCESS);
        ASSERT_EQ(zx_container_wav_read(wav.get(), 1, &read[2500]), ZX_STATUS_SUCCESS);
        ASSERT_EQ(zx_container_wav_read(wav.get(), 2499, &read[2501]), ZX_STATUS_SUCCESS);
        EXPECT_EQ(read, mono);
        EXPECT_EQ(zx_container_wav_read(wav.get(), 1, read.data()), ZX_STATUS_IO_ERROR);
    }
}

TEST(zx_container_wav, refuses_what_it_cannot_read) {
    const std::string good = wav_bytes(std::vector<int16_t>(600), 16000);
    open_wav(wav_bytes({}, 16000), ZX_STATUS_INVALID_ARGUMENT);
    open_wav(wav_bytes(std::vector<int16_t>(600), 16000, 6), ZX_STATUS_INVALID_ARGUMENT);
    open_wav(wav_bytes(std::vector<int16_t>(600), 0), ZX_STATUS_INVALID_ARGUMENT);
    open_wav(good.substr(0, 8) + "AVI " + good.substr(12), ZX_STATUS_INVALID_ARGUMENT);
    // Some file systems let dr_wav seek for hours here: once the size of the chunk is too small, once it is
    // just large enough.
    open_wav(good.substr(0, 36) + "fact" + std::string(4, '\0') + good.substr(36),
             ZX_STATUS_INVALID_ARGUMENT);
    open_wav(good.substr(0, 36) + "fact" + bytes_of(int32_t{4}, int32_t{600}) + good.substr(36));
    for (size_t length = 0; length < 44; length++)
        open_wav(good.substr(0, length), ZX_STATUS_INVALID_ARGUMENT);
    void *wav;
    EXPECT_EQ(zx_container_wav_init("/nonexistent.wav", &wav), ZX_STATUS_INVALID_ARGUMENT);
    EXPECT_ASSERTION((void) zx_container_wav_init(nullptr, &wav), "path");
}
