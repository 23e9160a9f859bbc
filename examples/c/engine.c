/* SPDX-License-Identifier: Apache-2.0 */
/* The engine alone, for whom every bit counts: engine MODEL AUDIO */
#include <inttypes.h>
#include <stdio.h>
#include <zx_parley.h>

/* Prints what the engine has to say about the last failure of this thread. */
static void complain(const char *what, zx_status_t status) {
    char **messages = NULL;
    int32_t depth = 0;
    fprintf(stderr, "%s: %s\n", what, zx_status_to_string(status));
    if (zx_get_error_stack(&messages, &depth) == ZX_STATUS_SUCCESS) {
        for (int32_t i = 0; i < depth; i++) fprintf(stderr, "  %s\n", messages[i]);
        zx_free_error_stack(messages);
    }
}

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: engine MODEL AUDIO\n");
        return 2;
    }
    zx_log_disable();
    zx_parley_t *engine = NULL;
    zx_status_t status = zx_parley_init(argv[1], &engine);
    if (status != ZX_STATUS_SUCCESS) {
        complain(argv[1], status);
        return 1;
    }
    int32_t num_segments = 0;
    zx_parley_segment_t *segments = NULL; /* ours once the call has succeeded */
    status = zx_parley_process_file(engine, argv[2], &num_segments, &segments);
    if (status != ZX_STATUS_SUCCESS) complain(argv[2], status);
    for (int32_t i = 0; i < num_segments; i++) {
        if (segments[i].speaker_tag == 0) continue; /* a record that belongs to nobody */
        printf("%9.3f %9.3f  speaker %" PRId32 "\n", segments[i].start_sec, segments[i].end_sec,
               segments[i].speaker_tag);
    }
    zx_parley_segments_delete(segments);
    zx_parley_delete(engine);
    return status == ZX_STATUS_SUCCESS ? 0 : 1;
}
