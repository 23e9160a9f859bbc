/* SPDX-License-Identifier: Apache-2.0 */
/* Who spoke when, in C, with progress; Ctrl+C cancels: diarize AUDIO */
#include <parley.h>
#include <signal.h>
#include <stdio.h>

static volatile sig_atomic_t is_cancelled;

static void cancel(int signal) {
    (void) signal;
    is_cancelled = 1;
}

static int show_progress(void *context, double done) {
    (void) context;
    fprintf(stderr, "\r%3.0f %%", 100 * done);
    return !is_cancelled;
}

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: diarize AUDIO\n");
        return 2;
    }
    signal(SIGINT, cancel);
    parley_diarizer *diarizer = NULL;
    parley_result *result = NULL;
    parley_status status = parley_open(NULL, &diarizer);
    if (status == PARLEY_OK)
        status = parley_diarize_file(diarizer, argv[1], NULL, show_progress, NULL, &result);
    if (status != PARLEY_OK) fprintf(stderr, "\n%s\n", parley_message());
    for (int32_t i = 0; i < parley_result_num_segments(result); i++) {
        const parley_segment s = parley_result_segment(result, i);
        printf("%9.3f %9.3f  %s\n", s.start, s.end, parley_result_speaker(result, s.speaker).name);
    }
    parley_result_delete(result);
    parley_close(diarizer);
    return status == PARLEY_OK ? 0 : 1;
}
