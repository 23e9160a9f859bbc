// What the worker of the page calls: the engine behind four functions of numbers, with progress on the way.

#include <emscripten/emscripten.h>

#include <memory>
#include <string>

#include "zx_heap.h"
#include "zx_log.h"
#include "zx_parley_internal.h"

// Tells the page how much is done, 0 to 1.
EM_JS(void, report_progress, (double fraction), {
    if (Module.onProgress) Module.onProgress(fraction);
});

namespace {

// The share of the time that features take here, where fused multiply-add is computed in double precision (measured over the
// sample recording).
constexpr double FEATURES_SHARE = 0.45;

}  // namespace

extern "C" {

// Creates an engine from the file /parley.zx; null on failure.
EMSCRIPTEN_KEEPALIVE zx_parley_t *parley_open() {
    zx_log_disable();
    zx_parley_t *object = nullptr;
    (void) zx_parley_init("/parley.zx", &object);
    return object;
}

EMSCRIPTEN_KEEPALIVE void parley_close(zx_parley_t *object) {
    zx_parley_delete(object);
}

// Diarizes samples at 16 kHz. Returns the number of segments and hands out their records, the caller's to free, or
// returns a status times -1.
EMSCRIPTEN_KEEPALIVE int32_t parley_run(zx_parley_t *object, const int16_t *pcm, int32_t num_samples,
                                        zx_parley_segment_t **segments) {
    *segments = nullptr;
    const int32_t num_frames = num_samples / ZX_PARLEY_FRAME_LENGTH;
    if (num_frames < 1) return -ZX_STATUS_INVALID_ARGUMENT;
    const zx_heap_ptr<int16_t> feature(
        zx_heap_zeroed<int16_t>(static_cast<size_t>(num_frames) * ZX_PARLEY_FRAME_SIZE));
    const zx_heap_ptr<uint32_t> tags(zx_heap_zeroed<uint32_t>(static_cast<size_t>(num_frames)));
    if (!feature || !tags) return -ZX_STATUS_OUT_OF_MEMORY;

    const int32_t num_hops = 2 * num_frames;
    zx_status_t status = ZX_STATUS_SUCCESS;
    zx_filterbank_reset(object->filterbank);
    for (int32_t hop = 0; hop < num_hops; hop++) {
        if (hop % 2000 == 0) report_progress(FEATURES_SHARE * hop / num_hops);
        status =
            zx_filterbank_compute(object->filterbank, pcm + static_cast<size_t>(hop) * ZX_PARLEY_HOP_LENGTH,
                                  feature.get() + static_cast<size_t>(hop) * ZX_FILTERBANK_NUM_BANDS);
        if (status != ZX_STATUS_SUCCESS) return -status;
    }
    zx_filterbank_reset(object->filterbank);
    report_progress(FEATURES_SHARE);
    zx_parley_internal_preprocess(object, feature.get(), num_hops);
    status = zx_parley_internal_process(object, feature.get(), num_frames, tags.get());
    if (status != ZX_STATUS_SUCCESS) return -status;
    int32_t count = 0;
    status = zx_parley_internal_segment(object, tags.get(), num_frames, &count, segments);
    zx_parley_internal_reset(object);
    if (status != ZX_STATUS_SUCCESS) return -status;
    report_progress(1.0);
    return count;
}

// The messages of the last failure, a line each.
EMSCRIPTEN_KEEPALIVE const char *parley_messages() {
    static std::string text;
    text.clear();
    char **messages = nullptr;
    int32_t depth = 0;
    if (zx_get_error_stack(&messages, &depth) == ZX_STATUS_SUCCESS) {
        for (int32_t i = 0; i < depth; i++) text += std::string(messages[i]) + "\n";
        zx_free_error_stack(messages);
    }
    return text.c_str();
}

}  // extern "C"
