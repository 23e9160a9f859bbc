// SPDX-License-Identifier: Apache-2.0
// Channels apart, which the engine's readers mix, and samples at rates of their own.
#ifndef PARLEY_CHANNELS_H
#define PARLEY_CHANNELS_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "zx_heap.h"
#include "zx_parley_internal.h"
#include "zx_resampler.h"

constexpr int32_t RATE = 16000;  // Hz, of everything that the engine takes

// Every channel of a file as 16-bit samples at 16 kHz, all of one length; at least one sample. Reads what
// libsndfile does (WAV, FLAC, Ogg, MP3 and more) at 8 kHz or any rate from 16 kHz up. Throws
// diarization_error, also for more than `max_samples` samples a channel.
std::vector<std::vector<int16_t>> read_channels(const std::string &path, int64_t max_samples);

// The same mixed: the mean of all channels, rounded towards zero.
zx_parley_samples_t read_mixed(const std::string &path, int64_t max_samples);

// Of a recording that is longer than allowed.
[[noreturn]] void refuse_length(const std::string &path, int64_t max_samples);

// "12.5 s" of samples at RATE.
std::string seconds_of(int64_t count);

// What a user should know before two channels are mixed: that they cancel each other, that one is silent.
// Looks at a second here and there. Empty if there is nothing to say, and for a file that libsndfile does not
// read.
std::string note_on_mixing(const std::string &path);

// The same of interleaved samples of two channels.
std::string note_on_mixing(std::span<const int16_t> interleaved);

// The one with most energy.
std::vector<int16_t> loudest_of(std::vector<std::vector<int16_t>> channels);

// Samples from one rate in Hz to another, block by block.
class sample_converter {
public:
    static constexpr size_t BLOCK = 1024;

    // Throws diarization_error for rates that cannot be converted.
    sample_converter(int32_t from, int32_t to);

    // Up to BLOCK samples, less only at the end; what they become is valid until the next call.
    std::span<const int16_t> convert(std::span<const int16_t> block);

private:
    zx_owned<zx_resampler_t, zx_resampler_delete> resampler_;
    std::vector<int16_t> converted_;
};

// Samples from one rate in Hz to another, where the engine's resampler can: downwards, and upwards by two.
// Throws diarization_error.
std::vector<int16_t> resample(std::span<const int16_t> samples, int32_t from, int32_t to);

// Samples at `rate` Hz to 16 kHz. Throws diarization_error for a rate that cannot be converted.
std::vector<int16_t> convert_rate(std::vector<int16_t> samples, int32_t rate);

#endif
