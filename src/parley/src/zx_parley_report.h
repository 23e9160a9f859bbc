// SPDX-License-Identifier: Apache-2.0
// The messages that public functions and the pipeline behind them leave, each with the status that it comes
// with.
#ifndef ZX_PARLEY_REPORT_H
#define ZX_PARLEY_REPORT_H

#include "zx_error.h"

inline zx_status_t zx_parley_report_null(const char *argument) {
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_invalid_argument_null, argument);
    return ZX_STATUS_INVALID_ARGUMENT;
}

inline zx_status_t zx_parley_report_allocation(const char *what) {
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_alloc, what);
    return ZX_STATUS_OUT_OF_MEMORY;
}

inline zx_status_t zx_parley_report_init(const char *module, zx_status_t status) {
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_module_init_internal, module,
                       zx_status_to_string(status));
    return status;
}

inline zx_status_t zx_parley_report_failure(const char *function, zx_status_t status) {
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_module_function_status_internal, function,
                       zx_status_to_string(status));
    return status;
}

#endif
