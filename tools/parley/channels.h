// Recordings with a speaker per channel: the channels apart, which the engine's readers mix.
#ifndef PARLEY_TOOLS_CHANNELS_H
#define PARLEY_TOOLS_CHANNELS_H

#include <cstdint>
#include <string>
#include <vector>

// Every channel as 16-bit samples at 16 kHz, all of one length; at least one. Reads what libsndfile does
// (WAV, FLAC, Ogg, MP3) at 8 kHz or any rate from 16 kHz up. Throws std::runtime_error.
std::vector<std::vector<int16_t>> read_channels(const std::string &path);

#endif
