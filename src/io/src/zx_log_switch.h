/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The switch of the debug log. Part of the public interface (C99), included by zx_parley.h.
 */
#ifndef ZX_LOG_SWITCH_H
#define ZX_LOG_SWITCH_H

#include "zx_base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Switches the debug lines on standard output on (as they are at start) or off, for the whole process.
 * Notices of errors, which begin with "(zx_error)", are printed in both cases. */
ZX_API void zx_log_enable(void);
ZX_API void zx_log_disable(void);

#ifdef __cplusplus
}
#endif

#endif
