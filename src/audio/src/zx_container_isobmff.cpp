// SPDX-License-Identifier: Apache-2.0
#include "zx_container_isobmff.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "zx_assert.h"
#include "zx_audio_util.h"
#include "zx_codec_aac.h"
#include "zx_codec_amr.h"
#include "zx_file.h"
#include "zx_heap.h"
#include "zx_log.h"

using boxes_t = zx_container_isobmff_metadata_boxes_t;
using audio_info_t = zx_container_isobmff_audio_info_t;
using sampleset_t = zx_container_isobmff_sampleset_t;

struct zx_container_isobmff_t {
    FILE *file;
    sampleset_t sampleset;
    audio_info_t audio_info;
    void *aac;  // unconfigured for an AMR track
    void *amr;
    int32_t current_sample;
    uint32_t position;          // in bytes, inside the current sample
    zx_packet_buffer_t buffer;  // of the last frame
};

namespace {

constexpr int32_t PENDING_CAPACITY = 4096;  // samples

// Length of an open file in bytes; -1 on error. The position stays.
int64_t file_length(FILE *file) {
    const off_t position = ftello(file);
    if (position < 0 || fseeko(file, 0, SEEK_END) != 0) return -1;
    const off_t length = ftello(file);
    return fseeko(file, position, SEEK_SET) == 0 ? length : -1;
}

// What boxes without media may take of memory. A list of brands is a few dozen bytes; the tables of 2^31
// samples at 16 kHz in frames of 10 ms stay below 256 MiB.
constexpr uint64_t LARGEST_FTYP = uint64_t{1} << 20, LARGEST_TABLES = uint64_t{1} << 28;

// Reads the box of `size` bytes at the position of a file of `length` bytes. ZX_STATUS_IO_ERROR when the file
// does not hold it, ZX_STATUS_INVALID_ARGUMENT beyond `largest`: found out before memory is taken for it.
zx_status_t read_box(FILE *file, int64_t length, uint64_t size, uint64_t largest, zx_heap_ptr<uint8_t> *box) {
    if (size > largest) return ZX_STATUS_INVALID_ARGUMENT;
    const off_t position = ftello(file);
    if (position < 0 || length < position || size > static_cast<uint64_t>(length - position)) {
        return ZX_STATUS_IO_ERROR;
    }
    box->reset(zx_heap_zeroed<uint8_t>(static_cast<size_t>(std::max<uint64_t>(size, 16))));
    if (!*box) return ZX_STATUS_OUT_OF_MEMORY;
    return std::fread(box->get(), 1, static_cast<size_t>(size), file) == size ? ZX_STATUS_SUCCESS
                                                                              : ZX_STATUS_IO_ERROR;
}

}  // namespace

// ---- Compatibility

bool zx_container_isobmff_is_compatible_brand(const char *brand) {
    ZX_ASSERT(brand);
    for (const char *known : {"3gp4", "3gp5", "3gp6", "iso2", "isom", "mp41", "mp42"}) {
        if (std::memcmp(brand, known, 4) == 0) return true;
    }
    return false;
}

bool zx_container_isobmff_is_compatible_file(const char *path) {
    ZX_ASSERT(path);
    const zx_file_ptr file(zx_fopen(path, "rb"));
    uint64_t size;
    char type[5];
    if (!file || zx_container_isobmff_box_header_peek_file(file.get(), &size, type) != ZX_STATUS_SUCCESS ||
        std::strcmp(type, "ftyp") != 0) {
        return false;
    }
    zx_heap_ptr<uint8_t> box;
    if (read_box(file.get(), file_length(file.get()), size, LARGEST_FTYP, &box) != ZX_STATUS_SUCCESS)
        return false;
    zx_container_isobmff_ftyp_box_t *parsed = nullptr;
    if (size < 8 || zx_container_isobmff_ftyp_box_init(box.get(), &parsed) != ZX_STATUS_SUCCESS) return true;
    const zx_owned<zx_container_isobmff_ftyp_box_t, zx_container_isobmff_ftyp_box_delete> ftyp(parsed);
    if (zx_container_isobmff_is_compatible_brand(ftyp->major_brand)) return true;
    return std::any_of(ftyp->compatible_brands, ftyp->compatible_brands + ftyp->num_brands,
                       zx_container_isobmff_is_compatible_brand);
}

// ---- Metadata

void zx_container_isobmff_audio_info_reset(audio_info_t *audio_info) {
    std::free(audio_info->decoder_specific_info);
    *audio_info = {};
    audio_info->track_index = -1;
}

void zx_container_isobmff_metadata_boxes_delete(boxes_t *metadata_boxes) {
    if (!metadata_boxes) return;
    for (int32_t i = 0; i < metadata_boxes->num_moofs; i++) {
        zx_container_isobmff_moof_box_delete(metadata_boxes->moofs[i]);
    }
    std::free(metadata_boxes->moofs);
    zx_container_isobmff_moov_box_delete(metadata_boxes->moov);
    std::free(metadata_boxes);
}

namespace {

zx_status_t add_moov(const uint8_t *box_data, boxes_t *boxes) {
    if (boxes->moov) return ZX_STATUS_INVALID_ARGUMENT;
    return zx_container_isobmff_moov_box_init(box_data, &boxes->moov);
}

zx_status_t add_moof(const uint8_t *box_data, uint64_t file_position, boxes_t *boxes) {
    void *grown =
        std::realloc(boxes->moofs, (static_cast<size_t>(boxes->num_moofs) + 1) * sizeof(*boxes->moofs));
    if (!grown) return ZX_STATUS_OUT_OF_MEMORY;
    boxes->moofs = static_cast<zx_container_isobmff_moof_box_t **>(grown);
    const zx_status_t status =
        zx_container_isobmff_moof_box_init(box_data, file_position, &boxes->moofs[boxes->num_moofs]);
    if (status == ZX_STATUS_SUCCESS) boxes->num_moofs++;
    return status;
}

}  // namespace

zx_status_t zx_container_isobmff_read_metadata_boxes(FILE *file, boxes_t **metadata_boxes) {
    ZX_ASSERT(file);
    ZX_ASSERT(metadata_boxes);
    *metadata_boxes = nullptr;
    zx_owned<boxes_t, zx_container_isobmff_metadata_boxes_delete> boxes(zx_heap_zeroed<boxes_t>());
    if (!boxes) return ZX_STATUS_OUT_OF_MEMORY;
    const int64_t length = file_length(file);
    uint64_t size;
    char type[5];
    while (zx_container_isobmff_box_header_peek_file(file, &size, type) == ZX_STATUS_SUCCESS) {
        const off_t position = ftello(file);
        if (size < 8 || position < 0) return ZX_STATUS_INVALID_ARGUMENT;  // would never advance
        const bool is_moov = std::strcmp(type, "moov") == 0;
        if (is_moov || std::strcmp(type, "moof") == 0) {
            zx_heap_ptr<uint8_t> box;
            zx_status_t status = read_box(file, length, size, LARGEST_TABLES, &box);
            if (status != ZX_STATUS_SUCCESS) return status;
            status = is_moov ? add_moov(box.get(), boxes.get())
                             : add_moof(box.get(), static_cast<uint64_t>(position), boxes.get());
            if (status != ZX_STATUS_SUCCESS) return status;
        } else if (size > static_cast<uint64_t>(length - position) ||
                   fseeko(file, static_cast<off_t>(size), SEEK_CUR) != 0) {
            break;  // the last box is cut off
        }
    }
    *metadata_boxes = boxes.release();
    return ZX_STATUS_SUCCESS;
}

namespace {

zx_status_t copy_decoder_specific_info(const zx_container_isobmff_audio_sample_entry_t *entry,
                                       audio_info_t *info) {
    if (!entry->esds) return ZX_STATUS_INVALID_ARGUMENT;
    const auto *source = entry->esds->es_descriptor->decoder_config->decoder_specific_info;
    if (!source->data) return ZX_STATUS_SUCCESS;  // the decoder stays unconfigured and refuses to decode
    info->decoder_specific_info = zx_heap_zeroed<uint8_t>(source->descriptor.size);
    if (!info->decoder_specific_info) return ZX_STATUS_OUT_OF_MEMORY;
    std::memcpy(info->decoder_specific_info, source->data, source->descriptor.size);
    info->decoder_specific_info_length = static_cast<int32_t>(source->descriptor.size);
    return ZX_STATUS_SUCCESS;
}

// The first sample entry of the track that can be decoded; the track index stays -1 if there is none.
zx_status_t choose_entry(const zx_container_isobmff_stsd_box_t *stsd, int32_t track_index,
                         audio_info_t *info) {
    for (int32_t i = 0; i < stsd->num_entries; i++) {
        const zx_container_isobmff_audio_sample_entry_t *entry = stsd->entries[i];
        info->channels = entry->channelcount;
        info->sample_rate = entry->samplerate;
        if (std::strcmp(entry->header.type, "samr") == 0) {
            info->codec = ZX_ISOBMFF_CODEC_AMR;
            info->channels = 1;
            info->track_index = track_index;
            return ZX_STATUS_SUCCESS;
        }
        if (std::strcmp(entry->header.type, "mp4a") == 0) {
            info->codec = ZX_ISOBMFF_CODEC_AAC;
            info->track_index = track_index;
            return copy_decoder_specific_info(entry, info);
        }
    }
    return ZX_STATUS_SUCCESS;
}

// The media box of a sound track with everything that reading it needs.
bool is_complete_sound_track(const zx_container_isobmff_trak_box_t *trak) {
    const zx_container_isobmff_mdia_box_t *mdia = trak->mdia;
    return mdia && mdia->hdlr && std::strcmp(mdia->hdlr->handler_type, "soun") == 0 && mdia->mdhd &&
           mdia->minf && mdia->minf->stbl && mdia->minf->stbl->stsd;
}

zx_status_t get_audio_info(const boxes_t *boxes, audio_info_t *info) {
    zx_container_isobmff_audio_info_reset(info);
    for (int32_t i = 0; i < boxes->moov->num_traks && info->track_index < 0; i++) {
        const zx_container_isobmff_trak_box_t *trak = boxes->moov->traks[i];
        if (!is_complete_sound_track(trak)) continue;
        info->timescale = static_cast<int32_t>(trak->mdia->mdhd->timescale);
        info->duration = static_cast<int32_t>(trak->mdia->mdhd->duration);
        const zx_status_t status = choose_entry(trak->mdia->minf->stbl->stsd, i, info);
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    return info->track_index < 0 ? ZX_STATUS_INVALID_ARGUMENT : ZX_STATUS_SUCCESS;
}

// Makes room for `count` more samples. Together they may not outnumber the file's bytes: a count that nothing
// backs is found out here, before memory is taken for it.
zx_status_t grow_sampleset(sampleset_t *sampleset, uint64_t count, uint64_t max_samples) {
    const uint64_t length = static_cast<uint64_t>(sampleset->length) + count;
    if (length > max_samples || length > INT32_MAX) return ZX_STATUS_INVALID_ARGUMENT;
    if (length == 0) return ZX_STATUS_SUCCESS;
    void *grown = std::realloc(sampleset->entries, static_cast<size_t>(length) * sizeof(*sampleset->entries));
    if (!grown) return ZX_STATUS_OUT_OF_MEMORY;
    sampleset->entries = static_cast<zx_container_isobmff_sample_t *>(grown);
    std::fill(sampleset->entries + sampleset->length, sampleset->entries + length,
              zx_container_isobmff_sample_t{});
    sampleset->length = static_cast<int32_t>(length);
    return ZX_STATUS_SUCCESS;
}

// Only empty edits may come before the last one. Edits are not applied.
zx_status_t check_edts(const zx_container_isobmff_trak_box_t *trak) {
    if (!trak->edts) return ZX_STATUS_SUCCESS;
    const zx_container_isobmff_elst_box_t *elst = trak->edts->elst;
    if (!elst) return ZX_STATUS_INVALID_ARGUMENT;
    for (uint32_t i = 0; i + 1 < elst->entry_count; i++) {
        if (elst->media_time[i] >= 0) return ZX_STATUS_INVALID_ARGUMENT;
    }
    if (elst->entry_count >= 2) {
        zx_log(" [WARN] Supplied audio file contains edits which may result in inaccurate timing info\n");
    }
    return ZX_STATUS_SUCCESS;
}

// Number of chunks in a run: up to the first chunk of the next run, or to the end. Chunks count from 1.
uint64_t run_length(const zx_container_isobmff_stbl_box_t *stbl, uint32_t run) {
    const uint64_t first = stbl->stsc->first_chunk[run];
    const uint64_t next = run + 1 < stbl->stsc->entry_count ? stbl->stsc->first_chunk[run + 1]
                                                            : uint64_t{stbl->stco->entry_count} + 1;
    return next > first ? next - first : 0;
}

// Samples follow each other inside a chunk. A chunk of no samples still places one.
zx_status_t place_samples(const zx_container_isobmff_stbl_box_t *stbl, sampleset_t *sampleset) {
    zx_container_isobmff_sample_t *next = sampleset->entries;
    const zx_container_isobmff_sample_t *end = next + sampleset->length;
    uint64_t chunk = 0;
    for (uint32_t run = 0; run < stbl->stsc->entry_count; run++) {
        for (uint64_t last = chunk + run_length(stbl, run); chunk < last; chunk++) {
            const uint64_t count = std::max<uint64_t>(stbl->stsc->samples_per_chunk[run], 1);
            if (chunk >= stbl->stco->entry_count || count > static_cast<uint64_t>(end - next)) {
                return ZX_STATUS_INVALID_ARGUMENT;
            }
            uint64_t offset = stbl->stco->chunk_offsets[chunk];
            for (uint64_t i = 0; i < count; i++, next++) {
                next->offset = offset;
                offset += next->size;
            }
        }
    }
    return ZX_STATUS_SUCCESS;
}

zx_status_t samples_from_moov(const zx_container_isobmff_trak_box_t *trak, uint64_t max_samples,
                              sampleset_t *sampleset) {
    const zx_container_isobmff_stbl_box_t *stbl = trak->mdia->minf->stbl;
    if (!stbl->stsz || !stbl->stsc || !stbl->stco) return ZX_STATUS_INVALID_ARGUMENT;
    zx_status_t status = grow_sampleset(sampleset, stbl->stsz->sample_count, max_samples);
    if (status != ZX_STATUS_SUCCESS) return status;
    for (int32_t k = 0; k < sampleset->length; k++) {
        sampleset->entries[k].size =
            zx_container_isobmff_stsz_box_sample_size(stbl->stsz, static_cast<uint32_t>(k));
    }
    status = check_edts(trak);
    if (status != ZX_STATUS_SUCCESS) return status;
    return place_samples(stbl, sampleset);
}

// A value of a run: its own, else the fragment's default, else the track's.
uint32_t run_value(const uint32_t *table, uint32_t index, bool has_default, uint32_t fragment_default,
                   uint32_t track_default) {
    return table ? table[index] : has_default ? fragment_default : track_default;
}

struct fragment_context {
    const zx_container_isobmff_trex_box_t *trex;
    bool needs_duration;  // "moov" does not know it: the fragments' durations are added up
    uint64_t max_samples;
};

zx_status_t append_run(const fragment_context &context, const zx_container_isobmff_tfhd_box_t *tfhd,
                       const zx_container_isobmff_trun_box_t *trun, uint64_t base, audio_info_t *info,
                       sampleset_t *sampleset) {
    const int32_t first = sampleset->length;
    const zx_status_t status = grow_sampleset(sampleset, trun->sample_count, context.max_samples);
    if (status != ZX_STATUS_SUCCESS) return status;
    uint64_t offset = base + static_cast<uint64_t>(int64_t{trun->data_offset});  // 0 when absent; modulo 2^64
    for (uint32_t s = 0; s < trun->sample_count; s++) {
        zx_container_isobmff_sample_t *sample = &sampleset->entries[first + static_cast<int32_t>(s)];
        sample->offset = offset;
        sample->size = run_value(trun->sample_size, s, tfhd->default_sample_size_present,
                                 tfhd->default_sample_size, context.trex->default_sample_size);
        offset += sample->size;
        if (context.needs_duration) {
            info->duration += run_value(trun->sample_duration, s, tfhd->default_sample_duration_present,
                                        tfhd->default_sample_duration, context.trex->default_sample_duration);
        }
    }
    return ZX_STATUS_SUCCESS;
}

zx_status_t append_samples_from_moofs(const boxes_t *boxes, uint64_t max_samples, audio_info_t *info,
                                      sampleset_t *sampleset) {
    const zx_container_isobmff_mvex_box_t *mvex = boxes->moov->mvex;
    if (mvex->num_trexs != boxes->moov->num_traks) return ZX_STATUS_INVALID_ARGUMENT;
    // Paired by position, not by number: writers that number freely keep the order.
    const fragment_context context = {mvex->trexs[info->track_index],
                                      boxes->moov->traks[info->track_index]->mdia->mdhd->duration == 0,
                                      max_samples};
    uint32_t previous_number = 0;
    for (int32_t m = 0; m < boxes->num_moofs; m++) {
        const zx_container_isobmff_moof_box_t *moof = boxes->moofs[m];
        if (!moof->mfhd || moof->mfhd->sequence_number <= previous_number) return ZX_STATUS_INVALID_ARGUMENT;
        previous_number = moof->mfhd->sequence_number;
        for (int32_t t = 0; t < moof->num_trafs; t++) {
            const zx_container_isobmff_traf_box_t *traf = moof->trafs[t];
            if (!traf->tfhd) return ZX_STATUS_INVALID_ARGUMENT;
            if (traf->tfhd->track_ID != context.trex->track_ID) continue;
            uint64_t base =
                traf->tfhd->base_data_offset_present ? traf->tfhd->base_data_offset : moof->file_position;
            for (int32_t r = 0; r < traf->num_truns; r++) {
                const zx_status_t status =
                    append_run(context, traf->tfhd, traf->truns[r], base, info, sampleset);
                if (status != ZX_STATUS_SUCCESS) return status;
                // By the size of the box, not of its samples: a later run without an offset of its own starts
                // there.
                base += traf->truns[r]->header.size;
            }
        }
    }
    return ZX_STATUS_SUCCESS;
}

}  // namespace

zx_status_t zx_container_isobmff_get_audio_layout(FILE *file, audio_info_t *audio_info,
                                                  sampleset_t *sampleset) {
    ZX_ASSERT(file);
    ZX_ASSERT(sampleset);
    ZX_ASSERT(audio_info);
    boxes_t *read = nullptr;
    zx_status_t status = zx_container_isobmff_read_metadata_boxes(file, &read);
    if (status != ZX_STATUS_SUCCESS) return status;
    const zx_owned<boxes_t, zx_container_isobmff_metadata_boxes_delete> boxes(read);
    if (!boxes->moov) return ZX_STATUS_INVALID_ARGUMENT;
    status = get_audio_info(boxes.get(), audio_info);
    if (status != ZX_STATUS_SUCCESS) return status;

    const int64_t length = file_length(file);
    if (length < 0) return ZX_STATUS_IO_ERROR;
    const uint64_t max_samples = static_cast<uint64_t>(length);
    status = samples_from_moov(boxes->moov->traks[audio_info->track_index], max_samples, sampleset);
    if (status != ZX_STATUS_SUCCESS || !boxes->moov->mvex) return status;
    return append_samples_from_moofs(boxes.get(), max_samples, audio_info, sampleset);
}

// ---- The reader

namespace {

const zx_container_isobmff_t *get(const void *object) {
    ZX_ASSERT(object);
    return static_cast<const zx_container_isobmff_t *>(object);
}

zx_status_t get_num_samples(zx_container_isobmff_t *o, uint64_t track_length_bytes, uint64_t *num_samples) {
    ZX_ASSERT(o);
    ZX_ASSERT(num_samples);
    *num_samples = 0;
    if constexpr (PARLEY_WITH_AAC) {
        if (o->audio_info.codec == ZX_ISOBMFF_CODEC_AAC)
            return zx_codec_aac_num_samples(o->aac, o, num_samples);
    }
    if constexpr (PARLEY_WITH_AMR) {
        if (track_length_bytes == 0 || track_length_bytes > INT32_MAX) return ZX_STATUS_INVALID_ARGUMENT;
        zx_codec_amr_num_samples(static_cast<int32_t>(track_length_bytes), num_samples);
        return ZX_STATUS_SUCCESS;
    }
    return ZX_STATUS_INVALID_ARGUMENT;
}

// Both decoders are there whatever the codec; for an AMR track the AAC decoder stays unconfigured, or is
// not there where it would have to be loaded and cannot be.
zx_status_t init_decoders(zx_container_isobmff_t *o) {
    const audio_info_t &info = o->audio_info;
    if (!PARLEY_WITH_AAC && info.codec == ZX_ISOBMFF_CODEC_AAC) {
        return zx_audio_util_refuse_left_out("PARLEY_WITH_AAC");
    }
    if (!PARLEY_WITH_AMR && info.codec == ZX_ISOBMFF_CODEC_AMR) {
        return zx_audio_util_refuse_left_out("PARLEY_WITH_AMR");
    }
    zx_status_t status = ZX_STATUS_SUCCESS;
    if constexpr (PARLEY_WITH_AAC) {
        if (zx_codec_aac_is_available()) {
            status =
                zx_codec_aac_init(&o->aac, info.decoder_specific_info, info.decoder_specific_info_length);
            if (status != ZX_STATUS_SUCCESS) return status;
        } else if (info.codec == ZX_ISOBMFF_CODEC_AAC) {
            return zx_audio_util_refuse_missing("AAC", "libfdk-aac.so.2", "libfdk-aac2");
        }
    }
    if constexpr (PARLEY_WITH_AMR) status = zx_codec_amr_init(&o->amr);
    return status;
}

void warn_of_discrepancy(const zx_container_isobmff_t *o) {
    const audio_info_t &info = o->audio_info;
    const int64_t media_seconds = info.timescale != 0 ? info.duration / info.timescale : 0;
    const int64_t decoded_seconds =
        info.sample_rate != 0 ? static_cast<int64_t>(o->buffer.num_samples) / info.sample_rate : 0;
    if (media_seconds == decoded_seconds) return;
    zx_log(
        " [WARN] Supplied audio file has a media duration discrepancy which may result in inaccurate timing "
        "info\n");
}

// The next decoded frame into the buffer.
zx_status_t refill(zx_container_isobmff_t *o) {
    uint32_t count = 0;
    zx_status_t status = ZX_STATUS_INVALID_ARGUMENT;
    if constexpr (PARLEY_WITH_AAC) {
        if (o->audio_info.codec == ZX_ISOBMFF_CODEC_AAC) {
            status = zx_codec_aac_decode_frame(o->aac, o, o->buffer.pcm, &count);
        }
    }
    if constexpr (PARLEY_WITH_AMR) {
        if (o->audio_info.codec == ZX_ISOBMFF_CODEC_AMR) {
            status = zx_codec_amr_decode_frame(o->amr, o, o->buffer.pcm, &count);
        }
    }
    o->buffer.remaining = static_cast<int32_t>(count);
    return status;
}

// Seeks to a byte of the current sample.
bool seek_sample(const zx_container_isobmff_t *o, uint32_t position) {
    const uint64_t offset = o->sampleset.entries[o->current_sample].offset + position;
    return offset <= INT64_MAX && fseeko(o->file, static_cast<off_t>(offset), SEEK_SET) == 0;
}

}  // namespace

zx_status_t zx_container_isobmff_init(const char *path, void **object) {
    ZX_ASSERT(path);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<zx_container_isobmff_t, zx_container_isobmff_delete> o(zx_heap_zeroed<zx_container_isobmff_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    zx_container_isobmff_audio_info_reset(&o->audio_info);
    o->file = zx_fopen(path, "rb");
    if (!o->file) return ZX_STATUS_IO_ERROR;
    zx_status_t status = zx_container_isobmff_get_audio_layout(o->file, &o->audio_info, &o->sampleset);
    if (status != ZX_STATUS_SUCCESS) return status;
    if (o->sampleset.length == 0) return ZX_STATUS_INVALID_ARGUMENT;

    status = init_decoders(o.get());
    if (status != ZX_STATUS_SUCCESS) return status;
    o->buffer.pcm = zx_heap_zeroed<int16_t>(PENDING_CAPACITY);
    if (!o->buffer.pcm) return ZX_STATUS_OUT_OF_MEMORY;

    uint64_t track_length_bytes = 0;
    for (int32_t k = 0; k < o->sampleset.length; k++) track_length_bytes += o->sampleset.entries[k].size;
    status = get_num_samples(o.get(), track_length_bytes, &o->buffer.num_samples);
    if (status != ZX_STATUS_SUCCESS) return status;
    // Back to the first sample. The decoders go on as they are: what they hold back is delivered first.
    o->current_sample = 0;
    o->position = 0;
    warn_of_discrepancy(o.get());
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_container_isobmff_delete(void *object) {
    if (!object) return;
    zx_container_isobmff_t *o = static_cast<zx_container_isobmff_t *>(object);
    if (o->file) std::fclose(o->file);
    std::free(o->sampleset.entries);
    zx_container_isobmff_audio_info_reset(&o->audio_info);
    if constexpr (PARLEY_WITH_AAC) zx_codec_aac_delete(o->aac);
    if constexpr (PARLEY_WITH_AMR) zx_codec_amr_delete(o->amr);
    std::free(o->buffer.pcm);
    std::free(o);
}

int32_t zx_container_isobmff_num_samples(const void *object) {
    return zx_audio_util_count(get(object)->buffer.num_samples);
}

int32_t zx_container_isobmff_num_channels(const void *object) {
    return get(object)->audio_info.channels;
}

int32_t zx_container_isobmff_sample_rate(const void *object) {
    return get(object)->audio_info.sample_rate;
}

double zx_container_isobmff_media_seconds(const void *object) {
    const audio_info_t &info = get(object)->audio_info;
    return info.timescale != 0 ? static_cast<double>(info.duration) / static_cast<double>(info.timescale) : 0;
}

zx_status_t zx_container_isobmff_read(void *object, int32_t num_samples, int16_t *pcm) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_samples > 0);
    ZX_ASSERT(pcm);
    zx_container_isobmff_t *o = static_cast<zx_container_isobmff_t *>(object);
    return zx_packet_buffer_read(&o->buffer, num_samples, pcm, [o] { return refill(o); });
}

// ---- Coded samples

bool zx_container_isobmff_is_end_of_samples(const zx_container_isobmff_t *object) {
    ZX_ASSERT(object);
    return object->current_sample >= object->sampleset.length;
}

zx_status_t zx_container_isobmff_read_file_packet(zx_container_isobmff_t *object, uint8_t *dest,
                                                  int32_t dest_size, uint32_t *count) {
    ZX_ASSERT(object);
    ZX_ASSERT(dest);
    ZX_ASSERT(dest_size > 0);
    ZX_ASSERT(count);
    if (zx_container_isobmff_is_end_of_samples(object)) return ZX_STATUS_INVALID_ARGUMENT;
    *count = 0;
    const uint32_t size = object->sampleset.entries[object->current_sample].size;
    if (!seek_sample(object, 0) || size > static_cast<uint32_t>(dest_size)) return ZX_STATUS_INVALID_ARGUMENT;
    if (std::fread(dest, 1, size, object->file) != size) return ZX_STATUS_IO_ERROR;
    *count = size;
    object->current_sample++;
    object->position = 0;
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_container_isobmff_read_file(zx_container_isobmff_t *object, uint8_t *dest, int32_t count) {
    ZX_ASSERT(object);
    ZX_ASSERT(dest);
    ZX_ASSERT(count > 0);
    uint32_t wanted = static_cast<uint32_t>(count);
    while (wanted > 0) {
        if (zx_container_isobmff_is_end_of_samples(object)) return ZX_STATUS_INVALID_ARGUMENT;
        if (!seek_sample(object, object->position)) return ZX_STATUS_INVALID_ARGUMENT;
        const uint32_t left = object->sampleset.entries[object->current_sample].size - object->position;
        const uint32_t length = std::min(left, wanted);
        if (std::fread(dest, 1, length, object->file) != length) return ZX_STATUS_IO_ERROR;
        dest += length;
        if (left < wanted) {
            object->current_sample++;
            object->position = 0;
        } else {
            object->position += length;
        }
        wanted -= length;
    }
    return ZX_STATUS_SUCCESS;
}
