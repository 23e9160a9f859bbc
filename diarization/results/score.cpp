// SPDX-License-Identifier: Apache-2.0
#include "score.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <vector>

#include "assignment.h"
#include "errors.h"
#include "writing.h"

namespace {

// A piece of time in which nobody starts or stops.
struct piece {
    double length;
    std::vector<int> reference;  // speakers who talk
    std::vector<int> hypothesis;
};

using speaker_ids = std::map<std::string, int>;

speaker_ids number_speakers(const std::vector<turn> &turns) {
    speaker_ids ids;
    for (const turn &t : turns) ids.emplace(t.speaker, static_cast<int>(ids.size()));
    return ids;
}

// Which of many stretches of time lie over a moment, asked for moments that never fall.
class sweep {
public:
    void add(double start, double end, int id) { stretches_.push_back({start, end, id}); }

    // Their ids, rising, each once.
    std::vector<int> at(double time) {
        if (next_ == 0) {
            std::sort(stretches_.begin(), stretches_.end(),
                      [](const stretch &a, const stretch &b) { return a.start < b.start; });
        }
        for (; next_ < stretches_.size() && stretches_[next_].start <= time; next_++) {
            ends_.emplace(stretches_[next_].end, stretches_[next_].id);
            open_[stretches_[next_].id]++;
        }
        for (; !ends_.empty() && ends_.begin()->first <= time; ends_.erase(ends_.begin())) {
            const auto ended = open_.find(ends_.begin()->second);
            if (--ended->second == 0) open_.erase(ended);
        }
        std::vector<int> ids;
        for (const auto &[id, count] : open_) ids.push_back(id);
        return ids;
    }

private:
    struct stretch {
        double start, end;
        int id;
    };
    std::vector<stretch> stretches_;
    size_t next_ = 0;                  // of those that have begun
    std::multimap<double, int> ends_;  // of those that have begun
    std::map<int, int> open_;          // how many there are of each id
};

sweep sweep_of(const std::vector<turn> &turns, const speaker_ids &ids) {
    sweep result;
    for (const turn &t : turns) result.add(t.start, t.end, ids.at(t.speaker));
    return result;
}

struct recording {
    speaker_ids reference_ids, hypothesis_ids;
    std::vector<piece> pieces;
};

recording cut(const std::vector<turn> &reference, const std::vector<turn> &hypothesis,
              const std::vector<span> *parts, double collar) {
    recording result = {number_speakers(reference), number_speakers(hypothesis), {}};
    std::set<double> boundaries;
    sweep unscored, scored, references = sweep_of(reference, result.reference_ids),
                            hypotheses = sweep_of(hypothesis, result.hypothesis_ids);
    for (const turn &t : reference) {
        for (double edge : {t.start, t.end}) {
            boundaries.insert(edge);
            if (collar <= 0) continue;
            unscored.add(edge - collar, edge + collar, 0);
            boundaries.insert({edge - collar, edge + collar});
        }
    }
    for (const turn &t : hypothesis) boundaries.insert({t.start, t.end});
    if (parts) {
        for (const span &s : *parts) {
            boundaries.insert({s.start, s.end});
            scored.add(s.start, s.end, 0);
        }
    }
    for (auto next = boundaries.begin(); next != boundaries.end();) {
        const double start = *next++;
        if (next == boundaries.end()) break;
        const double middle = (start + *next) / 2;
        if ((parts && scored.at(middle).empty()) || !unscored.at(middle).empty()) continue;
        result.pieces.push_back({*next - start, references.at(middle), hypotheses.at(middle)});
    }
    return result;
}

using matrix = std::vector<std::vector<double>>;

// Seconds that every reference speaker shares with every hypothesis speaker.
matrix shared_time(const recording &r) {
    matrix shared(r.reference_ids.size(), std::vector<double>(r.hypothesis_ids.size(), 0.0));
    for (const piece &p : r.pieces) {
        for (int i : p.reference) {
            for (int j : p.hypothesis) shared[static_cast<size_t>(i)][static_cast<size_t>(j)] += p.length;
        }
    }
    return shared;
}

double sum_of_jaccard_errors(const recording &r) {
    matrix ratio = shared_time(r);
    std::vector<double> reference_time(r.reference_ids.size(), 0.0),
        hypothesis_time(r.hypothesis_ids.size(), 0.0);
    for (const piece &p : r.pieces) {
        for (int i : p.reference) reference_time[static_cast<size_t>(i)] += p.length;
        for (int j : p.hypothesis) hypothesis_time[static_cast<size_t>(j)] += p.length;
    }
    for (size_t i = 0; i < ratio.size(); i++) {
        for (size_t j = 0; j < ratio[i].size(); j++) {
            const double either = reference_time[i] + hypothesis_time[j] - ratio[i][j];
            ratio[i][j] = either > 0 ? ratio[i][j] / either : 0;
        }
    }
    double sum = 0;
    const std::vector<int> mapping = best_assignment(ratio);
    for (size_t i = 0; i < ratio.size(); i++)
        sum += mapping[i] < 0 ? 1 : 1 - ratio[i][static_cast<size_t>(mapping[i])];
    return sum;
}

}  // namespace

double score::der() const {
    const double errors = missed + false_alarm + confusion;
    return errors == 0 ? 0 : 100 * errors / speech;
}

double score::jer() const {
    return num_speakers == 0 ? 0 : 100 * jaccard_errors / num_speakers;
}

score &score::operator+=(const score &other) {
    speech += other.speech;
    missed += other.missed;
    false_alarm += other.false_alarm;
    confusion += other.confusion;
    jaccard_errors += other.jaccard_errors;
    num_speakers += other.num_speakers;
    num_found += other.num_found;
    num_recordings += other.num_recordings;
    num_counted_right += other.num_counted_right;
    count_error += other.count_error;
    num_small += other.num_small;
    num_small_right += other.num_small_right;
    return *this;
}

score score_recording(const std::vector<turn> &reference, const std::vector<turn> &hypothesis,
                      const std::vector<span> *parts, const score_options &options) {
    recording r = cut(reference, hypothesis, parts, options.collar);
    if (options.skip_overlap) std::erase_if(r.pieces, [](const piece &p) { return p.reference.size() > 1; });
    const std::vector<int> mapping = best_assignment(shared_time(r));

    score result;
    for (const piece &p : r.pieces) {
        const auto num_reference = static_cast<double>(p.reference.size());
        const auto num_hypothesis = static_cast<double>(p.hypothesis.size());
        const auto num_right =
            static_cast<double>(std::count_if(p.reference.begin(), p.reference.end(), [&](int i) {
                return std::count(p.hypothesis.begin(), p.hypothesis.end(), mapping[static_cast<size_t>(i)]) >
                       0;
            }));
        result.speech += p.length * num_reference;
        result.missed += p.length * std::max(num_reference - num_hypothesis, 0.0);
        result.false_alarm += p.length * std::max(num_hypothesis - num_reference, 0.0);
        result.confusion += p.length * (std::min(num_reference, num_hypothesis) - num_right);
    }
    result.jaccard_errors = sum_of_jaccard_errors(cut(reference, hypothesis, parts, 0));
    result.num_speakers = static_cast<int>(r.reference_ids.size());
    result.num_found = static_cast<int>(r.hypothesis_ids.size());
    result.num_recordings = 1;
    result.num_counted_right = result.num_found == result.num_speakers;
    result.count_error = std::abs(result.num_found - result.num_speakers);
    result.num_small = result.num_speakers >= 2 && result.num_speakers <= 4 ? 1 : 0;
    result.num_small_right = result.num_small * result.num_counted_right;
    return result;
}

// The Hungarian method with potentials, rows added one by one along shortest augmenting paths; O(n^3).
namespace {

std::string score_row(const std::string &name, const score &s) {
    const auto percent = [&s](double part) { return s.speech > 0 ? 100 * part / s.speech : 0; };
    const std::string der = std::isinf(s.der()) ? "-" : line("%.2f", s.der());
    return line("%-24s %7s %8.2f %12.2f %10.2f %7.2f %9d %6d\n", name.c_str(), der.c_str(), percent(s.missed),
                percent(s.false_alarm), percent(s.confusion), s.jer(), s.num_speakers, s.num_found);
}

}  // namespace

std::string score_table(const rttm &reference, const rttm &hypothesis, const uem *parts,
                        const std::vector<double> &collars, bool skip_overlap, bool each) {
    const auto is_in_hypothesis = [&](const auto &recording) { return hypothesis.contains(recording.first); };
    if (!reference.empty() && !hypothesis.empty() &&
        std::none_of(reference.begin(), reference.end(), is_in_hypothesis))
        throw diarization_error(PARLEY_INVALID, "no recording is in both: the reference is about " +
                                                    reference.begin()->first + ", the hypothesis about " +
                                                    hypothesis.begin()->first);
    std::string text;
    std::set<std::string> names;
    for (const auto &[name, turns] : reference) names.insert(name);
    for (const auto &[name, turns] : hypothesis) names.insert(name);
    if (parts) std::erase_if(names, [parts](const std::string &name) { return !parts->contains(name); });

    const std::vector<turn> nobody;
    const auto turns_of = [&nobody](const rttm &recordings,
                                    const std::string &name) -> const std::vector<turn> & {
        const auto found = recordings.find(name);
        return found == recordings.end() ? nobody : found->second;
    };
    for (double collar : collars) {
        text += line("collar %.2f s to either side, overlaps %s, %s\n", collar,
                     skip_overlap ? "left out" : "scored",
                     parts ? "parts that the UEM lists" : "from first to last boundary");
        text += line("%-24s %7s %8s %12s %10s %7s %9s %6s\n", "", "DER %", "missed %", "false alarm %",
                     "confusion %", "JER %", "speakers", "found");
        score total;
        for (const std::string &name : names) {
            const score s = score_recording(turns_of(reference, name), turns_of(hypothesis, name),
                                            parts ? &parts->at(name) : nullptr, {collar, skip_overlap});
            if (each) text += score_row(name, s);
            total += s;
        }
        text += score_row("total", total);
        if (total.speech == 0) text += "no speech in the reference: there is nothing to compare with\n";
        text += line("speakers counted right in %d of %d recordings", total.num_counted_right,
                     total.num_recordings);
        text += line(" (%d of %d with 2 to 4 speakers), off by %.2f on average\n\n", total.num_small_right,
                     total.num_small,
                     total.num_recordings > 0 ? double(total.count_error) / total.num_recordings : 0.0);
    }
    return text;
}
