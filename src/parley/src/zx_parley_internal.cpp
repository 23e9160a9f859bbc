// SPDX-License-Identifier: Apache-2.0
#include "zx_parley_internal.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <utility>

#include "zx_assert.h"
#include "zx_audio_file.h"
#include "zx_error.h"
#include "zx_log.h"
#include "zx_parallel.h"
#include "zx_parley_report.h"

namespace {

// What the parts of a model must have in common, which their loaders cannot see.
zx_status_t check_consistency(const zx_parley_param_t *param) {
    const char *fault = zx_parley_classifier_param_inconsistency(param->classifier, ZX_FILTERBANK_NUM_BANDS,
                                                                 ZX_PARLEY_FRAME_SIZE);
    if (!fault) {
        fault = zx_parley_cluster_param_inconsistency(param->cluster,
                                                      param->classifier->embedding->output_dimension);
    }
    if (!fault) return ZX_STATUS_SUCCESS;
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_invalid_argument_internal, fault);
    return ZX_STATUS_INVALID_ARGUMENT;
}

zx_status_t check_length(int32_t num_samples) {
    if (num_samples >= ZX_PARLEY_FRAME_LENGTH) return ZX_STATUS_SUCCESS;
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_invalid_argument_min, "num_samples", num_samples,
                       ZX_PARLEY_FRAME_LENGTH);
    return ZX_STATUS_INVALID_ARGUMENT;
}

zx_status_t check_filterbank(const zx_parley_t *object) {
    if (object->filterbank) return ZX_STATUS_SUCCESS;
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_state_internal, "object->filterbank is NULL");
    return ZX_STATUS_INVALID_STATE;
}

// Callers know the steps from embeddings to segments under one name.
zx_status_t report_processing(zx_status_t status) {
    return zx_parley_report_failure("zx_parley_internal_process", status);
}

// A stage of a run as the module that works on it sees it.
struct stage_progress {
    stage_progress(const zx_parley_progress_t *run_, zx_parley_stage stage_) : run(run_), stage(stage_) {}

    static bool report(void *context, double done) {
        const auto *self = static_cast<const stage_progress *>(context);
        return self->run->report(self->run->context, self->stage, done);
    }

    // Null without a progress of the run.
    const zx_progress_t *get() const { return run ? &progress : nullptr; }

    const zx_parley_progress_t *run;
    zx_parley_stage stage;
    zx_progress_t progress = {report, this};
};

}  // namespace

zx_status_t zx_parley_internal_init(zx_parley_param_t *param, bool with_feature_extraction,
                                    zx_parley_t **object) {
    *object = nullptr;
    zx_owned<zx_parley_param_t, zx_parley_param_delete> owned_param(param);
    zx_owned<zx_parley_t, zx_parley_delete> o(zx_heap_zeroed<zx_parley_t>());
    if (!o) return zx_parley_report_allocation("o");
    zx_status_t status = zx_memory_init(&o->memory);  // first, because deleting a half-built object needs it
    if (status != ZX_STATUS_SUCCESS) {
        std::free(o.release());
        return zx_parley_report_init("zx_memory", status);
    }
    o->param = owned_param.release();
    o->num_workers = 1;
    o->num_tags = -1;

    status = check_consistency(param);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = zx_parley_classifier_init(param->classifier, &o->classifier);
    if (status != ZX_STATUS_SUCCESS) return zx_parley_report_init("zx_parley_classifier_init", status);
    status = zx_parley_cluster_init(param->cluster, &o->cluster);
    if (status != ZX_STATUS_SUCCESS) return zx_parley_report_init("zx_parley_cluster_init", status);
    if (with_feature_extraction) {
        status = zx_filterbank_init(o->memory, ZX_PARLEY_HOP_LENGTH, &o->filterbank);
        if (status != ZX_STATUS_SUCCESS) return zx_parley_report_init("zx_filterbank_init", status);
    }
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

namespace {

// Features of a recording, in spans whose filterbanks first hear the hops in front of them: the history of a
// filterbank is one hop, whose first sample needs the one before.
struct feature_run {
    static constexpr int32_t SPAN = 512, HISTORY = 2;  // hops; a span is about 8 s

    zx_filterbank_t *const *filterbanks;  // one a worker
    const int16_t *pcm;
    int64_t num_hops;
    int16_t *feature;
    int32_t num_before = 0;  // hops in front of `pcm` that can be read

    static zx_status_t compute_span(void *context, int32_t worker, int32_t span) {
        const auto *self = static_cast<const feature_run *>(context);
        zx_filterbank_t *filterbank = self->filterbanks[worker];
        zx_filterbank_reset(filterbank);  // a call that failed below may have left its audio there
        const int64_t first = int64_t{span} * SPAN, end = std::min(first + SPAN, self->num_hops);
        int16_t unused[ZX_FILTERBANK_NUM_BANDS] = {};
        for (int64_t hop = std::max<int64_t>(first - HISTORY, -int64_t{self->num_before}); hop < end; hop++) {
            const zx_status_t status =
                zx_filterbank_compute(filterbank, self->pcm + hop * ZX_PARLEY_HOP_LENGTH,
                                      hop < first ? unused : self->feature + hop * ZX_FILTERBANK_NUM_BANDS);
            if (status != ZX_STATUS_SUCCESS) return status;
        }
        zx_filterbank_reset(filterbank);
        return ZX_STATUS_SUCCESS;
    }
};

// Filterbanks for several workers: the engine's own and others like it.
class filterbanks {
public:
    filterbanks() = default;
    ~filterbanks() {
        for (int32_t w = 1; w < num_workers_; w++) zx_filterbank_delete(all_.get()[w]);
    }
    filterbanks(const filterbanks &) = delete;
    filterbanks &operator=(const filterbanks &) = delete;

    // ZX_STATUS_OUT_OF_MEMORY
    [[nodiscard]] zx_status_t init(zx_parley_t *object, int32_t num_workers) {
        all_.reset(zx_heap_zeroed<zx_filterbank_t *>(static_cast<size_t>(num_workers)));
        if (!all_) return ZX_STATUS_OUT_OF_MEMORY;
        num_workers_ = num_workers;
        all_.get()[0] = object->filterbank;
        for (int32_t w = 1; w < num_workers; w++) {
            const zx_status_t status =
                zx_filterbank_init(object->memory, ZX_PARLEY_HOP_LENGTH, &all_.get()[w]);
            if (status != ZX_STATUS_SUCCESS) return status;
        }
        return ZX_STATUS_SUCCESS;
    }

    zx_status_t compute(feature_run run, const zx_progress_t *progress) const {
        run.filterbanks = all_.get();
        const auto num_spans = static_cast<int32_t>((run.num_hops - 1) / feature_run::SPAN + 1);
        return zx_parallel_run(num_workers_, num_spans, {feature_run::compute_span, &run}, progress);
    }

private:
    zx_heap_ptr<zx_filterbank_t *> all_;
    int32_t num_workers_ = 0;
};

}  // namespace

zx_status_t zx_parley_internal_features(zx_parley_t *object, const int16_t *pcm, int32_t num_frames,
                                        int16_t *feature, const zx_progress_t *progress) {
    ZX_ASSERT(object);
    ZX_ASSERT(pcm);
    ZX_ASSERT(num_frames > 0);
    ZX_ASSERT(feature);
    const int64_t num_hops = 2 * int64_t{num_frames};
    filterbanks banks;
    const zx_status_t status = banks.init(
        object, std::min(object->num_workers, static_cast<int32_t>((num_hops - 1) / feature_run::SPAN + 1)));
    return status == ZX_STATUS_SUCCESS ? banks.compute({nullptr, pcm, num_hops, feature}, progress) : status;
}

void zx_parley_internal_preprocess(zx_parley_t *object, int16_t *feature, int32_t num_frames) {
    ZX_ASSERT(object);
    ZX_ASSERT(feature);
    ZX_ASSERT(num_frames > 0);
    zx_parley_classifier_preprocess(object->classifier, feature, num_frames);
}

namespace {

zx_status_t open_reader(const char *audio_path, zx_owned<zx_audio_file_t, zx_audio_file_delete> *reader) {
    zx_audio_file_t *opened = nullptr;
    const zx_status_t status = zx_audio_file_init(audio_path, &opened);
    reader->reset(opened);
    return status == ZX_STATUS_SUCCESS ? status : zx_parley_report_init("zx_audio_file", status);
}

zx_status_t report_reading(zx_audio_file_t *reader) {
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_fread_failure, static_cast<void *>(reader));
    return ZX_STATUS_IO_ERROR;
}

}  // namespace

zx_status_t zx_parley_internal_read(const char *audio_path, int64_t max_samples,
                                    const zx_parley_progress_t *progress, zx_parley_samples_t *samples) {
    zx_owned<zx_audio_file_t, zx_audio_file_delete> reader;
    zx_status_t status = open_reader(audio_path, &reader);
    if (status != ZX_STATUS_SUCCESS) return status;
    const int32_t count = zx_audio_file_num_samples(reader.get());
    samples->count = count;
    samples->media_seconds = zx_audio_file_media_seconds(reader.get());
    if (count > max_samples) return ZX_STATUS_SUCCESS;
    zx_heap_ptr<int16_t> pcm(zx_heap_zeroed<int16_t>(static_cast<size_t>(count) + 1));  // see the read
    if (!pcm) return zx_parley_report_allocation("pcm");
    status = zx_audio_file_read(reader.get(), count, pcm.get(),
                                stage_progress(progress, zx_parley_stage::decoding).get());
    if (status == ZX_STATUS_STOP_ITERATION) return status;
    if (status != ZX_STATUS_SUCCESS) return report_reading(reader.get());
    samples->own = std::move(pcm);
    samples->pcm = samples->own.get();
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_parley_internal_read_part(const char *audio_path, const zx_parley_progress_t *progress,
                                         zx_parley_samples_t *samples) {
    zx_owned<zx_audio_file_t, zx_audio_file_delete> reader;
    const zx_status_t status = open_reader(audio_path, &reader);
    if (status != ZX_STATUS_SUCCESS) return status;
    const int32_t count = zx_audio_file_num_samples(reader.get());
    // Memory of which only what is written to becomes real.
    zx_heap_ptr<int16_t> pcm(zx_heap_zeroed<int16_t>(static_cast<size_t>(count) + 1));
    if (!pcm) return zx_parley_report_allocation("pcm");
    const stage_progress reporter(progress, zx_parley_stage::decoding);
    int32_t done = 0;
    while (done < count) {
        if (!zx_progress_report(reporter.get(), done, count)) return ZX_STATUS_STOP_ITERATION;
        int32_t num_read;
        if (zx_audio_file_read_some(reader.get(), count - done, pcm.get() + done, &num_read) !=
                ZX_STATUS_SUCCESS ||
            num_read < 0)
            break;
        done = std::min(done + num_read, count);
    }
    samples->own = std::move(pcm);
    samples->pcm = samples->own.get();
    samples->count = done;
    return ZX_STATUS_SUCCESS;
}

namespace {

zx_status_t allocate_features(int32_t num_frames, zx_heap_ptr<int16_t> *feature) {
    feature->reset(zx_heap_zeroed<int16_t>(static_cast<size_t>(num_frames) * ZX_PARLEY_FRAME_SIZE));
    return *feature ? ZX_STATUS_SUCCESS : zx_parley_report_allocation("feature");
}

zx_status_t compute_features(zx_parley_t *object, const int16_t *pcm, int32_t num_frames,
                             const zx_parley_progress_t *progress, zx_heap_ptr<int16_t> *feature) {
    zx_status_t status = allocate_features(num_frames, feature);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = zx_parley_internal_features(object, pcm, num_frames, feature->get(),
                                         stage_progress(progress, zx_parley_stage::features).get());
    return status == ZX_STATUS_SUCCESS ? status : zx_parley_report_failure("zx_filterbank_compute", status);
}

}  // namespace

zx_status_t zx_parley_internal_make_features(zx_parley_t *object, zx_parley_samples_t *samples,
                                             const zx_parley_progress_t *progress) {
    zx_status_t status = check_length(samples->count);
    if (status == ZX_STATUS_SUCCESS) status = check_filterbank(object);
    if (status == ZX_STATUS_SUCCESS && !samples->feature)
        status = compute_features(object, samples->pcm, samples->count / ZX_PARLEY_FRAME_LENGTH, progress,
                                  &samples->feature);
    if (status == ZX_STATUS_SUCCESS) samples->own.reset();
    return status;
}

zx_status_t zx_parley_internal_embed(zx_parley_t *object, zx_parley_samples_t *samples,
                                     const zx_parley_progress_t *progress, zx_heap_ptr<float> *d_vector) {
    zx_status_t status = zx_parley_internal_make_features(object, samples, progress);
    if (status != ZX_STATUS_SUCCESS) return status;
    const int32_t num_frames = samples->count / ZX_PARLEY_FRAME_LENGTH;
    zx_heap_ptr<int16_t> feature = std::move(samples->feature);
    zx_parley_internal_preprocess(object, feature.get(), 2 * num_frames);
    const size_t embedding_size = static_cast<size_t>(object->param->classifier->embedding->output_dimension);
    d_vector->reset(
        static_cast<float *>(std::calloc(static_cast<size_t>(num_frames), embedding_size * sizeof(float))));
    if (!*d_vector) return zx_parley_report_allocation("d_vector");
    status = zx_parley_classifier_process_releasing(
        object->classifier, &feature, num_frames, d_vector->get(),
        stage_progress(progress, zx_parley_stage::embeddings).get(), object->num_workers);
    if (status == ZX_STATUS_SUCCESS) return status;
    return report_processing(zx_parley_report_failure("zx_parley_classifier_process", status));
}

zx_status_t zx_parley_internal_embed_rows(zx_parley_t *object, const int16_t *rows, int32_t num_frames,
                                          float *d_vector) {
    const size_t count = static_cast<size_t>(num_frames) * ZX_PARLEY_FRAME_SIZE;
    const zx_heap_ptr<int16_t> feature(zx_heap_zeroed<int16_t>(count));
    if (!feature) return zx_parley_report_allocation("feature");
    std::copy(rows, rows + count, feature.get());
    zx_parley_internal_preprocess(object, feature.get(), 2 * num_frames);
    return zx_parley_classifier_process(object->classifier, feature.get(), num_frames, d_vector);
}

namespace {

zx_status_t report_clustering(zx_status_t status) {
    return zx_parley_report_failure("zx_parley_cluster_process", status);
}

// What the segmenter is given beside the tags.
zx_status_t begin_tags(zx_parley_t *object, uint32_t num_clusters) {
    zx_parley_internal_reset(object);
    object->num_tags = static_cast<int32_t>(num_clusters);
    object->tag_frequency = zx_heap_zeroed<int32_t>(num_clusters);
    return object->tag_frequency ? ZX_STATUS_SUCCESS : zx_parley_report_allocation("object->tag_frequency");
}

// Rows of embeddings to runs in the clustering object; stretches of successive rows at a time.
zx_status_t take_rows(zx_parley_cluster_t *cluster, const float *d_vector, int32_t size, const int32_t *rows,
                      int32_t num_frames) {
    zx_status_t status = zx_parley_cluster_segmentation_begin(cluster, size);
    for (int32_t at = 0, end = 0; at < num_frames && status == ZX_STATUS_SUCCESS; at = end) {
        for (end = at + 1; end < num_frames && rows[end] == rows[end - 1] + 1;) end++;
        status = zx_parley_cluster_segmentation_take(cluster, d_vector + int64_t{rows[at]} * size, size, at,
                                                     end - at);
    }
    return status;
}

}  // namespace

zx_status_t zx_parley_internal_cluster(zx_parley_t *object, const float *d_vector, const int32_t *rows,
                                       int32_t num_frames, const zx_parley_thresholds_t *thresholds,
                                       const zx_parley_progress_t *progress, uint32_t *clusters) {
    // Thresholds of a run's own come with a clustering of its own; the model stays as it is.
    zx_parley_cluster_param_t param = *object->param->cluster;
    zx_owned<zx_parley_cluster_t, zx_parley_cluster_delete> own;
    zx_parley_cluster_t *cluster = object->cluster;
    zx_status_t status;
    if (thresholds) {
        param.offline_threshold = thresholds->offline;
        param.prune_threshold = thresholds->prune;
        param.segment_threshold = thresholds->segment;
        param.background_threshold = thresholds->background;
        status = zx_parley_cluster_init(&param, &cluster);
        own.reset(cluster);
        if (status != ZX_STATUS_SUCCESS) return zx_parley_report_init("zx_parley_cluster_init", status);
    }
    uint32_t num_clusters = 0;
    const int32_t size = object->param->classifier->embedding->output_dimension;
    status = rows ? take_rows(cluster, d_vector, size, rows, num_frames)
                  : zx_parley_cluster_segmentation(cluster, d_vector, size, num_frames);
    status = zx_parley_cluster_finish(cluster, status, size, num_frames, &num_clusters, clusters,
                                      stage_progress(progress, zx_parley_stage::clustering).get());
    return status == ZX_STATUS_SUCCESS ? begin_tags(object, num_clusters) : report_clustering(status);
}

namespace {

// The first pass of the clustering, for embeddings as they come: no more of them are held than are
// computed at once.
struct first_pass {
    zx_parley_cluster_t *cluster;
    int32_t embedding_size;
    zx_status_t status;

    static zx_status_t take(void *context, const float *rows, int32_t first_frame, int32_t num_rows) {
        auto *self = static_cast<first_pass *>(context);
        self->status = zx_parley_cluster_segmentation_take(self->cluster, rows, self->embedding_size,
                                                           first_frame, num_rows);
        return self->status;
    }
};

// Normalized features to runs of embeddings in the clustering object, which is left empty by a failure.
zx_status_t find_runs(zx_parley_t *object, const int16_t *feature, int32_t num_frames) {
    const int32_t size = object->param->classifier->embedding->output_dimension;
    const auto num_rows =
        static_cast<size_t>(zx_parley_classifier_rows_at_once(object->classifier, num_frames));
    const zx_heap_ptr<float> rows(
        static_cast<float *>(std::calloc(num_rows, static_cast<size_t>(size) * sizeof(float))));
    if (!rows) return zx_parley_report_allocation("d_vector");
    first_pass pass = {object->cluster, size, zx_parley_cluster_segmentation_begin(object->cluster, size)};
    zx_status_t status = pass.status;
    if (status == ZX_STATUS_SUCCESS) {
        const zx_parley_rows_sink_t sink = {first_pass::take, &pass};
        status = zx_parley_classifier_process(object->classifier, feature, num_frames, rows.get(), nullptr, 1,
                                              &sink);
    }
    if (status == ZX_STATUS_SUCCESS) return status;
    uint32_t unused;
    (void) zx_parley_cluster_finish(object->cluster, status, size, num_frames, &unused, nullptr);
    return pass.status == ZX_STATUS_SUCCESS ? zx_parley_report_failure("zx_parley_classifier_process", status)
                                            : report_clustering(status);
}

// Runs to one tag for each frame.
zx_status_t merge_runs(zx_parley_t *object, int32_t num_frames, uint32_t *clusters) {
    uint32_t num_clusters = 0;
    const zx_status_t status = zx_parley_cluster_finish(
        object->cluster, ZX_STATUS_SUCCESS, object->param->classifier->embedding->output_dimension,
        num_frames, &num_clusters, clusters);
    return status == ZX_STATUS_SUCCESS ? begin_tags(object, num_clusters) : report_clustering(status);
}

// The pipeline from features, which it releases on the way, to segments.
zx_status_t run_features(zx_parley_t *object, zx_heap_ptr<int16_t> feature, int32_t num_frames,
                         int32_t *num_segments, zx_parley_segment_t **segments) {
    zx_parley_internal_preprocess(object, feature.get(), 2 * num_frames);
    const zx_heap_ptr<uint32_t> clusters(zx_heap_zeroed<uint32_t>(static_cast<size_t>(num_frames)));
    if (!clusters) return zx_parley_report_allocation("clusters");
    zx_status_t status = find_runs(object, feature.get(), num_frames);
    feature.reset();
    if (status == ZX_STATUS_SUCCESS) status = merge_runs(object, num_frames, clusters.get());
    if (status == ZX_STATUS_SUCCESS) {
        status = zx_parley_internal_segment(object, clusters.get(), num_frames, num_segments, segments);
        zx_parley_internal_reset(object);
    }
    return status == ZX_STATUS_SUCCESS ? status : report_processing(status);
}

// The samples of a file in pieces of whole hops, each with the hops in front of it that its features need.
class read_pieces {
public:
    static constexpr int32_t HOP = ZX_PARLEY_HOP_LENGTH, BEFORE = feature_run::HISTORY * HOP;

    // ZX_STATUS_OUT_OF_MEMORY. A piece has at most so many hops.
    [[nodiscard]] zx_status_t init(zx_audio_file_t *reader, int32_t max_hops,
                                   const zx_parley_listener_t *listener) {
        reader_ = reader;
        listener_ = listener;
        most_ = max_hops * HOP;
        num_missing_ = zx_audio_file_num_samples(reader);
        pcm_.reset(zx_heap_zeroed<int16_t>(static_cast<size_t>(BEFORE + most_ + ZX_AUDIO_FILE_MOST_OF_SOME)));
        return pcm_ ? ZX_STATUS_SUCCESS : zx_parley_report_allocation("pcm");
    }

    // Moves on behind the piece before. ZX_STATUS_IO_ERROR, with its message.
    [[nodiscard]] zx_status_t next() {
        if (num_hops_ > 0) {
            const int16_t *end = first() + num_hops_ * HOP;
            num_held_ -= num_hops_ * HOP;
            std::copy(end - BEFORE, end + num_held_, pcm_.get());
            num_before_ = feature_run::HISTORY;
        }
        while (num_held_ < most_ && num_missing_ > 0) {
            int32_t num_read = -1;
            int16_t *end = pcm_.get() + BEFORE + num_held_;
            if (!has_ended_ &&
                zx_audio_file_read_some(reader_, num_missing_, end, &num_read) != ZX_STATUS_SUCCESS)
                return report_reading(reader_);
            if (num_read < 0) {  // silence from here on
                has_ended_ = true;
                num_read = std::min(num_missing_, most_ - num_held_);
                std::fill_n(end, num_read, int16_t{0});
            }
            num_read = std::min(num_read, num_missing_);
            if (listener_) listener_->hear(listener_->context, end, num_read);
            num_missing_ -= num_read;
            num_held_ += num_read;
        }
        num_hops_ = std::min(num_held_, most_) / HOP;
        return ZX_STATUS_SUCCESS;
    }

    const int16_t *first() const { return pcm_.get() + BEFORE; }
    int32_t num_hops() const { return num_hops_; }
    int32_t num_before() const { return num_before_; }  // hops
    int32_t num_missing() const { return num_missing_; }

private:
    zx_audio_file_t *reader_ = nullptr;
    const zx_parley_listener_t *listener_ = nullptr;
    zx_heap_ptr<int16_t> pcm_;
    int32_t most_ = 0, num_missing_ = 0, num_held_ = 0;  // samples
    int32_t num_hops_ = 0, num_before_ = 0;
    bool has_ended_ = false;
};

}  // namespace

zx_status_t zx_parley_internal_read_features(zx_parley_t *object, const char *audio_path, int64_t max_samples,
                                             const zx_parley_progress_t *progress,
                                             const zx_parley_listener_t *listener,
                                             zx_parley_samples_t *samples) {
    zx_owned<zx_audio_file_t, zx_audio_file_delete> reader;
    zx_status_t status = open_reader(audio_path, &reader);
    if (status == ZX_STATUS_SUCCESS) status = check_filterbank(object);
    if (status != ZX_STATUS_SUCCESS) return status;
    const int32_t count = zx_audio_file_num_samples(reader.get());
    samples->count = count;
    samples->media_seconds = zx_audio_file_media_seconds(reader.get());
    if (count > max_samples) return ZX_STATUS_SUCCESS;
    const int32_t num_frames = count / ZX_PARLEY_FRAME_LENGTH;
    zx_heap_ptr<int16_t> feature;
    if (num_frames > 0) {
        status = allocate_features(num_frames, &feature);
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    read_pieces pieces;
    filterbanks banks;
    status = pieces.init(reader.get(), object->num_workers * feature_run::SPAN, listener);
    if (status == ZX_STATUS_SUCCESS) status = banks.init(object, object->num_workers);
    const stage_progress reporter(progress, zx_parley_stage::decoding);
    const int64_t num_hops = 2 * int64_t{num_frames};
    int64_t num_done = 0;  // hops
    while (status == ZX_STATUS_SUCCESS && (pieces.num_missing() > 0 || num_done < num_hops)) {
        if (!zx_progress_report(reporter.get(), count - pieces.num_missing(), count))
            return ZX_STATUS_STOP_ITERATION;
        status = pieces.next();
        const int64_t num_here = std::min<int64_t>(pieces.num_hops(), num_hops - num_done);
        if (status != ZX_STATUS_SUCCESS || num_here == 0) continue;
        int16_t *rows = feature.get() + num_done * ZX_FILTERBANK_NUM_BANDS;
        status = banks.compute({nullptr, pieces.first(), num_here, rows, pieces.num_before()}, nullptr);
        if (status != ZX_STATUS_SUCCESS) return zx_parley_report_failure("zx_filterbank_compute", status);
        num_done += num_here;
    }
    if (status == ZX_STATUS_SUCCESS) samples->feature = std::move(feature);
    return status;
}

zx_status_t zx_parley_internal_run(zx_parley_t *object, const int16_t *pcm, int32_t num_samples,
                                   int32_t *num_segments, zx_parley_segment_t **segments) {
    zx_status_t status = check_length(num_samples);
    if (status != ZX_STATUS_SUCCESS) return status;
    if (!num_segments) return zx_parley_report_null("num_segments");
    if (!segments) return zx_parley_report_null("segments");
    *num_segments = 0;
    *segments = nullptr;
    status = check_filterbank(object);
    if (status != ZX_STATUS_SUCCESS) return status;
    const int32_t num_frames = num_samples / ZX_PARLEY_FRAME_LENGTH;
    zx_heap_ptr<int16_t> feature;
    status = compute_features(object, pcm, num_frames, nullptr, &feature);
    if (status != ZX_STATUS_SUCCESS) return status;
    return run_features(object, std::move(feature), num_frames, num_segments, segments);
}

zx_status_t zx_parley_internal_run_file(zx_parley_t *object, const char *audio_path, int32_t *num_segments,
                                        zx_parley_segment_t **segments) {
    zx_parley_samples_t samples;
    zx_status_t status =
        zx_parley_internal_read_features(object, audio_path, INT32_MAX, nullptr, nullptr, &samples);
    if (status == ZX_STATUS_SUCCESS) status = check_length(samples.count);
    if (status != ZX_STATUS_SUCCESS) return status;
    *num_segments = 0;
    *segments = nullptr;
    return run_features(object, std::move(samples.feature), samples.count / ZX_PARLEY_FRAME_LENGTH,
                        num_segments, segments);
}

zx_status_t zx_parley_internal_process(zx_parley_t *object, const int16_t *feature, int32_t num_frames,
                                       uint32_t *clusters) {
    ZX_ASSERT(object);
    ZX_ASSERT(feature);
    ZX_ASSERT(clusters);
    const zx_status_t status = find_runs(object, feature, num_frames);
    return status == ZX_STATUS_SUCCESS ? merge_runs(object, num_frames, clusters) : status;
}

zx_status_t zx_parley_internal_segment(zx_parley_t *object, const uint32_t *clusters, int32_t num_frames,
                                       int32_t *num_segments, zx_parley_segment_t **segments) {
    ZX_ASSERT(object);
    ZX_ASSERT(clusters);
    ZX_ASSERT(num_frames > 0);
    ZX_ASSERT(num_segments);
    ZX_ASSERT(segments);
    const uint32_t *tags = clusters;
    const int32_t last = num_frames - 1;
    int32_t count = tags[0] != 0 ? 1 : 0;
    for (int32_t i = 0; i < last; i++) {
        if (tags[i] != tags[i + 1] && tags[i + 1] != 0) count++;
    }
    zx_log("[DEBUG] number of segments: %d\n\n", count);
    if (count == 0) return ZX_STATUS_SUCCESS;
    zx_parley_segment_t *s = zx_heap_zeroed<zx_parley_segment_t>(static_cast<size_t>(count));
    if (!s) return zx_parley_report_allocation("s");
    *num_segments += count;
    *segments = s;

    // A segment closes on the last frame of its run and opens on the first frame of the next one, but not
    // before that frame is visited: a run of a single frame opens late, and one on the last frame not at all.
    int32_t i = 0;
    while (tags[i] == 0) i++;
    zx_parley_segment_t *const end = s + count;
    s->start_sec = zx_parley_frame_to_sec(i);
    s->speaker_tag = static_cast<int32_t>(tags[i]);
    for (; i < last; i++) {
        if (tags[i] != tags[i + 1] && s->speaker_tag != 0) {
            s->end_sec = zx_parley_frame_to_sec(i);
            if (++s == end) return ZX_STATUS_SUCCESS;
            s->speaker_tag = 0;
        } else if (tags[i] != 0 && s->speaker_tag == 0) {
            s->speaker_tag = static_cast<int32_t>(tags[i]);
            s->start_sec = zx_parley_frame_to_sec(i);
        }
    }
    s->end_sec = zx_parley_frame_to_sec(last);
    return ZX_STATUS_SUCCESS;
}

void zx_parley_internal_reset(zx_parley_t *object) {
    ZX_ASSERT(object);
    object->num_tags = -1;
    std::free(object->tag_frequency);
    object->tag_frequency = nullptr;
}

float zx_parley_frame_to_sec(int32_t frame) {
    ZX_ASSERT(frame >= 0);
    const float samples = static_cast<float>(frame * ZX_PARLEY_FRAME_LENGTH);
    return std::roundf(samples / static_cast<float>(zx_sample_rate()) * 1000.0f) / 1000.0f;
}
