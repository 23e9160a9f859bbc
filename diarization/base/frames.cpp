// SPDX-License-Identifier: Apache-2.0
#include "frames.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <limits>
#include <set>

#include "zx_kernels.h"

namespace {

void scale_to_unit_length(std::vector<float> *values) {
    double squares = 0;
    for (float v : *values) squares += double{v} * double{v};
    const double length = std::sqrt(squares);
    if (length > 0)
        for (float &v : *values) v = static_cast<float>(double{v} / length);
}

}  // namespace

void add_frames(const frames &embeddings, int32_t first, int32_t end, float *sums) {
    std::array<const float *, 64> rows;
    while (first < end) {
        int32_t count = 0;
        for (; count < static_cast<int32_t>(rows.size()) && first < end; count++, first++)
            rows[static_cast<size_t>(count)] = embeddings.at(first);
        zx_kernels()->loops->sum_up(embeddings.size, count, rows.data(), sums);
    }
}

std::vector<float> mean_of(const frames &embeddings, int32_t first, int32_t end) {
    std::vector<float> mean(static_cast<size_t>(embeddings.size));
    add_frames(embeddings, first, end, mean.data());
    scale_to_unit_length(&mean);
    return mean;
}

centroids centroids_of(const frames &embeddings, const tags &labels) {
    centroids result;
    for (const auto &[start, end, tag] : runs_of(labels)) {
        std::vector<float> *sum =
            &result.try_emplace(tag, static_cast<size_t>(embeddings.size)).first->second;
        add_frames(embeddings, start, end, sum->data());
    }
    for (auto &[tag, mean] : result) scale_to_unit_length(&mean);
    return result;
}

double cosine(const float *a, const float *b, size_t size) {
    double product = 0;
    for (size_t i = 0; i < size; i++) product += double{a[i]} * double{b[i]};
    return product;
}

double distance(const float *a, const float *b, size_t size) {
    return (1 - cosine(a, b, size)) / 2;
}

double distance(const std::vector<float> &a, const std::vector<float> &b) {
    return distance(a.data(), b.data(), a.size());
}

double distance_by_chance(double frames_a, double frames_b) {
    return 2 * (1 / frames_a + 1 / frames_b);
}

bool join_nearest(const centroids &speakers, double limit, int32_t frames_a_row, tags *labels) {
    std::map<uint32_t, double> heard;  // frames
    for (const uint32_t tag : *labels) heard[tag] += frames_a_row;
    double nearest = std::numeric_limits<double>::max();
    uint32_t keep = 0, drop = 0;
    for (auto a = speakers.begin(); a != speakers.end(); ++a) {
        for (auto b = std::next(a); b != speakers.end(); ++b) {
            const double d =
                distance(a->second, b->second) - distance_by_chance(heard[a->first], heard[b->first]);
            if (d < nearest) {
                nearest = d;
                keep = a->first;
                drop = b->first;
            }
        }
    }
    if (drop == 0 || nearest > limit) return false;
    std::replace(labels->begin(), labels->end(), drop, keep);
    return true;
}

std::vector<run> runs_of(const tags &labels) {
    std::vector<run> result;
    const auto count = static_cast<int32_t>(labels.size());
    for (int32_t start = 0, end = 0; start < count; start = end) {
        const uint32_t tag = labels[static_cast<size_t>(start)];
        while (end < count && labels[static_cast<size_t>(end)] == tag) end++;
        if (tag != 0) result.push_back({start, end, tag});
    }
    return result;
}

int count_speakers(const tags &labels) {
    std::set<uint32_t> different(labels.begin(), labels.end());
    different.erase(0);
    return static_cast<int>(different.size());
}
