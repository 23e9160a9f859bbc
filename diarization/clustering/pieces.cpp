// SPDX-License-Identifier: Apache-2.0
#include "pieces.h"

#include <algorithm>

#include "division_features.h"

namespace {

constexpr int32_t PIECE = 1875, MAX_PIECES = 120;  // frames; a minute
// In a minute a voice has one tone of all that it has in a recording: the mean of n frames lies this many
// times as far away from the speaker's own as where these come from everywhere.
constexpr double CHANCE_IN_PIECES = 4;

// Tags become numbers from `first` on, in the order in which they come. How many there are.
size_t number_from(size_t first, tags *labels) {
    tags known;
    for (uint32_t &tag : *labels) {
        if (tag == 0) continue;
        const auto place = static_cast<size_t>(std::find(known.begin(), known.end(), tag) - known.begin());
        if (place == known.size()) known.push_back(tag);
        tag = static_cast<uint32_t>(first + place);
    }
    return known.size();
}

// Of the speakers' means, what chance adds taken off: whoever says little in a piece is somebody of another
// one rather than one more.
distance_matrix distances_of_speakers(const frames &blocks, int32_t block_size, const tags &labels,
                                      size_t number) {
    division_means means(number, static_cast<size_t>(blocks.size));
    std::vector<double> counts(number);
    for (size_t b = 0; b < labels.size(); b++) {
        if (labels[b] == 0) continue;
        means.add(labels[b] - 1, blocks.at(static_cast<int32_t>(b)));
        counts[labels[b] - 1] += block_size;
    }
    means.scale();
    distance_matrix result(number);
    for (size_t a = 0; a < number; a++) {
        for (size_t b = 0; b < a; b++) {
            const double chance = CHANCE_IN_PIECES * distance_by_chance(counts[a], counts[b]);
            result.set(a, b, static_cast<float>(std::max(0.0, means.distance(a, b) - chance)));
        }
    }
    return result;
}

}  // namespace

divided_pieces divide_pieces(const frames &blocks, int32_t block_size,
                             const std::function<tags(int32_t first, int32_t end)> &divide) {
    divided_pieces result;
    const int32_t num_pieces = std::min((2 * blocks.count * block_size + PIECE) / (2 * PIECE), MAX_PIECES);
    if (num_pieces < 2) return result;
    for (int32_t p = 0; p < num_pieces; p++) {
        const auto first = static_cast<int32_t>(int64_t{p} * blocks.count / num_pieces);
        const auto end = static_cast<int32_t>((int64_t{p} + 1) * blocks.count / num_pieces);
        tags labels = divide(first, end);
        result.num_speakers += number_from(result.num_speakers + 1, &labels);
        result.labels.insert(result.labels.end(), labels.begin(), labels.end());
    }
    result.tree = linkage_tree(distances_of_speakers(blocks, block_size, result.labels, result.num_speakers),
                               linkage::average);
    return result;
}

tags join_pieces(const divided_pieces &pieces, size_t number) {
    const std::vector<size_t> cluster = cut_tree(pieces.tree, pieces.num_speakers, number);
    tags result = pieces.labels;
    for (uint32_t &tag : result)
        if (tag != 0) tag = static_cast<uint32_t>(cluster[tag - 1] + 1);
    return result;
}
