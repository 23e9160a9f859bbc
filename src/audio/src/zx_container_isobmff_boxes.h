// SPDX-License-Identifier: Apache-2.0
// The boxes of ISO base media files (ISO/IEC 14496-12) that an audio track needs, as owned records, with the
// elementary stream descriptors of ISO/IEC 14496-1 inside "esds".
//
// A box is its size (32 bits, or 1 and then 64 bits behind the type), its type of four characters, and its
// content: fields, or more boxes. A full box begins its content with a version (8 bits) and flags (24 bits).
// Integers are big-endian. Boxes whose layout depends on the version are always read in the layout of version
// 0.
//
// Every <box>_box_init is given the first byte of a box whose `size` bytes all lie in memory: the caller has
// checked that of an outermost box, and each parser checks its children. Nothing outside them is read,
// whatever counts and sizes inside say, and no table is allocated that the box's bytes could not fill. Damage
// is ZX_STATUS_INVALID_ARGUMENT: a type other than the box's, a child that is smaller than a header or
// reaches past its parent, a count past the end. On failure nothing stays allocated and the out-pointer is
// null; every delete accepts null.
#ifndef ZX_CONTAINER_ISOBMFF_BOXES_H
#define ZX_CONTAINER_ISOBMFF_BOXES_H

#include <cstdint>
#include <cstdio>

#include "zx_base.h"

uint16_t big_endian_to_host_endian_u16(const uint8_t *be_data);
uint32_t big_endian_to_host_endian_u32(const uint8_t *be_data);
uint64_t big_endian_to_host_endian_u64(const uint8_t *be_data);
int16_t big_endian_to_host_endian_i16(const uint8_t *be_data);
int32_t big_endian_to_host_endian_i32(const uint8_t *be_data);
int64_t big_endian_to_host_endian_i64(const uint8_t *be_data);

struct zx_container_isobmff_box_header_t {
    uint64_t size;           // of the whole box
    char type[5];            // four characters and a zero
    uint32_t header_length;  // 8 or 16 bytes
};

struct zx_container_isobmff_fullbox_header_t {
    uint64_t size;
    char type[5];
    uint8_t version;         // always 0, see zx_container_isobmff_fullbox_header_init
    uint32_t flags;          // 24 bits
    uint32_t header_length;  // of the box header and 4 more
};

// Reads a header from memory that holds it: 8 bytes, 16 when the 32-bit size is 1, 4 more for a full box. The
// version is not kept: all boxes are read in the layout of version 0, and a version that cannot be looked at
// cannot be obeyed by mistake.
void zx_container_isobmff_box_header_init(const uint8_t *box_data, zx_container_isobmff_box_header_t *record);
void zx_container_isobmff_fullbox_header_init(const uint8_t *box_data,
                                              zx_container_isobmff_fullbox_header_t *record);

// Reads size and type of the box at the file's position, which stays where it is. ZX_STATUS_IO_ERROR: short
// read.
[[nodiscard]] zx_status_t zx_container_isobmff_box_header_peek_file(FILE *file, uint64_t *size,
                                                                    char boxtype[5]);

// ---- File type

struct zx_container_isobmff_ftyp_box_t {
    zx_container_isobmff_box_header_t header;
    char major_brand[5];
    uint32_t minor_version;
    int32_t num_brands;
    char (*compatible_brands)[5];  // num_brands, and one more that is empty
};
[[nodiscard]] zx_status_t zx_container_isobmff_ftyp_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_ftyp_box_t **object);
void zx_container_isobmff_ftyp_box_delete(zx_container_isobmff_ftyp_box_t *object);

// ---- Descriptors inside "esds". Each is read from `length` bytes, of which its own size field may claim
// fewer or more.

struct zx_container_isobmff_base_descriptor_t {
    uint8_t tag;
    uint32_t size;           // of the content
    uint32_t header_length;  // tag and size field
};
// Size in groups of 7 bits, at most 4 bytes, of which all but the last have bit 7 set. `es_data` must hold 4
// bytes. Returns the number of bytes.
uint32_t parse_es_size(const uint8_t *es_data, uint32_t *size);
[[nodiscard]] zx_status_t zx_container_isobmff_base_descriptor_init(
    const uint8_t *data, uint64_t length, zx_container_isobmff_base_descriptor_t *record);

// Tag 5: the configuration of the decoder (for AAC its AudioSpecificConfig).
struct zx_container_isobmff_decoder_specific_info_t {
    zx_container_isobmff_base_descriptor_t descriptor;
    uint8_t *data;  // descriptor.size bytes; null when there are none
};
[[nodiscard]] zx_status_t zx_container_isobmff_decoder_specific_info_init(
    const uint8_t *data, uint64_t length, zx_container_isobmff_decoder_specific_info_t **object);
void zx_container_isobmff_decoder_specific_info_delete(zx_container_isobmff_decoder_specific_info_t *object);

// Tag 4.
struct zx_container_isobmff_decoder_config_descriptor_t {
    zx_container_isobmff_base_descriptor_t descriptor;
    uint8_t objectTypeIndication;
    uint8_t stream_type;
    uint32_t bufferSizeDB;
    uint32_t maxBitrate;
    uint32_t avgBitrate;
    zx_container_isobmff_decoder_specific_info_t *decoder_specific_info;
};
[[nodiscard]] zx_status_t zx_container_isobmff_decoder_config_descriptor_init(
    const uint8_t *data, uint64_t length, zx_container_isobmff_decoder_config_descriptor_t **object);
void zx_container_isobmff_decoder_config_descriptor_delete(
    zx_container_isobmff_decoder_config_descriptor_t *object);

// Tag 3. A set URL flag is ZX_STATUS_INVALID_ARGUMENT: the stream would lie elsewhere.
struct zx_container_isobmff_es_descriptor_t {
    zx_container_isobmff_base_descriptor_t descriptor;
    uint16_t ES_ID;
    uint8_t flags;
    uint16_t dependsOn_ES_ID;
    uint16_t OCR_ES_Id;
    zx_container_isobmff_decoder_config_descriptor_t *decoder_config;
};
[[nodiscard]] zx_status_t zx_container_isobmff_es_descriptor_init(
    const uint8_t *data, uint64_t length, zx_container_isobmff_es_descriptor_t **object);
void zx_container_isobmff_es_descriptor_delete(zx_container_isobmff_es_descriptor_t *object);

struct zx_container_isobmff_esds_box_t {
    zx_container_isobmff_fullbox_header_t header;
    zx_container_isobmff_es_descriptor_t *es_descriptor;
};
[[nodiscard]] zx_status_t zx_container_isobmff_esds_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_esds_box_t **object);
void zx_container_isobmff_esds_box_delete(zx_container_isobmff_esds_box_t *object);

// ---- Sample table

// Its type is the format, for example "mp4a" or "samr".
struct zx_container_isobmff_audio_sample_entry_t {
    zx_container_isobmff_box_header_t header;
    uint16_t data_reference_index;
    uint16_t channelcount;
    uint16_t samplesize;
    uint16_t samplerate;                    // Hz; the integer part of the 16.16 field
    zx_container_isobmff_esds_box_t *esds;  // of an "mp4a" entry that has one
};
[[nodiscard]] zx_status_t zx_container_isobmff_audio_sample_entry_init(
    const uint8_t *box_data, zx_container_isobmff_audio_sample_entry_t **object);
void zx_container_isobmff_audio_sample_entry_delete(zx_container_isobmff_audio_sample_entry_t *object);

// For a track that is not sound the box is accepted and *object stays null.
struct zx_container_isobmff_stsd_box_t {
    zx_container_isobmff_fullbox_header_t header;
    uint32_t entry_count;
    int32_t num_entries;
    zx_container_isobmff_audio_sample_entry_t **entries;
};
[[nodiscard]] zx_status_t zx_container_isobmff_stsd_box_init(const uint8_t *box_data,
                                                             const char *handler_type,
                                                             zx_container_isobmff_stsd_box_t **object);
void zx_container_isobmff_stsd_box_delete(zx_container_isobmff_stsd_box_t *object);

// "stsz" and "stz2". A size common to all samples has no table: it would be as long as sample_count claims.
struct zx_container_isobmff_stsz_box_t {
    zx_container_isobmff_fullbox_header_t header;
    uint32_t sample_size;  // common to all samples, or 0
    uint32_t sample_count;
    uint32_t *entry_sizes;  // sample_count sizes in bytes; null with a common size
};
[[nodiscard]] zx_status_t zx_container_isobmff_stsz_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_stsz_box_t **object);
void zx_container_isobmff_stsz_box_delete(zx_container_isobmff_stsz_box_t *object);
// Size of sample `index` < sample_count in bytes.
uint32_t zx_container_isobmff_stsz_box_sample_size(const zx_container_isobmff_stsz_box_t *object,
                                                   uint32_t index);

// Runs of chunks with equally many samples.
struct zx_container_isobmff_stsc_box_t {
    zx_container_isobmff_fullbox_header_t header;
    uint32_t entry_count;
    uint32_t *first_chunk;  // from 1
    uint32_t *samples_per_chunk;
    uint32_t *sample_description_index;
};
[[nodiscard]] zx_status_t zx_container_isobmff_stsc_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_stsc_box_t **object);
void zx_container_isobmff_stsc_box_delete(zx_container_isobmff_stsc_box_t *object);

// "stco" (32-bit offsets) and "co64" (64-bit offsets).
struct zx_container_isobmff_stco_box_t {
    zx_container_isobmff_fullbox_header_t header;
    uint32_t entry_count;
    uint64_t *chunk_offsets;  // positions in the file
};
[[nodiscard]] zx_status_t zx_container_isobmff_stco_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_stco_box_t **object);
void zx_container_isobmff_stco_box_delete(zx_container_isobmff_stco_box_t *object);

struct zx_container_isobmff_stbl_box_t {
    zx_container_isobmff_box_header_t header;
    zx_container_isobmff_stsd_box_t *stsd;
    zx_container_isobmff_stsc_box_t *stsc;
    zx_container_isobmff_stsz_box_t *stsz;
    zx_container_isobmff_stco_box_t *stco;
};
[[nodiscard]] zx_status_t zx_container_isobmff_stbl_box_init(const uint8_t *box_data,
                                                             const char *handler_type,
                                                             zx_container_isobmff_stbl_box_t **object);
void zx_container_isobmff_stbl_box_delete(zx_container_isobmff_stbl_box_t *object);

// ---- Track

struct zx_container_isobmff_minf_box_t {
    zx_container_isobmff_box_header_t header;
    zx_container_isobmff_stbl_box_t *stbl;
};
[[nodiscard]] zx_status_t zx_container_isobmff_minf_box_init(const uint8_t *box_data,
                                                             const char *handler_type,
                                                             zx_container_isobmff_minf_box_t **object);
void zx_container_isobmff_minf_box_delete(zx_container_isobmff_minf_box_t *object);

struct zx_container_isobmff_hdlr_box_t {
    zx_container_isobmff_fullbox_header_t header;
    uint32_t pre_defined;
    char handler_type[5];  // "soun" for sound
    char *name;
};
[[nodiscard]] zx_status_t zx_container_isobmff_hdlr_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_hdlr_box_t **object);
void zx_container_isobmff_hdlr_box_delete(zx_container_isobmff_hdlr_box_t *object);

struct zx_container_isobmff_mdhd_box_t {
    zx_container_isobmff_fullbox_header_t header;
    uint64_t creation_time;
    uint64_t modification_time;
    uint32_t timescale;  // units per second
    uint64_t duration;
    uint16_t language;
    uint16_t pre_defined;
};
[[nodiscard]] zx_status_t zx_container_isobmff_mdhd_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_mdhd_box_t **object);
void zx_container_isobmff_mdhd_box_delete(zx_container_isobmff_mdhd_box_t *object);

// ZX_STATUS_RUNTIME_ERROR when the media information comes before the handler, which decides how to read it.
struct zx_container_isobmff_mdia_box_t {
    zx_container_isobmff_box_header_t header;
    zx_container_isobmff_mdhd_box_t *mdhd;
    zx_container_isobmff_hdlr_box_t *hdlr;
    zx_container_isobmff_minf_box_t *minf;
};
[[nodiscard]] zx_status_t zx_container_isobmff_mdia_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_mdia_box_t **object);
void zx_container_isobmff_mdia_box_delete(zx_container_isobmff_mdia_box_t *object);

struct zx_container_isobmff_elst_box_t {
    zx_container_isobmff_fullbox_header_t header;
    uint32_t entry_count;
    uint64_t *segment_duration;
    int64_t *media_time;  // -1 for an empty edit
    int16_t *media_rate_integer;
    int16_t *media_rate_fraction;
};
[[nodiscard]] zx_status_t zx_container_isobmff_elst_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_elst_box_t **object);
void zx_container_isobmff_elst_box_delete(zx_container_isobmff_elst_box_t *object);

struct zx_container_isobmff_edts_box_t {
    zx_container_isobmff_box_header_t header;
    zx_container_isobmff_elst_box_t *elst;
};
[[nodiscard]] zx_status_t zx_container_isobmff_edts_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_edts_box_t **object);
void zx_container_isobmff_edts_box_delete(zx_container_isobmff_edts_box_t *object);

struct zx_container_isobmff_tkhd_box_t {
    zx_container_isobmff_fullbox_header_t header;
    uint64_t creation_time;
    uint64_t modification_time;
    uint32_t track_ID;
    uint64_t duration;
    int16_t layer;
    int16_t alternate_group;
    int16_t volume;
    int32_t matrix[9];
    uint32_t width;
    uint32_t height;
};
[[nodiscard]] zx_status_t zx_container_isobmff_tkhd_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_tkhd_box_t **object);
void zx_container_isobmff_tkhd_box_delete(zx_container_isobmff_tkhd_box_t *object);

struct zx_container_isobmff_trak_box_t {
    zx_container_isobmff_box_header_t header;
    zx_container_isobmff_tkhd_box_t *tkhd;
    zx_container_isobmff_edts_box_t *edts;
    zx_container_isobmff_mdia_box_t *mdia;
};
[[nodiscard]] zx_status_t zx_container_isobmff_trak_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_trak_box_t **object);
void zx_container_isobmff_trak_box_delete(zx_container_isobmff_trak_box_t *object);

// ---- Movie

struct zx_container_isobmff_mvhd_box_t {
    zx_container_isobmff_fullbox_header_t header;
    uint64_t creation_time;
    uint64_t modification_time;
    uint32_t timescale;
    uint64_t duration;
    int32_t rate;
    int16_t volume;
    int32_t matrix[9];
    uint32_t next_track_ID;
};
[[nodiscard]] zx_status_t zx_container_isobmff_mvhd_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_mvhd_box_t **object);
void zx_container_isobmff_mvhd_box_delete(zx_container_isobmff_mvhd_box_t *object);

struct zx_container_isobmff_trex_box_t {
    zx_container_isobmff_fullbox_header_t header;
    uint32_t track_ID;
    uint32_t default_sample_description_index;
    uint32_t default_sample_duration;
    uint32_t default_sample_size;
    uint32_t default_sample_flags;
};
[[nodiscard]] zx_status_t zx_container_isobmff_trex_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_trex_box_t **object);
void zx_container_isobmff_trex_box_delete(zx_container_isobmff_trex_box_t *object);

struct zx_container_isobmff_mvex_box_t {
    zx_container_isobmff_box_header_t header;
    int32_t num_trexs;
    zx_container_isobmff_trex_box_t **trexs;
};
[[nodiscard]] zx_status_t zx_container_isobmff_mvex_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_mvex_box_t **object);
void zx_container_isobmff_mvex_box_delete(zx_container_isobmff_mvex_box_t *object);

struct zx_container_isobmff_moov_box_t {
    zx_container_isobmff_box_header_t header;
    zx_container_isobmff_mvhd_box_t *mvhd;
    int32_t num_traks;
    zx_container_isobmff_trak_box_t **traks;
    zx_container_isobmff_mvex_box_t *mvex;
};
[[nodiscard]] zx_status_t zx_container_isobmff_moov_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_moov_box_t **object);
void zx_container_isobmff_moov_box_delete(zx_container_isobmff_moov_box_t *object);

// ---- Fragments

struct zx_container_isobmff_mfhd_box_t {
    zx_container_isobmff_fullbox_header_t header;
    uint32_t sequence_number;
};
[[nodiscard]] zx_status_t zx_container_isobmff_mfhd_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_mfhd_box_t **object);
void zx_container_isobmff_mfhd_box_delete(zx_container_isobmff_mfhd_box_t *object);

// Values are present only where their flag says so.
struct zx_container_isobmff_tfhd_box_t {
    zx_container_isobmff_fullbox_header_t header;
    bool base_data_offset_present;
    bool sample_description_index_present;
    bool default_sample_duration_present;
    bool default_sample_size_present;
    bool default_sample_flags_present;
    bool duration_is_empty;
    uint32_t track_ID;
    uint64_t base_data_offset;
    uint32_t sample_description_index;
    uint32_t default_sample_duration;
    uint32_t default_sample_size;
    uint32_t default_sample_flags;
};
[[nodiscard]] zx_status_t zx_container_isobmff_tfhd_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_tfhd_box_t **object);
void zx_container_isobmff_tfhd_box_delete(zx_container_isobmff_tfhd_box_t *object);

// Tables are null where their flag is not set. A run without samples is ZX_STATUS_OUT_OF_MEMORY, as
// where a table of nothing cannot be had.
struct zx_container_isobmff_trun_box_t {
    zx_container_isobmff_fullbox_header_t header;
    bool data_offset_present;
    bool first_sample_flags_present;
    bool sample_duration_present;
    bool sample_size_present;
    bool sample_flags_present;
    bool sample_composition_time_offsets_present;
    uint32_t sample_count;
    int32_t data_offset;
    uint32_t first_sample_flags;
    uint32_t *sample_duration;
    uint32_t *sample_size;
    uint32_t *sample_flags;
    uint32_t *sample_composition_time_offset;
};
[[nodiscard]] zx_status_t zx_container_isobmff_trun_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_trun_box_t **object);
void zx_container_isobmff_trun_box_delete(zx_container_isobmff_trun_box_t *object);

struct zx_container_isobmff_traf_box_t {
    zx_container_isobmff_box_header_t header;
    zx_container_isobmff_tfhd_box_t *tfhd;
    int32_t num_truns;
    zx_container_isobmff_trun_box_t **truns;
};
[[nodiscard]] zx_status_t zx_container_isobmff_traf_box_init(const uint8_t *box_data,
                                                             zx_container_isobmff_traf_box_t **object);
void zx_container_isobmff_traf_box_delete(zx_container_isobmff_traf_box_t *object);

struct zx_container_isobmff_moof_box_t {
    zx_container_isobmff_box_header_t header;
    zx_container_isobmff_mfhd_box_t *mfhd;
    int32_t num_trafs;
    zx_container_isobmff_traf_box_t **trafs;
    uint64_t file_position;  // where the box begins
};
[[nodiscard]] zx_status_t zx_container_isobmff_moof_box_init(const uint8_t *box_data, uint64_t file_position,
                                                             zx_container_isobmff_moof_box_t **object);
void zx_container_isobmff_moof_box_delete(zx_container_isobmff_moof_box_t *object);

#endif
