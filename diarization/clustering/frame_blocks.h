// SPDX-License-Identifier: Apache-2.0
// Frames in blocks, by which divisions of long recordings are found.
#ifndef PARLEY_FRAME_BLOCKS_H
#define PARLEY_FRAME_BLOCKS_H

#include <cstdint>
#include <vector>

#include "frames.h"

// Successive frames as one: their mean, which is shorter than 1 where they differ. Up to 4 minutes a block is
// a frame, from 68 minutes on it is 16, and in between there are about 8,000 blocks.
class frame_blocks {
public:
    explicit frame_blocks(const frames &embeddings);

    frames view() const { return {values_.data(), count_, size_}; }
    int32_t block_size() const { return block_size_; }

    // Labels of frames, of all or of those from a block's first on, to labels of blocks (most of a block's
    // frames have it), and the way back.
    tags from_frames(const tags &labels) const;
    tags to_frames(const tags &labels) const;

private:
    std::vector<float> values_;
    int32_t block_size_, num_frames_, count_, size_;
};

#endif
