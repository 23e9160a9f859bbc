// SPDX-License-Identifier: Apache-2.0
// The stages one at a time (parley_stages.h).

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "channels.h"
#include "diarizer.h"
#include "guarded.h"
#include "overlap_detection.h"
#include "parley_stages.h"
#include "score.h"
#include "speech_detection.h"
#include "zx_filterbank.h"
#include "zx_heap.h"

struct parley_stages {
    engine own;
};

namespace {

void hand_out(const std::vector<int16_t> &samples, int16_t **result, int64_t *count) {
    *result = static_cast<int16_t *>(std::malloc(samples.size() * sizeof(int16_t) + 1));
    if (!*result) throw std::bad_alloc();
    std::copy(samples.begin(), samples.end(), *result);
    *count = static_cast<int64_t>(samples.size());
}

std::vector<turn> turns_of(int32_t count, const double *times, const int32_t *speakers) {
    std::vector<turn> result;
    result.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; i++)
        result.push_back({times[2 * i], times[2 * i + 1], std::to_string(speakers[i])});
    return result;
}

// The log odds that one of the model's networks gives.
template <typename network_type>
void detect(const parley_stages &stages, const network_type &network, const std::string &what,
            std::vector<float> (*log_odds)(const frames &, const network_type &, int),
            const float *embeddings, int32_t num_frames, float *result) {
    if (network.is_empty()) throw diarization_error(PARLEY_INVALID, "the model does not detect " + what);
    const frames view = {embeddings, num_frames, parley_stages_dimension(&stages)};
    const std::vector<float> found = log_odds(view, network, 1);
    std::copy(found.begin(), found.end(), result);
}

}  // namespace

extern "C" {

int32_t parley_stage_rate(void) {
    return zx_sample_rate();
}

int32_t parley_stage_hop(void) {
    return ZX_PARLEY_HOP_LENGTH;
}

int32_t parley_stage_bands(void) {
    return ZX_FILTERBANK_NUM_BANDS;
}

void parley_stage_band_edges(int16_t *edges) {
    std::copy(FILTERBANK_BAND_EDGES.begin(), FILTERBANK_BAND_EDGES.end(), edges);
}

parley_status parley_stage_read(const char *path, int16_t **samples, int64_t *num_samples) {
    return guarded([&] {
        zx_parley_samples_t read;
        check_engine(zx_parley_internal_read(path, INT32_MAX, nullptr, &read), path);
        *samples = read.own.release();
        *num_samples = read.count;
    });
}

parley_status parley_stage_change_speed(const int16_t *samples, int64_t num_samples, double speed,
                                        int16_t **result, int64_t *num_result) {
    return guarded([&] {
        const int32_t rate = zx_sample_rate();
        const std::span<const int16_t> given(samples, static_cast<size_t>(num_samples));
        const auto played = [&](double factor) { return static_cast<int32_t>(std::lround(rate * factor)); };
        if (speed >= 1) {
            hand_out(resample(given, played(speed), rate), result, num_result);
            return;
        }
        // The resampler converts downwards by any ratio but upwards only by two: slower speech is doubled
        // first.
        const std::vector<int16_t> doubled = resample(given, rate, 2 * rate);
        hand_out(resample(doubled, played(2 * speed), rate), result, num_result);
    });
}

parley_status parley_stage_features(const int16_t *samples, int64_t num_samples, int16_t *rows) {
    return guarded([&] {
        zx_memory_t *memory = nullptr;
        check_engine(zx_memory_init(&memory), "features");
        zx_filterbank_t *created = nullptr;
        check_engine(zx_filterbank_init(memory, ZX_PARLEY_HOP_LENGTH, &created), "features");
        const zx_owned<zx_filterbank_t, zx_filterbank_delete> filterbank(created);
        for (int64_t hop = 0; hop < num_samples / ZX_PARLEY_HOP_LENGTH; hop++) {
            check_engine(zx_filterbank_compute(filterbank.get(), samples + hop * ZX_PARLEY_HOP_LENGTH,
                                               rows + hop * ZX_FILTERBANK_NUM_BANDS),
                         "features");
        }
    });
}

parley_status parley_stages_open(const char *model_path, parley_stages **stages) {
    return guarded([&] {
        *stages = nullptr;
        *stages = new parley_stages{engine(model_path)};
    });
}

void parley_stages_close(parley_stages *stages) {
    delete stages;
}

int32_t parley_stages_dimension(const parley_stages *stages) {
    return stages->own.get()->param->classifier->embedding->output_dimension;
}

void parley_stages_set_chunks(parley_stages *stages, int32_t chunk, int32_t warmup) {
    zx_parley_classifier_param_t *classifier = stages->own.get()->param->classifier;
    classifier->chunk_length_frames = chunk;
    classifier->warmup_length_frames = warmup;
}

parley_status parley_stages_embed(parley_stages *stages, const int16_t *rows, int32_t num_frames,
                                  float *embeddings) {
    return guarded([&] {
        const int64_t num_rows = 2 * int64_t{num_frames};
        std::vector<int16_t> at_level(rows, rows + num_rows * ZX_FILTERBANK_NUM_BANDS);
        amplify(at_level.data(), num_rows, stages->own.gain_for(level_of(rows, num_rows)));
        check_engine(
            zx_parley_internal_embed_rows(stages->own.get(), at_level.data(), num_frames, embeddings),
            "embeddings");
    });
}

parley_status parley_stages_speech_log_odds(parley_stages *stages, const float *embeddings,
                                            int32_t num_frames, float *log_odds) {
    return guarded([&] {
        detect(*stages, stages->own.parameters().speech, "speech", speech_log_odds, embeddings, num_frames,
               log_odds);
    });
}

parley_status parley_stages_overlap_log_odds(parley_stages *stages, const float *embeddings,
                                             int32_t num_frames, float *log_odds) {
    return guarded([&] {
        detect(*stages, stages->own.parameters().overlap, "overlap", overlap_log_odds, embeddings, num_frames,
               log_odds);
    });
}

parley_status parley_stages_segments(parley_stages *stages, const float *embeddings, int32_t num_frames,
                                     const double *values, int32_t refine, double *times, int32_t *speakers,
                                     int32_t *num_segments) {
    return guarded([&] {
        *num_segments = 0;
        const frames view = {embeddings, num_frames, parley_stages_dimension(stages)};
        const clustering_policy policy = {.values = {values[0], values[1], values[2], values[3]},
                                          .with_resegmentation = refine != 0};
        const tags labels =
            speaker_search(&stages->own, view, policy, nullptr).find(&stages->own, 0, 0).labels;
        for (const auto &[start, end, tag] : runs_of(labels)) {
            times[2 * *num_segments] = FRAME_SECONDS * start;
            times[2 * *num_segments + 1] = FRAME_SECONDS * end;
            speakers[(*num_segments)++] = static_cast<int32_t>(tag);
        }
    });
}

parley_status parley_stages_candidates(parley_stages *stages, const float *embeddings, int32_t num_frames,
                                       const double *values, int32_t max_candidates, int32_t *num_candidates,
                                       double *features, int32_t *labels) {
    return guarded([&] {
        *num_candidates = 0;
        const frames view = {embeddings, num_frames, parley_stages_dimension(stages)};
        std::vector<candidate_features> rows;
        std::vector<tags> divisions;
        speaker_search search(&stages->own, view, {.values = {values[0], values[1], values[2], values[3]}},
                              nullptr);
        search.describe(&stages->own, &rows, &divisions);
        for (size_t i = 0; i < rows.size() && *num_candidates < max_candidates; i++) {
            features = std::copy(rows[i].begin(), rows[i].end(), features);
            labels = std::copy(divisions[i].begin(), divisions[i].end(), labels);
            (*num_candidates)++;
        }
    });
}

parley_status parley_stages_described_segments(parley_stages *stages, const float *embeddings,
                                               int32_t num_frames, double *times, int32_t *speakers,
                                               double *features, int32_t *num_segments) {
    return guarded([&] {
        *num_segments = 0;
        const frames view = {embeddings, num_frames, parley_stages_dimension(stages)};
        engine *own = &stages->own;
        speaker_search search(own, view, {.values = own->own_thresholds()}, nullptr);
        const clustering_result found = search.find(own, 0, 0);
        std::vector<segment_features> rows;
        const std::vector<segment> segments =
            segments_of(view, found.labels, centroids_of(view, found.labels), own->background(),
                        found.evidence, own->parameters().segment_confidence, &rows);
        for (size_t i = 0; i < segments.size(); i++) {
            *times++ = segments[i].start;
            *times++ = segments[i].end;
            *speakers++ = segments[i].speaker;
            features = std::copy(rows[i].begin(), rows[i].end(), features);
        }
        *num_segments = static_cast<int32_t>(segments.size());
    });
}

int32_t parley_stages_num_segment_features(void) {
    return NUM_SEGMENT_FEATURES;
}

int32_t parley_stages_num_features(void) {
    return NUM_CANDIDATE_FEATURES;
}

parley_status parley_stage_score(int32_t num_reference, const double *reference_times,
                                 const int32_t *reference_speakers, int32_t num_hypothesis,
                                 const double *hypothesis_times, const int32_t *hypothesis_speakers,
                                 double collar, int32_t skip_overlap, double *result) {
    return guarded([&] {
        const score s = score_recording(turns_of(num_reference, reference_times, reference_speakers),
                                        turns_of(num_hypothesis, hypothesis_times, hypothesis_speakers),
                                        nullptr, {collar, skip_overlap != 0});
        const double values[] = {
            s.speech, s.missed, s.false_alarm, s.confusion, double(s.num_speakers), double(s.num_found)};
        std::memcpy(result, values, sizeof(values));
    });
}

}  // extern "C"
