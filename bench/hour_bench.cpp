// SPDX-License-Identifier: Apache-2.0
// An hour (or any time) of conversation through the public interface: seconds of processor time, times real
// time, peak memory.
//
//   bench_hour MODEL [HOURS]
//
// The audio is made here: four voices, each a buzz of its own pitch through two resonators of its own, take
// turns of 1 to 6 seconds with pauses in between, over faint noise. It is written to a temporary WAV file and
// diarized from there.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "zx_parley.h"

namespace {

constexpr double RATE = 16000;

class random_numbers {
public:
    double between(double low, double high) {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return low + (high - low) * static_cast<double>(state_ >> 11) * 0x1p-53;
    }

private:
    uint64_t state_ = 1;
};

// Second-order resonator: y = g x + 2 r cos(w) y' - r^2 y''.
struct resonator {
    double frequency, bandwidth, y1 = 0, y2 = 0;
    double step(double x) {
        const double r = std::exp(-M_PI * bandwidth / RATE);
        const double y = (1 - r) * x + 2 * r * std::cos(2 * M_PI * frequency / RATE) * y1 - r * r * y2;
        y2 = y1;
        y1 = y;
        return y;
    }
};

struct voice {
    double pitch;
    resonator formants[2];
};

std::vector<int16_t> make_conversation(double seconds) {
    voice voices[] = {{110, {{600, 80}, {1100, 90}}},
                      {210, {{500, 90}, {1900, 120}}},
                      {140, {{400, 70}, {2300, 150}}},
                      {180, {{750, 90}, {1400, 110}}}};
    random_numbers random;
    std::vector<int16_t> pcm;
    const auto total = static_cast<size_t>(seconds * RATE);
    pcm.reserve(total);
    while (pcm.size() < total) {
        voice &speaker = voices[static_cast<size_t>(random.between(0, 3.999))];
        const bool is_pause = random.between(0, 1) < 0.3;
        const double length = is_pause ? random.between(0.2, 1.5) : random.between(1, 6);
        double phase = 0, syllable = 0;
        const double syllable_rate = random.between(3, 6);
        for (auto i = static_cast<size_t>(length * RATE); i > 0 && pcm.size() < total; i--) {
            double sample = random.between(-20, 20);
            if (!is_pause) {
                phase += speaker.pitch * (1 + 0.1 * std::sin(syllable)) / RATE;
                syllable += 2 * M_PI * syllable_rate / RATE;
                if (phase >= 1) phase -= 1;
                const double source = (phase - 0.5) * (1.1 + std::sin(syllable)) * 20000;
                sample += speaker.formants[0].step(source) + speaker.formants[1].step(source);
            }
            pcm.push_back(static_cast<int16_t>(std::fmax(-32768, std::fmin(32767, sample))));
        }
    }
    return pcm;
}

void put(std::FILE *file, const void *bytes, size_t size) {
    if (std::fwrite(bytes, 1, size, file) != size) {
        std::perror("bench_hour: temporary file");
        std::exit(1);
    }
}

void write_wav(const char *path, const std::vector<int16_t> &pcm) {
    std::FILE *file = std::fopen(path, "wb");
    if (!file) {
        std::perror(path);
        std::exit(1);
    }
    const auto size = static_cast<uint32_t>(pcm.size() * 2), riff = size + 36;
    const uint32_t format[] = {16, 1 | 1 << 16, 16000, 32000, 2 | 16 << 16};  // PCM, mono, 16 bits
    put(file, "RIFF", 4), put(file, &riff, 4), put(file, "WAVEfmt ", 8), put(file, format, sizeof(format));
    put(file, "data", 4), put(file, &size, 4), put(file, pcm.data(), size);
    std::fclose(file);
}

double processor_seconds() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: bench_hour MODEL [HOURS]\n");
        return 2;
    }
    const double hours = argc > 2 ? std::atof(argv[2]) : 1;
    char path[] = "/tmp/parley-bench-XXXXXX";
    const int descriptor = mkstemp(path);
    if (descriptor < 0) return 1;
    close(descriptor);
    // In a child process, so that the peak memory measured below is the engine's.
    if (const pid_t child = fork(); child == 0) {
        write_wav(path, make_conversation(3600 * hours));
        _exit(0);
    } else if (int status = 1; child < 0 || waitpid(child, &status, 0) < 0 || status != 0) {
        std::fprintf(stderr, "bench_hour: could not make the audio\n");
        unlink(path);
        return 1;
    }

    zx_log_disable();
    zx_parley_t *engine = nullptr;
    int32_t num_segments = 0;
    zx_parley_segment_t *segments = nullptr;
    const double start = processor_seconds();
    const bool is_done = zx_parley_init(argv[1], &engine) == ZX_STATUS_SUCCESS &&
                         zx_parley_process_file(engine, path, &num_segments, &segments) == ZX_STATUS_SUCCESS;
    const double seconds = processor_seconds() - start;
    zx_parley_segments_delete(segments);
    zx_parley_delete(engine);
    unlink(path);
    if (!is_done) return 1;

    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    std::printf("%.3f h of audio: %.3f s, %.0f times real time, peak memory %.1f MB, %d segments\n", hours,
                seconds, 3600 * hours / seconds, static_cast<double>(usage.ru_maxrss) / 1024, num_segments);
    return 0;
}
