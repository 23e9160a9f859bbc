// SPDX-License-Identifier: Apache-2.0
// Reports a failing status in the debug log on its way out of a function. Nothing is pushed on the error
// stack.
#ifndef ZX_CHECK_STATUS_H
#define ZX_CHECK_STATUS_H

#include <cstdarg>
#include <cstdint>

#include "zx_base.h"

// Logs file, line and status, and returns the status unchanged.
[[nodiscard]] zx_status_t zx_check_status(const char *file, uint32_t line, zx_status_t status);

// Frees the pointers that follow, up to the first null pointer, then does the same.
[[nodiscard]] zx_status_t zx_check_status_free_all(const char *file, uint32_t line, zx_status_t status, ...);
[[nodiscard]] zx_status_t zx_check_status_free_all_va(const char *file, uint32_t line, zx_status_t status,
                                                      va_list pointers);

#endif
