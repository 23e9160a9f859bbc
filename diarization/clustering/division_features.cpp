// SPDX-License-Identifier: Apache-2.0
#include "division_features.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

#include "packed_vectors.h"
#include "spectrum.h"

namespace {

constexpr size_t MAX_IN_SAMPLE = 100;

double mean(const std::vector<double> &values) {
    double sum = 0;
    for (const double v : values) sum += v;
    return values.empty() ? 0 : sum / static_cast<double>(values.size());
}

// The value below which `share` of all are, which are put into another order.
template <class Value>
double quantile(std::vector<Value> *values, double share) {
    if (values->empty()) return 0;
    const auto place = static_cast<std::ptrdiff_t>(share * static_cast<double>(values->size() - 1));
    std::nth_element(values->begin(), values->begin() + place, values->end());
    return static_cast<double>((*values)[static_cast<size_t>(place)]);
}

// The distances of two windows below which a fifth and four fifths of all are.
std::pair<double, double> spread_of(const distance_matrix &distances) {
    std::vector<float> apart = distances.values();
    const double low = quantile(&apart, 0.2);
    return {low, quantile(&apart, 0.8)};
}

// Every so manieth window, which are enough for what is said of a recording as a whole.
distance_matrix thinned(const distance_matrix &distances) {
    const size_t n = std::min(distances.n, MAX_IN_SAMPLE);
    distance_matrix result(n);
    for (size_t i = 0; i < n; i++)
        for (size_t j = 0; j < i; j++)
            result.set(i, j, distances.at(i * distances.n / n, j * distances.n / n));
    return result;
}

// What is said of a division alone.
struct description {
    std::vector<size_t> speaker_of;  // windows
    double num_speakers = 0;
    double separation = 0;        // mean over windows of (to the next speaker - to the own) / to the next
    double weakest_speaker = 0;   // the smallest such mean of a speaker's windows
    double tenth_separation = 0;  // below which a tenth of the windows are
    double min_apart = 1, furthest = 0,
           mean_apart = 0;    // distances of speakers, by chance taken off the least
    double spread = 0;        // mean distance of windows to their speaker
    double half_apart = 0.1;  // most that the halves of a speaker's speech are apart
    double fewest = 0, smallest_share = 0, largest_share = 0;  // seconds of speakers, shares of all speech
    double changes = 0;                                        // of speaker, a second of speech
    double seconds = 0;
    double longest_turn_of_fewest = 0;                   // seconds, of the speaker who has least
    double nearest_background = 0, mean_background = 0;  // distances of speakers from it
    // Of the two speakers who are least apart: turns of the one that follow upon the other's, of all their
    // turns; the time between first and last turn that they share, of the shorter such time; seconds of the
    // one who has less.
    double alternating = 0, in_common = 1, fewer_of_nearest = 0;
    double without_pause = 0;  // changes from speaker to speaker with no pause between, of all changes
};

// What the turns tell of a pair of speakers and of all changes; `turns` has numbers for tags.
void describe_turns(const std::vector<run> &turns, size_t a, size_t b, description *d) {
    int32_t first[2] = {INT32_MAX, INT32_MAX}, last[2] = {0, 0};
    double of_pair = 0, alternations = 0, adjacent = 0;
    size_t before = SIZE_MAX;
    for (size_t i = 0; i < turns.size(); i++) {
        const auto &[start, end, speaker] = turns[i];
        if (i > 0 && turns[i - 1].end == start) adjacent++;
        if (speaker != a && speaker != b) continue;
        const size_t side = speaker == a ? 0 : 1;
        of_pair++;
        if (before == 1 - side) alternations++;
        before = side;
        first[side] = std::min(first[side], start);
        last[side] = std::max(last[side], end);
    }
    const double shorter = std::min(last[0] - first[0], last[1] - first[1]);
    const double common = std::min(last[0], last[1]) - std::max(first[0], first[1]);
    d->alternating = of_pair > 0 ? alternations / of_pair : 0;
    d->in_common = shorter > 0 ? std::max(common, 0.0) / shorter : 1;
    d->without_pause = turns.size() > 1 ? adjacent / static_cast<double>(turns.size() - 1) : 0;
}

std::map<uint32_t, size_t> number_tags(const tags &labels) {
    std::map<uint32_t, size_t> numbers;
    for (const uint32_t tag : labels)
        if (tag != 0) numbers.try_emplace(tag, 0);
    size_t next = 0;
    for (auto &[tag, number] : numbers) number = next++;
    return numbers;
}

void describe_windows(const speech_windows &windows, const division_means &means, description *d) {
    std::vector<const float *> speakers;
    for (size_t k = 0; k < means.number(); k++) speakers.push_back(means.at(k));
    const packed_vectors packed(speakers, windows.size);
    constexpr size_t AT_ONCE = packed_vectors::AT_ONCE;
    const std::vector<const float *> rows = windows.rows();
    std::vector<float> products(AT_ONCE * packed.width());
    std::vector<double> separations;
    std::vector<double> sums(means.number()), counts(means.number());
    double spread = 0;
    for (size_t i = 0; i < windows.count(); i++) {
        if (i % AT_ONCE == 0)
            packed.multiply({&rows[i], std::min(AT_ONCE, rows.size() - i)}, products.data());
        const float *cosines = &products[i % AT_ONCE * packed.width()];
        size_t own = 0;
        for (size_t k = 1; k < means.number(); k++)
            if (cosines[k] > cosines[own]) own = k;
        double next = -1;
        for (size_t k = 0; k < means.number(); k++)
            if (k != own) next = std::max(next, double{cosines[k]});
        const double near = (1 - double{cosines[own]}) / 2, far = (1 - next) / 2;
        spread += near;
        d->speaker_of.push_back(own);
        const double apart = means.number() > 1 ? (far - near) / std::max(far, 1e-6) : 0;
        separations.push_back(apart);
        sums[own] += apart;
        counts[own]++;
    }
    d->spread = windows.count() > 0 ? spread / static_cast<double>(windows.count()) : 0;
    d->separation = mean(separations);
    d->tenth_separation = quantile(&separations, 0.1);
    d->weakest_speaker = 1;
    for (size_t k = 0; k < means.number(); k++)
        d->weakest_speaker = std::min(d->weakest_speaker, counts[k] > 0 ? sums[k] / counts[k] : 0);
}

description describe(const frames &blocks, double block_seconds, const float *background,
                     const speech_windows &windows, const candidate &division) {
    description d;
    const std::map<uint32_t, size_t> numbers = number_tags(division.labels);
    const auto size = static_cast<size_t>(blocks.size);
    division_means means(numbers.size(), size), first(numbers.size(), size), second(numbers.size(), size);
    std::vector<double> counts(numbers.size()), so_far(numbers.size()), longest(numbers.size());
    for (const uint32_t tag : division.labels)
        if (tag != 0) counts[numbers.at(tag)]++;
    std::vector<run> turns = runs_of(division.labels);
    for (auto &[start, end, tag] : turns) {
        const size_t k = numbers.at(tag);
        tag = static_cast<uint32_t>(k);
        longest[k] = std::max(longest[k], block_seconds * (end - start));
        for (int32_t b = start; b < end; b++) {
            means.add(k, blocks.at(b));
            (2 * so_far[k]++ < counts[k] ? first : second).add(k, blocks.at(b));
        }
    }
    means.scale();
    first.scale();
    second.scale();
    d.num_speakers = static_cast<double>(numbers.size());
    describe_windows(windows, means, &d);
    std::vector<double> apart;
    const double frames_a_block = block_seconds / FRAME_SECONDS;
    size_t near_a = SIZE_MAX, near_b = SIZE_MAX;
    std::vector<double> from_background;
    for (size_t a = 0; a < means.number(); a++) {
        from_background.push_back(distance(means.at(a), background, size));
        for (size_t b = 0; b < a; b++) {
            apart.push_back(means.distance(a, b));
            const double chance = distance_by_chance(frames_a_block * counts[a], frames_a_block * counts[b]);
            if (apart.back() - chance >= d.min_apart) continue;
            d.min_apart = apart.back() - chance;
            near_a = a;
            near_b = b;
        }
        if (counts[a] * block_seconds > 2) {
            const double halves = distance(first.at(a), second.at(a), size);
            d.half_apart = std::max(d.half_apart, halves);
        }
    }
    d.furthest = apart.empty() ? 0 : *std::max_element(apart.begin(), apart.end());
    d.mean_apart = mean(apart);
    d.mean_background = mean(from_background);
    d.nearest_background = quantile(&from_background, 0);
    describe_turns(turns, near_a, near_b, &d);
    if (near_a != SIZE_MAX) d.fewer_of_nearest = std::min(counts[near_a], counts[near_b]) * block_seconds;
    if (counts.empty()) return d;
    double sum = 0;
    for (const double c : counts) sum += c;
    const auto fewest = static_cast<size_t>(std::min_element(counts.begin(), counts.end()) - counts.begin());
    d.seconds = sum * block_seconds;
    d.fewest = counts[fewest] * block_seconds;
    d.longest_turn_of_fewest = longest[fewest];
    d.smallest_share = counts[fewest] / sum;
    d.largest_share = *std::max_element(counts.begin(), counts.end()) / sum;
    double changes = 0;
    for (size_t b = 1; b < division.labels.size(); b++)
        changes += division.labels[b] != division.labels[b - 1] ? 1 : 0;
    d.changes = changes / std::max(1.0, d.seconds);
    return d;
}

// How far two divisions agree about which windows belong together: Rand's index, adjusted for chance (Hubert
// and Arabie 1985).
double agreement(const description &a, const description &b) {
    const auto rows = static_cast<size_t>(a.num_speakers), columns = static_cast<size_t>(b.num_speakers);
    std::vector<double> table(rows * columns), of_row(rows), of_column(columns);
    for (size_t i = 0; i < a.speaker_of.size(); i++) {
        table[a.speaker_of[i] * columns + b.speaker_of[i]]++;
        of_row[a.speaker_of[i]]++;
        of_column[b.speaker_of[i]]++;
    }
    const auto pairs = [](const std::vector<double> &counts) {
        double sum = 0;
        for (const double c : counts) sum += c * (c - 1) / 2;
        return sum;
    };
    const auto n = static_cast<double>(a.speaker_of.size());
    const double together = pairs(table), in_a = pairs(of_row), in_b = pairs(of_column);
    const double by_chance = in_a * in_b / std::max(1.0, n * (n - 1) / 2), highest = (in_a + in_b) / 2;
    return highest - by_chance > 1e-9 ? (together - by_chance) / (highest - by_chance) : 1;
}

// The division of the same method with one speaker more (step 1) or less (-1), else the division itself.
const description &neighbour(const std::vector<candidate> &divisions,
                             const std::vector<description> &descriptions, size_t index, int step) {
    for (size_t i = 0; i < divisions.size(); i++) {
        if (divisions[i].num_speakers == divisions[index].num_speakers + step &&
            (divisions[i].method == divisions[index].method || divisions[i].method == division_method::one))
            return descriptions[i];
    }
    for (size_t i = 0; i < divisions.size(); i++)
        if (divisions[i].num_speakers == divisions[index].num_speakers + step) return descriptions[i];
    return descriptions[index];
}

constexpr double COST_OF_SPEAKER = 6;  // windows of 1.5 s

// The spreads of the tightest divisions into each number of speakers.
class tightest_divisions {
public:
    tightest_divisions(const std::vector<description> &descriptions, double num_windows)
        : num_windows_(std::max(num_windows, 2.0)) {
        for (const description &d : descriptions) {
            const auto [place, is_new] = spreads_.try_emplace(d.num_speakers, d.spread);
            if (!is_new) place->second = std::min(place->second, d.spread);
            least_penalized_ = std::min(least_penalized_, penalized(d));
        }
    }

    // Of the tightest division into the number of speakers of `d` and so many more; 0 if there is none.
    double spread(const description &d, int more) const {
        const auto place = spreads_.find(d.num_speakers + more);
        return place == spreads_.end() ? 0 : place->second;
    }

    // Every speaker more makes a division tighter, and costs something therefore, as in the Bayesian
    // information criterion: spread (1 + COST_OF_SPEAKER speakers / windows), divided by the least there is.
    double relative_to_least(const description &d) const {
        return penalized(d) / std::max(least_penalized_, 1e-6);
    }

private:
    double penalized(const description &d) const {
        return d.spread * (1 + COST_OF_SPEAKER * d.num_speakers / num_windows_);
    }

    std::map<double, double> spreads_;
    double num_windows_, least_penalized_ = std::numeric_limits<double>::max();
};

}  // namespace

void division_means::add(size_t group, const float *vector) {
    for (size_t d = 0; d < size_; d++) sums_[group * size_ + d] += double{vector[d]};
}

void division_means::scale() {
    means_.resize(sums_.size());
    for (size_t k = 0; k < number_; k++) {
        double squares = 0;
        for (size_t d = 0; d < size_; d++) squares += sums_[k * size_ + d] * sums_[k * size_ + d];
        const double length = squares > 0 ? std::sqrt(squares) : 1;
        for (size_t d = 0; d < size_; d++)
            means_[k * size_ + d] = static_cast<float>(sums_[k * size_ + d] / length);
    }
}

double division_means::distance(size_t a, size_t b) const {
    return ::distance(at(a), at(b), size_);
}

size_t division_means::nearest(const float *vector) const {
    size_t nearest = 0;
    double highest = -2;
    for (size_t k = 0; k < number(); k++) {
        const double near = cosine(at(k), vector, size_);
        if (near <= highest) continue;
        highest = near;
        nearest = k;
    }
    return nearest;
}

std::vector<candidate_features> features_of_divisions(const frames &blocks, int32_t block_size,
                                                      const float *background, const speech_windows &windows,
                                                      const distance_matrix &distances,
                                                      const std::vector<candidate> &divisions) {
    const distance_matrix sample = thinned(distances);
    const double groups = count_by_eigengap(sample);
    const auto [low, high] = spread_of(sample);
    std::vector<description> descriptions;
    descriptions.reserve(divisions.size());
    for (const candidate &division : divisions)
        descriptions.push_back(describe(blocks, FRAME_SECONDS * block_size, background, windows, division));
    double clearest = 0, tightest = 1;
    for (const description &d : descriptions) {
        clearest = std::max(clearest, d.separation);
        tightest = std::min(tightest, d.spread);
    }
    const description &engine = descriptions.front();
    const tightest_divisions tightest_of(descriptions, engine.seconds / 1.5);
    std::vector<candidate_features> rows;
    for (size_t i = 0; i < descriptions.size(); i++) {
        const description &d = descriptions[i];
        const description &less = neighbour(divisions, descriptions, i, -1),
                          &more = neighbour(divisions, descriptions, i, 1);
        std::vector<double> alike;  // other methods' divisions into as many speakers
        int num_alike = 0;          // divisions that are nearly the same
        for (size_t k = 0; k < descriptions.size(); k++)
            if (k != i && divisions[k].num_speakers == divisions[i].num_speakers) {
                alike.push_back(agreement(d, descriptions[k]));
                num_alike += alike.back() > 0.9 ? 1 : 0;
            }
        const double less_spread = tightest_of.spread(d, -1), more_spread = tightest_of.spread(d, 1);
        const double is_engine = divisions[i].method == division_method::engine ? 1 : 0;
        rows.push_back({d.num_speakers,
                        d.separation,
                        d.weakest_speaker,
                        d.tenth_separation,
                        d.min_apart,
                        d.furthest,
                        d.mean_apart,
                        d.spread,
                        d.half_apart,
                        d.min_apart - d.half_apart,
                        d.fewest,
                        d.smallest_share,
                        d.largest_share,
                        d.longest_turn_of_fewest,
                        d.changes,
                        d.seconds / (engine.seconds + 0.1),
                        is_engine,
                        static_cast<double>(divisions[i].method),
                        d.num_speakers - groups,
                        d.num_speakers - engine.num_speakers,
                        d.separation - clearest,
                        d.spread - tightest,
                        d.separation - less.separation,
                        d.separation - more.separation,
                        less.spread - d.spread,
                        d.spread - more.spread,
                        d.min_apart - more.min_apart,
                        less.min_apart - d.min_apart,
                        alike.empty() ? -1 : mean(alike),
                        agreement(d, engine),
                        d.spread - low / 2,
                        d.min_apart / (high + 1e-6),
                        low / (high + 1e-6),
                        engine.seconds,
                        engine.num_speakers,
                        groups,
                        d.nearest_background,
                        d.mean_background,
                        d.alternating,
                        d.in_common,
                        d.fewer_of_nearest,
                        d.without_pause,
                        d.nearest_background - engine.nearest_background,
                        static_cast<double>(num_alike),
                        less_spread > 0 ? less_spread / (d.spread + 1e-6) : 1,
                        more_spread > 0 ? d.spread / (more_spread + 1e-6) : 1,
                        d.spread / (tightest_of.spread(d, 0) + 1e-6),
                        tightest_of.relative_to_least(d)});
    }
    return rows;
}
