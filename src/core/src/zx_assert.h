// SPDX-License-Identifier: Apache-2.0
// Preconditions inside the library. They catch programming errors, not bad input, and stay on in every build:
// a violated one writes the function, the source file without folder and ending, the line and the expression
// to standard error and aborts.
#ifndef ZX_ASSERT_H
#define ZX_ASSERT_H

#include <cstdint>

[[noreturn]] void zx_assert_fail(const char *function, const char *file, uint32_t line,
                                 const char *expression);

#define ZX_ASSERT(expression) \
    ((expression) ? static_cast<void>(0) : zx_assert_fail(__func__, __FILE__, __LINE__, #expression))

#endif
