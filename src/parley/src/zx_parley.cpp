#include "zx_parley.h"

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <utility>

#include "zx_assert.h"
#include "zx_audio_file.h"
#include "zx_error.h"
#include "zx_file.h"
#include "zx_heap.h"
#include "zx_log.h"
#include "zx_parley_internal.h"

static_assert(sizeof(zx_parley_segment_t) == 12 && offsetof(zx_parley_segment_t, speaker_tag) == 8,
              "segments are part of the binary interface");

namespace {

zx_status_t report_null(const char *argument) {
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_invalid_argument_null, argument);
    return ZX_STATUS_INVALID_ARGUMENT;
}

zx_status_t report_allocation(const char *what) {
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_alloc, what);
    return ZX_STATUS_OUT_OF_MEMORY;
}

zx_status_t report_init(const char *module, zx_status_t status) {
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_module_init_internal, module,
                       zx_status_to_string(status));
    return status;
}

zx_status_t report_failure(const char *function, zx_status_t status) {
    zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_module_function_status_internal, function,
                       zx_status_to_string(status));
    return status;
}

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

}  // namespace

extern "C" const char *zx_parley_version(void) {
    return "1.0.0";
}

extern "C" void zx_free(void *block) {
    std::free(block);
}

extern "C" void zx_parley_segments_delete(zx_parley_segment_t *segments) {
    std::free(segments);
}

extern "C" zx_status_t zx_parley_init(const char *model_path, zx_parley_t **object) {
    zx_error_prepare();
    if (!model_path) return report_null("model_path");
    if (!object) return report_null("object");
    zx_file_ptr file(zx_fopen(model_path, "rb"));
    if (!file) {
        zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_fopen_failure, model_path);
        return ZX_STATUS_IO_ERROR;
    }
    zx_parley_param_t *param = nullptr;
    zx_status_t status = zx_parley_param_load(file.get(), &param);
    file.reset();
    if (status != ZX_STATUS_SUCCESS) return report_failure("zx_parley_param_load", status);
    status = zx_parley_internal_init(param, true, object);
    if (status != ZX_STATUS_SUCCESS) return report_failure("zx_parley_internal_init", status);
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_parley_internal_init(zx_parley_param_t *param, bool with_feature_extraction,
                                    zx_parley_t **object) {
    *object = nullptr;
    std::unique_ptr<zx_parley_param_t, zx_deleter<zx_parley_param_delete>> owned_param(param);
    std::unique_ptr<zx_parley_t, zx_deleter<zx_parley_delete>> o(zx_heap_zeroed<zx_parley_t>());
    if (!o) return report_allocation("o");
    zx_status_t status = zx_memory_init(&o->memory);  // first, because deleting a half-built object needs it
    if (status != ZX_STATUS_SUCCESS) {
        std::free(o.release());
        return report_init("zx_memory", status);
    }
    o->param = owned_param.release();
    o->num_tags = -1;

    status = check_consistency(param);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = zx_parley_classifier_init(param->classifier, &o->classifier);
    if (status != ZX_STATUS_SUCCESS) return report_init("zx_parley_classifier_init", status);
    status = zx_parley_cluster_init(param->cluster, &o->cluster);
    if (status != ZX_STATUS_SUCCESS) return report_init("zx_parley_cluster_init", status);
    if (with_feature_extraction) {
        status = zx_filterbank_init(o->memory, ZX_PARLEY_HOP_LENGTH, &o->filterbank);
        if (status != ZX_STATUS_SUCCESS) return report_init("zx_filterbank_init", status);
    }
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

extern "C" void zx_parley_delete(zx_parley_t *object) {
    if (!object) return;
    std::free(object->tag_frequency);
    zx_filterbank_delete(object->filterbank);
    zx_parley_cluster_delete(object->cluster);
    zx_parley_classifier_delete(object->classifier);
    zx_parley_param_delete(object->param);
    zx_memory_free(object->memory, object);
}

namespace {

// Embeddings of normalized features.
zx_status_t compute_embeddings(zx_parley_t *object, const int16_t *feature, int32_t num_frames,
                               zx_heap_ptr<float> *d_vector) {
    const size_t embedding_size = static_cast<size_t>(object->param->classifier->embedding->output_dimension);
    d_vector->reset(
        static_cast<float *>(std::calloc(static_cast<size_t>(num_frames), embedding_size * sizeof(float))));
    if (!*d_vector) return report_allocation("d_vector");
    const zx_status_t status =
        zx_parley_classifier_process(object->classifier, feature, num_frames, d_vector->get());
    if (status != ZX_STATUS_SUCCESS) return report_failure("zx_parley_classifier_process", status);
    return ZX_STATUS_SUCCESS;
}

// Tags of embeddings, which are released on the way.
zx_status_t compute_tags(zx_parley_t *object, zx_heap_ptr<float> d_vector, int32_t num_frames,
                         uint32_t *clusters) {
    uint32_t num_clusters = 0;
    const zx_status_t status = zx_parley_cluster_process(
        object->cluster, d_vector.get(), object->param->classifier->embedding->output_dimension, num_frames,
        &num_clusters, clusters);
    d_vector.reset();
    if (status != ZX_STATUS_SUCCESS) return report_failure("zx_parley_cluster_process", status);
    object->num_tags = static_cast<int32_t>(num_clusters);
    object->tag_frequency = zx_heap_zeroed<int32_t>(num_clusters);
    if (!object->tag_frequency) return report_allocation("object->tag_frequency");
    return ZX_STATUS_SUCCESS;
}

// The pipeline behind both public functions. `own_pcm` is null, or owns the samples: then they are released as soon as
// the features are there. Of samples, features, embeddings and the agenda of merges each is large for long audio.
zx_status_t process(zx_parley_t *object, const int16_t *pcm, int32_t num_samples,
                    zx_heap_ptr<int16_t> *own_pcm, int32_t *num_segments, zx_parley_segment_t **segments) {
    if (num_samples < ZX_PARLEY_FRAME_LENGTH) {
        zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_invalid_argument_min, "num_samples", num_samples,
                           ZX_PARLEY_FRAME_LENGTH);
        return ZX_STATUS_INVALID_ARGUMENT;
    }
    if (!num_segments) return report_null("num_segments");
    if (!segments) return report_null("segments");
    if (!object->filterbank) {
        zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_state_internal, "object->filterbank is NULL");
        return ZX_STATUS_INVALID_STATE;
    }
    *num_segments = 0;
    *segments = nullptr;
    const int32_t num_frames = num_samples / ZX_PARLEY_FRAME_LENGTH;

    zx_heap_ptr<int16_t> feature(
        zx_heap_zeroed<int16_t>(static_cast<size_t>(num_frames) * ZX_PARLEY_FRAME_SIZE));
    if (!feature) return report_allocation("feature");
    zx_status_t status = zx_parley_internal_features(object, pcm, num_frames, feature.get());
    if (status != ZX_STATUS_SUCCESS) return report_failure("zx_filterbank_compute", status);
    if (own_pcm) own_pcm->reset();
    zx_parley_internal_preprocess(object, feature.get(), 2 * num_frames);

    const zx_heap_ptr<uint32_t> clusters(zx_heap_zeroed<uint32_t>(static_cast<size_t>(num_frames)));
    if (!clusters) return report_allocation("clusters");
    zx_heap_ptr<float> d_vector;
    status = compute_embeddings(object, feature.get(), num_frames, &d_vector);
    feature.reset();
    if (status == ZX_STATUS_SUCCESS)
        status = compute_tags(object, std::move(d_vector), num_frames, clusters.get());
    if (status == ZX_STATUS_SUCCESS) {
        status = zx_parley_internal_segment(object, clusters.get(), num_frames, num_segments, segments);
        zx_parley_internal_reset(object);
    }
    // Callers know these steps under one name.
    if (status != ZX_STATUS_SUCCESS) return report_failure("zx_parley_internal_process", status);
    return ZX_STATUS_SUCCESS;
}

}  // namespace

extern "C" zx_status_t zx_parley_process(zx_parley_t *object, const int16_t *pcm, int32_t num_samples,
                                         int32_t *num_segments, zx_parley_segment_t **segments) {
    zx_error_prepare();
    if (!object) return report_null("object");
    if (!pcm) return report_null("pcm");
    return process(object, pcm, num_samples, nullptr, num_segments, segments);
}

zx_status_t zx_parley_internal_features(zx_parley_t *object, const int16_t *pcm, int32_t num_frames,
                                        int16_t *feature) {
    ZX_ASSERT(object);
    ZX_ASSERT(pcm);
    ZX_ASSERT(num_frames > 0);
    ZX_ASSERT(feature);
    zx_filterbank_reset(object->filterbank);  // a call that failed below may have left its audio there
    for (int64_t hop = 0; hop < 2 * int64_t{num_frames}; hop++) {
        const zx_status_t status = zx_filterbank_compute(object->filterbank, pcm + hop * ZX_PARLEY_HOP_LENGTH,
                                                         feature + hop * ZX_FILTERBANK_NUM_BANDS);
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    zx_filterbank_reset(object->filterbank);
    return ZX_STATUS_SUCCESS;
}

void zx_parley_internal_preprocess(zx_parley_t *object, int16_t *feature, int32_t num_frames) {
    ZX_ASSERT(object);
    ZX_ASSERT(feature);
    ZX_ASSERT(num_frames > 0);
    zx_parley_classifier_preprocess(object->classifier, feature, num_frames);
}

zx_status_t zx_parley_internal_process(zx_parley_t *object, const int16_t *feature, int32_t num_frames,
                                       uint32_t *clusters) {
    ZX_ASSERT(object);
    ZX_ASSERT(feature);
    ZX_ASSERT(clusters);
    zx_heap_ptr<float> d_vector;
    const zx_status_t status = compute_embeddings(object, feature, num_frames, &d_vector);
    if (status != ZX_STATUS_SUCCESS) return status;
    return compute_tags(object, std::move(d_vector), num_frames, clusters);
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
    if (!s) return report_allocation("s");
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

extern "C" zx_status_t zx_parley_process_file(zx_parley_t *object, const char *audio_path,
                                              int32_t *num_segments, zx_parley_segment_t **segments) {
    zx_error_prepare();
    if (!object) return report_null("object");
    if (!audio_path) return report_null("audio_path");
    if (!num_segments) return report_null("num_segments");
    if (!segments) return report_null("segments");
    zx_audio_file_t *audio_file = nullptr;
    zx_status_t status = zx_audio_file_init(audio_path, &audio_file);
    if (status != ZX_STATUS_SUCCESS) return report_init("zx_audio_file", status);
    std::unique_ptr<zx_audio_file_t, zx_deleter<zx_audio_file_delete>> reader(audio_file);

    const int32_t num_samples = zx_audio_file_num_samples(reader.get());
    zx_heap_ptr<int16_t> pcm(zx_heap_zeroed<int16_t>(static_cast<size_t>(num_samples) + 1));  // see the read
    if (!pcm) return report_allocation("pcm");
    status = zx_audio_file_read(reader.get(), num_samples, pcm.get());
    if (status != ZX_STATUS_SUCCESS) {
        zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_fread_failure,
                           static_cast<void *>(reader.get()));
        return ZX_STATUS_IO_ERROR;
    }
    reader.reset();
    return process(object, pcm.get(), num_samples, &pcm, num_segments, segments);
}
