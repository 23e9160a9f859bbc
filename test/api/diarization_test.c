/* SPDX-License-Identifier: Apache-2.0 */
/* The diarization library as a C program sees it: diarization_test MODEL AUDIO */
#include <math.h>
#include <parley.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures;

static void expect(int holds, const char *what) {
    if (holds) return;
    printf("failed: %s (%s)\n", what, parley_message());
    failures++;
}

static int rising(void *context, double done) {
    double *last = context;
    expect(done >= *last && done <= 1, "progress rises");
    *last = done;
    return 1;
}

static int stop(void *context, double done) {
    (void) context;
    (void) done;
    return 0;
}

static void *read_file(const char *path, size_t *size) {
    FILE *file = fopen(path, "rb");
    void *data;
    if (!file) return NULL;
    fseek(file, 0, SEEK_END);
    *size = (size_t) ftell(file);
    rewind(file);
    data = malloc(*size);
    if (data && fread(data, 1, *size, file) != *size) *size = 0;
    fclose(file);
    return data;
}

/* Programs that were built with an earlier version have shorter records, and those with a later one longer
 * ones. */
static void keeps_to_the_size_of_records(void) {
    struct {
        parley_options options;
        char behind[64];
    } block;
    const size_t shorter = offsetof(parley_options, jobs);
    memset(&block, 0x55, sizeof(block));
    parley_options_init(&block.options, shorter);
    expect(parley_options_set(&block.options, "jobs", "3") == PARLEY_OK &&
               parley_options_set(&block.options, "sensitivity", "0.25") == PARLEY_OK,
           "options of a shorter record");
    expect(block.options.sensitivity == 0.25 && block.options.jobs == 0x55555555,
           "nothing is written behind a shorter record");
    expect(parley_options_check(&block.options) == PARLEY_OK, "a shorter record has defaults for the rest");
    parley_options_init(&block.options, sizeof(block));
    expect(block.options.size == sizeof(block) && block.behind[0] == 0 && block.behind[63] == 0,
           "a longer record");
    expect(parley_options_check(&block.options) == PARLEY_OK, "options of a longer record");
}

/* Nothing that can be passed may end the process. */
static void refuses_nonsense(parley_diarizer *diarizer) {
    static const int32_t numbers[] = {INT32_MIN, -44100, -1, 0, 1, 7999, 15999, INT32_MAX};
    static const int16_t samples[16000] = {0};
    parley_result *result = NULL;
    parley_session *session = NULL;
    parley_options options;
    char *text = NULL;
    for (size_t i = 0; i < sizeof(numbers) / sizeof(numbers[0]); i++) {
        const int32_t n = numbers[i];
        expect(parley_diarize_samples(diarizer, samples, 16000, 1, n, "x", NULL, NULL, NULL, &result) ==
                       PARLEY_INVALID &&
                   !result,
               "a rate that is none");
        expect(parley_listen(diarizer, "x", 1, n, NULL, &session) == PARLEY_INVALID && !session,
               "a rate to listen at that is none");
        if (n == 1) continue;
        expect(parley_diarize_samples(diarizer, samples, 100, n, 16000, "x", NULL, NULL, NULL, &result) ==
                       PARLEY_INVALID &&
                   !result,
               "a number of channels that is none");
        expect(parley_listen(diarizer, "x", n, 16000, NULL, &session) == PARLEY_INVALID && !session,
               "a number of channels to listen to that is none");
        parley_options_init(&options, sizeof(options));
        options.jobs = options.min_speakers = options.max_speakers = n;
        options.sensitivity = options.pad = options.thresholds[0] = NAN;
        expect(parley_options_check(&options) == PARLEY_INVALID, "options that are none");
        expect(parley_diarize_samples(diarizer, samples, 16000, 1, 16000, "x", &options, NULL, NULL,
                                      &result) == PARLEY_INVALID &&
                   !result,
               "options that are none, of a run");
    }
    expect(parley_diarize_samples(diarizer, samples, -1, 1, 16000, "x", NULL, NULL, NULL, &result) ==
               PARLEY_INVALID,
           "a negative number of samples");
    expect(parley_diarize_samples(NULL, samples, 1, 1, 16000, "x", NULL, NULL, NULL, &result) ==
                   PARLEY_INVALID &&
               parley_diarize_file(diarizer, NULL, NULL, NULL, NULL, &result) == PARLEY_INVALID &&
               parley_diarize_memory(diarizer, NULL, 0, "x", NULL, NULL, NULL, &result) == PARLEY_INVALID &&
               parley_open(NULL, NULL) == PARLEY_INVALID &&
               parley_open_memory(NULL, 0, NULL) == PARLEY_INVALID &&
               parley_recluster(diarizer, NULL, NULL, &result) == PARLEY_INVALID &&
               parley_session_feed(NULL, samples, 1) == PARLEY_INVALID &&
               parley_session_update(NULL, 0, &result) == PARLEY_INVALID &&
               parley_session_end(NULL, &result) == PARLEY_INVALID &&
               parley_options_set(NULL, NULL, NULL) == PARLEY_INVALID &&
               parley_write_text(NULL, NULL, &text, NULL) == PARLEY_INVALID,
           "nothing at all");
    expect(parley_result_num_segments(NULL) == 0 && parley_result_num_speakers(NULL) == 0 &&
               parley_result_duration(NULL) == 0 && parley_result_segment(NULL, 0).end == 0,
           "no result");
}

/* What programs that were built earlier, Python and JavaScript know of the records: it stays within a major
 * version. */
static void records_stay(void) {
    const struct {
        const char *what;
        size_t is, was;
    } layouts[] = {
        {"segment", sizeof(parley_segment), 32},
        {"segment.speaker", offsetof(parley_segment, speaker), 16},
        {"segment.confidence", offsetof(parley_segment, confidence), 24},
        {"speaker.seconds", offsetof(parley_speaker, seconds), 8},
        {"speaker.similarity", offsetof(parley_speaker, similarity), sizeof(void *) == 8 ? 32 : 24},
        {"turn.speaker", offsetof(parley_turn, speaker), 16},
        {"score.num_speakers", offsetof(parley_score, num_speakers), 40},
        {"terminal", sizeof(parley_terminal), 8},
        {"options.jobs", offsetof(parley_options, jobs), sizeof(void *) == 8 ? 124 : 0},
    };
    for (size_t i = 0; i < sizeof(layouts) / sizeof(layouts[0]); i++)
        expect(layouts[i].was == 0 || layouts[i].is == layouts[i].was, layouts[i].what);
    char version[32];
    snprintf(version, sizeof(version), "%d.%d.%d", PARLEY_VERSION_MAJOR, PARLEY_VERSION_MINOR,
             PARLEY_VERSION_PATCH);
    expect(strcmp(version, parley_version()) == 0, "the header's version is the library's");
}

int main(int argc, char **argv) {
    parley_diarizer *diarizer = NULL, *copy = NULL, *none = NULL;
    parley_result *result = NULL, *again = NULL, *nothing = NULL;
    parley_options options;
    double last = 0;
    size_t model_size = 0, audio_size = 0, size = 0;
    void *model, *audio;
    char *text = NULL;
    if (argc != 3) return 2;
    model = read_file(argv[1], &model_size);
    audio = read_file(argv[2], &audio_size);

    expect(parley_open("/nonexistent", &none) == PARLEY_MISSING && !none, "a missing model");
    expect(parley_open(argv[2], &none) == PARLEY_INVALID && !none, "no model");
    expect(strlen(parley_message()) > 10 && strlen(parley_details()) > 10, "messages");
    expect(parley_open(argv[1], &diarizer) == PARLEY_OK, "open");
    expect(parley_find_model(&text) == (text ? PARLEY_OK : PARLEY_MISSING), "whether a model is installed");
    parley_free(text);
    text = NULL;
    expect(parley_open_memory(model, model_size, &copy) == PARLEY_OK, "open from memory");
    expect(parley_open_memory(model, model_size / 2, &none) == PARLEY_UNREADABLE && !none, "half a model");

    keeps_to_the_size_of_records();
    parley_options_init(&options, sizeof(options));
    expect(parley_options_set(&options, "speakers", "2") == PARLEY_OK && options.min_speakers == 2 &&
               options.max_speakers == 2,
           "an option by name");
    expect(parley_options_set(&options, "speakers", "two") == PARLEY_INVALID, "a value that makes no sense");
    expect(parley_options_set(&options, "no-such", "1") == PARLEY_INVALID, "an unknown option");
    options.channels = 1;
    expect(parley_options_check(&options) == PARLEY_INVALID, "options that contradict each other");
    options.channels = 0;
    expect(parley_diarize_file(diarizer, argv[2], &options, rising, &last, &result) == PARLEY_OK, "a file");
    expect(last > 0.9, "progress gets to the end");
    expect(result && parley_result_num_speakers(result) == 2, "as many speakers as asked for");
    parley_result_delete(result);

    expect(parley_diarize_file(diarizer, "/nonexistent", NULL, NULL, NULL, &nothing) == PARLEY_MISSING &&
               !nothing,
           "a missing file");
    {
        char name[10002] = "x"; /* two bytes a character */
        for (size_t i = 1; i < sizeof(name) - 1; i++) name[i] = (char) (i % 2 ? 0xC3 : 0xA4);
        expect(parley_diarize_file(diarizer, name, NULL, NULL, NULL, &nothing) != PARLEY_OK, "a long name");
        const size_t length = strlen(parley_message());
        expect(length > 4000 && length < sizeof(name) && length % 2 == 1,
               "what is said of it is cut between characters");
    }
    expect(parley_diarize_file(diarizer, argv[1], NULL, NULL, NULL, &nothing) == PARLEY_INVALID && !nothing,
           "no audio");
    expect(parley_diarize_file(diarizer, argv[2], NULL, stop, NULL, &nothing) == PARLEY_CANCELLED && !nothing,
           "stopped");

    expect(parley_diarize_file(diarizer, argv[2], NULL, NULL, NULL, &result) == PARLEY_OK, "a file again");
    expect(parley_diarize_memory(copy, audio, audio_size, argv[2], NULL, NULL, NULL, &again) == PARLEY_OK,
           "its bytes");
    if (result && again) {
        char *one = NULL, *two = NULL;
        size_t one_size = 0, two_size = 0;
        expect(parley_write_text(result, "json", &one, &one_size) == PARLEY_OK &&
                   parley_write_text(again, "json", &two, &two_size) == PARLEY_OK && one_size == two_size &&
                   memcmp(one, two, one_size) == 0,
               "the same result from a path and from memory");
        parley_free(one);
        parley_free(two);
        expect(parley_write_text(result, "no-such", &text, &size) == PARLEY_INVALID && !text,
               "an unknown format");
        expect(parley_result_segment(result, -1).end == 0 && parley_result_segment(result, 1 << 20).end == 0,
               "segments beyond the last");
    }
    parley_result_delete(result);
    parley_result_delete(again);
    refuses_nonsense(diarizer);
    records_stay();
    parley_close(diarizer);
    parley_close(copy);
    parley_result_delete(NULL);
    parley_close(NULL);
    free(model);
    free(audio);
    return failures != 0;
}
