// SPDX-License-Identifier: Apache-2.0
// Segments as values that tests compare: the bytes that the engine gave.
#ifndef PARLEY_TEST_SEGMENTS_H
#define PARLEY_TEST_SEGMENTS_H

#include <cstdint>
#include <string>

#include "zx_parley.h"

// The bytes of all segments, which are deleted.
inline std::string take_segments(zx_parley_segment_t *segments, int32_t count) {
    std::string bytes(reinterpret_cast<const char *>(segments),
                      static_cast<size_t>(count) * sizeof(*segments));
    zx_parley_segments_delete(segments);
    return bytes;
}

#endif
