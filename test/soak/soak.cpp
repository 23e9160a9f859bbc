// SPDX-License-Identifier: Apache-2.0
// One engine through thousands of calls: buffers of 512 samples to minutes (now and then as long as asked
// for) of silence, clipping, noise, constants, tones and speech, with failing calls in between. Every result
// must be that of a fresh engine, bit for bit, and the heap must be as full at the
// end as after the first tenth of the calls.
//
//     soak MODEL SPEECH.wav [CALLS [LONGEST-SECONDS [SEED]]]
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "segments.h"
#include "zx_audio_file.h"
#include "zx_heap.h"
#include "zx_log_switch.h"

namespace {

using engine_ptr = zx_owned<zx_parley_t, zx_parley_delete>;
using pcm_vector = std::vector<int16_t>;

constexpr int32_t RATE = 16000;

engine_ptr make_engine(const char *model) {
    zx_parley_t *object = nullptr;
    (void) zx_parley_init(model, &object);
    return engine_ptr(object);
}

pcm_vector read_speech(const char *path) {
    zx_audio_file_t *object = nullptr;
    if (zx_audio_file_init(path, &object) != ZX_STATUS_SUCCESS) return {};
    const zx_owned<zx_audio_file_t, zx_audio_file_delete> file(object);
    pcm_vector pcm(static_cast<size_t>(zx_audio_file_num_samples(object)) + 1);
    if (zx_audio_file_read(object, static_cast<int32_t>(pcm.size()) - 1, pcm.data()) != ZX_STATUS_SUCCESS)
        return {};
    pcm.pop_back();
    return pcm;
}

// A stretch of one kind of audio at a level of its own.
void fill(std::mt19937 &random, const pcm_vector &speech, int16_t *pcm, size_t count) {
    const double level = std::pow(10.0, std::uniform_real_distribution<>(-3.0, 0.3)(random)) * 32768.0;
    const double frequency = std::uniform_real_distribution<>(1.0, 8000.0)(random);
    const int16_t constant = static_cast<int16_t>(random());
    const size_t start = random() % speech.size();
    const auto clipped = [](double x) {
        return static_cast<int16_t>(std::min(32767.0, std::max(-32768.0, x)));
    };
    const unsigned kind = random() % 8;
    for (size_t i = 0; i < count; i++) {
        const int16_t noise = static_cast<int16_t>(random());
        const int16_t voice = speech[(start + i) % speech.size()];
        switch (kind) {
            case 0:
                pcm[i] = 0;
                break;
            case 1:
                pcm[i] = noise;
                break;
            case 2:
                pcm[i] = constant;
                break;
            case 3:
                pcm[i] = i / 40 % 2 ? INT16_MAX : INT16_MIN;
                break;
            case 4:
                pcm[i] = clipped(level * std::sin(2 * M_PI * frequency / RATE * static_cast<double>(i)));
                break;
            case 5:
                pcm[i] = clipped(voice * level / 1000.0);
                break;
            default:
                pcm[i] = voice;
                break;
        }
    }
}

struct result {
    zx_status_t status;
    std::string segments;
    bool operator==(const result &) const = default;
};

result process(zx_parley_t *engine, const pcm_vector &pcm) {
    int32_t count = 0;
    zx_parley_segment_t *segments = nullptr;
    result r = {zx_parley_process(engine, pcm.data(), static_cast<int32_t>(pcm.size()), &count, &segments),
                {}};
    r.segments = take_segments(segments, count);
    return r;
}

// One of the ways in which calls fail.
void fail(std::mt19937 &random, zx_parley_t *engine) {
    int32_t count;
    zx_parley_segment_t *segments;
    const int16_t silence[600] = {};
    zx_parley_t *none = nullptr;
    switch (random() % 5) {
        case 0:
            (void) zx_parley_process(engine, silence, 511, &count, &segments);
            break;
        case 1:
            (void) zx_parley_process(engine, nullptr, 600, &count, &segments);
            break;
        case 2:
            (void) zx_parley_process_file(engine, "/missing.wav", &count, &segments);
            break;
        case 3:
            (void) zx_parley_process_file(engine, "/dev/null", &count, &segments);
            break;
        default:
            (void) zx_parley_init("/dev/zero", &none);
            break;
    }
    if (random() % 2) return;  // messages may be left
    char **messages;
    if (zx_get_error_stack(&messages, &count) == ZX_STATUS_SUCCESS) zx_free_error_stack(messages);
}

size_t heap_bytes() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        std::cerr << "usage: soak MODEL SPEECH.wav [CALLS [LONGEST-SECONDS [SEED]]]\n";
        return 2;
    }
    // So that a freed block is a free block: glibc counts those that it keeps at hand for threads as taken.
    if (!std::getenv("GLIBC_TUNABLES")) {
        setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0:glibc.malloc.mxfast=0", 1);
        execv("/proc/self/exe", argv);
    }
    const int num_calls = argc > 3 ? std::stoi(argv[3]) : 100;
    const double longest = argc > 4 ? std::stod(argv[4]) : 60.0;
    std::mt19937 random(argc > 5 ? static_cast<unsigned>(std::stoul(argv[5])) : 1);
    zx_log_disable();
    const engine_ptr engine = make_engine(argv[1]);
    const pcm_vector speech = read_speech(argv[2]);
    if (!engine || speech.empty()) {
        std::cerr << "the model or the speech cannot be read\n";
        return 2;
    }
    // The library's notices of the failures go away; they are not what is looked at.
    if (!std::freopen("/dev/null", "w", stdout)) return 2;
    fail(random, engine.get());
    (void) process(engine.get(), speech);  // what is taken once and kept
    char **messages;
    int32_t depth;
    if (zx_get_error_stack(&messages, &depth) == ZX_STATUS_SUCCESS) zx_free_error_stack(messages);

    const auto begin = std::chrono::steady_clock::now();
    double seconds = 0.0, longest_call = 0.0;
    size_t num_segments = 0, heap_before = heap_bytes();
    for (int call = 0; call < num_calls; call++) {
        if (call == num_calls / 10) heap_before = heap_bytes();
        // Lengths spread evenly over orders of magnitude, from one frame to the longest.
        const double length =
            std::exp(std::uniform_real_distribution<>(std::log(0.032), std::log(longest))(random));
        pcm_vector pcm(std::max<size_t>(512, static_cast<size_t>(length * RATE)));
        for (size_t done = 0; done < pcm.size();) {
            const size_t count = std::min<size_t>(pcm.size() - done, 512 + random() % 160000);
            fill(random, speech, &pcm[done], count);
            done += count;
        }
        if (random() % 3 == 0) fail(random, engine.get());
        const result expected = process(make_engine(argv[1]).get(), pcm);
        const result actual = process(engine.get(), pcm);
        if (expected.status != ZX_STATUS_SUCCESS || actual != expected) {
            std::cerr << "call " << call << ": the result is not a fresh engine's\n";
            return 1;
        }
        seconds += static_cast<double>(pcm.size()) / RATE;
        longest_call = std::max(longest_call, static_cast<double>(pcm.size()) / RATE);
        num_segments += actual.segments.size() / sizeof(zx_parley_segment_t);
    }
    const size_t heap_after = heap_bytes();
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    std::cerr << num_calls << " calls, " << seconds / 3600.0 << " h of audio (the longest " << longest_call
              << " s), " << num_segments << " segments: each call as by a fresh engine\n"
              << "heap: " << heap_before << " bytes after the first tenth, " << heap_after
              << " at the end; peak memory " << usage.ru_maxrss / 1024 << " MB; " << elapsed << " s\n";
    return heap_after > heap_before ? 1 : 0;
}
