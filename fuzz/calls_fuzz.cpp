// SPDX-License-Identifier: Apache-2.0
// The public interface as a sequence of calls, a byte choosing each: two engines, buffers and files of many
// kinds, null arguments, messages taken or left. After all of it an engine still gives what a fresh one
// gives.
#include <algorithm>
#include <memory>
#include <vector>

#include "fuzz.h"
#include "zx_heap.h"
#include "zx_parley.h"

namespace {

const char MODEL[] = PARLEY_SOURCE_DIR "/test/data/vectors/small.zx";

using engine_ptr = zx_owned<zx_parley_t, zx_parley_delete>;

engine_ptr make_engine() {
    zx_parley_t *object = nullptr;
    fuzz_require(zx_parley_init(MODEL, &object) == ZX_STATUS_SUCCESS, "the model loads");
    return engine_ptr(object);
}

// Tones, noise, clicks and silence, all from one seed.
std::vector<int16_t> make_audio(uint32_t seed, int32_t num_samples) {
    std::vector<int16_t> pcm(static_cast<size_t>(num_samples));
    uint32_t state = seed;
    for (int32_t i = 0; i < num_samples; i++) {
        state = state * 1664525 + 1013904223;
        switch ((seed + static_cast<uint32_t>(i) / 1024) % 5) {
            case 0:
                break;
            case 1:
                pcm[static_cast<size_t>(i)] = static_cast<int16_t>(state >> 16);
                break;
            case 2:
                pcm[static_cast<size_t>(i)] =
                    static_cast<uint32_t>(i) % (seed % 97 + 2) == 0 ? INT16_MAX : INT16_MIN;
                break;
            case 3:
                pcm[static_cast<size_t>(i)] = static_cast<int16_t>(static_cast<uint32_t>(i) * (seed % 5000));
                break;
            default:
                pcm[static_cast<size_t>(i)] = static_cast<int16_t>(state >> 24);
                break;
        }
    }
    return pcm;
}

struct result {
    zx_status_t status;
    std::vector<zx_parley_segment_t> segments;
};

template <class Call>
result run(Call call) {
    int32_t count = 0;
    zx_parley_segment_t *segments = nullptr;
    result r = {call(&count, &segments), {}};
    fuzz_require(count >= 0 && (count > 0) == (segments != nullptr), "segments as many as announced");
    fuzz_require(r.status == ZX_STATUS_SUCCESS || count == 0, "nothing is handed out on failure");
    if (segments) r.segments.assign(segments, segments + count);
    zx_parley_segments_delete(segments);
    return r;
}

bool same(const result &a, const result &b) {
    const auto equal = [](const zx_parley_segment_t &x, const zx_parley_segment_t &y) {
        return std::memcmp(&x, &y, sizeof(x)) == 0;
    };
    return a.status == b.status &&
           std::equal(a.segments.begin(), a.segments.end(), b.segments.begin(), b.segments.end(), equal);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static fuzz_file file;
    zx_log_disable();
    fuzz_bytes bytes(data, size);
    engine_ptr engines[2];
    for (int num_calls = 0; bytes.size() > 0 && num_calls < 16; num_calls++) {
        const uint8_t call = bytes.take<uint8_t>();
        engine_ptr &engine = engines[call >> 7];
        zx_parley_t *object = engine.get();
        switch (call % 9) {
            case 0:
                engine = make_engine();
                break;
            case 1:
                engine.reset();
                break;
            case 2: {
                const uint32_t seed = bytes.take<uint16_t>();
                const std::vector<int16_t> pcm = make_audio(seed, bytes.between(1, 6000));
                const auto process = [&](zx_parley_t *o) {
                    return run([&](int32_t *count, zx_parley_segment_t **segments) {
                        return zx_parley_process(o, pcm.data(), static_cast<int32_t>(pcm.size()), count,
                                                 segments);
                    });
                };
                fuzz_require(same(process(object), process(object ? make_engine().get() : nullptr)),
                             "a used engine gives what a fresh one gives");
                break;
            }
            case 3: {
                const size_t wanted = bytes.take<uint16_t>() % 4096;
                const size_t length = std::min(wanted, bytes.size());
                const char *path = file.with(bytes.data(), length);
                for (size_t i = 0; i < length; i++) bytes.take<uint8_t>();
                (void) run([&](int32_t *count, zx_parley_segment_t **segments) {
                    return zx_parley_process_file(object, path, count, segments);
                });
                break;
            }
            case 4: {
                char **messages = nullptr;
                int32_t depth = -1;
                const zx_status_t status = zx_get_error_stack(&messages, &depth);
                fuzz_require(
                    depth >= 0 && depth <= 8 && (messages != nullptr) == (status == ZX_STATUS_SUCCESS),
                    "messages exactly on success");
                for (int32_t i = 0; i < depth; i++)
                    fuzz_require(std::strlen(messages[i]) < 256, "messages are short");
                zx_free_error_stack(messages);
                break;
            }
            case 5: {
                zx_parley_t *other = nullptr;
                const char *path =
                    bytes.take<uint8_t>() % 2 ? nullptr : file.with(bytes.data(), bytes.size());
                if (zx_parley_init(path, &other) == ZX_STATUS_SUCCESS) zx_parley_delete(other);
                break;
            }
            case 6: {
                int16_t pcm[512] = {};
                int32_t count = 0;
                zx_parley_segment_t *segments = nullptr;
                const uint8_t nulls = bytes.take<uint8_t>();
                const zx_status_t status =
                    zx_parley_process(object, nulls & 1 ? nullptr : pcm, nulls & 2 ? 511 : 512,
                                      nulls & 4 ? nullptr : &count, nulls & 8 ? nullptr : &segments);
                fuzz_require((status == ZX_STATUS_SUCCESS) == (object && nulls % 16 == 0), "null is refused");
                zx_parley_segments_delete(segments);
                break;
            }
            case 7:
                (void) zx_parley_init(MODEL, nullptr);
                break;
            default:
                fuzz_require(zx_sample_rate() == 16000 && zx_parley_version(), "constants are there");
                (void) zx_status_to_string(static_cast<zx_status_t>(bytes.take<int8_t>()));
                zx_free(nullptr);
                break;
        }
    }
    return 0;
}
