// SPDX-License-Identifier: Apache-2.0
#include "engine.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <thread>

#include "errors.h"
#include "options.h"
#include "readable_file.h"
#include "system.h"
#include "zx_error.h"
#include "zx_log.h"

namespace {

// Seconds that the stages take for an hour, on one core: from samples, from a file of samples and from a
// compressed one, whose features are computed as it is read.
constexpr double STAGES[][4] = {{0, 0.4, 1.4, 0.2}, {0.45, 0, 1.4, 0.2}, {2.8, 0, 1.4, 0.2}};

bool is_compressed(const std::string &path) {
    const std::string kind = kind_of_file(path);
    return kind != "RIFF" && kind != "RF64" && kind != "FORM";
}

// Stages to one share that does not fall.
struct reporter {
    reporter(const progress_function &progress_, source_kind kind)
        : progress(progress_), stages(STAGES[static_cast<int>(kind)]) {}

    static bool report(void *context, zx_parley_stage stage, double done) {
        const auto *self = static_cast<const reporter *>(context);
        const int number = static_cast<int>(stage);
        const double before = std::accumulate(self->stages, self->stages + number, 0.0);
        const double whole = std::accumulate(self->stages, self->stages + std::size(STAGES[0]), 0.0);
        return self->progress((before + done * self->stages[number]) / whole);
    }

    // Null without a function.
    const zx_parley_progress_t *get() const { return progress ? &record : nullptr; }

    const progress_function &progress;
    const double *stages;
    zx_parley_progress_t record = {report, this};
};

int64_t num_rows(const zx_parley_samples_t &samples) {
    return 2 * int64_t{samples.count / ZX_PARLEY_FRAME_LENGTH};
}

std::string hexadecimal(uint64_t value) {
    char text[17];
    std::snprintf(text, sizeof(text), "%016llx", static_cast<unsigned long long>(value));
    return text;
}

}  // namespace

engine::engine(const std::string &model_path) {
    zx_log_disable();
    zx_error_print_notices(false);
    check_is_readable(model_path, "the model " + model_path);
    zx_parley_t *created = nullptr;
    const zx_status_t status = zx_parley_init(model_path.c_str(), &created);
    object_.reset(created);
    try {
        check_engine(status, model_path);
    } catch (const diarization_error &error) {
        if (error.status == PARLEY_OUT_OF_MEMORY) throw;
        throw diarization_error(error.status, model_path + " is no model of this version", error.details);
    }
    const std::string bytes = content_of_file(model_path);
    model_sections sections = read_model_sections(bytes, model_path);
    id_ = hexadecimal(hash_of(sections.network));
    parameters_ = std::move(sections.parameters);
    const zx_parley_classifier_param_t *classifier = object_->param->classifier;
    if (!parameters_.speech.is_empty() &&
        parameters_.speech.dimension != classifier->embedding->output_dimension)
        throw diarization_error(PARLEY_INVALID,
                                model_path + ": its speech detection is of another dimension");
    if (!parameters_.overlap.is_empty() &&
        parameters_.overlap.layers.front().num_inputs != classifier->embedding->output_dimension)
        throw diarization_error(PARLEY_INVALID,
                                model_path + ": its overlap detection is of another dimension");
    if (3 * int64_t{classifier->warmup_length_frames} >= classifier->chunk_length_frames)
        throw diarization_error(PARLEY_INVALID,
                                model_path + ": its chunks are not longer than three warm-ups");
}

int32_t num_threads(int32_t jobs) {
    const auto cores = static_cast<int32_t>(std::thread::hardware_concurrency());
    return jobs > 0 ? jobs : std::clamp(cores, 1, int32_t{PARLEY_MAX_JOBS});
}

void engine::set_jobs(int32_t jobs) {
    object_->num_workers = num_threads(jobs);
}

zx_parley_samples_t engine::read(const std::string &path, int64_t max_samples,
                                 const progress_function &progress, waveform_drawer *waveform) {
    zx_error_prepare();
    kind_ = is_compressed(path) ? source_kind::compressed : source_kind::file_of_samples;
    waveform->clear();
    const zx_parley_listener_t listener = {[](void *context, const int16_t *pcm, int32_t count) {
                                               static_cast<waveform_drawer *>(context)->add(
                                                   pcm, static_cast<size_t>(count));
                                           },
                                           waveform};
    zx_parley_samples_t samples;
    check_engine(zx_parley_internal_read_features(get(), path.c_str(), max_samples,
                                                  reporter(progress, kind_).get(), &listener, &samples),
                 path);
    return samples;
}

zx_parley_samples_t engine::read_samples(const std::string &path, const progress_function &progress) {
    zx_error_prepare();
    zx_parley_samples_t samples;
    check_engine(zx_parley_internal_read(path.c_str(), INT32_MAX, reporter(progress, kind_).get(), &samples),
                 path);
    return samples;
}

zx_parley_samples_t engine::read_what_is_there(const std::string &path, const progress_function &progress) {
    zx_error_prepare();
    zx_parley_samples_t samples;
    const zx_status_t status =
        zx_parley_internal_read_part(path.c_str(), reporter(progress, kind_).get(), &samples);
    if (status == ZX_STATUS_STOP_ITERATION || status == ZX_STATUS_OUT_OF_MEMORY) check_engine(status, path);
    return samples;
}

int32_t engine::level_of(zx_parley_samples_t *samples, const std::string &subject,
                         const progress_function &progress) {
    zx_error_prepare();
    if (samples->count < ZX_PARLEY_FRAME_LENGTH)
        throw diarization_error(PARLEY_INVALID, subject + ": is shorter than 32 ms");
    if (!samples->feature) kind_ = source_kind::samples;
    check_engine(zx_parley_internal_make_features(get(), samples, reporter(progress, kind_).get()), subject);
    return ::level_of(samples->feature.get(), num_rows(*samples));
}

embedding_table engine::embed(zx_parley_samples_t *samples, int32_t level, const std::string &subject,
                              const progress_function &progress) {
    zx_error_prepare();
    amplify(samples->feature.get(), num_rows(*samples), gain_for(level));
    embedding_table table;
    table.count = samples->count / ZX_PARLEY_FRAME_LENGTH;
    table.size = embedding_size();
    check_engine(
        zx_parley_internal_embed(object_.get(), samples, reporter(progress, kind_).get(), &table.values),
        subject);
    return table;
}

tags engine::cluster(const frames &embeddings, const thresholds &values, const progress_function &progress) {
    zx_error_prepare();
    tags result(static_cast<size_t>(embeddings.count));
    const zx_parley_thresholds_t own = {static_cast<float>(values[0]), static_cast<float>(values[1]),
                                        static_cast<float>(values[2]), static_cast<float>(values[3])};
    check_engine(
        zx_parley_internal_cluster(object_.get(), embeddings.values, embeddings.rows, embeddings.count, &own,
                                   reporter(progress, kind_).get(), result.data()),
        "clustering");
    zx_parley_internal_reset(object_.get());
    return result;
}

int32_t engine::embedding_size() const {
    return object_->param->classifier->embedding->output_dimension;
}

thresholds engine::own_thresholds() const {
    const zx_parley_cluster_param_t *param = object_->param->cluster;
    return {double{param->offline_threshold}, double{param->prune_threshold},
            double{param->segment_threshold}, double{param->background_threshold}};
}
