// SPDX-License-Identifier: Apache-2.0
#include "zx_base.h"

#include <iterator>

extern "C" const char *zx_status_to_string(zx_status_t status) {
    static constexpr const char *STRINGS[] = {
        "SUCCESS",        "OUT_OF_MEMORY", "IO_ERROR",      "INVALID_ARGUMENT",
        "STOP_ITERATION", "KEY_ERROR",     "INVALID_STATE", "RUNTIME_ERROR",
    };
    if (status < 0 || status >= static_cast<zx_status_t>(std::size(STRINGS))) return nullptr;
    return STRINGS[status];
}

extern "C" int32_t zx_sample_rate(void) {
    return 16000;
}
