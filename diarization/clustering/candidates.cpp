// SPDX-License-Identifier: Apache-2.0
#include "candidates.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "division_features.h"
#include "packed_vectors.h"
#include "resegmentation.h"

namespace {

constexpr int32_t WINDOW = 47, WINDOW_HOP = 16;  // frames: 1.5 s every 0.5 s
constexpr size_t MAX_WINDOWS = 800;
constexpr int32_t LARGE_BLOCK = 4;        // frames
constexpr int32_t SHORTEST_SPEAKER = 16;  // frames, 0.5 s
constexpr size_t FEW = 12;                // up to which every number of speakers may be tried
constexpr size_t MANY = 16;               // from which on average linkage alone does
constexpr double MIN_SHARE = 0.02;        // of the windows that a cluster needs to count as one
// Up to which distances speakers of pieces become one.
constexpr std::array SAME_IN_PIECES = {0.05F, 0.08F, 0.11F, 0.14F, 0.17F, 0.2F};

// Numbers of speakers to try where the engine found so many.
std::vector<size_t> likely_numbers(size_t found) {
    std::vector<size_t> numbers;
    for (size_t number = std::max<size_t>(2, found / 3); number <= std::min(2 * found + 2, FEW); number++)
        numbers.push_back(number);
    size_t before = FEW;
    for (const size_t tenths : {7, 9, 10, 11, 13, 16}) {
        const size_t number = found * tenths / 10;
        if (number > before) numbers.push_back(number);
        before = std::max(before, number);
    }
    return numbers;
}

}  // namespace

std::vector<const float *> speech_windows::rows() const {
    std::vector<const float *> result(count());
    for (size_t i = 0; i < result.size(); i++) result[i] = at(i);
    return result;
}

speech_windows windows_of(const frames &embeddings, const tags &labels, const float *background,
                          double min_background_distance) {
    tags speech(labels.size());
    std::transform(labels.begin(), labels.end(), speech.begin(), [](uint32_t tag) { return tag != 0; });
    const auto spoken = std::count(speech.begin(), speech.end(), 1U);
    const int32_t hop =
        std::max(WINDOW_HOP, static_cast<int32_t>(spoken / static_cast<int64_t>(MAX_WINDOWS)));
    const int32_t length = std::max(WINDOW, hop);
    speech_windows result;
    result.size = embeddings.size;
    for (const auto &[start, end, tag] : runs_of(speech)) {
        for (int32_t first = start; first == start || first + length - hop < end; first += hop) {
            const int32_t last = std::min(first + length, end);
            const std::vector<float> mean = mean_of(embeddings, first, last);
            if (distance(background, mean.data(), mean.size()) < min_background_distance) continue;
            result.spans.push_back({first, last, 1});
            result.values.insert(result.values.end(), mean.begin(), mean.end());
        }
    }
    return result;
}

distance_matrix distances_of(const speech_windows &windows) {
    const size_t n = windows.count();
    distance_matrix result(n);
    const std::vector<const float *> rows = windows.rows();
    const packed_vectors packed(rows, windows.size);
    constexpr size_t AT_ONCE = packed_vectors::AT_ONCE;
    std::vector<float> cosines(AT_ONCE * packed.width());
    for (size_t i = 0; i < n; i++) {
        const size_t row = i % AT_ONCE;
        if (row == 0) packed.multiply({&rows[i], std::min(AT_ONCE, n - i)}, cosines.data());
        for (size_t j = 0; j < i; j++)
            result.set(i, j, std::max(0.0F, (1 - cosines[row * packed.width() + j]) / 2));
    }
    return result;
}

candidate_set::candidate_set(const clustering_input &input, const frame_blocks &blocks)
    : input_(input),
      blocks_(blocks),
      windows_(windows_of(*input.embeddings, blocks.to_frames(input.engine_labels), input.background.data(),
                          input.min_background_distance)),
      distances_(distances_of(windows_)) {
    const int num_found = count_speakers(input.engine_labels);
    candidates_.push_back({division_method::engine, input.engine_labels, num_found});
    if (windows_.count() < 2) return;
    add(division_method::engine_short, blocks_.from_frames(input.first_labels), 1, 0);
    for (const tags &labels : input.other_labels)
        add(division_method::engine_other, blocks_.from_frames(labels), 1, 0);
    tags one = input.engine_labels;
    std::replace_if(
        one.begin(), one.end(), [](uint32_t tag) { return tag != 0; }, 1U);
    candidates_.push_back({division_method::one, one, 1});
    const auto found = static_cast<size_t>(num_found);
    for (const size_t number : likely_numbers(found)) {
        add_linkage(division_method::average, number, 1);
        if (found >= MANY || number > FEW) continue;
        add_linkage(division_method::complete, number, 1);
        add_linkage(division_method::ward, number, 1);
    }
    size_t before = 0;
    for (const float height : SAME_IN_PIECES) {
        const auto is_higher = [height](const merge &m) { return m.height > height; };
        const std::vector<merge> &tree = input.pieces.tree;
        const auto number = static_cast<size_t>(std::count_if(tree.begin(), tree.end(), is_higher)) + 1;
        if (number != before) add_pieces(number);
        before = number;
    }
}

void candidate_set::add_number(int number) {
    const auto has_it = [number](const candidate &c) { return c.num_speakers == number; };
    if (std::any_of(candidates_.begin(), candidates_.end(), has_it)) return;
    add_linkage(division_method::average, static_cast<size_t>(number), number);
    add_linkage(division_method::complete, static_cast<size_t>(number), number);
    add_linkage(division_method::ward, static_cast<size_t>(number), number);
    add_pieces(static_cast<size_t>(number));
}

// With `wanted`, only a division into that many speakers counts.
void candidate_set::add(division_method method, tags labels, int min_speakers, int wanted) {
    resegment(blocks_.view(), input_.background.data(),
              {.speech_bias = input_.speech_bias,
               .min_frames = SHORTEST_SPEAKER,
               .min_speakers = min_speakers,
               .rounds = blocks_.block_size() < LARGE_BLOCK ? 2 : 1,
               .min_background_distance = input_.min_background_distance,
               .frames_a_row = blocks_.block_size(),
               .num_threads = input_.num_threads},
              &labels);
    const int found = count_speakers(labels);
    if (found > 0 && (wanted == 0 || found == wanted))
        candidates_.push_back({method, std::move(labels), found});
}

void candidate_set::add_pieces(size_t number) {
    if (number > input_.pieces.num_speakers) return;
    candidates_.push_back(
        {division_method::pieces, join_pieces(input_.pieces, number), static_cast<int>(number)});
}

void candidate_set::add_linkage(division_method method, size_t number, int min_speakers) {
    if (number >= windows_.count()) return;
    const bool is_asked_for = min_speakers > 1;
    const linkage how = method == division_method::complete  ? linkage::complete
                        : method == division_method::average ? linkage::average
                                                             : linkage::ward;
    add(method, cut(tree_of(how), number), min_speakers, is_asked_for ? 0 : static_cast<int>(number));
}

const std::vector<merge> &candidate_set::tree_of(linkage how) {
    std::vector<merge> &tree = trees_[static_cast<size_t>(how)];
    if (tree.empty()) tree = linkage_tree(distances_, how);
    return tree;
}

// The tree cut where so many clusters have their share of the windows, which all go to the nearest of these;
// blocks have the label of the window whose middle is nearest.
tags candidate_set::cut(const std::vector<merge> &tree, size_t number) const {
    const size_t n = windows_.count();
    const double few = std::min(MIN_SHARE, 0.2 / static_cast<double>(number));
    const auto least = static_cast<size_t>(std::max(2.0, few * static_cast<double>(n)));
    std::vector<size_t> cluster, sizes;
    for (size_t k = number; k <= std::min(n, number + FEW); k++) {
        cluster = cut_tree(tree, n, k);
        sizes.assign(k, 0);
        for (const size_t c : cluster) sizes[c]++;
        const auto is_large = [least](size_t size) { return size >= least; };
        if (static_cast<size_t>(std::count_if(sizes.begin(), sizes.end(), is_large)) >= number) break;
    }
    std::vector<size_t> largest(sizes.size());
    std::iota(largest.begin(), largest.end(), size_t{0});
    std::stable_sort(largest.begin(), largest.end(), [&](size_t a, size_t b) { return sizes[a] > sizes[b]; });
    largest.resize(number);
    division_means means(number, static_cast<size_t>(windows_.size));
    for (size_t i = 0; i < n; i++) {
        const auto place = std::find(largest.begin(), largest.end(), cluster[i]);
        if (place != largest.end()) means.add(static_cast<size_t>(place - largest.begin()), windows_.at(i));
    }
    means.scale();
    tags labels(static_cast<size_t>(blocks_.view().count));
    std::vector<int32_t> near(labels.size(), INT32_MAX);  // twice the distance in frames
    for (size_t i = 0; i < n; i++) {
        const auto tag = static_cast<uint32_t>(means.nearest(windows_.at(i)) + 1);
        const auto &[start, end, unused] = windows_.spans[i];
        const int32_t size = blocks_.block_size();
        for (int32_t b = start / size; b <= (end - 1) / size; b++) {
            const int32_t away = std::abs((2 * b + 1) * size - start - end);
            if (away >= near[static_cast<size_t>(b)]) continue;
            near[static_cast<size_t>(b)] = away;
            labels[static_cast<size_t>(b)] = tag;
        }
    }
    return labels;
}

std::vector<candidate_features> candidate_set::features() const {
    return features_of_divisions(blocks_.view(), blocks_.block_size(), input_.background.data(), windows_,
                                 distances_, candidates_);
}

tags candidate_set::labels_of_frames(size_t candidate, int min_speakers) const {
    return at_full_resolution(input_, blocks_, candidates_[candidate].labels, min_speakers);
}

tags at_full_resolution(const clustering_input &input, const frame_blocks &blocks, const tags &labels,
                        int min_speakers) {
    if (blocks.block_size() == 1) return labels;
    tags of_frames = blocks.to_frames(labels);
    resegment(*input.embeddings, input.background.data(),
              {.speech_bias = input.speech_bias,
               .min_frames = SHORTEST_SPEAKER,
               .min_speakers = std::max(min_speakers, 1),
               .rounds = 0,
               .num_threads = input.num_threads},
              &of_frames);
    return of_frames;
}
