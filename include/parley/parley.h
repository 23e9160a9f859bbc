/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Parley's result: who spoke when in a recording, with all that can be asked of it and every form in which it
 * can be written. The command line tool, the Python package and the module for browsers stand on this header
 * alone, so that they give the same.
 *
 *     parley_diarizer *diarizer = NULL;
 *     parley_result *result = NULL;
 *     if (parley_open(NULL, &diarizer) == PARLEY_OK &&
 *         parley_diarize_file(diarizer, "meeting.wav", NULL, NULL, NULL, &result) == PARLEY_OK) {
 *         for (int32_t i = 0; i < parley_result_num_segments(result); i++) {
 *             parley_segment s = parley_result_segment(result, i);
 *             printf("%.3f %.3f %s\n", s.start, s.end, parley_result_speaker(result, s.speaker).name);
 *         }
 *     } else {
 *         puts(parley_message());
 *     }
 *     parley_result_delete(result);
 *     parley_close(diarizer);
 *
 * The engine below (zx_parley.h) tells raw segments, straight from its clustering. Here every frame is then
 * given, once more, to the speaker to whose mean it is nearest (option "refine"), and segments end at the end
 * of their last frame.
 *
 * A diarizer, and a session with its diarizer, is used by one thread at a time; different ones run side by
 * side. A result that nobody changes may be read by any number of threads. Strings are zero-terminated UTF-8.
 * C99.
 *
 * Within a major version no function goes away or changes its arguments, and no record its layout, but that
 * parley_options and parley_transcription, which tell their sizes, grow at the end; what is new comes as new
 * functions. All that is here is there since 1.0.
 */
#ifndef PARLEY_DIARIZATION_H
#define PARLEY_DIARIZATION_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32) && defined(PARLEY_DIARIZATION_BUILD)
#define PARLEY_API __declspec(dllexport)
#elif defined(_WIN32)
#define PARLEY_API
#else
#define PARLEY_API __attribute__((visibility("default")))
#endif
/* A status that is dropped is a mistake. */
#if defined(__GNUC__)
#define PARLEY_CHECKED __attribute__((warn_unused_result))
#else
#define PARLEY_CHECKED
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Outcomes */

typedef int32_t parley_status;
enum {
    PARLEY_OK = 0,
    PARLEY_OUT_OF_MEMORY = 1,
    PARLEY_UNREADABLE = 2, /* a file cannot be opened or ends too early */
    PARLEY_INVALID = 3,    /* an argument, an option, a model or a format that makes no sense */
    PARLEY_CANCELLED = 4,  /* the progress function asked to stop */
    PARLEY_MISSING = 5,    /* there is no such file */
    PARLEY_FAILED = 7      /* anything else */
};

/* What the calling thread's last failing call says, in a sentence; valid until its next call. Never null. */
PARLEY_API const char *parley_message(void);

/* What the engine said about it, a line each, the innermost fault first; may be empty. Valid as the message
 * is. */
PARLEY_API const char *parley_details(void);

/* Of this header; parley_version tells that of the library that is there. */
#define PARLEY_VERSION_MAJOR 1
#define PARLEY_VERSION_MINOR 0
#define PARLEY_VERSION_PATCH 0

/* Of this library, such as "1.0.0"; the engine's, which model files name, is zx_parley_version. */
PARLEY_API const char *parley_version(void);

/* ---- Limits */

enum {
    PARLEY_MAX_CHANNELS = 64, /* of a recording */
    PARLEY_MAX_JOBS = 64      /* threads for one */
};

/* ---- Options */

/* What can be asked of a run. parley_options_init fills in the defaults, which each field's comment names. */
typedef struct {
    size_t size;          /* of this record, as the caller knows it: later versions add fields at the end */
    int32_t min_speakers; /* at least that many speakers, 0 to 1000 (0) */
    int32_t max_speakers; /* at most that many, 0 to 1000; 0: as many as are found (0) */
    double thresholds[4]; /* offline, prune, segment, background: cosine distances from 0 to 1; a negative
                                   value stands for the model's (-1 each) */
    int32_t channels;     /* mixed: 0; each a speaker of its own: 1; the loudest alone: 2 (0) */
    int32_t refine;       /* frames go, once more, to the nearest of the speakers found (1) */
    double merge_gap;     /* seconds, 0 to 3600: a speaker's segments that far apart become one (0) */
    double min_duration;  /* seconds, 0 to 3600: shorter segments are dropped (0) */
    double pad;           /* seconds, 0 to 3600, added to either end as far as neighbours leave room (0) */
    const char *speaker_prefix; /* before the number of a speaker ("speaker ") */
    const char *names;          /* of the first speakers heard, separated by commas, or null (null) */
    int32_t confidence;         /* formats tell how sure each segment's speaker is (0) */
    int32_t embeddings;         /* JSON holds the speakers' vectors (0) */
    double max_duration;        /* seconds: longer recordings are refused before they are read (0: none is) */
    double sensitivity;         /* how much is taken for speech: 0 little, 1 much (0.5) */
    int32_t via_ffmpeg; /* ffmpeg reads, if it is there, what nothing else does: 0; never: 1; all: 2 (0) */
    int32_t jobs;       /* threads for a recording, which change no bit; 0: one a core (1) */
    int32_t keep_embeddings; /* the result keeps what parley_recluster takes, 8 kB a second: 1; not: 0 (0) */
    int32_t overlap;         /* where two speak at once the second has a segment, too; captions and words
                                stay with the first (0) */
} parley_options;

/* `size`: sizeof(parley_options), or that of a larger block, of which nothing else is written. */
PARLEY_API void parley_options_init(parley_options *options, size_t size);

/* An option as programs offer it: parley_options_set takes its name and a text. */
typedef struct {
    const char *name;        /* "min-speakers" */
    const char *value;       /* what it takes, "N"; null for one that is there or not */
    const char *purpose;     /* a few words */
    double minimum, maximum; /* of a number; equal where there is none */
} parley_option;

/* The table of options; null beyond its end. */
PARLEY_API const parley_option *parley_option_at(int32_t index);

/* Sets one of them from a text ("1" or "0" for those without a value); texts are borrowed. "speakers" sets
 * both least and most, "threshold" all four thresholds. PARLEY_INVALID with a message for an unknown name and
 * a value out of range. */
PARLEY_API PARLEY_CHECKED parley_status parley_options_set(parley_options *options, const char *name,
                                                           const char *value);

/* PARLEY_INVALID with a message for values out of range and options that contradict each other, as every run
 * says it. */
PARLEY_API PARLEY_CHECKED parley_status parley_options_check(const parley_options *options);

/* Called now and then with the share of the work that is done, 0 to 1, never falling. 0: stop. */
typedef int (*parley_progress)(void *context, double done);

/* ---- Running */

typedef struct parley_diarizer parley_diarizer; /* a model, ready for any number of recordings */
typedef struct parley_result parley_result;     /* the result about one */

/* The model that goes with this library: the file that $PARLEY_MODEL names, or else parley.zx beside the
 * library or in share/parley of the folder that it is installed in. Into a new block, released with
 * parley_free. PARLEY_MISSING where there is none; *path is null then. */
PARLEY_API PARLEY_CHECKED parley_status parley_find_model(char **path);

/* Loads a model file, parley_find_model's for null; the caller closes the diarizer. PARLEY_MISSING,
 * PARLEY_UNREADABLE, PARLEY_INVALID, PARLEY_OUT_OF_MEMORY; *diarizer is null then. */
PARLEY_API PARLEY_CHECKED parley_status parley_open(const char *model_path, parley_diarizer **diarizer);

/* The same of a model's bytes in memory, which are not needed afterwards. */
PARLEY_API PARLEY_CHECKED parley_status parley_open_memory(const void *model, size_t size,
                                                           parley_diarizer **diarizer);

/* Names the model, 16 digits that are its file's hash: vectors of two models have nothing to do with each
 * other. */
PARLEY_API const char *parley_model(const parley_diarizer *diarizer);

PARLEY_API void parley_close(parley_diarizer *diarizer); /* null is accepted */

/* Diarizes an audio file. `options` and `progress` may be null. The caller deletes *result, which is null
 * after a failure:
 * PARLEY_MISSING, PARLEY_UNREADABLE, PARLEY_INVALID (no audio that is supported, shorter than 32 ms, options
 * that contradict each other), PARLEY_CANCELLED, PARLEY_OUT_OF_MEMORY. */
PARLEY_API PARLEY_CHECKED parley_status parley_diarize_file(parley_diarizer *diarizer, const char *path,
                                                            const parley_options *options,
                                                            parley_progress progress, void *context,
                                                            parley_result **result);

/* The same of a file's bytes in memory; `name` stands for its path. */
PARLEY_API PARLEY_CHECKED parley_status parley_diarize_memory(parley_diarizer *diarizer, const void *file,
                                                              size_t size, const char *name,
                                                              const parley_options *options,
                                                              parley_progress progress, void *context,
                                                              parley_result **result);

/* The same of samples: num_frames times num_channels of 16 bits, interleaved, at `rate` Hz (8000,
 * or 16000 and more); `name` stands for the recording's path. Channels are averaged, unless they are to be
 * split. */
PARLEY_API PARLEY_CHECKED parley_status
parley_diarize_samples(parley_diarizer *diarizer, const int16_t *samples, int64_t num_frames,
                       int32_t num_channels, int32_t rate, const char *name, const parley_options *options,
                       parley_progress progress, void *context, parley_result **result);

/* ---- While it is recorded */

typedef struct parley_session parley_session; /* a recording that is still going on */

/* Begins to listen: samples of num_channels, averaged, at `rate` Hz will come, interleaved. The
 * diarizer must outlive the session and does not work on anything else while a call of the session runs. */
PARLEY_API PARLEY_CHECKED parley_status parley_listen(parley_diarizer *diarizer, const char *name,
                                                      int32_t num_channels, int32_t rate,
                                                      const parley_options *options,
                                                      parley_session **session);

/* Takes num_frames samples of every channel. */
PARLEY_API PARLEY_CHECKED parley_status parley_session_feed(parley_session *session, const int16_t *samples,
                                                            int64_t num_frames);

/* The result about what was heard so far; *result stays null if nothing new was. Speakers keep their names
 * from one result to the next. Only what new samples change goes through the network; clustering takes at
 * most `share` of the time that passes (0.05: a twentieth of a core), in between what is new goes to the
 * nearest of the speakers found. */
PARLEY_API PARLEY_CHECKED parley_status parley_session_update(parley_session *session, double share,
                                                              parley_result **result);

/* The result that parley_diarize_samples would give of all samples, to the last bit. The session cannot be
 * fed any more. PARLEY_INVALID for less than 32 ms. */
PARLEY_API PARLEY_CHECKED parley_status parley_session_end(parley_session *session, parley_result **result);

PARLEY_API void parley_session_delete(parley_session *session); /* null is accepted */

/* ---- The result. Everything it hands out lives as long as it does. */

/* `confidence`: the probability that the speaker is right, 0 to 1; of a model without trees for it, how much
 * nearer the segment lies to its speaker than to the next best one. */
typedef struct {
    double start;    /* seconds from the start of the audio */
    double end;      /* seconds, of the last frame's end */
    int32_t speaker; /* index of the speaker, from 0 */
    double confidence;
} parley_segment;

typedef struct {
    const char *name;
    double seconds;         /* of speech */
    const float *embedding; /* of unit length: the mean over the speaker's frames */
    int32_t embedding_size;
    double similarity; /* cosine with the known voice that gave the name; 0 where none did */
} parley_speaker;

/* The same recording once more with other options, without reading it or running the network again: number of
 * speakers, sensitivity, names, segments. `result` was made with keep_embeddings by a diarizer of the same
 * model; it stays as it is, and both share the embeddings. Another number of speakers alone takes a fraction
 * of a second for an hour. What is found is what diarizing the recording with these options finds.
 * PARLEY_INVALID: options out of range, nothing was kept, another model. */
PARLEY_API PARLEY_CHECKED parley_status parley_recluster(parley_diarizer *diarizer,
                                                         const parley_result *result,
                                                         const parley_options *options,
                                                         parley_result **again);

/* What that takes, as bytes for a file, in a new block that parley_free releases: 8 kB a second.
 * PARLEY_INVALID: the result has not kept its embeddings. */
PARLEY_API PARLEY_CHECKED parley_status parley_write_embeddings(const parley_result *result, char **bytes,
                                                                size_t *size);

/* parley_recluster from such bytes. `path` names the recording, which is not read. PARLEY_INVALID as there,
 * and for bytes that are none or damaged. */
PARLEY_API PARLEY_CHECKED parley_status parley_read_embeddings(parley_diarizer *diarizer, const void *bytes,
                                                               size_t size, const char *path,
                                                               const parley_options *options,
                                                               parley_result **result);

PARLEY_API void parley_result_delete(parley_result *result);           /* null is accepted */
PARLEY_API double parley_result_duration(const parley_result *result); /* seconds */
PARLEY_API int32_t parley_result_num_segments(const parley_result *result);
PARLEY_API int32_t parley_result_num_speakers(const parley_result *result);

/* Segment `index` in order of start; speaker `index` in order of appearance. Zeros beyond the last. */
PARLEY_API parley_segment parley_result_segment(const parley_result *result, int32_t index);
PARLEY_API parley_speaker parley_result_speaker(const parley_result *result, int32_t index);

/* The loudest sample, 0 to 1, of every 1 / *rate seconds. */
PARLEY_API const float *parley_result_waveform(const parley_result *result, int32_t *count, int32_t *rate);

/* What the user should know, or "". */
PARLEY_API const char *parley_result_note(const parley_result *result);

/* Gives the recording another path, from which formats take its name: for copies in temporary files. */
PARLEY_API PARLEY_CHECKED parley_status parley_result_rename(parley_result *result, const char *path);

/* Pages hold sound files of up to `embedded` bytes themselves (negative: 64 MiB) and refer to larger ones by
 * `url`, as EAF does with all; with "" pages are silent and say so. Until this is called: 64 MiB, and the
 * file's name. */
PARLEY_API PARLEY_CHECKED parley_status parley_result_link_audio(parley_result *result, const char *url,
                                                                 int64_t embedded);

/* A path as pages and other documents refer to it: every character encoded that means something in a URL.
 * Into a new block, released with parley_free. */
PARLEY_API PARLEY_CHECKED parley_status parley_url_of_path(const char *path, char **url);

/* ---- Reading */

/* A result out of a text that was written earlier, here or by others, and maybe corrected: JSON (words and
 * notes included), RTTM, CSV, EAF, TextGrid, SRT, WebVTT with voices, Audacity labels. `name` is the text's
 * file, for messages, and the recording's name where the text does not tell it. PARLEY_INVALID for what is
 * none of them. */
PARLEY_API PARLEY_CHECKED parley_status parley_read_result(const char *text, size_t size, const char *name,
                                                           parley_result **result);

/* Reads the recording that such a result is about: pages draw and hold it then. Fails as
 * parley_diarize_file does, and with PARLEY_INVALID if it ends before the last segment begins. */
PARLEY_API PARLEY_CHECKED parley_status parley_result_read_audio(parley_diarizer *diarizer,
                                                                 parley_result *result, const char *path,
                                                                 const parley_options *options,
                                                                 parley_progress progress, void *context);

/* Names the model whose embeddings the speakers have, as parley_model does; "" where the text that was read
 * does not tell. Those of two models cannot be compared. */
PARLEY_API const char *parley_result_model(const parley_result *result);

/* The recording's path, as it was named or as the text that was read names it; "" for none. */
PARLEY_API const char *parley_result_path(const parley_result *result);

/* ---- Writing */

typedef struct {
    const char *name;      /* "rttm" */
    const char *extension; /* of files, ".rttm" */
    const char *purpose;   /* a few words */
    const char *media_type;
} parley_format;

/* The table of formats; null beyond its end. */
PARLEY_API const parley_format *parley_format_at(int32_t index);

/* Where a format is drawn for a terminal: how wide, and in how many colours. */
typedef struct {
    int32_t columns; /* 0: 100 */
    int32_t colors;  /* 0: none, 16, 256, 1: any */
} parley_terminal;

/* Takes the next part of a text. 0: stop. */
typedef int (*parley_sink)(void *context, const char *data, size_t size);

/* Writes the result in a format; `terminal` may be null. PARLEY_INVALID (no such format), PARLEY_CANCELLED
 * (the sink said stop), PARLEY_OUT_OF_MEMORY. */
PARLEY_API PARLEY_CHECKED parley_status parley_write(const parley_result *result, const char *format,
                                                     const parley_terminal *terminal, parley_sink sink,
                                                     void *context);

/* The same into a new block of *size bytes and a zero behind them, released with parley_free. */
PARLEY_API PARLEY_CHECKED parley_status parley_write_text(const parley_result *result, const char *format,
                                                          char **text, size_t *size);

PARLEY_API void parley_free(void *block);

/* 1:02:03.450, or 2:03.450 below an hour, into at least 32 bytes. */
PARLEY_API void parley_clock(double seconds, char *text);

/* "#0072b2": told apart by people with any kind of colour vision, on light and dark. A constant. */
PARLEY_API const char *parley_color(int32_t speaker);

/* ---- Working with results */

/* Who speaks during a stretch of time, as a text names them. */
typedef struct {
    double start, end; /* seconds */
    const char *speaker;
} parley_turn;

/* A transcript (JSON of Whisper, whisper.cpp, WhisperX or Vosk, Whisper's TSV, WebVTT, SRT or CTM) with a
 * speaker for every word or caption; what has text ends where the speaker changes. `format`: null for the
 * one it has, or "text", "markdown", "srt", "vtt", "json". Into a new block, released with parley_free.
 * Turns count as far as `reach` seconds away. PARLEY_INVALID with the line for what is none of them, and
 * where most words lie more than a minute behind the last turn. */
PARLEY_API PARLEY_CHECKED parley_status parley_assign(const char *transcript, size_t size,
                                                      const parley_turn *turns, int32_t num_turns,
                                                      double reach, const char *format, char **text,
                                                      size_t *text_size);

/* Whose a word is that two speakers share. */
enum {
    PARLEY_WORDS_WHOLE_SENTENCES = 0, /* the first and the last of a sentence go with it */
    PARLEY_WORDS_BY_TIME = 1          /* who speaks longer during it */
};

/* Adds such a transcript to a result, whose pages and JSON hold it then. Words outside of all segments are
 * those of who sounds like it, if the result was made with keep_embeddings, or else the nearest's, as far as
 * `reach` seconds away. PARLEY_INVALID where most words lie behind the recording's end. */
PARLEY_API PARLEY_CHECKED parley_status parley_result_add_words(parley_result *result, const char *transcript,
                                                                size_t size, double reach, int32_t rule);

/* The transcript in the format that it has, with a speaker for every word or caption by time. Into a new
 * block, released with parley_free. */
PARLEY_API PARLEY_CHECKED parley_status parley_result_assign(const parley_result *result,
                                                             const char *transcript, size_t size,
                                                             double reach, char **text, size_t *text_size);

/* A word of the transcript that was added, as long as the result lives; zeros and "" beyond the last.
 * `speaker` is "" where nobody is known to speak. */
typedef struct {
    double start, end; /* seconds */
    const char *text, *speaker;
} parley_word;

PARLEY_API int32_t parley_result_num_words(const parley_result *result);
PARLEY_API parley_word parley_result_word(const parley_result *result, int32_t index);

/* A speech recognizer that is known by its name: a program of others, looked for in $PATH. */
typedef struct {
    const char *name;     /* "pocketsphinx" */
    const char *command;  /* {audio}: a WAV file, {out}: a name without extension, {folder}: their folder */
    const char *output;   /* the file with the words, likewise; "": its standard output */
    double longest;       /* seconds: about as long are the pieces it gets */
    int32_t takes_a_core; /* or all there are */
    const char *remedy;   /* where it is not installed */
} parley_recognizer;

/* The table of recognizers; null beyond its end. recognizers.json in the folder parley of the user's settings
 * adds others. */
PARLEY_API const parley_recognizer *parley_recognizer_at(int32_t index);

typedef struct {
    size_t size;                  /* of this record, as the caller knows it */
    const char *recognizer;       /* a name, or a command with {audio} in it ("pocketsphinx") */
    const char *const *arguments; /* for it, behind its own (null) */
    int32_t num_arguments;        /* (0) */
    double time_limit;            /* seconds, in which it has to be ready with a piece; 0: any number (0) */
    int32_t by_turn;              /* pieces end where the speaker changes, not at pauses alone (0) */
    int32_t rule;                 /* PARLEY_WORDS_* (0) */
    double reach;                 /* as of parley_result_add_words (1) */
} parley_transcription;

/* The defaults, as parley_options_init gives those of options. */
PARLEY_API void parley_transcription_init(parley_transcription *how, size_t size);

/* Adds the words of a recording to the result about it, by a recognizer that runs as a child process: on
 * pieces between pauses, of those that take one core `jobs` of the options at a time. `how`, `options` and
 * `progress`, which the calling thread runs, may be null. Fails as parley_diarize_file does, with
 * PARLEY_MISSING where there is no such program, PARLEY_FAILED and its own words where it fails. Words that
 * were there stay then. */
PARLEY_API PARLEY_CHECKED parley_status parley_transcribe(parley_diarizer *diarizer, parley_result *result,
                                                          const char *path, const parley_transcription *how,
                                                          const parley_options *options,
                                                          parley_progress progress, void *context);

/* The table of formats for transcripts; null beyond its end. */
PARLEY_API const parley_format *parley_transcript_format_at(int32_t index);

/* Writes a result's words in one of them into a new block of *size bytes and a zero behind them, released
 * with parley_free. PARLEY_INVALID: no such format, no words. */
PARLEY_API PARLEY_CHECKED parley_status parley_write_words(const parley_result *result, const char *format,
                                                           char **text, size_t *size);

/* The turns of an RTTM text about one recording, one block released with parley_free; messages say `name`. */
PARLEY_API PARLEY_CHECKED parley_status parley_read_rttm(const char *text, size_t size, const char *name,
                                                         parley_turn **turns, int32_t *num_turns);

/* Which of two sets of voices are the same: matches[i] becomes the index in `second` of voice i of `first`,
 * or -1, so that each is used once and the sum of the cosines above `threshold` (-1 to 1) is largest;
 * cosines[i] tells theirs. Vectors lie one after the other, `dimension` numbers each. */
PARLEY_API PARLEY_CHECKED parley_status parley_match(const float *first, int32_t num_first,
                                                     const float *second, int32_t num_second,
                                                     int32_t dimension, double threshold, int32_t *matches,
                                                     double *cosines);

/* Voices of people who are known from earlier recordings, as a text (JSON, docs/schema) that the caller
 * keeps; "" is the empty list. All of these give PARLEY_UNREADABLE for a text that is damaged, and
 * PARLEY_INVALID, with the remedy, for one of another model. */

/* Adds a sample of `name`: what speaker `speaker` of the result says between `start` and `end` seconds, which
 * takes a result with keep_embeddings; all of it if `end` is not behind `start`. The same sample once more
 * counts once. The new text is one block released with parley_free. PARLEY_INVALID for less than 3 s of
 * speech. */
PARLEY_API PARLEY_CHECKED parley_status parley_voices_add(const char *voices, const char *name,
                                                          const parley_result *result, int32_t speaker,
                                                          double start, double end, char **text);

/* Takes `name` out. PARLEY_INVALID if there is no such voice. */
PARLEY_API PARLEY_CHECKED parley_status parley_voices_remove(const char *voices, const char *name,
                                                             char **text);

/* Person `index` of the list and how many samples there are; *name is null beyond the last. One block
 * released with parley_free. */
PARLEY_API PARLEY_CHECKED parley_status parley_voices_at(const char *voices, int32_t index, char **name,
                                                         int32_t *num_samples);

/* Sample `sample` of person `index`: seconds of speech (0 in lists that do not tell), the day on which it was
 * added, "2025-01-31" or "", into at least 11 bytes, and the recording's name in a block released with
 * parley_free, null beyond the last. `seconds` and `date` may be null. */
PARLEY_API PARLEY_CHECKED parley_status parley_voices_sample_at(const char *voices, int32_t index,
                                                                int32_t sample, double *seconds, char *date,
                                                                char **source);

/* Gives the speakers of a result the names of known people who are near enough: a cosine above
 * `threshold` (0: 0.8), each name once. The others stay as they are called. */
PARLEY_API PARLEY_CHECKED parley_status parley_result_name_voices(parley_result *result, const char *voices,
                                                                  double threshold);

/* Seconds of a recording's errors against a reference, as `parley score` prints them. */
typedef struct {
    double speech, missed, false_alarm, confusion;
    double jaccard_errors; /* summed over the reference's speakers */
    int32_t num_speakers, num_found;
} parley_score;

/* Scores one recording: `collar` seconds to either side of the reference's boundaries do not count; with
 * skip_overlap neither does what has several speakers; with parts only these, in pairs of seconds, do. */
PARLEY_API PARLEY_CHECKED parley_status parley_score_turns(const parley_turn *reference,
                                                           int32_t num_reference,
                                                           const parley_turn *hypothesis,
                                                           int32_t num_hypothesis, const double *parts,
                                                           int32_t num_parts, double collar,
                                                           int32_t skip_overlap, parley_score *score);

/* The table of error rates that `parley score` prints, of RTTM texts about any number of recordings, with
 * names for messages; `uem` may be null. One block released with parley_free. */
PARLEY_API PARLEY_CHECKED parley_status parley_score_text(const char *reference, const char *reference_name,
                                                          const char *hypothesis, const char *hypothesis_name,
                                                          const char *uem, const double *collars,
                                                          int32_t num_collars, int32_t skip_overlap,
                                                          int32_t each, char **text);

#ifdef __cplusplus
}
#endif

#endif
