/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What every caller and every module shares: the status codes, the stack of error messages and the one
 * sample rate of the engine. Part of the public interface (C99), included by zx_parley.h.
 */
#ifndef ZX_BASE_H
#define ZX_BASE_H

#include <stdint.h>

/* Marks the functions that the dynamic library exports; everything else is hidden. */
#if defined(_WIN32)
#define ZX_API
#else
#define ZX_API __attribute__((visibility("default")))
#endif

/* Makes compilers warn where a status is dropped. */
#if defined(__cplusplus) && __cplusplus >= 201703L
#define ZX_CHECKED [[nodiscard]]
#elif defined(__GNUC__)
#define ZX_CHECKED __attribute__((warn_unused_result))
#else
#define ZX_CHECKED
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Outcome of every operation that can fail. */
typedef int32_t zx_status_t;
enum {
    ZX_STATUS_SUCCESS = 0,
    ZX_STATUS_OUT_OF_MEMORY = 1,
    ZX_STATUS_IO_ERROR = 2,
    ZX_STATUS_INVALID_ARGUMENT = 3,
    ZX_STATUS_STOP_ITERATION = 4,
    ZX_STATUS_KEY_ERROR = 5,
    ZX_STATUS_INVALID_STATE = 6,
    ZX_STATUS_RUNTIME_ERROR = 7
};

/* The name of a status without its prefix ("SUCCESS", "OUT_OF_MEMORY", ...), a constant string; null for a
 * value outside the enumeration. */
ZX_API const char *zx_status_to_string(zx_status_t status);

/* The sample rate in Hz that the engine works at: 16000. */
ZX_API int32_t zx_sample_rate(void);

/*
 * Takes the messages that the calling thread's last failing call left, innermost fault first.
 *
 * message_stack        receives an array of 8 strings, of which the first *message_stack_depth are
 *                      meaningful; the caller owns it and gives it back with zx_free_error_stack
 * message_stack_depth  receives the number of messages, 0 to 8
 *
 * Both outputs are set to null and 0 first. ZX_STATUS_INVALID_STATE: this thread has no messages.
 * ZX_STATUS_INVALID_ARGUMENT: an argument is null.
 * ZX_STATUS_OUT_OF_MEMORY: the messages were handed out all the same, but the next thread's cannot be.
 */
ZX_CHECKED ZX_API zx_status_t zx_get_error_stack(char ***message_stack, int32_t *message_stack_depth);

/* Frees an array that zx_get_error_stack handed out; null is ignored. */
ZX_API void zx_free_error_stack(char **message_stack);

#ifdef __cplusplus
}
#endif

#endif
