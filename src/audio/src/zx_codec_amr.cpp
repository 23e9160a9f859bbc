// SPDX-License-Identifier: Apache-2.0
#include "zx_codec_amr.h"

#include <opencore-amrnb/interf_dec.h>

#include <algorithm>
#include <array>
#include <memory>

#include "zx_assert.h"
#include "zx_codec_amr_tables.h"
#include "zx_container_isobmff.h"
#include "zx_heap.h"

namespace {

constexpr int32_t FRAME_LENGTH = 160;      // samples
constexpr int16_t HOMING_SAMPLE = 0x0008;  // what a homed decoder answers a homing frame with
constexpr uint32_t NUM_SPEECH_MODES = 8;   // frame types below are speech, 4.75 to 12.2 kbit/s
constexpr uint32_t NO_DATA = 15;
constexpr std::array<uint8_t, 16> AMR_PACKED_SIZES = {12, 13, 15, 17, 19, 20, 26, 31,
                                                      5,  6,  5,  5,  0,  0,  0,  0};  // bytes
constexpr std::array<uint8_t, NUM_SPEECH_MODES> SPEECH_BITS = {95, 103, 118, 134, 148, 159, 204, 244};

// Which packed bits carry speech in each mode; the rest of the last byte is padding.
constexpr std::array<zx_amr_packed_bits_t, NUM_SPEECH_MODES> make_speech_masks() {
    std::array<zx_amr_packed_bits_t, NUM_SPEECH_MODES> masks{};
    for (size_t mode = 0; mode < masks.size(); mode++) {
        for (uint32_t bit = 0; bit < SPEECH_BITS[mode]; bit++) {
            uint8_t &byte = masks[mode][bit / 8];
            byte = static_cast<uint8_t>(byte | 0x80 >> bit % 8);
        }
    }
    return masks;
}

constexpr std::array<zx_amr_packed_bits_t, NUM_SPEECH_MODES> SPEECH_MASKS = make_speech_masks();

struct codec_amr_t {
    void *decoder;
    bool was_reset;  // by the frame before: the decoder is homed
};

// Whether the bits of a speech frame that `mask` selects are those of its mode's homing frame.
bool equals_homing_frame(uint32_t frame_type, const uint8_t *bits, const zx_amr_packed_bits_t &mask) {
    const zx_amr_packed_bits_t &homing = AMR_HOMING_FRAMES[frame_type];
    for (size_t i = 0; i < homing.size(); i++) {
        if ((bits[i] ^ homing[i]) & mask[i]) return false;
    }
    return true;
}

bool is_homing_frame(uint32_t frame_type, const uint8_t *bits) {
    return frame_type < NUM_SPEECH_MODES && equals_homing_frame(frame_type, bits, SPEECH_MASKS[frame_type]);
}

bool is_homing_frame_first_subframe(uint32_t frame_type, const uint8_t *bits) {
    return frame_type < NUM_SPEECH_MODES &&
           equals_homing_frame(frame_type, bits, AMR_HOMING_FIRST_SUBFRAME[frame_type]);
}

// The library offers no reset; a new decoder is in the same state.
zx_status_t reset_decoder(codec_amr_t *o) {
    Decoder_Interface_exit(o->decoder);
    o->decoder = Decoder_Interface_init();
    return o->decoder ? ZX_STATUS_SUCCESS : ZX_STATUS_OUT_OF_MEMORY;
}

}  // namespace

zx_status_t zx_codec_amr_init(void **object) {
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<codec_amr_t, zx_codec_amr_delete> o(zx_heap_zeroed<codec_amr_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->decoder = Decoder_Interface_init();
    if (!o->decoder) return ZX_STATUS_RUNTIME_ERROR;
    o->was_reset = true;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_codec_amr_delete(void *object) {
    if (!object) return;
    codec_amr_t *o = static_cast<codec_amr_t *>(object);
    if (o->decoder) Decoder_Interface_exit(o->decoder);
    std::free(o);
}

zx_status_t zx_codec_amr_decode_frame(void *object, zx_container_isobmff_t *isobmff_object, int16_t *dest,
                                      uint32_t *samples_written) {
    ZX_ASSERT(object);
    ZX_ASSERT(isobmff_object);
    ZX_ASSERT(dest);
    ZX_ASSERT(samples_written);
    codec_amr_t *o = static_cast<codec_amr_t *>(object);
    *samples_written = 0;
    uint8_t frame[1 + 31] =
        {};  // the library reads as many bytes as the frame type has, whatever was in the file
    zx_status_t status = zx_container_isobmff_read_file(isobmff_object, frame, 1);
    if (status != ZX_STATUS_SUCCESS) return status;
    const uint32_t frame_type = ft_from_toc(frame[0]);
    if (AMR_PACKED_SIZES[frame_type] > 0) {
        status = zx_container_isobmff_read_file(isobmff_object, frame + 1, AMR_PACKED_SIZES[frame_type]);
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    if (!o->decoder) return ZX_STATUS_OUT_OF_MEMORY;  // an earlier reset failed

    const uint8_t *bits = frame + 1;
    bool is_reset = o->was_reset && is_homing_frame_first_subframe(frame_type, bits);
    if (is_reset) {
        std::fill_n(dest, FRAME_LENGTH, HOMING_SAMPLE);
    } else {
        // The comfort noise frames of other systems (types 9 to 11) and the unused types have nothing to
        // decode, and a frame marked bad is not to be trusted: the decoder conceals both as it does frames
        // that are missing.
        const bool is_bad =
            q_from_toc(frame[0]) == 0 || (frame_type > NUM_SPEECH_MODES && frame_type < NO_DATA);
        Decoder_Interface_Decode(o->decoder, frame, dest, is_bad ? 1 : 0);
    }
    *samples_written = FRAME_LENGTH;

    if (!o->was_reset) is_reset = is_homing_frame(frame_type, bits);
    o->was_reset = is_reset;
    return is_reset ? reset_decoder(o) : ZX_STATUS_SUCCESS;
}

void zx_codec_amr_num_samples(int32_t track_length_bytes, uint64_t *num_samples) {
    ZX_ASSERT(track_length_bytes > 0);
    ZX_ASSERT(num_samples);
    *num_samples = static_cast<uint64_t>(track_length_bytes / 32) * FRAME_LENGTH;
}

int32_t zx_codec_amr_max_synth_framesize() {
    return FRAME_LENGTH;
}
