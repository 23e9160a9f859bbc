// SPDX-License-Identifier: Apache-2.0
// Debug logging: lines on standard output while the process-wide switch is on. It is on at start; callers
// switch it with zx_log_enable and zx_log_disable.
#ifndef ZX_LOG_H
#define ZX_LOG_H

#include <cstdarg>

#include "zx_log_switch.h"

// Prints by the printf rules. Safe from any thread.
[[gnu::format(printf, 1, 2)]] void zx_log(const char *format, ...);
void zx_log_va(const char *format, va_list arguments);

#endif
