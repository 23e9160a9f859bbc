// SPDX-License-Identifier: Apache-2.0
#include "zx_codec_vorbis.h"

#include <array>
#include <cmath>
#include <cstring>
#include <memory>

#include "zx_assert.h"
#include "zx_audio_util.h"
#include "zx_container_ogg.h"
#include "zx_heap.h"
#include "zx_math.h"

namespace {

struct codec_vorbis_t {
    zx_container_ogg_t *container;
    ogg_packet packet;  // the last one taken; its bytes belong to the container
    zx_codec_vorbis_state_t state;
    zx_packet_buffer_t buffer;  // 8192 samples
    uint32_t sample_rate;
    uint32_t num_channels;
};

// Headers are a type byte and "vorbis".
bool is_header_packet(const ogg_packet *packet) {
    ZX_ASSERT(packet);
    return packet->bytes >= 7 && std::memcmp(packet->packet + 1, "vorbis", 6) == 0;
}

// `number`: of the packet in the file, from 0; the first three are the headers.
zx_status_t count_packet(codec_vorbis_t *o, int64_t number) {
    if (number < 3) {
        if (!is_header_packet(&o->packet)) return ZX_STATUS_INVALID_ARGUMENT;
        if (number == 0 && !vorbis_synthesis_idheader(&o->packet)) return ZX_STATUS_INVALID_ARGUMENT;
        return vorbis_synthesis_headerin(&o->state.info, &o->state.comment, &o->packet) == 0
                   ? ZX_STATUS_SUCCESS
                   : ZX_STATUS_INVALID_STATE;
    }
    if (is_header_packet(&o->packet)) return ZX_STATUS_SUCCESS;  // of a chained stream
    if (number == 3) {
        const zx_status_t status = zx_codec_vorbis_start_synthesis(&o->state);
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    return zx_codec_vorbis_count_packet(&o->state, &o->packet, &o->buffer.num_samples);
}

zx_status_t init_num_samples(codec_vorbis_t *o) {
    zx_status_t page_status;
    int64_t number = 0;
    while ((page_status = zx_container_ogg_read_ogg_page(o->container)) == ZX_STATUS_SUCCESS) {
        while (zx_container_ogg_stream_packetout(o->container, &o->packet) == 1) {
            const zx_status_t status = count_packet(o, number++);
            if (status != ZX_STATUS_SUCCESS) return status;
        }
    }
    if (page_status == ZX_STATUS_OUT_OF_MEMORY)
        return page_status;  // anything else is the end of what can be read
    if (o->state.info.channels > 2) return ZX_STATUS_INVALID_ARGUMENT;
    o->num_channels = static_cast<uint32_t>(o->state.info.channels);
    o->sample_rate = static_cast<uint32_t>(o->state.info.rate);
    const zx_status_t status = zx_codec_vorbis_reset(o);
    if (status != ZX_STATUS_SUCCESS) return status;
    return o->buffer.num_samples > 0 ? ZX_STATUS_SUCCESS : ZX_STATUS_INVALID_ARGUMENT;
}

// The next packet of audio into the buffer.
zx_status_t refill(codec_vorbis_t *o) {
    for (;;) {
        if (zx_container_ogg_stream_packetout(o->container, &o->packet) != 1) {
            const zx_status_t status = zx_container_ogg_read_ogg_page(o->container);
            if (status != ZX_STATUS_SUCCESS) return status;
        } else if (!is_header_packet(&o->packet)) {
            return zx_codec_vorbis_read_packet(&o->state, &o->packet, o->buffer.pcm, &o->buffer.remaining);
        }
    }
}

const codec_vorbis_t *get(const void *object) {
    ZX_ASSERT(object);
    return static_cast<const codec_vorbis_t *>(object);
}

constexpr std::array<float, ZX_CODEC_VORBIS_MAX_FRAMES> SILENCE{};  // of the longest block

constexpr std::array<float *, 255> every_channel_silent() {
    std::array<float *, 255> channels{};
    channels.fill(const_cast<float *>(SILENCE.data()));  // only read
    return channels;
}

constexpr auto SILENT_CHANNELS = every_channel_silent();

// As vorbis_synthesis, with silence for audio: how much it is shows where the block is added to the one
// before.
int synthesize_silence(vorbis_block *block, ogg_packet *packet) {
    const int status = vorbis_synthesis_trackonly(block, packet);
    if (status == 0) block->pcm = const_cast<float **>(SILENT_CHANNELS.data());
    return status;
}

// Takes a packet in by `step`, one of the two; *num_samples receives the number of samples per channel that
// wait to be taken.
zx_status_t synthesize(zx_codec_vorbis_state_t *state, ogg_packet *packet,
                       int (*step)(vorbis_block *, ogg_packet *), float ***channels, int32_t *num_samples) {
    *num_samples = 0;
    if (!state->dsp.vi) return ZX_STATUS_INVALID_STATE;  // audio before synthesis has begun
    if (step(&state->block, packet) != 0 || vorbis_synthesis_blockin(&state->dsp, &state->block) != 0) {
        return ZX_STATUS_INVALID_STATE;
    }
    const int count = vorbis_synthesis_pcmout(&state->dsp, channels);
    if (count < 0 || count > ZX_CODEC_VORBIS_MAX_FRAMES) return ZX_STATUS_INVALID_STATE;
    *num_samples = count;
    return ZX_STATUS_SUCCESS;
}

int16_t to_int16(float x) {
    const float rounded = std::round(x * 32767.0f);
    return static_cast<int16_t>(rounded >= 32768.0f ? 32767.0f : rounded < -32768.0f ? -32768.0f : rounded);
}

}  // namespace

void zx_codec_vorbis_state_init(zx_codec_vorbis_state_t *state) {
    vorbis_info_init(&state->info);
    vorbis_comment_init(&state->comment);
}

void zx_codec_vorbis_state_clear(zx_codec_vorbis_state_t *state) {
    vorbis_block_clear(&state->block);
    vorbis_dsp_clear(&state->dsp);
    vorbis_comment_clear(&state->comment);
    vorbis_info_clear(&state->info);
}

zx_status_t zx_codec_vorbis_start_synthesis(zx_codec_vorbis_state_t *state) {
    if (vorbis_synthesis_init(&state->dsp, &state->info) != 0) return ZX_STATUS_INVALID_STATE;
    return vorbis_block_init(&state->dsp, &state->block) == 0 ? ZX_STATUS_SUCCESS : ZX_STATUS_INVALID_STATE;
}

zx_status_t zx_codec_vorbis_count_packet(zx_codec_vorbis_state_t *state, ogg_packet *packet,
                                         uint64_t *num_samples) {
    int32_t count;
    const zx_status_t status = synthesize(state, packet, synthesize_silence, nullptr, &count);
    if (status != ZX_STATUS_SUCCESS) return status;
    vorbis_synthesis_read(&state->dsp, count);
    *num_samples += static_cast<uint64_t>(count);
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_codec_vorbis_read_packet(zx_codec_vorbis_state_t *state, ogg_packet *packet, int16_t *pcm,
                                        int32_t *num_samples) {
    float **channels = nullptr;
    const zx_status_t status = synthesize(state, packet, vorbis_synthesis, &channels, num_samples);
    if (status != ZX_STATUS_SUCCESS || *num_samples == 0) return status;
    float mono[ZX_CODEC_VORBIS_MAX_FRAMES];
    if (state->info.channels == 2) {
        zx_audio_util_stereo_to_mono_lr_float(mono, channels[0], channels[1], *num_samples);
    } else {
        std::copy_n(channels[0], *num_samples, mono);
    }
    for (int32_t i = 0; i < *num_samples; i++) pcm[i] = to_int16(mono[i]);
    vorbis_synthesis_read(&state->dsp, *num_samples);
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_codec_vorbis_init(const char *path, void **object) {
    ZX_ASSERT(path);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<codec_vorbis_t, zx_codec_vorbis_delete> o(zx_heap_zeroed<codec_vorbis_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    zx_codec_vorbis_state_init(&o->state);
    if (!o->state.info.codec_setup) return ZX_STATUS_OUT_OF_MEMORY;
    zx_status_t status = zx_container_ogg_init(path, &o->container);
    if (status != ZX_STATUS_SUCCESS) return status;
    o->buffer.pcm = zx_heap_zeroed<int16_t>(ZX_CODEC_VORBIS_MAX_FRAMES);
    if (!o->buffer.pcm) return ZX_STATUS_OUT_OF_MEMORY;
    status = init_num_samples(o.get());
    if (status != ZX_STATUS_SUCCESS) return status;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_codec_vorbis_delete(void *object) {
    if (!object) return;
    codec_vorbis_t *o = static_cast<codec_vorbis_t *>(object);
    zx_codec_vorbis_state_clear(&o->state);
    std::free(o->buffer.pcm);
    zx_container_ogg_delete(o->container);
    std::free(o);
}

int32_t zx_codec_vorbis_num_samples(const void *object) {
    return zx_audio_util_count(get(object)->buffer.num_samples);
}

int32_t zx_codec_vorbis_num_channels(const void *object) {
    return static_cast<int32_t>(get(object)->num_channels);
}

int32_t zx_codec_vorbis_sample_rate(const void *object) {
    return static_cast<int32_t>(get(object)->sample_rate);
}

zx_status_t zx_codec_vorbis_read(void *object, int32_t num_samples, int16_t *pcm) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_samples > 0);
    ZX_ASSERT(pcm);
    codec_vorbis_t *o = static_cast<codec_vorbis_t *>(object);
    return zx_packet_buffer_read(&o->buffer, num_samples, pcm, [o] { return refill(o); });
}

zx_status_t zx_codec_vorbis_reset(void *object) {
    ZX_ASSERT(object);
    codec_vorbis_t *o = static_cast<codec_vorbis_t *>(object);
    o->packet = {};
    const zx_status_t status = zx_container_ogg_reset(o->container);
    if (status != ZX_STATUS_SUCCESS) return status;
    return vorbis_synthesis_restart(&o->state.dsp) == 0 ? ZX_STATUS_SUCCESS : ZX_STATUS_INVALID_STATE;
}
