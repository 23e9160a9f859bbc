// SPDX-License-Identifier: Apache-2.0
// What the worker calls besides the functions of parley.h: runs whose progress goes to
// JavaScript.

#include <emscripten/emscripten.h>

#include "parley.h"

// Tells the page how much is done, 0 to 1. 0: stop.
EM_JS(int, report_progress, (double fraction),
      { return !Module.onProgress || Module.onProgress(fraction) != false; });

namespace {

int report(void *, double done) {
    return report_progress(done);
}

}  // namespace

extern "C" EMSCRIPTEN_KEEPALIVE parley_status parley_run(parley_diarizer *diarizer, const int16_t *samples,
                                                         int32_t num_samples, int32_t num_channels,
                                                         int32_t rate, const char *name,
                                                         const parley_options *options,
                                                         parley_result **result) {
    return parley_diarize_samples(diarizer, samples, num_samples, num_channels, rate, name, options, report,
                                  nullptr, result);
}

extern "C" EMSCRIPTEN_KEEPALIVE parley_status parley_run_file(parley_diarizer *diarizer, const char *path,
                                                              const parley_options *options,
                                                              parley_result **result) {
    return parley_diarize_file(diarizer, path, options, report, nullptr, result);
}
