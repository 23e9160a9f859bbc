// SPDX-License-Identifier: Apache-2.0
#include "zx_log.h"

#include <atomic>
#include <cstdint>
#include <cstdio>

namespace {

constinit std::atomic<uint8_t> is_log_enabled{1};

}  // namespace

extern "C" void zx_log_enable(void) {
    is_log_enabled.store(1, std::memory_order_relaxed);
}

extern "C" void zx_log_disable(void) {
    is_log_enabled.store(0, std::memory_order_relaxed);
}

void zx_log_va(const char *format, va_list arguments) {
    if (is_log_enabled.load(std::memory_order_relaxed)) std::vfprintf(stdout, format, arguments);
}

void zx_log(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    zx_log_va(format, arguments);
    va_end(arguments);
}
