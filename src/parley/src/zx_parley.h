/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Parley: who spoke when.
 *
 *     zx_parley_t *engine = NULL;
 *     zx_log_disable();
 *     if (zx_parley_init("parley.zx", &engine) != ZX_STATUS_SUCCESS) return 1;
 *     int32_t num_segments;
 *     zx_parley_segment_t *segments;
 *     if (zx_parley_process_file(engine, "meeting.wav", &num_segments, &segments) == ZX_STATUS_SUCCESS) {
 *         for (int32_t i = 0; i < num_segments; i++) {
 *             if (segments[i].speaker_tag == 0) continue;
 *             printf("%.3f %.3f speaker %d\n", segments[i].start_sec, segments[i].end_sec,
 *                    segments[i].speaker_tag);
 *         }
 *         zx_parley_segments_delete(segments);
 *     }
 *     zx_parley_delete(engine);
 *
 * Threads: an engine is used by one thread at a time; different engines run in parallel. After a failing call
 * the same thread can fetch messages that say why (zx_get_error_stack).
 *
 * Strings are zero-terminated. Everything is local: the library reads the model file at creation and the
 * audio file while processing it, and nothing else.
 */
#ifndef ZX_PARLEY_H
#define ZX_PARLEY_H

#include <stdint.h>

#include "zx_base.h"
#include "zx_log_switch.h"

#ifdef __cplusplus
extern "C" {
#endif

/* An engine: a model, ready to process any number of recordings one after another. */
typedef struct zx_parley_t zx_parley_t;

/* A stretch of one speaker. Times are in seconds from the start of the audio, rounded to milliseconds; audio
 * is looked at in frames of 32 ms, and end_sec is the start of the last frame, so a segment of one frame has
 * equal times. Speakers are 1, 2, ... in order of appearance, anew for every call. A tag of 0 can occur in
 * the last records when the speaker changes within the last frames: such records carry no speaker and are to
 * be skipped. */
typedef struct {
    float start_sec;
    float end_sec;
    int32_t speaker_tag;
} zx_parley_segment_t;

/*
 * Creates an engine from a model file. The caller owns *object and releases it with zx_parley_delete.
 *
 * ZX_STATUS_INVALID_ARGUMENT  an argument is null; or the file is no model of this version, or its parts do
 *                             not fit
 * ZX_STATUS_IO_ERROR          the file cannot be opened or ends too early
 * ZX_STATUS_OUT_OF_MEMORY
 */
ZX_CHECKED ZX_API zx_status_t zx_parley_init(const char *model_path, zx_parley_t **object);

/*
 * Diarizes a buffer of num_samples signed 16-bit mono samples at zx_sample_rate() Hz, at least 512; samples
 * behind the last whole 512 are not looked at. *segments receives an array of *num_segments records in time
 * order, which the caller owns and releases with zx_parley_segments_delete; it is null when nobody speaks.
 * Each call is complete in itself.
 *
 * ZX_STATUS_INVALID_ARGUMENT  an argument is null or num_samples below 512
 * ZX_STATUS_OUT_OF_MEMORY
 */
ZX_CHECKED ZX_API zx_status_t zx_parley_process(zx_parley_t *object, const int16_t *pcm, int32_t num_samples,
                                                int32_t *num_segments, zx_parley_segment_t **segments);

/*
 * Diarizes an audio file, mono or stereo, at 8 kHz or at any rate from 16 kHz up. The format is found from
 * the file's first bytes; its name plays no part. Results as zx_parley_process gives them.
 *
 * ZX_STATUS_INVALID_ARGUMENT  an argument is null; the format is not supported; the audio is shorter than 512
 *                             samples
 * ZX_STATUS_IO_ERROR          the file cannot be opened or ends before its audio does
 * ZX_STATUS_OUT_OF_MEMORY
 */
ZX_CHECKED ZX_API zx_status_t zx_parley_process_file(zx_parley_t *object, const char *audio_path,
                                                     int32_t *num_segments, zx_parley_segment_t **segments);

/* Releases an array of segments; null is ignored. */
ZX_API void zx_parley_segments_delete(zx_parley_segment_t *segments);

/* Releases an engine; null is ignored. */
ZX_API void zx_parley_delete(zx_parley_t *object);

/* The version of the engine, which the model files that it reads name: "1.0.0". */
ZX_API const char *zx_parley_version(void);

/* Releases a block that the library handed out, for callers whose own heap is another one; null is ignored.
 */
ZX_API void zx_free(void *block);

#ifdef __cplusplus
}
#endif

#endif
