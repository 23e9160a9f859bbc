/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The stages one at a time, for training: what a model computes between samples and segments, exactly as the
 * engine does it. Not installed. Statuses and messages are those of parley.h; blocks handed out
 * are released with parley_free.
 */
#ifndef PARLEY_STAGES_H
#define PARLEY_STAGES_H

#include "parley.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Samples a second, samples a row of band energies (two rows make a frame), bands a row. */
PARLEY_API int32_t parley_stage_rate(void);
PARLEY_API int32_t parley_stage_hop(void);
PARLEY_API int32_t parley_stage_bands(void);

/* FFT bins: band b rises from edge b to its peak at edge b + 1 and falls to edge b + 2; bands + 2 values. */
PARLEY_API void parley_stage_band_edges(int16_t *edges);

/* Mono samples at the engine's rate of an audio file. */
PARLEY_API PARLEY_CHECKED parley_status parley_stage_read(const char *path, int16_t **samples,
                                                          int64_t *num_samples);

/* Samples played `speed` times as fast (0.5 < speed < 2), pitch and formants included. */
PARLEY_API PARLEY_CHECKED parley_status parley_stage_change_speed(const int16_t *samples, int64_t num_samples,
                                                                  double speed, int16_t **result,
                                                                  int64_t *num_result);

/* The filterbank's rows before normalization: rows takes (num_samples / hop) * bands values in Q10. */
PARLEY_API PARLEY_CHECKED parley_status parley_stage_features(const int16_t *samples, int64_t num_samples,
                                                              int16_t *rows);

typedef struct parley_stages parley_stages; /* an engine, opened up */
PARLEY_API PARLEY_CHECKED parley_status parley_stages_open(const char *model_path, parley_stages **stages);
PARLEY_API void parley_stages_close(parley_stages *stages);
PARLEY_API int32_t parley_stages_dimension(const parley_stages *stages);

/* Frames a chunk and of warm-up instead of the model's; warmup >= 1 and 3 * warmup < chunk. */
PARLEY_API void parley_stages_set_chunks(parley_stages *stages, int32_t chunk, int32_t warmup);

/* A whole recording's rows of parley_stage_features (two a frame) to num_frames unit embeddings; those of a
   quiet one are made louder. */
PARLEY_API PARLEY_CHECKED parley_status parley_stages_embed(parley_stages *stages, const int16_t *rows,
                                                            int32_t num_frames, float *embeddings);

/* Embeddings to the log odds that somebody speaks in each frame (speech_detection.h); PARLEY_INVALID for a
 * model that has no network for that. */
PARLEY_API PARLEY_CHECKED parley_status parley_stages_speech_log_odds(parley_stages *stages,
                                                                      const float *embeddings,
                                                                      int32_t num_frames, float *log_odds);

/* The same of two speaking at once (overlap_detection.h). */
PARLEY_API PARLEY_CHECKED parley_status parley_stages_overlap_log_odds(parley_stages *stages,
                                                                       const float *embeddings,
                                                                       int32_t num_frames, float *log_odds);

/* Embeddings to segments as a result has them, with four thresholds instead of the model's: `times` takes up
 * to num_frames pairs of seconds, `speakers` as many tags. */
PARLEY_API PARLEY_CHECKED parley_status parley_stages_segments(parley_stages *stages, const float *embeddings,
                                                               int32_t num_frames, const double *thresholds,
                                                               int32_t refine, double *times,
                                                               int32_t *speakers, int32_t *num_segments);

/* What the product's segments of these embeddings are: times and tags as above, and rows of
 * parley_stages_num_segment_features features of each, from which confidence comes. */
PARLEY_API PARLEY_CHECKED parley_status parley_stages_described_segments(parley_stages *stages,
                                                                         const float *embeddings,
                                                                         int32_t num_frames, double *times,
                                                                         int32_t *speakers, double *features,
                                                                         int32_t *num_segments);
PARLEY_API int32_t parley_stages_num_segment_features(void);

/* Divisions of a recording among speakers of which the library chooses one, with four thresholds instead of
 * the model's: at most max_candidates rows of parley_stages_num_features features, and as many of num_frames
 * labels, 0 where nobody speaks; the first one is the engine's own. None where the engine finds nobody. */
PARLEY_API PARLEY_CHECKED parley_status parley_stages_candidates(
    parley_stages *stages, const float *embeddings, int32_t num_frames, const double *thresholds,
    int32_t max_candidates, int32_t *num_candidates, double *features, int32_t *labels);
PARLEY_API int32_t parley_stages_num_features(void);

/* parley_score_turns of turns with numbers for speakers: speech, missed, false alarm, confusion (seconds),
 * speakers there, speakers found. */
PARLEY_API PARLEY_CHECKED parley_status
parley_stage_score(int32_t num_reference, const double *reference_times, const int32_t *reference_speakers,
                   int32_t num_hypothesis, const double *hypothesis_times, const int32_t *hypothesis_speakers,
                   double collar, int32_t skip_overlap, double *result);

#ifdef __cplusplus
}
#endif

#endif
