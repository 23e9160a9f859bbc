/* SPDX-License-Identifier: Apache-2.0 */
/* Who said what, from a recognizer's transcript with times: words AUDIO TRANSCRIPT */
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
    if (argc != 3) {
        fprintf(stderr, "usage: words AUDIO TRANSCRIPT\n");
        return 2;
    }
    size_t size = 0;
    char *transcript = read_file(argv[2], &size), *text = NULL;
    parley_diarizer *diarizer = NULL;
    parley_result *result = NULL;
    parley_status status = parley_open(NULL, &diarizer);
    if (status == PARLEY_OK) status = parley_diarize_file(diarizer, argv[1], NULL, NULL, NULL, &result);
    if (status == PARLEY_OK)
        status = parley_result_add_words(result, transcript ? transcript : "", size, 1,
                                         PARLEY_WORDS_WHOLE_SENTENCES);
    if (status == PARLEY_OK) status = parley_write_words(result, "text", &text, NULL);
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
