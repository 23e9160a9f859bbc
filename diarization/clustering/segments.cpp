// SPDX-License-Identifier: Apache-2.0
#include "segments.h"

#include <algorithm>
#include <map>

std::vector<segment> segments_of(const frames &embeddings, const tags &labels, const centroids &speakers,
                                 const float *background, const division_evidence &evidence,
                                 const regression_trees &trees, std::vector<segment_features> *features) {
    const std::vector<float> nobody(background, background + embeddings.size);
    std::map<uint32_t, double> seconds, nearest_speaker;
    for (const uint32_t tag : labels)
        if (tag != 0) seconds[tag] += FRAME_SECONDS;
    for (const auto &[tag, centroid] : speakers) {
        double &nearest = nearest_speaker.try_emplace(tag, 1).first->second;
        for (const auto &[rival, other] : speakers)
            if (rival != tag) nearest = std::min(nearest, distance(centroid, other));
    }
    std::vector<segment> result;
    for (const auto &[start, end, tag] : runs_of(labels)) {
        const std::vector<float> mean = mean_of(embeddings, start, end);
        const double own = std::max(0.0, distance(mean, speakers.at(tag)));
        const double to_background = std::max(0.0, distance(mean, nobody));
        double other = to_background;
        for (const auto &[rival, centroid] : speakers)
            if (rival != tag) other = std::min(other, std::max(0.0, distance(mean, centroid)));
        const double contrast = own + other > 0 ? std::max(0.0, (other - own) / (other + own)) : 0.0;
        const segment_features row = {contrast,
                                      own,
                                      other,
                                      to_background,
                                      FRAME_SECONDS * (end - start),
                                      seconds.at(tag),
                                      nearest_speaker.at(tag),
                                      static_cast<double>(speakers.size()),
                                      evidence.cost,
                                      evidence.margin};
        const double confidence = trees.is_empty() ? contrast : std::clamp(trees.evaluate(row), 0.0, 1.0);
        result.push_back({FRAME_SECONDS * start, FRAME_SECONDS * end, static_cast<int>(tag), confidence});
        if (features) features->push_back(row);
    }
    return result;
}

void tidy_segments(std::vector<segment> *segments, double duration, const segment_rules &rules) {
    std::vector<segment> kept;
    for (const segment &s : *segments) {
        if (!kept.empty() && kept.back().speaker == s.speaker && rules.merge_gap > 0 &&
            s.start - kept.back().end <= rules.merge_gap) {
            segment &before = kept.back();
            const double a = before.end - before.start, b = s.end - s.start;
            if (a + b > 0) before.confidence = (a * before.confidence + b * s.confidence) / (a + b);
            before.end = s.end;
        } else {
            kept.push_back(s);
        }
    }
    std::erase_if(kept, [&rules](const segment &s) { return s.end - s.start < rules.min_duration; });
    std::vector<segment> padded = kept;
    for (size_t i = 0; i < kept.size(); i++) {
        const double before = i == 0 ? 0 : (kept[i - 1].end + kept[i].start) / 2;
        const double after = i + 1 == kept.size() ? duration : (kept[i].end + kept[i + 1].start) / 2;
        padded[i].start = std::max(kept[i].start - rules.pad, std::min(before, kept[i].start));
        padded[i].end = std::min(kept[i].end + rules.pad, std::max(after, kept[i].end));
    }
    *segments = std::move(padded);
}
