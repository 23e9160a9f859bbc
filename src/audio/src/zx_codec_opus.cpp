// SPDX-License-Identifier: Apache-2.0
#include "zx_codec_opus.h"

#include <cstring>
#include <memory>

#include "zx_assert.h"
#include "zx_audio_util.h"
#include "zx_container_ogg.h"
#include "zx_heap.h"
#include "zx_log.h"

namespace {

struct codec_opus_t {
    zx_container_ogg_t *container;
    ogg_packet packet;  // the last one taken; its bytes belong to the container
    OpusDecoder *decoder;
    zx_packet_buffer_t buffer;  // 5760 samples
    int16_t *decode_buffer;     // 5760 stereo frames
    uint32_t sample_rate;
    uint32_t num_channels;
};

// Both headers begin with "Opus": "OpusHead" and "OpusTags".
bool is_header_packet(const ogg_packet *packet) {
    ZX_ASSERT(packet);
    return packet->bytes >= 4 && std::memcmp(packet->packet, "Opus", 4) == 0;
}

bool is_identification_header(const ogg_packet *packet) {
    return packet->bytes >= 5 && packet->packet[4] == 'H';
}

// Identification header: "OpusHead", version (1 byte), channels (1), pre-skip (2), input sample rate (4), ...
zx_status_t start_stream(codec_opus_t *o) {
    if (o->packet.bytes < 16) return ZX_STATUS_INVALID_ARGUMENT;
    const unsigned char *header = o->packet.packet;
    o->num_channels = header[9];
    o->sample_rate = 0;
    for (int i = 15; i >= 12; i--) o->sample_rate = o->sample_rate << 8 | header[i];
    if (o->num_channels > 2) return ZX_STATUS_INVALID_ARGUMENT;
    return zx_codec_opus_decoder_init(o->sample_rate, o->num_channels, &o->decoder);
}

zx_status_t count_packet(codec_opus_t *o) {
    if (is_header_packet(&o->packet)) {
        return is_identification_header(&o->packet) ? start_stream(o) : ZX_STATUS_SUCCESS;
    }
    if (!o->decoder) return ZX_STATUS_INVALID_STATE;  // audio before its header
    return zx_codec_opus_count_packet(&o->packet, o->sample_rate, ZX_CODEC_OPUS_MAX_FRAMES,
                                      &o->buffer.num_samples);
}

zx_status_t init_num_samples(codec_opus_t *o) {
    zx_status_t page_status;
    while ((page_status = zx_container_ogg_read_ogg_page(o->container)) == ZX_STATUS_SUCCESS) {
        while (zx_container_ogg_stream_packetout(o->container, &o->packet) == 1) {
            const zx_status_t status = count_packet(o);
            if (status != ZX_STATUS_SUCCESS) return status;
        }
    }
    if (page_status == ZX_STATUS_OUT_OF_MEMORY)
        return page_status;  // anything else is the end of what can be read
    if (o->buffer.num_samples == 0) return ZX_STATUS_INVALID_ARGUMENT;
    return zx_codec_opus_reset(o);
}

// The next packet of audio into the buffer.
zx_status_t refill(codec_opus_t *o) {
    for (;;) {
        if (zx_container_ogg_stream_packetout(o->container, &o->packet) != 1) {
            const zx_status_t status = zx_container_ogg_read_ogg_page(o->container);
            if (status != ZX_STATUS_SUCCESS) return status;
        } else if (!is_header_packet(&o->packet)) {
            return zx_codec_opus_read_packet(o->decoder, &o->packet, o->num_channels, o->decode_buffer,
                                             o->buffer.pcm, &o->buffer.remaining);
        }
    }
}

const codec_opus_t *get(const void *object) {
    ZX_ASSERT(object);
    return static_cast<const codec_opus_t *>(object);
}

}  // namespace

void zx_codec_opus_log_failure(int error) {
    zx_log("[DEBUG] Opus decoder failed with '%s'\n", opus_strerror(error));
}

zx_status_t zx_codec_opus_decoder_init(uint32_t sample_rate, uint32_t num_channels, OpusDecoder **decoder) {
    if (*decoder) opus_decoder_destroy(*decoder);
    int error = OPUS_OK;
    *decoder =
        opus_decoder_create(static_cast<opus_int32>(sample_rate), static_cast<int>(num_channels), &error);
    if (error == OPUS_OK) return ZX_STATUS_SUCCESS;
    zx_codec_opus_log_failure(error);
    return ZX_STATUS_INVALID_STATE;
}

// Decoding fails with nothing but what is wrong with a packet's frame lengths, and an empty packet is
// concealed by as many frames as there is room for, if that is a multiple of 2.5 ms.
zx_status_t zx_codec_opus_count_packet(const ogg_packet *packet, uint32_t sample_rate, int32_t max_frames,
                                       uint64_t *num_samples) {
    const auto rate = static_cast<opus_int32>(sample_rate);
    const auto length = static_cast<opus_int32>(packet->bytes);
    int32_t count = max_frames;
    if (length == 0 || !packet->packet) {
        if (max_frames % (rate / 400) != 0) count = OPUS_BAD_ARG;
    } else {
        opus_int16 lengths[48];
        count = opus_packet_get_nb_samples(packet->packet, length, rate);
        if (count <= 0 || opus_packet_parse(packet->packet, length, nullptr, nullptr, lengths, nullptr) < 0)
            count = OPUS_INVALID_PACKET;
    }
    if (count < 0) {
        zx_codec_opus_log_failure(count);
        return ZX_STATUS_INVALID_STATE;
    }
    *num_samples += static_cast<uint64_t>(count);
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_codec_opus_read_packet(OpusDecoder *decoder, const ogg_packet *packet, uint32_t num_channels,
                                      int16_t *decode_buffer, int16_t *pcm, int32_t *num_samples) {
    *num_samples = 0;
    const int count = opus_decode(decoder, packet->packet, static_cast<opus_int32>(packet->bytes),
                                  decode_buffer, ZX_CODEC_OPUS_MAX_FRAMES, 0);
    if (count < 0) {
        zx_codec_opus_log_failure(count);
        return ZX_STATUS_IO_ERROR;
    }
    if (num_channels == 1) {
        std::copy_n(decode_buffer, count, pcm);
    } else {
        zx_audio_util_stereo_to_mono_interleaved(pcm, decode_buffer, count);
    }
    *num_samples = count;
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_codec_opus_init(const char *path, void **object) {
    ZX_ASSERT(path);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<codec_opus_t, zx_codec_opus_delete> o(zx_heap_zeroed<codec_opus_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    zx_status_t status = zx_container_ogg_init(path, &o->container);
    if (status != ZX_STATUS_SUCCESS) return status;
    o->buffer.pcm = zx_heap_zeroed<int16_t>(ZX_CODEC_OPUS_MAX_FRAMES);
    o->decode_buffer = zx_heap_zeroed<int16_t>(2 * ZX_CODEC_OPUS_MAX_FRAMES);
    if (!o->buffer.pcm || !o->decode_buffer) return ZX_STATUS_OUT_OF_MEMORY;
    status = init_num_samples(o.get());
    if (status != ZX_STATUS_SUCCESS) return status;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_codec_opus_delete(void *object) {
    if (!object) return;
    codec_opus_t *o = static_cast<codec_opus_t *>(object);
    if (o->decoder) opus_decoder_destroy(o->decoder);
    std::free(o->decode_buffer);
    std::free(o->buffer.pcm);
    zx_container_ogg_delete(o->container);
    std::free(o);
}

int32_t zx_codec_opus_num_samples(const void *object) {
    return zx_audio_util_count(get(object)->buffer.num_samples);
}

int32_t zx_codec_opus_num_channels(const void *object) {
    return static_cast<int32_t>(get(object)->num_channels);
}

int32_t zx_codec_opus_sample_rate(const void *object) {
    return static_cast<int32_t>(get(object)->sample_rate);
}

zx_status_t zx_codec_opus_read(void *object, int32_t num_samples, int16_t *pcm) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_samples > 0);
    ZX_ASSERT(pcm);
    codec_opus_t *o = static_cast<codec_opus_t *>(object);
    return zx_packet_buffer_read(&o->buffer, num_samples, pcm, [o] { return refill(o); });
}

zx_status_t zx_codec_opus_reset(void *object) {
    ZX_ASSERT(object);
    codec_opus_t *o = static_cast<codec_opus_t *>(object);
    o->packet = {};
    const zx_status_t status = zx_container_ogg_reset(o->container);
    if (status != ZX_STATUS_SUCCESS) return status;
    return zx_codec_opus_decoder_init(o->sample_rate, o->num_channels, &o->decoder);
}
