/* SPDX-License-Identifier: Apache-2.0 */
/* The public interface from C99, linked to the dynamic library alone: usage: api_test MODEL */
#include <stdio.h>
#include <stdlib.h>

#include "zx_parley.h"

static int num_failures = 0;

static void expect(int condition, const char *what) {
    if (condition) return;
    fprintf(stderr, "failed: %s\n", what);
    num_failures++;
}

int main(int argc, char **argv) {
    int16_t *pcm = calloc(16000, sizeof(int16_t));
    zx_parley_t *engine = NULL;
    zx_parley_segment_t *segments = NULL;
    int32_t num_segments = -1;
    char **messages = NULL;
    int32_t depth = 0;
    if (argc != 2 || !pcm) return 2;

    zx_log_disable();
    expect(zx_parley_init(argv[1], &engine) == ZX_STATUS_SUCCESS, "init");
    expect(zx_parley_process(engine, pcm, 16000, &num_segments, &segments) == ZX_STATUS_SUCCESS, "process");
    expect(num_segments == 0 && !segments, "silence has no segments");
    expect(zx_parley_process_file(engine, "/nonexistent", &num_segments, &segments) == ZX_STATUS_IO_ERROR,
           "process_file");
    expect(zx_get_error_stack(&messages, &depth) == ZX_STATUS_SUCCESS && depth == 1, "error stack");
    zx_free_error_stack(messages);
    expect(zx_sample_rate() == 16000, "sample rate");
    zx_parley_segments_delete(segments);
    zx_parley_delete(engine);
    free(pcm);
    return num_failures ? 1 : 0;
}
