// SPDX-License-Identifier: Apache-2.0
#include "zx_assert.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

void zx_assert_fail(const char *function, const char *file, uint32_t line, const char *expression) {
    const char *slash = std::strrchr(file, '/');
    const char *stem = slash ? slash + 1 : file;
    const int stem_length = static_cast<int>(std::strcspn(stem, "."));
    std::fprintf(stderr, "%s: %.*s:%u: assertion `%s` failed\n", function, stem_length, stem, line,
                 expression);
    std::abort();
}
