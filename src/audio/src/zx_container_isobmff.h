// SPDX-License-Identifier: Apache-2.0
// MP4, M4A and 3GP files (ISO base media file format) with AAC or AMR-NB; one or two channels. The first
// sound track in one of the two codecs is read: its samples (here: coded units, an AAC access unit or some
// AMR frames) are found through the sample tables of "moov" and, in fragmented files, through the "moof"
// boxes, and decoded one after the other.
//
// Times are those of the decoder's output: edit lists are not applied (an encoder's lead-in is heard), and
// the sample rate is the one that the track names. Two debug lines warn where media times may differ from
// that.
#ifndef ZX_CONTAINER_ISOBMFF_H
#define ZX_CONTAINER_ISOBMFF_H

#include <cstdint>
#include <cstdio>

#include "zx_base.h"
#include "zx_container_isobmff_boxes.h"

enum : int32_t { ZX_ISOBMFF_CODEC_NONE = 0, ZX_ISOBMFF_CODEC_AAC = 1, ZX_ISOBMFF_CODEC_AMR = 2 };

// Where the coded samples lie.
struct zx_container_isobmff_sample_t {
    uint64_t offset;  // in the file
    uint32_t size;    // in bytes
};
struct zx_container_isobmff_sampleset_t {
    zx_container_isobmff_sample_t *entries;
    int32_t length;
};

// What the chosen track says of itself.
struct zx_container_isobmff_audio_info_t {
    int32_t track_index;  // among the "trak" boxes; -1 for none
    int32_t codec;
    int32_t channels;
    int32_t sample_rate;  // Hz
    int64_t duration;     // in units of 1 / timescale seconds
    int32_t timescale;
    uint8_t *decoder_specific_info;  // owned; null when absent
    int32_t decoder_specific_info_length;
};

// The parsed boxes; they live only while the track is looked for.
struct zx_container_isobmff_metadata_boxes_t {
    zx_container_isobmff_moov_box_t *moov;
    zx_container_isobmff_moof_box_t **moofs;  // in file order
    int32_t num_moofs;
};

struct zx_container_isobmff_t;

// The operations of zx_audio_adapter_t (zx_audio_file.h). For AAC, init decodes the whole track once to count
// its samples. ZX_STATUS_IO_ERROR: the file cannot be opened, or ends within a box or a sample;
// ZX_STATUS_INVALID_ARGUMENT: damaged boxes, no track that can be read, audio that cannot be decoded;
// ZX_STATUS_OUT_OF_MEMORY; and what the box parser and the decoders give.
[[nodiscard]] zx_status_t zx_container_isobmff_init(const char *path, void **object);
void zx_container_isobmff_delete(void *object);
int32_t zx_container_isobmff_num_samples(const void *object);
int32_t zx_container_isobmff_num_channels(const void *object);
int32_t zx_container_isobmff_sample_rate(const void *object);

// The duration of the track's media in seconds; 0 where it is not said.
double zx_container_isobmff_media_seconds(const void *object);
[[nodiscard]] zx_status_t zx_container_isobmff_read(void *object, int32_t num_samples, int16_t *pcm);

// Whether a file begins with a "ftyp" box that names one of the brands that can be read. A damaged "ftyp"
// counts as compatible: the reader refuses such a file with a status that says more.
bool zx_container_isobmff_is_compatible_file(const char *path);
bool zx_container_isobmff_is_compatible_brand(const char *brand);  // 4 characters

// ---- For the decoders: the coded samples one by one, or as one stream of bytes.

// Whether all samples have been taken.
bool zx_container_isobmff_is_end_of_samples(const zx_container_isobmff_t *object);

// The next whole sample. ZX_STATUS_INVALID_ARGUMENT: none is left, it is larger than dest_size > 0, or its
// position cannot be sought; ZX_STATUS_IO_ERROR: short read. *count receives its size.
[[nodiscard]] zx_status_t zx_container_isobmff_read_file_packet(zx_container_isobmff_t *object, uint8_t *dest,
                                                                int32_t dest_size, uint32_t *count);

// The next `count` > 0 bytes, across samples. Fails as above.
[[nodiscard]] zx_status_t zx_container_isobmff_read_file(zx_container_isobmff_t *object, uint8_t *dest,
                                                         int32_t count);

// ---- The steps of init.

[[nodiscard]] zx_status_t zx_container_isobmff_get_audio_layout(FILE *file,
                                                                zx_container_isobmff_audio_info_t *audio_info,
                                                                zx_container_isobmff_sampleset_t *sampleset);
[[nodiscard]] zx_status_t zx_container_isobmff_read_metadata_boxes(
    FILE *file, zx_container_isobmff_metadata_boxes_t **metadata_boxes);
void zx_container_isobmff_metadata_boxes_delete(zx_container_isobmff_metadata_boxes_t *metadata_boxes);
void zx_container_isobmff_audio_info_reset(zx_container_isobmff_audio_info_t *audio_info);

#endif
