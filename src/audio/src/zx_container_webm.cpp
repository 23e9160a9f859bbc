// SPDX-License-Identifier: Apache-2.0
#include "zx_container_webm.h"

#include <nestegg/nestegg.h>

#include <cmath>
#include <cstdio>
#include <memory>

#include "zx_assert.h"
#include "zx_audio_util.h"
#include "zx_codec_opus.h"
#include "zx_codec_vorbis.h"
#include "zx_file.h"
#include "zx_heap.h"

namespace {

constexpr int32_t COUNT_MAX_FRAMES = 8192;  // per packet while counting
// Bytes in front of the first cluster, of which the parser keeps two hundred times as much in memory if it
// is all tracks.
constexpr int64_t LARGEST_HEADER = 1 << 20;

struct container_webm_t {
    FILE *file;
    int64_t max_read;  // bytes that the parser may still read
    nestegg *context;
    nestegg_packet *packet;  // the current one, or null
    uint32_t track;
    uint32_t codec;  // NESTEGG_CODEC_VORBIS or NESTEGG_CODEC_OPUS
    OpusDecoder *opus;
    zx_codec_vorbis_state_t vorbis;
    ogg_packet frame;           // hands a frame's bytes to the packet decoders
    zx_packet_buffer_t buffer;  // 8192 samples
    int16_t *decode_buffer;     // 8192 stereo frames
    uint32_t num_channels;
    uint32_t sample_rate;
    uint32_t frame_index;  // next frame of the current packet
};

const container_webm_t *get(const void *object) {
    ZX_ASSERT(object);
    return static_cast<const container_webm_t *>(object);
}

void free_packet(container_webm_t *o) {
    if (o->packet) nestegg_free_packet(o->packet);
    o->packet = nullptr;
}

// Starts nestegg at the start of the file. A file that it cannot parse leaves the context null.
void start_nestegg(container_webm_t *o) {
    if (o->context) nestegg_destroy(o->context);
    o->context = nullptr;
    const nestegg_io io = {zx_container_webm_neio_read, zx_container_webm_neio_seek,
                           zx_container_webm_neio_tell, o};
    o->max_read = LARGEST_HEADER;
    if (nestegg_init(&o->context, io, nullptr, -1) != 0) o->context = nullptr;
    o->max_read = INT64_MAX;
}

zx_status_t choose_track(container_webm_t *o) {
    unsigned int num_tracks = 0;
    if (!o->context || nestegg_track_count(o->context, &num_tracks) != 0) return ZX_STATUS_INVALID_STATE;
    for (o->track = 0; o->track < num_tracks; o->track++) {
        if (nestegg_track_type(o->context, o->track) != NESTEGG_TRACK_AUDIO) continue;
        o->codec = static_cast<uint32_t>(nestegg_track_codec_id(o->context, o->track));
        if (o->codec == NESTEGG_CODEC_VORBIS || o->codec == NESTEGG_CODEC_OPUS) return ZX_STATUS_SUCCESS;
    }
    return ZX_STATUS_INVALID_ARGUMENT;
}

// The three headers of Vorbis lie in the track's private data.
zx_status_t read_vorbis_headers(container_webm_t *o) {
    unsigned int num_items = 0;
    if (nestegg_track_codec_data_count(o->context, o->track, &num_items) != 0) return ZX_STATUS_INVALID_STATE;
    if (num_items != 3) return ZX_STATUS_INVALID_ARGUMENT;
    o->frame.b_o_s =
        256;  // any value but 0 marks the beginning of the stream, which the first header must be
    for (unsigned int item = 0; item < num_items; item++) {
        unsigned char *data = nullptr;
        size_t length = 0;
        if (nestegg_track_codec_data(o->context, o->track, item, &data, &length) != 0)
            return ZX_STATUS_INVALID_STATE;
        o->frame.packet = data;
        o->frame.bytes = static_cast<long>(length);
        if (vorbis_synthesis_headerin(&o->vorbis.info, &o->vorbis.comment, &o->frame) != 0) {
            return ZX_STATUS_INVALID_STATE;
        }
    }
    if (o->vorbis.info.channels > 2) return ZX_STATUS_INVALID_ARGUMENT;  // whatever the container said
    return zx_codec_vorbis_start_synthesis(&o->vorbis);
}

// Points `frame` at one frame of the current packet.
bool take_frame(container_webm_t *o, uint32_t index) {
    unsigned char *data = nullptr;
    size_t length = 0;
    if (nestegg_packet_data(o->packet, index, &data, &length) != 0) return false;
    o->frame = {};
    o->frame.packet = data;
    o->frame.bytes = static_cast<long>(length);
    return true;
}

zx_status_t count_frame(container_webm_t *o) {
    if (o->codec == NESTEGG_CODEC_OPUS) {
        return zx_codec_opus_count_packet(&o->frame, o->sample_rate, COUNT_MAX_FRAMES,
                                          &o->buffer.num_samples);
    }
    return zx_codec_vorbis_count_packet(&o->vorbis, &o->frame, &o->buffer.num_samples);
}

// Reads on to the next packet of the track; false at the end of what can be read.
bool next_packet(container_webm_t *o) {
    for (;;) {
        free_packet(o);
        unsigned int track = 0;
        if (nestegg_read_packet(o->context, &o->packet) < 1) return false;
        if (nestegg_packet_track(o->packet, &track) == 0 && track == o->track) return true;
    }
}

uint32_t num_frames(const container_webm_t *o) {
    unsigned int count = 0;
    return o->packet && nestegg_packet_count(o->packet, &count) == 0 ? count : 0;
}

zx_status_t init_num_samples(container_webm_t *o) {
    ZX_ASSERT(o);
    zx_status_t status = choose_track(o);
    if (status != ZX_STATUS_SUCCESS) return status;
    nestegg_audio_params params = {};
    if (nestegg_track_audio_params(o->context, o->track, &params) != 0) return ZX_STATUS_INVALID_STATE;
    if (params.channels > 2) return ZX_STATUS_INVALID_ARGUMENT;
    if (!(params.rate >= 1.0 && params.rate <= INT32_MAX)) return ZX_STATUS_INVALID_ARGUMENT;
    o->num_channels = params.channels;
    o->sample_rate = static_cast<uint32_t>(std::floor(params.rate));
    if (o->codec == NESTEGG_CODEC_OPUS) {
        status = zx_codec_opus_decoder_init(o->sample_rate, o->num_channels, &o->opus);
    } else {
        status = read_vorbis_headers(o);
    }
    if (status != ZX_STATUS_SUCCESS) return status;

    while (next_packet(o)) {
        const uint32_t count = num_frames(o);
        for (uint32_t index = 0; index < count && take_frame(o, index); index++) {
            status = count_frame(o);
            if (status != ZX_STATUS_SUCCESS) return status;
        }
    }
    return zx_container_webm_reset(o);
}

// The next frame of the track into the buffer.
zx_status_t refill(container_webm_t *o) {
    while (o->frame_index >= num_frames(o)) {
        if (!next_packet(o)) return ZX_STATUS_IO_ERROR;
        o->frame_index = 0;
    }
    if (!take_frame(o, o->frame_index++)) return ZX_STATUS_IO_ERROR;
    if (o->codec == NESTEGG_CODEC_OPUS) {
        return zx_codec_opus_read_packet(o->opus, &o->frame, o->num_channels, o->decode_buffer, o->buffer.pcm,
                                         &o->buffer.remaining);
    }
    return zx_codec_vorbis_read_packet(&o->vorbis, &o->frame, o->buffer.pcm, &o->buffer.remaining);
}

}  // namespace

zx_status_t zx_container_webm_init(const char *path, void **object) {
    ZX_ASSERT(path);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<container_webm_t, zx_container_webm_delete> o(zx_heap_zeroed<container_webm_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    zx_codec_vorbis_state_init(&o->vorbis);
    o->buffer.pcm = zx_heap_zeroed<int16_t>(COUNT_MAX_FRAMES);
    o->decode_buffer = zx_heap_zeroed<int16_t>(2 * COUNT_MAX_FRAMES);
    if (!o->vorbis.info.codec_setup || !o->buffer.pcm || !o->decode_buffer) return ZX_STATUS_OUT_OF_MEMORY;
    o->file = zx_fopen(path, "rb");
    if (!o->file) return ZX_STATUS_IO_ERROR;
    start_nestegg(o.get());
    const zx_status_t status = init_num_samples(o.get());
    if (status != ZX_STATUS_SUCCESS) return status;
    if (o->buffer.num_samples == 0) return ZX_STATUS_INVALID_ARGUMENT;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_container_webm_delete(void *object) {
    if (!object) return;
    container_webm_t *o = static_cast<container_webm_t *>(object);
    free_packet(o);
    if (o->context) nestegg_destroy(o->context);
    if (o->opus) opus_decoder_destroy(o->opus);
    zx_codec_vorbis_state_clear(&o->vorbis);
    std::free(o->buffer.pcm);
    std::free(o->decode_buffer);
    if (o->file) std::fclose(o->file);
    std::free(o);
}

int32_t zx_container_webm_num_samples(const void *object) {
    return zx_audio_util_count(get(object)->buffer.num_samples);
}

int32_t zx_container_webm_num_channels(const void *object) {
    return static_cast<int32_t>(get(object)->num_channels);
}

int32_t zx_container_webm_sample_rate(const void *object) {
    return static_cast<int32_t>(get(object)->sample_rate);
}

zx_status_t zx_container_webm_read(void *object, int32_t num_samples, int16_t *pcm) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_samples > 0);
    ZX_ASSERT(pcm);
    container_webm_t *o = static_cast<container_webm_t *>(object);
    return zx_packet_buffer_read(&o->buffer, num_samples, pcm, [o] { return refill(o); });
}

zx_status_t zx_container_webm_reset(void *object) {
    ZX_ASSERT(object);
    container_webm_t *o = static_cast<container_webm_t *>(object);
    std::rewind(o->file);
    free_packet(o);
    o->frame = {};
    start_nestegg(o);
    if (!o->context) return ZX_STATUS_INVALID_STATE;
    if (o->codec == NESTEGG_CODEC_OPUS) {
        return zx_codec_opus_decoder_init(o->sample_rate, o->num_channels, &o->opus);
    }
    return vorbis_synthesis_restart(&o->vorbis.dsp) == 0 ? ZX_STATUS_SUCCESS : ZX_STATUS_INVALID_STATE;
}

int zx_container_webm_neio_read(void *buffer, size_t length, void *userdata) {
    ZX_ASSERT(userdata);
    auto *o = static_cast<container_webm_t *>(userdata);
    FILE *file = o->file;
    if (length > static_cast<uint64_t>(o->max_read)) return -1;
    o->max_read -= static_cast<int64_t>(length);
    if (std::fread(buffer, 1, length, file) == length) return 1;
    return std::feof(file) ? 0 : -1;
}

int zx_container_webm_neio_seek(int64_t offset, int whence, void *userdata) {
    ZX_ASSERT(userdata);
    constexpr int ORIGINS[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    if (whence < 0 || whence > 2) return -1;
    return fseeko(static_cast<container_webm_t *>(userdata)->file, static_cast<off_t>(offset),
                  ORIGINS[whence]);
}

int64_t zx_container_webm_neio_tell(void *userdata) {
    ZX_ASSERT(userdata);
    return ftello(static_cast<container_webm_t *>(userdata)->file);
}
