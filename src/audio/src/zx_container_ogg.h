// SPDX-License-Identifier: Apache-2.0
// The pages and packets of an Ogg file, through libogg. Shared by the Opus and the Vorbis decoder.
//
// A page belongs to a logical stream and carries packets; a packet can run over several pages. When a page
// begins a new stream, reading switches to that stream: chained files play one part after the other.
#ifndef ZX_CONTAINER_OGG_H
#define ZX_CONTAINER_OGG_H

#include <ogg/ogg.h>

#include <cstdio>

#include "zx_base.h"

struct zx_container_ogg_t {
    FILE *file;
    ogg_sync_state *sync;      // bytes to pages
    ogg_page *page;            // the last one taken
    ogg_stream_state *stream;  // pages to packets; all zeros until a stream begins
};

// Opens a file. ZX_STATUS_IO_ERROR, ZX_STATUS_OUT_OF_MEMORY, ZX_STATUS_INVALID_STATE (libogg). On failure
// *object is null.
[[nodiscard]] zx_status_t zx_container_ogg_init(const char *path, zx_container_ogg_t **object);

// Closes the file; null is accepted.
void zx_container_ogg_delete(zx_container_ogg_t *object);

// Takes the next page and hands it to the stream. ZX_STATUS_IO_ERROR at the end of the file;
// ZX_STATUS_OUT_OF_MEMORY; ZX_STATUS_INVALID_STATE when libogg refuses the page, as for a page of no stream
// that has begun.
[[nodiscard]] zx_status_t zx_container_ogg_read_ogg_page(zx_container_ogg_t *object);

// Takes the next packet of the pages read so far: 1 when there was one, 0 when another page is needed, -1
// when packets were lost before the next one.
int zx_container_ogg_stream_packetout(zx_container_ogg_t *object, ogg_packet *opacket);

// Back to the start of the file. ZX_STATUS_INVALID_STATE (libogg).
[[nodiscard]] zx_status_t zx_container_ogg_reset(zx_container_ogg_t *object);

#endif
