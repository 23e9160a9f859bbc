/* SPDX-License-Identifier: Apache-2.0 */
/* Who said what, from a recognizer's transcript with times: words MODEL AUDIO TRANSCRIPT */
#include <parley.h>
#include <stdio.h>
#include <stdlib.h>

/* A file as one block, released with free; null if it cannot be read. */
static char *read_file(const char *path, size_t *size) {
    FILE *file = fopen(path, "rb");
    char *text = NULL;
    *size = 0;
    while (file) {
        char *longer = realloc(text, *size + 65536);
        if (!longer) break;
        text = longer;
        const size_t got = fread(text + *size, 1, 65536, file);
        *size += got;
        if (got == 0) break;
    }
    if (file) fclose(file);
    return text;
}

int main(int argc, char **argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: words MODEL AUDIO TRANSCRIPT\n");
        return 2;
    }
    size_t size = 0;
    char *transcript = read_file(argv[3], &size), *text = NULL;
    parley_turn turns[10000];
    int32_t num_turns = 0;
    parley_diarizer *diarizer = NULL;
    parley_result *result = NULL;
    parley_status status = parley_open(argv[1], &diarizer);
    if (status == PARLEY_OK) status = parley_diarize_file(diarizer, argv[2], NULL, NULL, NULL, &result);
    for (; num_turns < parley_result_num_segments(result) && num_turns < 10000; num_turns++) {
        const parley_segment s = parley_result_segment(result, num_turns);
        turns[num_turns].start = s.start;
        turns[num_turns].end = s.end;
        turns[num_turns].speaker = parley_result_speaker(result, s.speaker).name;
    }
    if (status == PARLEY_OK)
        status = parley_assign(transcript ? transcript : "", size, turns, num_turns, 1, "text", &text, NULL);
    if (status == PARLEY_OK)
        fputs(text, stdout);
    else
        fprintf(stderr, "%s\n", parley_message());
    parley_free(text);
    parley_result_delete(result);
    parley_close(diarizer);
    free(transcript);
    return status == PARLEY_OK ? 0 : 1;
}
