// The engine's stages one at a time, so that training sees exactly what the engine computes.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "score.h"
#include "training.h"
#include "zx_audio_file.h"
#include "zx_filterbank.h"
#include "zx_heap.h"
#include "zx_memory.h"
#include "zx_parley_internal.h"
#include "zx_resampler.h"

namespace {

constexpr int32_t RATE = 16000;
constexpr int32_t FILTER_ORDER = 50;  // as in the engine's reader
constexpr int32_t RESAMPLER_BLOCK = 1024;

template <class T>
T *allocate(int64_t count) {
    return static_cast<T *>(std::malloc(sizeof(T) * static_cast<size_t>(count)));
}

}  // namespace

struct training_engine {
    zx_parley_t *parley;
};

void training_free(void *block) {
    std::free(block);
}

int32_t training_read_audio(const char *path, int16_t **samples, int64_t *num_samples) {
    *samples = nullptr;
    *num_samples = 0;
    zx_audio_file_t *opened = nullptr;
    zx_status_t status = zx_audio_file_init(path, &opened);
    if (status != ZX_STATUS_SUCCESS) return status;
    const std::unique_ptr<zx_audio_file_t, zx_deleter<zx_audio_file_delete>> file(opened);
    const int32_t count = zx_audio_file_num_samples(file.get());
    zx_heap_ptr<int16_t> buffer(zx_heap_zeroed<int16_t>(static_cast<size_t>(count) + 1));
    if (!buffer) return ZX_STATUS_OUT_OF_MEMORY;
    status = zx_audio_file_read(file.get(), count, buffer.get());
    if (status != ZX_STATUS_SUCCESS) return status;
    *samples = buffer.release();
    *num_samples = count;
    return ZX_STATUS_SUCCESS;
}

int32_t training_change_speed(const int16_t *samples, int64_t num_samples, double speed, int16_t **result,
                              int64_t *num_result) {
    *result = nullptr;
    *num_result = 0;
    // The resampler converts downwards by any ratio but upwards only by two: slower speech is doubled first.
    zx_resampler_t *created = nullptr;
    std::vector<int16_t> doubled;
    const int16_t *input = samples;
    int64_t num_input = num_samples;
    double ratio = speed;
    if (speed < 1) {
        const zx_status_t status = zx_resampler_init(RATE, 2 * RATE, FILTER_ORDER, &created);
        const std::unique_ptr<zx_resampler_t, zx_deleter<zx_resampler_delete>> resampler(created);
        if (status != ZX_STATUS_SUCCESS) return status;
        for (int64_t at = 0; at < num_samples; at += RESAMPLER_BLOCK) {
            const auto block = static_cast<int32_t>(std::min<int64_t>(RESAMPLER_BLOCK, num_samples - at));
            int16_t out[2 * RESAMPLER_BLOCK + 2];
            const int32_t n = zx_resampler_process(resampler.get(), samples + at, block, out);
            doubled.insert(doubled.end(), out, out + n);
        }
        input = doubled.data();
        num_input = static_cast<int64_t>(doubled.size());
        ratio = 2 * speed;
    }
    created = nullptr;
    const zx_status_t status =
        zx_resampler_init(static_cast<int32_t>(RATE * ratio + 0.5), RATE, FILTER_ORDER, &created);
    const std::unique_ptr<zx_resampler_t, zx_deleter<zx_resampler_delete>> resampler(created);
    if (status != ZX_STATUS_SUCCESS) return status;
    const int64_t room = static_cast<int64_t>(static_cast<double>(num_input) / ratio) + 2 * RESAMPLER_BLOCK;
    zx_heap_ptr<int16_t> buffer(allocate<int16_t>(room));
    if (!buffer) return ZX_STATUS_OUT_OF_MEMORY;
    int64_t filled = 0;
    for (int64_t at = 0; at < num_input; at += RESAMPLER_BLOCK) {
        const auto block = static_cast<int32_t>(std::min<int64_t>(RESAMPLER_BLOCK, num_input - at));
        filled += zx_resampler_process(resampler.get(), input + at, block, buffer.get() + filled);
    }
    *result = buffer.release();
    *num_result = filled;
    return ZX_STATUS_SUCCESS;
}

int32_t training_features(const int16_t *samples, int64_t num_samples, int16_t *rows) {
    zx_memory_t *memory = nullptr;
    zx_status_t status = zx_memory_init(&memory);
    if (status != ZX_STATUS_SUCCESS) return status;
    zx_filterbank_t *filterbank = nullptr;
    status = zx_filterbank_init(memory, ZX_PARLEY_HOP_LENGTH, &filterbank);
    for (int64_t hop = 0; status == ZX_STATUS_SUCCESS && hop < num_samples / ZX_PARLEY_HOP_LENGTH; hop++) {
        status = zx_filterbank_compute(filterbank, samples + hop * ZX_PARLEY_HOP_LENGTH,
                                       rows + hop * ZX_FILTERBANK_NUM_BANDS);
    }
    zx_filterbank_delete(filterbank);
    return status;
}

void training_reverberate(float *energies, int64_t rows, int32_t bands, const float *decay, const float *tail,
                          const float *texture) {
    std::vector<float> ringing(static_cast<size_t>(bands));
    for (int64_t r = 0; r < rows; r++) {
        for (int32_t b = 0; b < bands; b++) {
            const float direct = energies[r * bands + b];
            float &rest = ringing[static_cast<size_t>(b)];
            energies[r * bands + b] += tail[b] * rest * texture[r * bands + b];
            rest = decay[b] * (rest + direct);
        }
    }
}

int32_t training_engine_open(const char *model_path, training_engine **engine) {
    *engine = nullptr;
    zx_log_disable();
    zx_parley_t *parley = nullptr;
    const zx_status_t status = zx_parley_init(model_path, &parley);
    if (status != ZX_STATUS_SUCCESS) return status;
    *engine = new training_engine{parley};
    return ZX_STATUS_SUCCESS;
}

void training_engine_close(training_engine *engine) {
    if (!engine) return;
    zx_parley_delete(engine->parley);
    delete engine;
}

int32_t training_engine_dimension(const training_engine *engine) {
    return engine->parley->param->classifier->embedding->output_dimension;
}

void training_engine_set_chunks(training_engine *engine, int32_t chunk, int32_t warmup) {
    engine->parley->param->classifier->chunk_length_frames = chunk;
    engine->parley->param->classifier->warmup_length_frames = warmup;
}

int32_t training_engine_embed(training_engine *engine, const int16_t *rows, int32_t num_frames,
                              float *embeddings) {
    std::vector<int16_t> normalized(rows, rows + int64_t{num_frames} * ZX_PARLEY_FRAME_SIZE);
    zx_parley_internal_preprocess(engine->parley, normalized.data(), 2 * num_frames);
    return zx_parley_classifier_process(engine->parley->classifier, normalized.data(), num_frames,
                                        embeddings);
}

int32_t training_engine_cluster(training_engine *engine, const float *embeddings, int32_t num_frames,
                                const float *thresholds, uint32_t *tags) {
    zx_parley_cluster_param_t *param = engine->parley->param->cluster;
    param->offline_threshold = thresholds[0];
    param->prune_threshold = thresholds[1];
    param->segment_threshold = thresholds[2];
    param->background_threshold = thresholds[3];
    uint32_t num_tags = 0;
    return zx_parley_cluster_process(engine->parley->cluster, embeddings, training_engine_dimension(engine),
                                     num_frames, &num_tags, tags);
}

int32_t training_engine_segment(training_engine *engine, const uint32_t *tags, int32_t num_frames,
                                double *segments, int32_t *speakers, int32_t *num_segments) {
    zx_parley_segment_t *found = nullptr;
    *num_segments = 0;
    const zx_status_t status =
        zx_parley_internal_segment(engine->parley, tags, num_frames, num_segments, &found);
    for (int32_t i = 0; i < *num_segments; i++) {
        segments[2 * i] = static_cast<double>(found[i].start_sec);
        segments[2 * i + 1] =
            static_cast<double>(found[i].end_sec) + static_cast<double>(ZX_PARLEY_FRAME_LENGTH) / RATE;
        speakers[i] = found[i].speaker_tag;
    }
    std::free(found);
    return status;
}

void training_score(int32_t num_reference, const double *reference_times, const int32_t *reference_speakers,
                    int32_t num_hypothesis, const double *hypothesis_times,
                    const int32_t *hypothesis_speakers, double collar, int32_t skip_overlap, double *result) {
    const auto turns = [](int32_t count, const double *times, const int32_t *speakers) {
        std::vector<turn> list;
        for (int32_t i = 0; i < count; i++) {
            list.push_back({times[2 * i], times[2 * i + 1], std::to_string(speakers[i])});
        }
        return list;
    };
    const score s = score_recording(turns(num_reference, reference_times, reference_speakers),
                                    turns(num_hypothesis, hypothesis_times, hypothesis_speakers), nullptr,
                                    {collar, skip_overlap != 0});
    const double values[] = {s.speech,           s.missed, s.false_alarm, s.confusion, double(s.num_speakers),
                             double(s.num_found)};
    std::memcpy(result, values, sizeof(values));
}
