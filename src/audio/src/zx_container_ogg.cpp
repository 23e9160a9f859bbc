// SPDX-License-Identifier: Apache-2.0
#include "zx_container_ogg.h"

#include <memory>

#include "zx_assert.h"
#include "zx_file.h"
#include "zx_heap.h"

zx_status_t zx_container_ogg_init(const char *path, zx_container_ogg_t **object) {
    ZX_ASSERT(path);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<zx_container_ogg_t, zx_container_ogg_delete> o(zx_heap_zeroed<zx_container_ogg_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->sync = zx_heap_zeroed<ogg_sync_state>();
    o->page = zx_heap_zeroed<ogg_page>();
    o->stream = zx_heap_zeroed<ogg_stream_state>();
    if (!o->sync || !o->page || !o->stream) return ZX_STATUS_OUT_OF_MEMORY;
    o->file = zx_fopen(path, "rb");
    if (!o->file) return ZX_STATUS_IO_ERROR;
    if (ogg_sync_init(o->sync) != 0) return ZX_STATUS_INVALID_STATE;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_container_ogg_delete(zx_container_ogg_t *object) {
    if (!object) return;
    if (object->sync) ogg_sync_destroy(object->sync);  // frees the record too
    std::free(object->page);
    if (object->stream) ogg_stream_destroy(object->stream);
    if (object->file) std::fclose(object->file);
    std::free(object);
}

zx_status_t zx_container_ogg_read_ogg_page(zx_container_ogg_t *object) {
    ZX_ASSERT(object);
    constexpr long READ_SIZE = 4096;
    for (;;) {
        const int result = ogg_sync_pageout(object->sync, object->page);
        if (result > 0) break;
        if (result < 0) continue;  // bytes were skipped; a page may be complete behind them
        char *buffer = ogg_sync_buffer(object->sync, READ_SIZE);
        if (!buffer) return ZX_STATUS_OUT_OF_MEMORY;
        const size_t length = std::fread(buffer, 1, READ_SIZE, object->file);
        if (length == 0) return ZX_STATUS_IO_ERROR;
        if (ogg_sync_wrote(object->sync, static_cast<long>(length)) != 0) return ZX_STATUS_INVALID_STATE;
    }
    if (ogg_page_bos(object->page) > 0) {
        ogg_stream_clear(object->stream);
        if (ogg_stream_init(object->stream, ogg_page_serialno(object->page)) != 0)
            return ZX_STATUS_INVALID_STATE;
    }
    return ogg_stream_pagein(object->stream, object->page) == 0 ? ZX_STATUS_SUCCESS : ZX_STATUS_INVALID_STATE;
}

int zx_container_ogg_stream_packetout(zx_container_ogg_t *object, ogg_packet *opacket) {
    ZX_ASSERT(object);
    ZX_ASSERT(opacket);
    return ogg_stream_packetout(object->stream, opacket);
}

zx_status_t zx_container_ogg_reset(zx_container_ogg_t *object) {
    ZX_ASSERT(object);
    if (ogg_sync_reset(object->sync) != 0) return ZX_STATUS_INVALID_STATE;
    (void) ogg_stream_reset(object->stream);  // fails, harmlessly, where no stream has begun
    std::rewind(object->file);
    return ZX_STATUS_SUCCESS;
}
