// SPDX-License-Identifier: Apache-2.0
// The chunks in which the network goes through a recording, whole or while it is still going on. A later
// chunk starts 2 W frames before the end of the one before, K frames long at most. Its first W rows lack
// context to the left and are not used; the W after them are used instead of rows that lacked context to the
// right:
//
//   chunk 1   |.....................---|
//   chunk 2                      |---......................|      --- W rows that are not used
//
// It advances by K - 2 W > W frames.
#ifndef ZX_PARLEY_CHUNKS_H
#define ZX_PARLEY_CHUNKS_H

#include <algorithm>
#include <cstdint>

struct zx_parley_chunk_t {
    int32_t start, length;         // frames it goes through
    int32_t first_kept, end_kept;  // frames whose rows are used
};

struct zx_parley_chunk_layout_t {
    int64_t num_frames;                                 // of the recording
    int64_t chunk_length_frames, warmup_length_frames;  // K and W, 3 W < K

    int64_t advance() const { return chunk_length_frames - 2 * warmup_length_frames; }

    int32_t num_chunks() const {
        const int64_t more = num_frames > chunk_length_frames && advance() > 0
                                 ? (num_frames - chunk_length_frames + advance() - 1) / advance()
                                 : 0;
        return static_cast<int32_t>(1 + more);
    }

    // Chunk `index`, from 0. All but the last one stay as they are when the recording goes on.
    zx_parley_chunk_t at(int32_t index) const {
        const int64_t start = index * advance();
        const int64_t end = std::min(start + chunk_length_frames, num_frames);
        return {static_cast<int32_t>(start), static_cast<int32_t>(end - start),
                static_cast<int32_t>(index == 0 ? 0 : start + warmup_length_frames),
                static_cast<int32_t>(end == num_frames ? end : end - warmup_length_frames)};
    }
};

#endif
