// SPDX-License-Identifier: Apache-2.0
// The error stack: human-readable messages beside the statuses. Each thread has a stack of up to 8 formatted
// messages, innermost fault first, in one of 128 records of a static table; the caller collects them with
// zx_get_error_stack. Nothing here allocates on the error path, and nothing here fails loudly: when the table
// or a stack is full, messages are lost, not calls.
#ifndef ZX_ERROR_H
#define ZX_ERROR_H

#include <cstdarg>
#include <cstdint>

#include "zx_base.h"

// A kind of message. The internal text is preferred to the public one when a message is logged; both are
// printf formats. Codes identify messages and are never returned to callers.
struct zx_error_msg_t {
    uint32_t code;
    const char *public_text;
    const char *internal_text;
};

inline constexpr zx_error_msg_t zx_error_msg_invalid_argument_null = {100, "Argument `%s` is NULL.", nullptr};
inline constexpr zx_error_msg_t zx_error_msg_invalid_argument_min = {
    101, "Argument `%s` value `%d` is less than the minimum acceptable value of `%d`.", nullptr};
inline constexpr zx_error_msg_t zx_error_msg_incorrect_file = {
    105, "%s file has incorrect format or belongs to a different platform.", nullptr};
inline constexpr zx_error_msg_t zx_error_msg_incorrect_file_version = {
    106, "%s file belongs to a different version of the library. File is `%s` while library is `%s`.",
    nullptr};
inline constexpr zx_error_msg_t zx_error_msg_invalid_argument_internal = {111, nullptr,
                                                                          "Argument `%s` is invalid."};
inline constexpr zx_error_msg_t zx_error_msg_invalid_argument_range_internal = {
    111, nullptr, "Argument `%s` value `%d` is out of range [%d, %d]."};
inline constexpr zx_error_msg_t zx_error_msg_alloc = {200, "Failed to allocate, out of memory.",
                                                      "Failed to allocate memory for `%s`."};
inline constexpr zx_error_msg_t zx_error_msg_fopen_failure = {201, "Failed to open file `%s`.", nullptr};
inline constexpr zx_error_msg_t zx_error_msg_fread_failure = {202, "Failed to read from file.",
                                                              "Failed to read (fread) from file ptr `%p`."};
inline constexpr zx_error_msg_t zx_error_msg_state_internal = {210, nullptr,
                                                               "Internal argument misconfiguration: `%s`."};
inline constexpr zx_error_msg_t zx_error_msg_module_init_internal = {300, nullptr,
                                                                     "`%s` failed to init with status `%s`."};
inline constexpr zx_error_msg_t zx_error_msg_module_function_status_internal = {
    310, nullptr, "`%s` failed with status `%s`."};
inline constexpr zx_error_msg_t zx_error_msg_module_function_internal = {311, nullptr, "`%s` failed."};

// First thing in every public operation that can fail: the next message of this thread starts a fresh stack.
void zx_error_prepare();

// Pushes one message of the calling thread, formatted by the printf rules and cut to 255 characters, and
// prints it as a "(zx_error)" line on standard output. `file` must outlive the process (a literal).
void zx_error_log_error(const char *file, uint32_t line, const zx_error_msg_t *msg, ...);
void zx_error_log_error_va(const char *file, uint32_t line, const zx_error_msg_t *msg, va_list arguments);

// Whether notices of errors go to standard output, as they do at start. For programs whose standard output is
// their answer; the library's own callers cannot switch them.
void zx_error_print_notices(bool on);

#endif
