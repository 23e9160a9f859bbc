// SPDX-License-Identifier: Apache-2.0
#include "zx_parley.h"

#include <cstddef>
#include <cstdlib>

#include "zx_error.h"
#include "zx_file.h"
#include "zx_parley_internal.h"
#include "zx_parley_report.h"

static_assert(sizeof(zx_parley_segment_t) == 12 && offsetof(zx_parley_segment_t, speaker_tag) == 8,
              "segments are part of the binary interface");

extern "C" const char *zx_parley_version(void) {
    return ZX_PARLEY_VERSION;
}

extern "C" void zx_free(void *block) {
    std::free(block);
}

extern "C" void zx_parley_segments_delete(zx_parley_segment_t *segments) {
    std::free(segments);
}

extern "C" zx_status_t zx_parley_init(const char *model_path, zx_parley_t **object) {
    zx_error_prepare();
    if (!model_path) return zx_parley_report_null("model_path");
    if (!object) return zx_parley_report_null("object");
    zx_file_ptr file(zx_fopen(model_path, "rb"));
    if (!file) {
        zx_error_log_error(__FILE__, __LINE__, &zx_error_msg_fopen_failure, model_path);
        return ZX_STATUS_IO_ERROR;
    }
    zx_parley_param_t *param = nullptr;
    zx_status_t status = zx_parley_param_load(file.get(), &param);
    file.reset();
    if (status != ZX_STATUS_SUCCESS) return zx_parley_report_failure("zx_parley_param_load", status);
    status = zx_parley_internal_init(param, true, object);
    if (status != ZX_STATUS_SUCCESS) return zx_parley_report_failure("zx_parley_internal_init", status);
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

extern "C" zx_status_t zx_parley_process(zx_parley_t *object, const int16_t *pcm, int32_t num_samples,
                                         int32_t *num_segments, zx_parley_segment_t **segments) {
    zx_error_prepare();
    if (!object) return zx_parley_report_null("object");
    if (!pcm) return zx_parley_report_null("pcm");
    return zx_parley_internal_run(object, pcm, num_samples, num_segments, segments);
}

extern "C" zx_status_t zx_parley_process_file(zx_parley_t *object, const char *audio_path,
                                              int32_t *num_segments, zx_parley_segment_t **segments) {
    zx_error_prepare();
    if (!object) return zx_parley_report_null("object");
    if (!audio_path) return zx_parley_report_null("audio_path");
    if (!num_segments) return zx_parley_report_null("num_segments");
    if (!segments) return zx_parley_report_null("segments");
    return zx_parley_internal_run_file(object, audio_path, num_segments, segments);
}
