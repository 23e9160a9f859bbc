// Channels apart, which the engine's readers mix, and samples at rates of their own.
#ifndef PARLEY_CHANNELS_H
#define PARLEY_CHANNELS_H

#include <cstdint>
#include <string>
#include <vector>

constexpr int32_t RATE = 16000;  // Hz, of everything that the engine takes

// Every channel of a file as 16-bit samples at 16 kHz, all of one length; at least one sample. Reads what
// libsndfile does (WAV, FLAC, Ogg, MP3 and more) at 8 kHz or any rate from 16 kHz up. Throws
// diarization_error.
std::vector<std::vector<int16_t>> read_channels(const std::string &path);

// Samples from one rate in Hz to another, where the engine's resampler can: downwards, and upwards by two.
// Throws diarization_error.
std::vector<int16_t> resample(const int16_t *samples, int64_t count, int32_t from, int32_t to);

// Samples at `rate` Hz to 16 kHz. Throws diarization_error for a rate that cannot be converted.
std::vector<int16_t> convert_rate(std::vector<int16_t> samples, int32_t rate);

#endif
