// SPDX-License-Identifier: Apache-2.0
#include "microphone.h"

#include <stdexcept>

#if PARLEY_WITH_PORTAUDIO
#include <fcntl.h>
#include <portaudio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <thread>

#include "system.h"
#endif

namespace parley {

#if PARLEY_WITH_PORTAUDIO

namespace {

// The system's libraries complain of every device that is configured and not there.
class quiet_errors {
public:
    quiet_errors() : kept_(dup(STDERR_FILENO)) {
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (nowhere < 0) return;
        dup2(nowhere, STDERR_FILENO);
        close(nowhere);
    }
    ~quiet_errors() {
        if (kept_ < 0) return;
        dup2(kept_, STDERR_FILENO);
        close(kept_);
    }
    quiet_errors(const quiet_errors &) = delete;
    quiet_errors &operator=(const quiet_errors &) = delete;

private:
    int kept_;
};

class audio_system {
public:
    audio_system() {
        const quiet_errors quiet;
        status_ = Pa_Initialize();
    }
    ~audio_system() {
        const quiet_errors quiet;
        if (status_ == paNoError) Pa_Terminate();
    }
    audio_system(const audio_system &) = delete;
    audio_system &operator=(const audio_system &) = delete;

    PaError status() const { return status_; }

private:
    PaError status_ = paNoError;
};

// Those with inputs; the default first.
std::vector<PaDeviceIndex> inputs() {
    std::vector<PaDeviceIndex> found;
    for (PaDeviceIndex i = 0; i < Pa_GetDeviceCount(); i++)
        if (Pa_GetDeviceInfo(i)->maxInputChannels > 0) found.push_back(i);
    std::stable_partition(found.begin(), found.end(),
                          [](PaDeviceIndex i) { return i == Pa_GetDefaultInputDevice(); });
    return found;
}

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

PaDeviceIndex find_input(const std::string &name) {
    for (const PaDeviceIndex i : inputs())
        if (name.empty() || lower_case(Pa_GetDeviceInfo(i)->name).find(lower_case(name)) != std::string::npos)
            return i;
    throw std::runtime_error(name.empty() ? "there is no microphone"
                                          : "there is no recording device " + name +
                                                ": --device list names those that are there");
}

[[noreturn]] void fail(PaError error) {
    throw std::runtime_error(std::string("the recording device: ") + Pa_GetErrorText(error));
}

}  // namespace

struct microphone::recorder {
    explicit recorder(const std::string &name) {
        const quiet_errors quiet;
        if (system_.status() != paNoError) fail(system_.status());
        const PaDeviceIndex device = find_input(name);
        const PaDeviceInfo *about = Pa_GetDeviceInfo(device);
        const PaStreamParameters input = {device, 1, paInt16, about->defaultHighInputLatency, nullptr};
        rate_ = 16000;
        if (Pa_IsFormatSupported(&input, nullptr, rate_) != paFormatIsSupported)
            rate_ = static_cast<int>(about->defaultSampleRate);
        PaError error = Pa_OpenStream(&stream_, &input, nullptr, rate_, FRAMES, paClipOff, nullptr, nullptr);
        if (error == paNoError) error = Pa_StartStream(stream_);
        if (error != paNoError) fail(error);
        if (pipe2(ends_.data(), O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "a pipe");
        thread_ = std::thread([this] { record(); });
    }

    ~recorder() {
        stops_ = true;
        if (ends_[0] >= 0) close(ends_[0]);  // what waits to be written is not
        if (thread_.joinable()) thread_.join();
        if (stream_) Pa_CloseStream(stream_);
        if (ends_[1] >= 0) close(ends_[1]);
    }
    recorder(const recorder &) = delete;
    recorder &operator=(const recorder &) = delete;

    // What the reader is late for is lost, not the stream.
    void record() {
        std::array<int16_t, FRAMES> samples{};
        while (!stops_) {
            const PaError error = Pa_ReadStream(stream_, samples.data(), FRAMES);
            const bool is_recorded = error == paNoError || error == paInputOverflowed;
            if (!is_recorded || !write_all(ends_[1], samples.data(), sizeof(samples))) break;
        }
        close(ends_[1]);
        ends_[1] = -1;
    }

    static constexpr unsigned long FRAMES = 800;  // 50 ms at 16 kHz
    const audio_system system_;
    PaStream *stream_ = nullptr;
    int rate_ = 0;
    std::array<int, 2> ends_ = {-1, -1};
    std::atomic<bool> stops_ = false;
    std::thread thread_;
};

std::vector<std::string> recording_devices() {
    const audio_system system;
    std::vector<std::string> names;
    if (system.status() != paNoError) return names;
    for (const PaDeviceIndex i : inputs()) names.emplace_back(Pa_GetDeviceInfo(i)->name);
    return names;
}

microphone::microphone(const std::string &device) : recorder_(std::make_unique<recorder>(device)) {}

int microphone::rate() const {
    return recorder_->rate_;
}

int microphone::descriptor() const {
    return recorder_->ends_[0];
}

#else

struct microphone::recorder {};

std::vector<std::string> recording_devices() {
    return {};
}

microphone::microphone(const std::string &) {
    throw std::runtime_error("this build does not record: it was made without PortAudio");
}

int microphone::rate() const {
    return 0;
}

int microphone::descriptor() const {
    return -1;
}

#endif

microphone::~microphone() = default;

}  // namespace parley
