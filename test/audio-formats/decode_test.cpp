// SPDX-License-Identifier: Apache-2.0
// Every codec against an independent decoder, ffmpeg: files are encoded from the sample recording, decoded by
// both, and compared at the file's own rate, in mono. Skipped where ffmpeg is not installed.
//
// Both decode the same samples, but they do not begin at the same one, on purpose. ffmpeg cuts off what an
// encoder puts before the audio; here it is kept, as every decoded sample is:
//
//   MP3     the frame of the Xing header (1152 samples, half of it below 32 kHz) and the delay of LAME and
//   the decoder
//           (1105 samples)
//   Opus    the pre-skip (312 samples at 48 kHz)
//   AAC     the priming (1024 samples), which the edit list of an unfragmented file names; and what FDK-AAC
//   itself delays,
//           a frame (1024 samples) for concealing errors and 15 ms for its limiter
//
// AMR files end at a count that takes every frame for one of 12.2 kbit/s; ffmpeg decodes all frames.

#include <cmath>
#include <cstdlib>

#include "support.h"
#include "zx_audio_file.h"

namespace {

struct codec_row {
    const char *name;
    const char *suffix;
    const char *encode;  // arguments of ffmpeg
    int32_t lead_in;     // samples that only we give, before ffmpeg's first
    double max_error;    // root mean square of the difference, relative to that of the signal
};

// Errors of lossy codecs come from fixed-point against floating-point arithmetic, those of stereo from
// rounding the mean. IMA ADPCM steps are sums of shifts here and products there; AAC at low rates replaces
// noise by random noise. Opus is compared where it is coded in the frequency domain alone: below, the two
// decoders resample differently.
constexpr codec_row CODECS[] = {
    {"wav_s16", ".wav", "-ar 16000 -c:a pcm_s16le", 0, 0},
    {"wav_u8", ".wav", "-ar 16000 -c:a pcm_u8", 0, 0},
    {"wav_s24_stereo", ".wav", "-ar 48000 -ac 2 -c:a pcm_s24le", 0, 5e-4},
    {"wav_f32_stereo", ".wav", "-ar 44100 -ac 2 -c:a pcm_f32le", 0, 5e-4},
    {"wav_alaw", ".wav", "-ar 8000 -c:a pcm_alaw", 0, 0},
    {"wav_mulaw_stereo", ".wav", "-ar 8000 -ac 2 -c:a pcm_mulaw", 0, 5e-4},
    {"wav_ima", ".wav", "-ar 16000 -c:a adpcm_ima_wav", 0, 1e-2},
    {"wav_ms", ".wav", "-ar 16000 -c:a adpcm_ms", 0, 0},
    {"flac", ".flac", "-ar 16000 -c:a flac", 0, 0},
    {"flac_stereo", ".flac", "-ar 44100 -ac 2 -c:a flac", 0, 5e-4},
    {"mp3", ".mp3", "-ar 16000 -b:a 64k -c:a libmp3lame", 576 + 1105, 1e-3},
    {"mp3_stereo", ".mp3", "-ar 44100 -ac 2 -b:a 128k -c:a libmp3lame", 1152 + 1105, 1e-3},
    {"opus", ".opus", "-ar 48000 -b:a 96k -c:a libopus", 312, 1e-3},
    {"opus_stereo", ".opus", "-ar 48000 -ac 2 -b:a 96k -c:a libopus", 312, 1e-3},
    {"vorbis", ".ogg", "-ar 16000 -c:a libvorbis", 0, 1e-3},
    {"vorbis_stereo", ".ogg", "-ar 44100 -ac 2 -c:a libvorbis", 0, 1e-3},
    {"webm_opus", ".webm", "-ar 48000 -b:a 96k -c:a libopus", 312, 1e-3},
    {"webm_vorbis_stereo", ".webm", "-ar 44100 -ac 2 -c:a libvorbis", 0, 1e-3},
    {"m4a_aac", ".m4a", "-ar 16000 -b:a 32k -c:a aac -brand isom", 2 * 1024 + 240, 2.5e-2},
    {"m4a_aac_stereo", ".m4a", "-ar 44100 -ac 2 -b:a 96k -c:a aac -brand isom", 2 * 1024 + 661, 1e-3},
    {"mp4_aac_fragmented", ".mp4", "-ar 16000 -b:a 32k -c:a aac -movflags frag_keyframe+empty_moov",
     1024 + 240, 2.5e-2},
    {"3gp_aac", ".3gp", "-ar 22050 -b:a 32k -c:a aac", 2 * 1024 + 330, 2.5e-2},
};

void PrintTo(const codec_row &row, std::ostream *out) {
    *out << row.name;
}

bool has_ffmpeg() {
    return std::system("ffmpeg -version >/dev/null 2>&1") == 0;
}

std::vector<int16_t> decode_with_ffmpeg(const std::string &path) {
    const temporary_file raw("");
    const std::string command =
        "ffmpeg -nostdin -v error -y -i '" + path + "' -ac 1 -f s16le '" + raw.path() + "'";
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    return read_file<int16_t>(raw.path());
}

std::vector<int16_t> decode(const std::string &path) {
    zx_audio_file_t *reader = nullptr;
    EXPECT_EQ(zx_audio_file_init(path.c_str(), &reader), ZX_STATUS_SUCCESS) << path;
    if (!reader) return {};
    const auto owner = owned<zx_audio_file_delete>(reader);
    std::vector<int16_t> pcm(static_cast<size_t>(zx_audio_file_num_original_samples(reader)));
    EXPECT_EQ(reader->adapter.read_fn(reader->adapter.object, static_cast<int32_t>(pcm.size()), pcm.data()),
              ZX_STATUS_SUCCESS);
    return pcm;
}

double rms(const std::vector<int16_t> &x, const std::vector<int16_t> &y, size_t lead_in, size_t length) {
    double sum = 0;
    for (size_t i = 0; i < length; i++) sum += std::pow(x[lead_in + i] - (y.empty() ? 0 : y[i]), 2);
    return std::sqrt(sum / static_cast<double>(length));
}

void compare(const std::string &path, int32_t lead_in, double max_error) {
    const std::vector<int16_t> actual = decode(path), expected = decode_with_ffmpeg(path);
    const auto offset = static_cast<size_t>(lead_in);
    ASSERT_GT(actual.size(), offset);
    const size_t length = std::min(actual.size() - offset, expected.size());
    ASSERT_GT(length, expected.size() * 9 / 10) << "hardly anything to compare";
    const double signal = rms(actual, {}, offset, length);
    EXPECT_GT(signal, 500);
    EXPECT_LE(rms(actual, expected, offset, length), max_error * signal);
}

class decode_comparison : public testing::TestWithParam<codec_row> {
protected:
    void SetUp() override {
        if (!has_ffmpeg()) GTEST_SKIP() << "ffmpeg is not installed";
        zx_log_disable();
    }
    void TearDown() override { zx_log_enable(); }

    // The beginning of the sample recording in the codec of the row.
    void encode(int seconds, const temporary_file &file) {
        const std::string command = "ffmpeg -nostdin -v error -y -ss 1 -t " + std::to_string(seconds) +
                                    " -i '" PARLEY_SOURCE_DIR "/examples/three-voices.wav' " +
                                    GetParam().encode + " '" + file.path() + "'";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
    }
};

}  // namespace

TEST_P(decode_comparison, samples_agree_with_ffmpeg) {
    const temporary_file encoded("", GetParam().suffix);
    encode(6, encoded);
    compare(encoded.path(), GetParam().lead_in, GetParam().max_error);
}

// Cuts and overwritten bytes, most of them near the start, where headers and tables lie: any status, in
// little time, with nothing read outside its buffer and nothing left behind, which sanitizers watch.
TEST_P(decode_comparison, damage_is_survived) {
    const temporary_file encoded("", GetParam().suffix);
    encode(1, encoded);
    const std::vector<char> bytes = read_file<char>(encoded.path());
    random_numbers random(bytes.size());
    for (int round = 0; round < 60; round++) {
        std::string damaged(bytes.begin(), bytes.end());
        const int32_t last = static_cast<int32_t>(damaged.size()) - 1;
        for (int i = random.between(1, 4); i > 0; i--) {
            const int32_t position = random.between(0, round % 2 == 0 ? std::min(last, 600) : last);
            damaged[static_cast<size_t>(position)] = static_cast<char>(random.next());
        }
        if (round % 5 == 0) damaged.resize(static_cast<size_t>(random.between(35, last)));
        const temporary_file file(damaged);
        zx_audio_file_t *reader = nullptr;
        if (zx_audio_file_init(file.path(), &reader) != ZX_STATUS_SUCCESS) continue;
        const int32_t count = std::min(zx_audio_file_num_samples(reader), 1000000);
        std::vector<int16_t> pcm(static_cast<size_t>(count) + 1);
        (void) zx_audio_file_read(reader, count, pcm.data());
        zx_audio_file_delete(reader);
    }
}

INSTANTIATE_TEST_SUITE_P(codecs, decode_comparison, testing::ValuesIn(CODECS),
                         [](const auto &row) { return std::string(row.param.name); });

// ffmpeg has no AMR encoder. Its decoder computes in floating point, ours is the reference's fixed point.
TEST(decode_comparison_amr, samples_agree_with_ffmpeg) {
    const std::string path = PARLEY_TEST_DATA "/audio/3gp_amr_mode7.3gp";
    if (!has_ffmpeg()) GTEST_SKIP() << "ffmpeg is not installed";
    zx_log_disable();
    compare(path, 0, 5e-2);
    zx_log_enable();
}
