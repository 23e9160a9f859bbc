// SPDX-License-Identifier: Apache-2.0
#include "frame_blocks.h"

#include <algorithm>

namespace {

constexpr int32_t MAX_BLOCKS = 8000, LARGEST_BLOCK = 16;

}  // namespace

frame_blocks::frame_blocks(const frames &embeddings)
    : block_size_(std::clamp((embeddings.count + MAX_BLOCKS - 1) / MAX_BLOCKS, 1, LARGEST_BLOCK)),
      num_frames_(embeddings.count),
      count_((embeddings.count + block_size_ - 1) / block_size_),
      size_(embeddings.size) {
    values_.resize(static_cast<size_t>(count_) * static_cast<size_t>(size_));
    for (int32_t b = 0; b < count_; b++) {
        float *mean = &values_[static_cast<size_t>(b) * static_cast<size_t>(size_)];
        const int32_t end = std::min((b + 1) * block_size_, embeddings.count);
        add_frames(embeddings, b * block_size_, end, mean);
        const auto length = static_cast<float>(end - b * block_size_);
        for (int32_t d = 0; d < size_; d++) mean[d] /= length;
    }
}

tags frame_blocks::from_frames(const tags &labels) const {
    const auto size = static_cast<size_t>(block_size_);
    tags result((labels.size() + size - 1) / size);
    for (size_t b = 0; b < result.size(); b++) {
        const size_t first = b * size;
        const size_t end = std::min(first + size, labels.size());
        std::ptrdiff_t highest = 0;
        for (size_t f = first; f < end; f++) {
            const auto same = std::count(&labels[first], labels.data() + end, labels[f]);
            if (same > highest) {
                highest = same;
                result[b] = labels[f];
            }
        }
    }
    return result;
}

tags frame_blocks::to_frames(const tags &labels) const {
    tags result(static_cast<size_t>(num_frames_));
    for (size_t f = 0; f < result.size(); f++) result[f] = labels[f / static_cast<size_t>(block_size_)];
    return result;
}
