// SPDX-License-Identifier: Apache-2.0
#include "zx_check_status.h"

#include <cstdlib>

#include "zx_log.h"

zx_status_t zx_check_status(const char *file, uint32_t line, zx_status_t status) {
    zx_log("[DEBUG] `%s:%u`: status `%s` not `ZX_STATUS_SUCCESS`\n", file, line, zx_status_to_string(status));
    return status;
}

zx_status_t zx_check_status_free_all_va(const char *file, uint32_t line, zx_status_t status,
                                        va_list pointers) {
    while (void *pointer = va_arg(pointers, void *)) std::free(pointer);
    return zx_check_status(file, line, status);
}

zx_status_t zx_check_status_free_all(const char *file, uint32_t line, zx_status_t status, ...) {
    va_list pointers;
    va_start(pointers, status);
    const zx_status_t result = zx_check_status_free_all_va(file, line, status, pointers);
    va_end(pointers);
    return result;
}
