// SPDX-License-Identifier: Apache-2.0
// The C interface's part about what is done with results: known voices, matching, RTTM, scores.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sstream>

#include "assignment.h"
#include "interface.h"
#include "score.h"
#include "voices.h"

namespace {

void check_collar(double collar) {
    require(collar >= 0 && std::isfinite(collar), "collars are 0 s or more");
}

}  // namespace

extern "C" {

parley_status parley_voices_add(const char *voices, const char *name, const parley_result *result,
                                int32_t speaker, double start, double end, char **text) {
    return guarded([&] {
        require(voices && name && result && text,
                "voices, a name, a result or the place for the text is missing");
        voice_list list = read_voices(voices);
        add_voice(&list, name, result->inner.model, sample_of(result->inner, speaker, start, end));
        *text = copied(write_voices(list));
    });
}

parley_status parley_voices_remove(const char *voices, const char *name, char **text) {
    return guarded([&] {
        require(voices && name && text, "voices, a name or the place for the text is missing");
        voice_list list = read_voices(voices);
        const auto gone = std::erase_if(list.people, [name](const voice &v) { return v.name == name; });
        require(gone > 0, ("there is no voice of " + std::string(name)).c_str());
        *text = copied(write_voices(list));
    });
}

parley_status parley_voices_at(const char *voices, int32_t index, char **name, int32_t *num_samples) {
    return guarded([&] {
        require(voices && index >= 0 && name, "voices, an index or the place for the name is missing");
        *name = nullptr;
        const voice_list list = read_voices(voices);
        if (static_cast<size_t>(index) >= list.people.size()) return;
        const voice &found = list.people[static_cast<size_t>(index)];
        if (num_samples) *num_samples = static_cast<int32_t>(found.samples.size());
        *name = copied(found.name);
    });
}

parley_status parley_voices_sample_at(const char *voices, int32_t index, int32_t sample, double *seconds,
                                      char *date, char **source) {
    return guarded([&] {
        require(voices && index >= 0 && sample >= 0 && source,
                "voices, an index or the place for the source is missing");
        *source = nullptr;
        const voice_list list = read_voices(voices);
        if (static_cast<size_t>(index) >= list.people.size()) return;
        const std::vector<voice_sample> &samples = list.people[static_cast<size_t>(index)].samples;
        if (static_cast<size_t>(sample) >= samples.size()) return;
        const voice_sample &found = samples[static_cast<size_t>(sample)];
        if (seconds) *seconds = found.seconds;
        if (date) std::snprintf(date, 11, "%s", found.date.c_str());
        *source = copied(found.source);
    });
}

parley_status parley_result_name_voices(parley_result *result, const char *voices, double threshold) {
    constexpr double NEAR_ENOUGH = 0.8;  // test/voices/trials
    return guarded([&] {
        require(result && voices, "a result or voices are missing");
        require(threshold >= 0 && threshold <= 1, "the threshold lies between 0 and 1");
        name_voices(&result->inner, read_voices(voices), threshold > 0 ? threshold : NEAR_ENOUGH);
    });
}

parley_status parley_read_rttm(const char *text, size_t size, const char *name, parley_turn **turns,
                               int32_t *num_turns) {
    return guarded([&] {
        require(text && name && turns && num_turns, "a text, its name or the place for the turns is missing");
        *turns = nullptr;
        *num_turns = 0;
        std::istringstream stream(std::string(text, size));
        const rttm recordings = read_rttm(stream, name);
        if (recordings.size() > 1)
            throw diarization_error(PARLEY_INVALID, std::string(name) + ": holds several recordings");
        if (recordings.empty()) return;
        const std::vector<turn> &found = recordings.begin()->second;
        size_t bytes = found.size() * sizeof(parley_turn);  // names lie behind the records
        for (const turn &t : found) bytes += t.speaker.size() + 1;
        char *block = static_cast<char *>(std::malloc(bytes));
        if (!block) throw std::bad_alloc();
        auto *records = reinterpret_cast<parley_turn *>(block);
        char *names = block + found.size() * sizeof(parley_turn);
        for (size_t i = 0; i < found.size(); i++) {
            records[i] = {found[i].start, found[i].end, names};
            std::memcpy(names, found[i].speaker.c_str(), found[i].speaker.size() + 1);
            names += found[i].speaker.size() + 1;
        }
        *turns = records;
        *num_turns = static_cast<int32_t>(found.size());
    });
}

parley_status parley_match(const float *first, int32_t num_first, const float *second, int32_t num_second,
                           int32_t dimension, double threshold, int32_t *matches, double *cosines) {
    return guarded([&] {
        require(num_first >= 0 && (first || num_first == 0) && num_second >= 0 &&
                    (second || num_second == 0) && matches && cosines && dimension > 0,
                "voices or the places for the result are missing");
        require(threshold >= -1 && threshold <= 1, "the threshold lies between -1 and 1");
        const auto cosine = [dimension](const float *a, const float *b) {
            double product = 0, squares_a = 0, squares_b = 0;
            for (int32_t i = 0; i < dimension; i++) {
                product += double{a[i]} * double{b[i]};
                squares_a += double{a[i]} * double{a[i]};
                squares_b += double{b[i]} * double{b[i]};
            }
            return squares_a > 0 && squares_b > 0 ? product / std::sqrt(squares_a * squares_b) : 0.0;
        };
        std::vector<std::vector<double>> values(static_cast<size_t>(num_first));
        for (int32_t i = 0; i < num_first; i++) {
            for (int32_t j = 0; j < num_second; j++) {
                const double c = cosine(first + int64_t{i} * dimension, second + int64_t{j} * dimension);
                values[static_cast<size_t>(i)].push_back(std::max(0.0, c - threshold));
            }
        }
        const std::vector<int> mapping = best_assignment(values);
        for (int32_t i = 0; i < num_first; i++) {
            const int j = mapping[static_cast<size_t>(i)];
            const double above = j < 0 ? 0 : values[static_cast<size_t>(i)][static_cast<size_t>(j)];
            matches[i] = above > 0 ? j : -1;
            cosines[i] = above > 0 ? above + threshold : 0;
        }
    });
}

parley_status parley_score_turns(const parley_turn *reference, int32_t num_reference,
                                 const parley_turn *hypothesis, int32_t num_hypothesis, const double *parts,
                                 int32_t num_parts, double collar, int32_t skip_overlap,
                                 parley_score *result) {
    return guarded([&] {
        require(result, "the place for the score is missing");
        check_collar(collar);
        std::vector<span> spans;
        for (int32_t i = 0; parts && i < num_parts; i++) spans.push_back({parts[2 * i], parts[2 * i + 1]});
        const score s =
            score_recording(turns_of(reference, num_reference), turns_of(hypothesis, num_hypothesis),
                            parts ? &spans : nullptr, {collar, skip_overlap != 0});
        *result = {s.speech,         s.missed,       s.false_alarm, s.confusion,
                   s.jaccard_errors, s.num_speakers, s.num_found};
    });
}

parley_status parley_score_text(const char *reference, const char *reference_name, const char *hypothesis,
                                const char *hypothesis_name, const char *uem_text, const double *collars,
                                int32_t num_collars, int32_t skip_overlap, int32_t each, char **text) {
    return guarded([&] {
        require(reference && reference_name && hypothesis && hypothesis_name && num_collars >= 0 &&
                    (collars || num_collars == 0) && text,
                "a reference, a hypothesis or the place for the table is missing");
        *text = nullptr;
        std::for_each(collars, collars + num_collars, check_collar);
        std::istringstream first(reference), second(hypothesis), third(uem_text ? uem_text : "");
        const rttm known = read_rttm(first, reference_name), found = read_rttm(second, hypothesis_name);
        const uem parts = read_uem(third, "UEM");
        *text = copied(score_table(known, found, uem_text ? &parts : nullptr,
                                   {collars, collars + num_collars}, skip_overlap != 0, each != 0));
    });
}

}  // extern "C"
