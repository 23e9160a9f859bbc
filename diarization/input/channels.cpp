// SPDX-License-Identifier: Apache-2.0
#include "channels.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <span>
#include <string>
#include <utility>

#if PARLEY_WITH_SNDFILE
#include <sndfile.h>
#endif

#include "errors.h"
#include "readable_file.h"
#include "sample_buffer.h"

namespace {

constexpr int32_t FILTER_ORDER = 50;
constexpr size_t BLOCK = sample_converter::BLOCK;

// Energies of two channels, and what they have in common.
struct balance {
    double first = 0, second = 0, product = 0;

    void add(std::span<const int16_t> interleaved) {
        for (size_t i = 0; i + 1 < interleaved.size(); i += 2) {
            const double a = interleaved[i], b = interleaved[i + 1];
            first += a * a;
            second += b * b;
            product += a * b;
        }
    }

    std::string note() const {
        constexpr double OPPOSITE = -0.9, SILENT = 1e-4;  // a correlation; 40 dB
        if (product < OPPOSITE * std::sqrt(first * second))
            return "the two channels cancel each other where they are mixed: --channels loudest takes one";
        if (std::min(first, second) < SILENT * std::max(first, second))
            return "one of the two channels is silent: --channels loudest leaves it out";
        return "";
    }
};

}  // namespace

sample_converter::sample_converter(int32_t from, int32_t to) : converted_(2 * BLOCK + 2) {
    if (from == to) return;
    if (from > 0) {
        zx_resampler_t *created = nullptr;
        const zx_status_t status = zx_resampler_init(from, to, FILTER_ORDER, &created);
        resampler_.reset(created);
        if (status == ZX_STATUS_SUCCESS) return;
    }
    throw diarization_error(
        PARLEY_INVALID,
        "a rate of " + std::to_string(from) + " Hz cannot be converted: 8000 Hz can, and 16000 Hz and more");
}

std::span<const int16_t> sample_converter::convert(std::span<const int16_t> block) {
    if (!resampler_ || block.empty()) return block;
    const int32_t made = zx_resampler_process(resampler_.get(), block.data(),
                                              static_cast<int32_t>(block.size()), converted_.data());
    return {converted_.data(), static_cast<size_t>(made)};
}

std::vector<int16_t> resample(std::span<const int16_t> samples, int32_t from, int32_t to) {
    sample_converter to_rate(from, to);
    std::vector<int16_t> result;
    for (size_t at = 0; at < samples.size(); at += BLOCK) {
        const auto block = to_rate.convert(samples.subspan(at, std::min(BLOCK, samples.size() - at)));
        result.insert(result.end(), block.begin(), block.end());
    }
    return result;
}

std::vector<int16_t> convert_rate(std::vector<int16_t> samples, int32_t rate) {
    if (rate == RATE) return samples;
    return resample(samples, rate, RATE);
}

std::string seconds_of(int64_t count) {
    const int64_t tenths = (count * 10 + RATE / 2) / RATE;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
}

void refuse_length(const std::string &path, int64_t max_samples) {
    throw diarization_error(PARLEY_INVALID,
                            path + ": is longer than the " + seconds_of(max_samples) + " allowed");
}

std::string note_on_mixing(std::span<const int16_t> interleaved) {
    balance both;
    both.add(interleaved);
    return both.note();
}

std::vector<int16_t> loudest_of(std::vector<std::vector<int16_t>> channels) {
    const auto energy = [](const std::vector<int16_t> &samples) {
        double sum = 0;
        for (const int16_t s : samples) sum += static_cast<double>(s) * s;
        return sum;
    };
    return std::move(*std::max_element(channels.begin(), channels.end(),
                                       [&](const auto &a, const auto &b) { return energy(a) < energy(b); }));
}

#if PARLEY_WITH_SNDFILE

namespace {

struct closer {
    void operator()(SNDFILE *file) const { sf_close(file); }
};

// A file as interleaved blocks of up to BLOCK frames.
class sound_file {
public:
    SF_INFO info{};

    explicit sound_file(const std::string &path) : file_(sf_open(path.c_str(), SFM_READ, &info)) {
        if (file_) values_.resize(BLOCK * static_cast<size_t>(info.channels));
    }
    bool is_open() const { return file_ != nullptr; }
    bool seek(sf_count_t frame) { return sf_seek(file_.get(), frame, SEEK_SET) >= 0; }

    // Empty at the end.
    std::span<const int16_t> next(sf_count_t max_samples = BLOCK) {
        const sf_count_t got = sf_readf_short(file_.get(), values_.data(),
                                              std::min(max_samples, static_cast<sf_count_t>(BLOCK)));
        return {values_.data(), static_cast<size_t>(got * info.channels)};
    }

private:
    std::unique_ptr<SNDFILE, closer> file_;
    std::vector<int16_t> values_;
};

sound_file open_sound(const std::string &path) {
    sound_file file(path);
    if (!file.is_open()) throw diarization_error(PARLEY_UNREADABLE, path + ": " + sf_strerror(nullptr));
    return file;
}

[[noreturn]] void refuse_empty(const std::string &path) {
    throw diarization_error(PARLEY_INVALID, path + ": holds no audio");
}

}  // namespace

std::vector<std::vector<int16_t>> read_channels(const std::string &path, int64_t max_samples) {
    check_is_readable(path, path);
    sound_file file = open_sound(path);
    const auto count = static_cast<size_t>(file.info.channels);
    const int32_t rate = file.info.samplerate;
    const int64_t max_count = max_samples / RATE * rate + max_samples % RATE * rate / RATE;
    std::vector<std::vector<int16_t>> channels(count);
    for (std::span<const int16_t> block; !(block = file.next()).empty();) {
        for (size_t i = 0; i < block.size(); i++) channels[i % count].push_back(block[i]);
        if (static_cast<int64_t>(channels.front().size()) > max_count) refuse_length(path, max_samples);
    }
    for (auto &channel : channels) channel = convert_rate(std::move(channel), rate);
    if (channels.empty() || channels.front().empty()) refuse_empty(path);
    return channels;
}

zx_parley_samples_t read_mixed(const std::string &path, int64_t max_samples) {
    sound_file file = open_sound(path);
    const auto count = static_cast<size_t>(file.info.channels);
    sample_converter to_rate(file.info.samplerate, RATE);
    sample_buffer samples;
    std::vector<int16_t> mixed(BLOCK);
    for (std::span<const int16_t> block; !(block = file.next()).empty();) {
        const size_t frames = block.size() / count;
        for (size_t i = 0; i < frames; i++) {
            int64_t sum = 0;
            for (size_t c = 0; c < count; c++) sum += block[i * count + c];
            mixed[i] = static_cast<int16_t>(sum / static_cast<int64_t>(count));
        }
        samples.append(to_rate.convert({mixed.data(), frames}));
        if (static_cast<int64_t>(samples.count()) > max_samples) refuse_length(path, max_samples);
    }
    if (samples.count() == 0) refuse_empty(path);
    return samples.release();
}

std::string note_on_mixing(const std::string &path) {
    constexpr sf_count_t PLACES = 20;
    sound_file file(path);
    if (!file.is_open() || file.info.channels != 2 || !file.info.seekable) return "";
    balance both;
    for (sf_count_t place = 0; place < PLACES; place++) {
        if (!file.seek(place * (file.info.frames / PLACES))) break;
        sf_count_t left = std::min<sf_count_t>(file.info.samplerate, file.info.frames / PLACES);
        for (std::span<const int16_t> block; left > 0 && !(block = file.next(left)).empty();) {
            both.add(block);
            left -= static_cast<sf_count_t>(block.size() / 2);
        }
    }
    return both.note();
}

#else

namespace {

[[noreturn]] void refuse_libsndfile() {
    throw diarization_error(PARLEY_INVALID,
                            "this build cannot read channels apart (libsndfile was left out)");
}

}  // namespace

std::vector<std::vector<int16_t>> read_channels(const std::string &, int64_t) {
    refuse_libsndfile();
}

zx_parley_samples_t read_mixed(const std::string &, int64_t) {
    refuse_libsndfile();
}

std::string note_on_mixing(const std::string &) {
    return "";
}

#endif
