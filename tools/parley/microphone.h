// SPDX-License-Identifier: Apache-2.0
// A microphone, or whatever else the system records from, as a stream of samples.
#ifndef PARLEY_TOOL_MICROPHONE_H
#define PARLEY_TOOL_MICROPHONE_H

#include <memory>
#include <string>
#include <vector>

namespace parley {

// Names of what can be recorded from; the system's default first. Empty in builds without PortAudio.
std::vector<std::string> recording_devices();

class microphone {
public:
    // `device`: its name or a part of it, in any case of letters; "" for the system's default. Begins to
    // record. Throws std::runtime_error.
    explicit microphone(const std::string &device);
    ~microphone();
    microphone(const microphone &) = delete;
    microphone &operator=(const microphone &) = delete;

    int rate() const;        // Hz
    int descriptor() const;  // of a pipe from which samples of 16 bits come, of one channel

private:
    struct recorder;
    std::unique_ptr<recorder> recorder_;
};

}  // namespace parley

#endif
