// SPDX-License-Identifier: Apache-2.0
// The audio file reader, one program per format (PARLEY_FUZZ_FORMAT): what opens is read to its promised end,
// in pieces of changing size. Files that promise hours are read for MAX_SAMPLES.
#include <memory>
#include <vector>

#include "fuzz.h"
#include "zx_audio_file.h"
#include "zx_heap.h"
#include "zx_log_switch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    constexpr int32_t MAX_SAMPLES = 1 << 19;
    static fuzz_file file;
    static std::vector<int16_t> pcm;
    zx_log_disable();
    const char *path = file.with(data, size);
    zx_audio_format_t format;
    if (zx_audio_file_get_format(path, &format) != ZX_STATUS_SUCCESS || format != PARLEY_FUZZ_FORMAT) {
        return -1;  // another program's
    }
    zx_audio_file_t *object = nullptr;
    const zx_status_t status = zx_audio_file_init(path, &object);
    fuzz_require((status == ZX_STATUS_SUCCESS) == (object != nullptr), "a reader exactly on success");
    if (!object) return 0;
    const zx_owned<zx_audio_file_t, zx_audio_file_delete> reader(object);
    int32_t left = zx_audio_file_num_samples(object);
    fuzz_require(left >= 1 && zx_audio_file_num_original_samples(object) >= 1 &&
                     zx_audio_file_sample_rate(object) >= 1,
                 "a reader has samples and a rate");
    if (left > MAX_SAMPLES) left = MAX_SAMPLES;
    for (int32_t step = 1; left > 0; step = step % 20000 * 3 + 1) {
        const int32_t n = step < left ? step : left;
        pcm.assign(static_cast<size_t>(n) + 1, 0);  // sized anew, so that a write past it is seen
        pcm.shrink_to_fit();
        if (zx_audio_file_read(object, n, pcm.data()) != ZX_STATUS_SUCCESS) break;
        left -= n;
    }
    return 0;
}
