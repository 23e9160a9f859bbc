/* SPDX-License-Identifier: Apache-2.0 */
/* Every public function with everything that can be passed by mistake: nothing ends the process or breaks
 * memory, and what has a status says that something is wrong: nonsense_test MODEL AUDIO. Runs under the
 * sanitizers, too. */
#include <math.h>
#include <parley.h>
#include <stdio.h>
#include <string.h>
#include <zx_parley.h>

#define COUNT(array) (sizeof(array) / sizeof((array)[0]))

static const int32_t WHOLE[] = {INT32_MIN, -44100, -1, 0, 1, 2, 511, 16000, INT32_MAX};
static const double NUMBERS[] = {-INFINITY, -1e300, -1, -0.0, 0, 5e-324, 0.5, 1, 1e300, INFINITY, NAN};
static const char *const TEXTS[] = {
    NULL, "", "\xff\xfe", "/", "{", "[1]", "speakers", "-1", "nan", "1e999", "WEBVTT\n\n00:00 --> x"};
static int16_t samples[32000];
static int failures;

static void expect(int holds, const char *what, double value) {
    if (holds) return;
    printf("failed: %s with %g (%s)\n", what, value, parley_message());
    failures++;
}

/* What may work out or not, but must not leave anything behind. */
static void drop(parley_status status, parley_result **result, const char *what) {
    expect((status == PARLEY_OK) >= (*result != NULL), what, status);
    parley_result_delete(*result);
    *result = NULL;
}

static int refuse(void *context, const char *data, size_t size) {
    (void) context, (void) data, (void) size;
    return 0;
}

static void without_handles(const parley_diarizer *diarizer, const parley_result *result) {
    parley_diarizer *opened = NULL;
    parley_result *made = NULL;
    parley_session *session = NULL;
    parley_turn *turns = NULL;
    parley_score score;
    char *text = NULL;
    size_t size = 0;
    int32_t count = 0, rate = 0;
    double cosine = 0;
    parley_diarizer *own = (parley_diarizer *) (uintptr_t) diarizer;
    parley_result *changed = (parley_result *) (uintptr_t) result;
    const parley_status statuses[] = {
        parley_find_model(NULL),
        parley_open(NULL, NULL),
        parley_open("x", NULL),
        parley_open_memory(NULL, 5, &opened),
        parley_open_memory("x", 1, NULL),
        parley_open_memory("", 0, &opened),
        parley_diarize_file(NULL, "x", NULL, NULL, NULL, &made),
        parley_diarize_file(own, NULL, NULL, NULL, NULL, &made),
        parley_diarize_file(own, "x", NULL, NULL, NULL, NULL),
        parley_diarize_memory(NULL, "x", 1, "x", NULL, NULL, NULL, &made),
        parley_diarize_memory(own, NULL, 1, "x", NULL, NULL, NULL, &made),
        parley_diarize_memory(own, "x", 1, NULL, NULL, NULL, NULL, &made),
        parley_diarize_samples(NULL, samples, 1, 1, 16000, "x", NULL, NULL, NULL, &made),
        parley_diarize_samples(own, NULL, 1, 1, 16000, "x", NULL, NULL, NULL, &made),
        parley_diarize_samples(own, samples, 1000, 1, 16000, NULL, NULL, NULL, NULL, &made),
        parley_listen(NULL, "x", 1, 16000, NULL, &session),
        parley_listen(own, NULL, 1, 16000, NULL, &session),
        parley_listen(own, "x", 1, 16000, NULL, NULL),
        parley_session_feed(NULL, samples, 1),
        parley_session_update(NULL, 0, &made),
        parley_session_end(NULL, &made),
        parley_recluster(NULL, result, NULL, &made),
        parley_recluster(own, NULL, NULL, &made),
        parley_recluster(own, result, NULL, &made), /* which has kept nothing */
        parley_write_embeddings(NULL, &text, &size),
        parley_write_embeddings(result, &text, &size), /* which has kept nothing */
        parley_write_embeddings(result, NULL, &size),
        parley_read_embeddings(NULL, "x", 1, "x", NULL, &made),
        parley_read_embeddings(own, NULL, 1, "x", NULL, &made),
        parley_read_embeddings(own, "x", 1, NULL, NULL, &made),
        parley_read_embeddings(own, "x", 1, "x", NULL, &made),
        parley_read_embeddings(own, "x", 1, "x", NULL, NULL),
        parley_options_set(NULL, "speakers", "1"),
        parley_options_set(NULL, NULL, NULL),
        parley_result_rename(NULL, "x"),
        parley_result_rename(changed, NULL),
        parley_result_link_audio(NULL, "x", 1),
        parley_result_link_audio(changed, NULL, 1),
        parley_result_add_words(NULL, "", 0, 1, 0),
        parley_result_add_words(changed, NULL, 5, 1, 0),
        parley_result_add_words(changed, "a 1 0 1 x\n", 10, 1, 7),
        parley_result_assign(NULL, "", 0, 1, &text, NULL),
        parley_result_assign(result, NULL, 5, 1, &text, NULL),
        parley_result_assign(result, "a 1 0 1 x\n", 10, 1, NULL, NULL),
        parley_write_words(NULL, "text", &text, NULL),
        parley_write_words(result, "text", &text, NULL), /* which has none */
        parley_write_words(result, NULL, NULL, NULL),
        parley_read_result(NULL, 0, "x", &made),
        parley_read_result("", 0, NULL, &made),
        parley_read_result("", 0, "x", NULL),
        parley_result_read_audio(NULL, changed, "x", NULL, NULL, NULL),
        parley_result_read_audio(own, NULL, "x", NULL, NULL, NULL),
        parley_result_read_audio(own, changed, NULL, NULL, NULL, NULL),
        parley_transcribe(NULL, changed, "x", NULL, NULL, NULL, NULL),
        parley_transcribe(own, NULL, "x", NULL, NULL, NULL, NULL),
        parley_transcribe(own, changed, NULL, NULL, NULL, NULL, NULL),
        parley_result_name_voices(NULL, "", 0.5),
        parley_result_name_voices(changed, NULL, 0.5),
        parley_url_of_path(NULL, &text),
        parley_url_of_path("x", NULL),
        parley_write(NULL, "rttm", NULL, NULL, NULL),
        parley_write(result, NULL, NULL, refuse, NULL),
        parley_write(result, "rttm", NULL, refuse, NULL),
        parley_write_text(result, "rttm", NULL, NULL),
        parley_assign(NULL, 1, NULL, 0, 1, NULL, &text, NULL),
        parley_assign("x", 1, NULL, 5, 1, NULL, &text, NULL),
        parley_assign("x", 1, NULL, 0, 1, NULL, NULL, NULL),
        parley_read_rttm(NULL, 1, "x", &turns, &count),
        parley_read_rttm("x", 1, NULL, &turns, &count),
        parley_read_rttm("x", 1, "x", NULL, &count),
        parley_match(NULL, 1, NULL, 1, 64, 0.5, &count, &cosine),
        parley_voices_add(NULL, "x", result, 0, 0, 0, &text),
        parley_voices_add("", NULL, result, 0, 0, 0, &text),
        parley_voices_add("", "x", NULL, 0, 0, 0, &text),
        parley_voices_remove(NULL, "x", &text),
        parley_voices_remove("", NULL, &text),
        parley_voices_at(NULL, 0, &text, &count),
        parley_voices_at("", 0, NULL, NULL),
        parley_voices_sample_at(NULL, 0, 0, NULL, NULL, &text),
        parley_voices_sample_at("", 0, 0, NULL, NULL, NULL),
        parley_score_turns(NULL, 1, NULL, 1, NULL, 0, 0, 0, &score),
        parley_score_turns(NULL, 0, NULL, 0, NULL, 0, 0, 0, NULL),
        parley_score_text(NULL, NULL, NULL, NULL, NULL, NULL, 0, 0, 0, &text),
        parley_score_text("", "x", "", "x", NULL, NULL, 3, 0, 0, &text),
    };
    for (size_t i = 0; i < COUNT(statuses); i++)
        expect(statuses[i] != PARLEY_OK, "a call without something", (double) i);
    expect(!opened && !made && !session && !text && !turns, "what is made by a failing call", 0);
    expect(parley_result_num_segments(NULL) == 0 && parley_result_num_speakers(NULL) == 0 &&
               parley_result_duration(NULL) == 0 && parley_result_segment(NULL, 0).end == 0 &&
               parley_result_speaker(NULL, 0).seconds == 0 && strcmp(parley_result_note(NULL), "") == 0 &&
               strcmp(parley_model(NULL), "") == 0 && strcmp(parley_result_path(NULL), "") == 0 &&
               strcmp(parley_result_model(NULL), "") == 0 && parley_result_num_words(NULL) == 0 &&
               strcmp(parley_result_word(NULL, 0).text, "") == 0,
           "what is asked of no result", 0);
    (void) parley_result_waveform(NULL, NULL, NULL);
    (void) parley_result_waveform(result, &count, &rate);
    parley_options_init(NULL, 8);
    parley_transcription_init(NULL, 8);
    parley_clock(1, NULL);
    parley_result_delete(NULL);
    parley_session_delete(NULL);
    parley_close(NULL);
    parley_free(NULL);
}

static void with_numbers(parley_diarizer *diarizer, parley_result *result) {
    for (size_t i = 0; i < COUNT(WHOLE); i++) {
        const int32_t n = WHOLE[i];
        for (size_t k = 0; k < COUNT(WHOLE); k++) {
            const int32_t m = WHOLE[k];
            const int is_sound = (n == 1 || n == 2) && m >= 16000 && m < 1000000;
            parley_result *made = NULL;
            parley_session *session = NULL;
            expect((parley_diarize_samples(diarizer, samples, 16000, n, m, "x", NULL, NULL, NULL, &made) ==
                    PARLEY_OK) == is_sound,
                   "channels and a rate", m);
            parley_result_delete(made);
            expect(parley_listen(diarizer, "x", n, m, NULL, &session) == PARLEY_OK || !session, "listening",
                   m);
            parley_session_delete(session);
        }
        if (n < 0 || n > 16000) {
            parley_result *made = NULL;
            expect(parley_diarize_samples(diarizer, samples, n < 0 ? n : INT64_MAX, 1, 16000, "x", NULL, NULL,
                                          NULL, &made) != PARLEY_OK,
                   "so many samples", n);
        }
        parley_options options;
        parley_options_init(&options, sizeof(options));
        options.jobs = options.channels = options.refine = options.via_ffmpeg = options.min_speakers = n;
        parley_result *made = NULL;
        drop(parley_diarize_samples(diarizer, samples, 1000, 1, 16000, "x", &options, NULL, NULL, &made),
             &made, "options");
        options.size = (size_t) n;
        expect(parley_options_check(&options) != PARLEY_OK || n == 511, "a record of another size", n);
        (void) parley_option_at(n);
        (void) parley_format_at(n);
        (void) parley_transcript_format_at(n);
        (void) parley_recognizer_at(n);
        (void) parley_result_word(result, n);
        (void) parley_color(n);
        (void) parley_result_segment(result, n);
        (void) parley_result_speaker(result, n);
        char *text = NULL;
        if (parley_voices_add("", "x", result, n, n, n, &text) == PARLEY_OK) parley_free(text);
        text = NULL;
        if (parley_voices_at("", n, &text, NULL) == PARLEY_OK) parley_free(text);
        text = NULL;
        if (parley_voices_sample_at("", n, n, NULL, NULL, &text) == PARLEY_OK) parley_free(text);
        const float vector[4] = {0, NAN, INFINITY, 1};
        int32_t other = 0;
        double cosine = 0;
        if (n <= 1) (void) !parley_match(vector, n, vector, n, 4, 0.5, &other, &cosine);
        if (n <= 0)
            expect(parley_match(vector, 1, vector, 1, n, 0.5, &other, &cosine) != PARLEY_OK, "a dimension",
                   n);
        parley_score score;
        const parley_turn turn = {0, 1, "a"};
        if (n <= 1) (void) !parley_score_turns(&turn, n, &turn, n, NULL, n, 0.25, n, &score);
        const double collar = 0.25;
        text = NULL;
        if (n <= 1 && parley_score_text("", "a", "", "b", NULL, &collar, n, n, n, &text) == PARLEY_OK)
            parley_free(text);
        const parley_terminal terminal = {n, n};
        (void) !parley_write(result, "table", &terminal, refuse, NULL);
    }
    for (size_t i = 0; i < COUNT(NUMBERS); i++) {
        const double x = NUMBERS[i];
        parley_options options;
        parley_options_init(&options, sizeof(options));
        options.sensitivity = options.pad = options.merge_gap = options.min_duration = options.max_duration =
            x;
        for (int t = 0; t < 4; t++) options.thresholds[t] = x;
        parley_result *made = NULL;
        drop(parley_diarize_samples(diarizer, samples, 16000, 1, 16000, "x", &options, NULL, NULL, &made),
             &made, "options");
        const parley_turn turns[] = {{x, 1, "a"}, {0, x, "b"}, {x, x, NULL}};
        const double parts[] = {x, 1, 0, x};
        parley_score score;
        char *text = NULL, clock[32];
        parley_clock(x, clock);
        expect(memchr(clock, 0, sizeof(clock)) != NULL, "a time", x);
        (void) !parley_score_turns(turns, 3, turns, 3, parts, 2, x, 0, &score);
        if (parley_score_text("SPEAKER a 1 0 1 <NA> <NA> b <NA> <NA>", "a", "", "b", NULL, &x, 1, 0, 1,
                              &text) == PARLEY_OK)
            parley_free(text);
        text = NULL;
        if (parley_assign("1\n00:00:00,000 --> 00:00:01,000\nx\n", 35, turns, 3, x, NULL, &text, NULL) ==
            PARLEY_OK)
            parley_free(text);
        const float vectors[] = {(float) x, 1};
        int32_t other;
        double cosine;
        (void) !parley_match(vectors, 1, vectors, 1, 2, x, &other, &cosine);
        (void) !parley_result_name_voices(result, "", x);
        text = NULL;
        if (parley_voices_add("", "x", result, 0, -x, x, &text) == PARLEY_OK) parley_free(text);
        (void) !parley_result_add_words(result, "a 1 0 1 x\n", 10, x, 0);
        text = NULL;
        if (parley_result_assign(result, "a 1 0 1 x\n", 10, x, &text, NULL) == PARLEY_OK) parley_free(text);
        parley_transcription how;
        parley_transcription_init(&how, sizeof(how));
        how.time_limit = how.reach = x;
        how.recognizer = "no-such-recognizer {audio}";
        expect(parley_transcribe(diarizer, result, "x", &how, NULL, NULL, NULL) != PARLEY_OK, "transcribing",
               x);
    }
}

static void with_texts(parley_diarizer *diarizer, parley_result *result) {
    for (size_t i = 0; i < COUNT(TEXTS); i++) {
        const char *text = TEXTS[i];
        const size_t size = text ? strlen(text) : 0;
        parley_diarizer *opened = NULL;
        parley_result *made = NULL;
        parley_turn *turns = NULL;
        char *out = NULL;
        int32_t count = 0;
        expect(!text || (parley_open(text, &opened) != PARLEY_OK && !opened), "a model", (double) i);
        expect(parley_open_memory(text, size, &opened) != PARLEY_OK && !opened, "a model in memory",
               (double) i);
        expect(parley_diarize_file(diarizer, text, NULL, NULL, NULL, &made) != PARLEY_OK && !made, "a file",
               (double) i);
        expect(
            parley_diarize_memory(diarizer, text, size, text, NULL, NULL, NULL, &made) != PARLEY_OK && !made,
            "a file in memory", (double) i);
        for (int32_t k = 0;; k++) {
            const parley_option *option = parley_option_at(k);
            parley_options options;
            parley_options_init(&options, sizeof(options));
            if (parley_options_set(&options, option ? option->name : text, text) == PARLEY_OK)
                (void) !parley_options_check(&options);
            if (!option) break;
        }
        expect(parley_write(result, text, NULL, refuse, NULL) != PARLEY_OK, "a format", (double) i);
        expect(parley_write_text(result, text, &out, NULL) != PARLEY_OK && !out, "a format of a text",
               (double) i);
        expect(parley_voices_remove(text, text, &out) != PARLEY_OK && !out, "a voice", (double) i);
        (void) !parley_result_name_voices(result, text, 0);
        if (parley_voices_add(text, text, result, 0, 0, 0, &out) == PARLEY_OK) parley_free(out);
        out = NULL;
        if (parley_voices_at(text, 0, &out, &count) == PARLEY_OK) parley_free(out);
        out = NULL;
        if (parley_assign(text, size, NULL, 0, 1, text, &out, NULL) == PARLEY_OK) parley_free(out);
        if (parley_read_rttm(text, size, text, &turns, &count) == PARLEY_OK) parley_free(turns);
        out = NULL;
        if (parley_url_of_path(text, &out) == PARLEY_OK) parley_free(out);
        out = NULL;
        if (parley_score_text(text, text, text, text, text, NULL, 0, 0, 0, &out) == PARLEY_OK)
            parley_free(out);
        if (parley_read_result(text, size, text, &made) == PARLEY_OK) parley_result_delete(made);
        out = NULL;
        if (parley_result_assign(result, text, size, 1, &out, NULL) == PARLEY_OK) parley_free(out);
        (void) !parley_result_add_words(result, text, size, 1, 0);
        expect(parley_write_words(result, text, &out, NULL) != PARLEY_OK, "a format of words", (double) i);
        expect(parley_result_read_audio(diarizer, result, text, NULL, NULL, NULL) != PARLEY_OK, "a recording",
               (double) i);
        (void) !parley_result_link_audio(result, text, -1);
        (void) !parley_result_rename(result, text);
    }
}

static void after_the_end(parley_diarizer *diarizer) {
    parley_session *session = NULL;
    parley_result *result = NULL;
    expect(parley_listen(diarizer, "x", 1, 16000, NULL, &session) == PARLEY_OK, "listening", 0);
    expect(parley_session_feed(session, NULL, 5) != PARLEY_OK, "no samples", 5);
    expect(parley_session_feed(session, samples, -1) != PARLEY_OK, "fewer than no samples", -1);
    for (size_t i = 0; i < COUNT(NUMBERS); i++) {
        drop(parley_session_update(session, NUMBERS[i], &result), &result, "a share");
    }
    expect(parley_session_end(session, &result) != PARLEY_OK && !result, "the end of nothing", 0);
    expect(parley_session_feed(session, samples, 100) != PARLEY_OK, "samples after the end", 0);
    expect(parley_session_end(session, &result) != PARLEY_OK && !result, "another end", 0);
    parley_session_delete(session);
}

static void of_the_engine(const char *model) {
    zx_parley_t *engine = NULL;
    zx_parley_segment_t *segments = NULL;
    int32_t count = 0;
    for (size_t i = 0; i < COUNT(TEXTS); i++) {
        expect(zx_parley_init(TEXTS[i], &engine) != ZX_STATUS_SUCCESS && !engine, "an engine's model",
               (double) i);
        char **messages = NULL;
        int32_t depth = 0;
        expect(zx_get_error_stack(&messages, &depth) == ZX_STATUS_SUCCESS, "messages", depth);
        zx_free_error_stack(messages);
    }
    expect(zx_parley_init(model, NULL) != ZX_STATUS_SUCCESS, "no place for an engine", 0);
    expect(zx_parley_init(model, &engine) == ZX_STATUS_SUCCESS, "an engine", 0);
    for (size_t i = 0; i < COUNT(WHOLE); i++) {
        const int32_t n = WHOLE[i];
        (void) zx_status_to_string((zx_status_t) n);
        if (n <= 16000 && zx_parley_process(engine, samples, n, &count, &segments) == ZX_STATUS_SUCCESS)
            zx_parley_segments_delete(segments);
        expect(zx_parley_process(NULL, samples, n, &count, &segments) != ZX_STATUS_SUCCESS, "no engine", n);
        expect(zx_parley_process(engine, NULL, n, &count, &segments) != ZX_STATUS_SUCCESS, "no samples", n);
    }
    expect(zx_parley_process(engine, samples, 16000, NULL, &segments) != ZX_STATUS_SUCCESS, "no number", 0);
    expect(zx_parley_process(engine, samples, 16000, &count, NULL) != ZX_STATUS_SUCCESS, "no segments", 0);
    for (size_t i = 0; i < COUNT(TEXTS); i++)
        expect(zx_parley_process_file(engine, TEXTS[i], &count, &segments) != ZX_STATUS_SUCCESS,
               "an engine's file", (double) i);
    expect(zx_parley_process_file(NULL, "x", &count, &segments) != ZX_STATUS_SUCCESS,
           "a file without an engine", 0);
    expect(zx_get_error_stack(NULL, NULL) != ZX_STATUS_SUCCESS, "no place for messages", 0);
    expect(zx_sample_rate() == 16000 && strlen(zx_parley_version()) > 4, "constants", 0);
    zx_parley_segments_delete(NULL);
    zx_parley_delete(engine);
    zx_parley_delete(NULL);
    zx_free_error_stack(NULL);
    zx_free(NULL);
}

int main(int argc, char **argv) {
    parley_diarizer *diarizer = NULL;
    parley_result *result = NULL;
    if (argc != 3) return 2;
    zx_log_disable();
    expect(parley_open(argv[1], &diarizer) == PARLEY_OK, "a model", 0);
    expect(parley_diarize_file(diarizer, argv[2], NULL, NULL, NULL, &result) == PARLEY_OK, "a recording", 0);
    without_handles(diarizer, result);
    with_numbers(diarizer, result);
    with_texts(diarizer, result);
    after_the_end(diarizer);
    of_the_engine(argv[1]);
    expect(strlen(parley_version()) > 4 && parley_details() != NULL, "constants", 0);
    parley_result_delete(result);
    parley_close(diarizer);
    zx_log_enable();
    return failures != 0;
}
