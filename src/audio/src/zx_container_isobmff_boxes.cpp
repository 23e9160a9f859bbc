// SPDX-License-Identifier: Apache-2.0
#include "zx_container_isobmff_boxes.h"

#include <cstring>
#include <memory>
#include <type_traits>

#include "zx_assert.h"
#include "zx_heap.h"

uint16_t big_endian_to_host_endian_u16(const uint8_t *be_data) {
    ZX_ASSERT(be_data);
    return static_cast<uint16_t>(be_data[0] << 8 | be_data[1]);
}

uint32_t big_endian_to_host_endian_u32(const uint8_t *be_data) {
    ZX_ASSERT(be_data);
    return static_cast<uint32_t>(be_data[0]) << 24 | static_cast<uint32_t>(be_data[1]) << 16 |
           static_cast<uint32_t>(be_data[2]) << 8 | be_data[3];
}

uint64_t big_endian_to_host_endian_u64(const uint8_t *be_data) {
    ZX_ASSERT(be_data);
    return static_cast<uint64_t>(big_endian_to_host_endian_u32(be_data)) << 32 |
           big_endian_to_host_endian_u32(be_data + 4);
}

int16_t big_endian_to_host_endian_i16(const uint8_t *be_data) {
    return static_cast<int16_t>(big_endian_to_host_endian_u16(be_data));
}

int32_t big_endian_to_host_endian_i32(const uint8_t *be_data) {
    return static_cast<int32_t>(big_endian_to_host_endian_u32(be_data));
}

int64_t big_endian_to_host_endian_i64(const uint8_t *be_data) {
    return static_cast<int64_t>(big_endian_to_host_endian_u64(be_data));
}

void zx_container_isobmff_box_header_init(const uint8_t *box_data,
                                          zx_container_isobmff_box_header_t *record) {
    ZX_ASSERT(box_data);
    ZX_ASSERT(record);
    *record = {};
    record->size = big_endian_to_host_endian_u32(box_data);
    std::memcpy(record->type, box_data + 4, 4);
    record->header_length = 8;
    if (record->size == 1) {
        record->size = big_endian_to_host_endian_u64(box_data + 8);
        record->header_length = 16;
    }
}

void zx_container_isobmff_fullbox_header_init(const uint8_t *box_data,
                                              zx_container_isobmff_fullbox_header_t *record) {
    zx_container_isobmff_box_header_t header;
    zx_container_isobmff_box_header_init(box_data, &header);
    ZX_ASSERT(record);
    *record = {};
    record->size = header.size;
    std::memcpy(record->type, header.type, sizeof(header.type));
    record->flags = big_endian_to_host_endian_u32(box_data + header.header_length) & 0xFFFFFF;
    record->header_length = header.header_length + 4;
}

zx_status_t zx_container_isobmff_box_header_peek_file(FILE *file, uint64_t *size, char boxtype[5]) {
    ZX_ASSERT(file);
    ZX_ASSERT(size);
    ZX_ASSERT(boxtype);
    const off_t position = ftello(file);
    if (position < 0) return ZX_STATUS_IO_ERROR;
    uint8_t bytes[16];
    if (std::fread(bytes, 1, 8, file) != 8) return ZX_STATUS_IO_ERROR;
    if (big_endian_to_host_endian_u32(bytes) == 1 && std::fread(bytes + 8, 1, 8, file) != 8) {
        return ZX_STATUS_IO_ERROR;
    }
    zx_container_isobmff_box_header_t header;
    zx_container_isobmff_box_header_init(bytes, &header);
    if (fseeko(file, position, SEEK_SET) != 0) return ZX_STATUS_IO_ERROR;
    *size = header.size;
    std::memcpy(boxtype, header.type, sizeof(header.type));
    return ZX_STATUS_SUCCESS;
}

namespace {

// Reads the fields of one box in order. Every access to a box's bytes goes through here: past the end it
// yields zeros and is_good() is false from then on.
class field_reader {
public:
    field_reader(const uint8_t *data, uint64_t size, uint64_t offset = 0) : data_(data), size_(size) {
        skip(offset);
    }

    bool is_good() const { return is_good_; }
    uint64_t remaining() const { return size_ - offset_; }
    const uint8_t *position() const { return data_ + offset_; }

    // Whether `count` entries of `entry_size` bytes follow; to be asked before a table is allocated.
    bool holds(uint64_t count, uint64_t entry_size) const {
        return is_good_ && (entry_size == 0 || count <= remaining() / entry_size);
    }

    const uint8_t *take(uint64_t count) {
        static constexpr uint8_t ZEROS[8] = {};
        if (!is_good_ || count > remaining()) {
            is_good_ = false;
            return ZEROS;
        }
        offset_ += count;
        return data_ + offset_ - count;
    }
    void skip(uint64_t count) { take(count); }

    uint8_t u8() { return *take(1); }
    uint16_t u16() { return big_endian_to_host_endian_u16(take(2)); }
    uint32_t u32() { return big_endian_to_host_endian_u32(take(4)); }
    uint64_t u64() { return big_endian_to_host_endian_u64(take(8)); }
    int16_t i16() { return big_endian_to_host_endian_i16(take(2)); }
    int32_t i32() { return big_endian_to_host_endian_i32(take(4)); }
    uint32_t u24() {
        const uint32_t high = u16();
        return high << 8 | u8();
    }
    void matrix(int32_t (&values)[9]) {
        for (int32_t &value : values) value = i32();
    }
    void characters(char (&text)[5]) {
        std::memcpy(text, take(4), 4);
        text[4] = '\0';
    }

private:
    const uint8_t *data_;
    uint64_t size_;
    uint64_t offset_ = 0;
    bool is_good_ = true;
};

bool has_type(const char *type, const char *expected) {
    return std::strcmp(type, expected) == 0;
}

// Whether a whole box lies at the start of `available` bytes.
bool holds_box(const uint8_t *data, uint64_t available, zx_container_isobmff_box_header_t *header) {
    if (available < 8 || (big_endian_to_host_endian_u32(data) == 1 && available < 16)) return false;
    zx_container_isobmff_box_header_init(data, header);
    return header->size >= header->header_length && header->size <= available;
}

// A record under construction, with the reader of what follows its header.
template <auto delete_function, class T>
struct open_record {
    zx_owned<T, delete_function> box;
    field_reader fields;
    zx_status_t status;
};

// Makes the zeroed record; its status says whether there was memory for it.
template <auto delete_function, class T>
bool allocate_record(open_record<delete_function, T> *record) {
    record->box.reset(zx_heap_zeroed<T>());
    record->status = record->box ? ZX_STATUS_SUCCESS : ZX_STATUS_OUT_OF_MEMORY;
    return record->status == ZX_STATUS_SUCCESS;
}

// Asserts what every init asserts, makes the zeroed record and reads its header, which must have the given
// type, or any if that is null.
template <auto delete_function, class T>
open_record<delete_function, T> open_box(const uint8_t *box_data, const char *type, T **object) {
    ZX_ASSERT(box_data);
    ZX_ASSERT(object);
    *object = nullptr;
    constexpr bool is_full = std::is_same_v<decltype(T::header), zx_container_isobmff_fullbox_header_t>;
    open_record<delete_function, T> record = {nullptr, field_reader(box_data, 0), ZX_STATUS_INVALID_ARGUMENT};
    zx_container_isobmff_box_header_t header;
    zx_container_isobmff_box_header_init(box_data, &header);
    if (type && !has_type(header.type, type)) return record;
    if (header.size < header.header_length + (is_full ? 4 : 0)) return record;
    if (!allocate_record(&record)) return record;
    if constexpr (is_full) {
        zx_container_isobmff_fullbox_header_init(box_data, &record.box->header);
    } else {
        record.box->header = header;
    }
    record.fields = field_reader(box_data, header.size, record.box->header.header_length);
    return record;
}

// Hands the record out if all its fields lay inside the box.
template <class Box, class T>
zx_status_t finish_box(Box &box, const field_reader &fields, T **object) {
    if (!fields.is_good()) return ZX_STATUS_INVALID_ARGUMENT;
    *object = box.release();
    return ZX_STATUS_SUCCESS;
}

// Calls visit(type, child_data) for every box in the rest of `fields`, up to the first failure.
template <class Visit>
zx_status_t visit_children(field_reader *fields, Visit visit) {
    while (fields->remaining() > 0) {
        zx_container_isobmff_box_header_t child;
        if (!holds_box(fields->position(), fields->remaining(), &child)) return ZX_STATUS_INVALID_ARGUMENT;
        const zx_status_t status = visit(child.type, fields->take(child.size));
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    return ZX_STATUS_SUCCESS;
}

// The same for a box that consists of children, which is handed out at the end.
template <class Box, class T, class Visit>
zx_status_t finish_container(Box &box, field_reader &fields, T **object, Visit visit) {
    const zx_status_t status = visit_children(&fields, visit);
    return status == ZX_STATUS_SUCCESS ? finish_box(box, fields, object) : status;
}

// Parses a child that a box has once; a later one replaces an earlier one. `arguments` follow the child's
// data.
template <auto init_function, auto delete_function, class T, class... Arguments>
zx_status_t set_child(T **slot, const uint8_t *child_data, Arguments... arguments) {
    T *child = nullptr;
    const zx_status_t status = init_function(child_data, arguments..., &child);
    if (status != ZX_STATUS_SUCCESS) return status;
    delete_function(*slot);
    *slot = child;
    return ZX_STATUS_SUCCESS;
}

// Parses a child that a box has any number of times.
template <auto init_function, auto delete_function, class T>
zx_status_t append_child(T ***list, int32_t *count, const uint8_t *child_data) {
    T *parsed = nullptr;
    const zx_status_t status = init_function(child_data, &parsed);
    if (status != ZX_STATUS_SUCCESS) return status;
    zx_owned<T, delete_function> child(parsed);
    void *grown = std::realloc(*list, (static_cast<size_t>(*count) + 1) * sizeof(T *));
    if (!grown) return ZX_STATUS_OUT_OF_MEMORY;
    *list = static_cast<T **>(grown);
    (*list)[(*count)++] = child.release();
    return ZX_STATUS_SUCCESS;
}

template <auto delete_function, class T>
void delete_children(T **list, int32_t count) {
    for (int32_t i = count - 1; i >= 0; i--) delete_function(list[i]);
    std::free(list);
}

// A zeroed table of `count` values and a spare one, so that an empty table is not null either.
template <class T>
bool allocate_table(T **table, uint64_t count) {
    *table = zx_heap_zeroed<T>(static_cast<size_t>(count) + 1);
    return *table != nullptr;
}

}  // namespace

// ---- File type

zx_status_t zx_container_isobmff_ftyp_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_ftyp_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_ftyp_box_delete>(box_data, "ftyp", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    fields.characters(box->major_brand);  // unsigned int(32) major_brand;
    box->minor_version = fields.u32();    // unsigned int(32) minor_version;
    if (!fields.is_good()) return ZX_STATUS_INVALID_ARGUMENT;
    const uint64_t num_brands = fields.remaining() / 4;  // unsigned int(32) compatible_brands[];
    if (num_brands > INT32_MAX - 1) return ZX_STATUS_INVALID_ARGUMENT;
    box->num_brands = static_cast<int32_t>(num_brands);
    if (!allocate_table(&box->compatible_brands, num_brands)) return ZX_STATUS_OUT_OF_MEMORY;
    for (uint64_t i = 0; i < num_brands; i++) fields.characters(box->compatible_brands[i]);
    return finish_box(box, fields, object);
}

void zx_container_isobmff_ftyp_box_delete(zx_container_isobmff_ftyp_box_t *object) {
    if (!object) return;
    std::free(object->compatible_brands);
    std::free(object);
}

// ---- Descriptors

uint32_t parse_es_size(const uint8_t *es_data, uint32_t *size) {
    *size = 0;
    for (uint32_t count = 0; count < 4;) {
        const uint8_t byte = es_data[count++];
        *size = (*size << 7) + (byte & 0x7F);
        if (byte < 0x80) return count;
    }
    return 4;
}

zx_status_t zx_container_isobmff_base_descriptor_init(const uint8_t *data, uint64_t length,
                                                      zx_container_isobmff_base_descriptor_t *record) {
    uint8_t header[5] = {};  // a size field cut off by the end reads on in zeros
    std::memcpy(header, data, static_cast<size_t>(length < sizeof(header) ? length : sizeof(header)));
    record->tag = header[0];
    record->header_length = 1 + parse_es_size(header + 1, &record->size);
    return record->header_length <= length ? ZX_STATUS_SUCCESS : ZX_STATUS_INVALID_ARGUMENT;
}

namespace {

// The same as open_box for a descriptor, which must have the given tag.
template <auto delete_function, class T>
open_record<delete_function, T> open_descriptor(const uint8_t *data, uint64_t length, uint8_t tag,
                                                T **object) {
    ZX_ASSERT(data);
    ZX_ASSERT(object);
    *object = nullptr;
    open_record<delete_function, T> record = {nullptr, field_reader(data, 0), ZX_STATUS_INVALID_ARGUMENT};
    zx_container_isobmff_base_descriptor_t descriptor;
    if (zx_container_isobmff_base_descriptor_init(data, length, &descriptor) != ZX_STATUS_SUCCESS ||
        descriptor.tag != tag) {
        return record;
    }
    if (!allocate_record(&record)) return record;
    record.box->descriptor = descriptor;
    record.fields = field_reader(data, length, descriptor.header_length);
    return record;
}

}  // namespace

zx_status_t zx_container_isobmff_decoder_specific_info_init(
    const uint8_t *data, uint64_t length, zx_container_isobmff_decoder_specific_info_t **object) {
    auto [info, fields, status] =
        open_descriptor<zx_container_isobmff_decoder_specific_info_delete>(data, length, 5, object);
    if (status != ZX_STATUS_SUCCESS) return status;
    const uint32_t size = info->descriptor.size;
    if (!fields.holds(size, 1)) return ZX_STATUS_INVALID_ARGUMENT;
    if (size > 0) {
        info->data = zx_heap_zeroed<uint8_t>(size);
        if (!info->data) return ZX_STATUS_OUT_OF_MEMORY;
        std::memcpy(info->data, fields.take(size), size);
    }
    return finish_box(info, fields, object);
}

void zx_container_isobmff_decoder_specific_info_delete(zx_container_isobmff_decoder_specific_info_t *object) {
    if (!object) return;
    std::free(object->data);
    std::free(object);
}

zx_status_t zx_container_isobmff_decoder_config_descriptor_init(
    const uint8_t *data, uint64_t length, zx_container_isobmff_decoder_config_descriptor_t **object) {
    auto [config, fields, status] =
        open_descriptor<zx_container_isobmff_decoder_config_descriptor_delete>(data, length, 4, object);
    if (status != ZX_STATUS_SUCCESS) return status;
    config->objectTypeIndication = fields.u8();  // bit(8) objectTypeIndication;
    config->stream_type = fields.u8();           // bit(6) streamType; bit(1) upStream; bit(1) reserved;
    config->bufferSizeDB = fields.u24();         // bit(24) bufferSizeDB;
    config->maxBitrate = fields.u32();           // bit(32) maxBitrate;
    config->avgBitrate = fields.u32();           // bit(32) avgBitrate;
    if (!fields.is_good()) return ZX_STATUS_INVALID_ARGUMENT;
    const zx_status_t info_status = zx_container_isobmff_decoder_specific_info_init(
        fields.position(), fields.remaining(), &config->decoder_specific_info);
    if (info_status != ZX_STATUS_SUCCESS) return info_status;
    return finish_box(config, fields, object);
}

void zx_container_isobmff_decoder_config_descriptor_delete(
    zx_container_isobmff_decoder_config_descriptor_t *object) {
    if (!object) return;
    zx_container_isobmff_decoder_specific_info_delete(object->decoder_specific_info);
    std::free(object);
}

zx_status_t zx_container_isobmff_es_descriptor_init(const uint8_t *data, uint64_t length,
                                                    zx_container_isobmff_es_descriptor_t **object) {
    auto [es, fields, status] =
        open_descriptor<zx_container_isobmff_es_descriptor_delete>(data, length, 3, object);
    if (status != ZX_STATUS_SUCCESS) return status;
    es->ES_ID = fields.u16();  // bit(16) ES_ID;
    es->flags = fields.u8();   // bit(1) streamDependenceFlag; bit(1) URL_Flag; bit(1) OCRstreamFlag; ...
    if (es->flags & 0x40) return ZX_STATUS_INVALID_ARGUMENT;
    if (es->flags & 0x80) es->dependsOn_ES_ID = fields.u16();  // bit(16) dependsOn_ES_ID;
    if (es->flags & 0x20) es->OCR_ES_Id = fields.u16();        // bit(16) OCR_ES_Id;
    if (!fields.is_good()) return ZX_STATUS_INVALID_ARGUMENT;
    const zx_status_t config_status = zx_container_isobmff_decoder_config_descriptor_init(
        fields.position(), fields.remaining(), &es->decoder_config);
    if (config_status != ZX_STATUS_SUCCESS) return config_status;
    return finish_box(es, fields, object);
}

void zx_container_isobmff_es_descriptor_delete(zx_container_isobmff_es_descriptor_t *object) {
    if (!object) return;
    zx_container_isobmff_decoder_config_descriptor_delete(object->decoder_config);
    std::free(object);
}

zx_status_t zx_container_isobmff_esds_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_esds_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_esds_box_delete>(box_data, "esds", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    status =
        zx_container_isobmff_es_descriptor_init(fields.position(), fields.remaining(), &box->es_descriptor);
    if (status != ZX_STATUS_SUCCESS) return status;
    return finish_box(box, fields, object);
}

void zx_container_isobmff_esds_box_delete(zx_container_isobmff_esds_box_t *object) {
    if (!object) return;
    zx_container_isobmff_es_descriptor_delete(object->es_descriptor);
    std::free(object);
}

// ---- Sample table

zx_status_t zx_container_isobmff_audio_sample_entry_init(const uint8_t *box_data,
                                                         zx_container_isobmff_audio_sample_entry_t **object) {
    auto [box, fields, status] =
        open_box<zx_container_isobmff_audio_sample_entry_delete>(box_data, nullptr, object);
    if (status != ZX_STATUS_SUCCESS) return status;
    fields.skip(6);                            // const unsigned int(8)[6] reserved = 0;
    box->data_reference_index = fields.u16();  // unsigned int(16) data_reference_index;
    fields.skip(8);                            // const unsigned int(32)[2] reserved = 0;
    box->channelcount = fields.u16();          // template unsigned int(16) channelcount = 2;
    box->samplesize = fields.u16();            // template unsigned int(16) samplesize = 16;
    fields.skip(4);                            // unsigned int(16) pre_defined; unsigned int(16) reserved;
    box->samplerate = static_cast<uint16_t>(fields.u32() >> 16);  // template unsigned int(32) samplerate;
    if (!fields.is_good()) return ZX_STATUS_INVALID_ARGUMENT;
    if (has_type(box->header.type, "mp4a")) {
        return finish_container(
            box, fields, object, [parsed = box.get()](const char *type, const uint8_t *child) -> zx_status_t {
                if (!has_type(type, "esds")) return ZX_STATUS_SUCCESS;
                return set_child<zx_container_isobmff_esds_box_init, zx_container_isobmff_esds_box_delete>(
                    &parsed->esds, child);
            });
    }
    return finish_box(box, fields, object);
}

void zx_container_isobmff_audio_sample_entry_delete(zx_container_isobmff_audio_sample_entry_t *object) {
    if (!object) return;
    zx_container_isobmff_esds_box_delete(object->esds);
    std::free(object);
}

zx_status_t zx_container_isobmff_stsd_box_init(const uint8_t *box_data, const char *handler_type,
                                               zx_container_isobmff_stsd_box_t **object) {
    ZX_ASSERT(handler_type);
    auto [box, fields, status] = open_box<zx_container_isobmff_stsd_box_delete>(box_data, "stsd", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    if (!has_type(handler_type, "soun")) return ZX_STATUS_SUCCESS;  // accepted, and nothing kept
    box->entry_count = fields.u32();                                // unsigned int(32) entry_count;
    for (uint32_t i = 0; i < box->entry_count; i++) {
        zx_container_isobmff_box_header_t entry;
        if (!fields.is_good() || !holds_box(fields.position(), fields.remaining(), &entry)) {
            return ZX_STATUS_INVALID_ARGUMENT;
        }
        const zx_status_t entry_status = append_child<zx_container_isobmff_audio_sample_entry_init,
                                                      zx_container_isobmff_audio_sample_entry_delete>(
            &box->entries, &box->num_entries, fields.position());
        if (entry_status != ZX_STATUS_SUCCESS) return entry_status;
        fields.skip(entry.size);
    }
    return finish_box(box, fields, object);
}

void zx_container_isobmff_stsd_box_delete(zx_container_isobmff_stsd_box_t *object) {
    if (!object) return;
    delete_children<zx_container_isobmff_audio_sample_entry_delete>(object->entries, object->num_entries);
    std::free(object);
}

namespace {

// "stz2": sizes of 16, 8 or 4 bits.
zx_status_t read_compact_sizes(field_reader *fields, zx_container_isobmff_stsz_box_t *box) {
    fields->skip(3);                          // unsigned int(24) reserved = 0;
    const uint8_t field_size = fields->u8();  // unsigned int(8) field_size;
    box->sample_count = fields->u32();        // unsigned int(32) sample_count;
    const uint64_t count = box->sample_count;
    if (field_size != 4 && field_size != 8 && field_size != 16) return ZX_STATUS_INVALID_ARGUMENT;
    if (!fields->holds((count * field_size + 7) / 8, 1)) return ZX_STATUS_INVALID_ARGUMENT;
    if (!allocate_table(&box->entry_sizes, count)) return ZX_STATUS_OUT_OF_MEMORY;
    for (uint64_t i = 0; i < count; i++) {
        if (field_size == 16) {
            box->entry_sizes[i] = fields->u16();
        } else if (field_size == 8) {
            box->entry_sizes[i] = fields->u8();
        } else {
            // A byte makes two entries: itself shifted left by 4, and itself. Not the two halves that the
            // standard has: what is decoded of such a file is part of this reader's fixed results. An odd
            // count writes into the spare entry.
            const uint8_t byte = fields->u8();
            box->entry_sizes[i] = static_cast<uint32_t>(byte << 4);
            box->entry_sizes[++i] = byte;
        }
    }
    return ZX_STATUS_SUCCESS;
}

}  // namespace

zx_status_t zx_container_isobmff_stsz_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_stsz_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_stsz_box_delete>(box_data, nullptr, object);
    if (status != ZX_STATUS_SUCCESS) return status;
    if (has_type(box->header.type, "stz2")) {
        status = read_compact_sizes(&fields, box.get());
        if (status != ZX_STATUS_SUCCESS) return status;
    } else if (has_type(box->header.type, "stsz")) {
        box->sample_size = fields.u32();   // unsigned int(32) sample_size;
        box->sample_count = fields.u32();  // unsigned int(32) sample_count;
        if (box->sample_size == 0) {
            if (!fields.holds(box->sample_count, 4)) return ZX_STATUS_INVALID_ARGUMENT;
            if (!allocate_table(&box->entry_sizes, box->sample_count)) return ZX_STATUS_OUT_OF_MEMORY;
            for (uint32_t i = 0; i < box->sample_count; i++)
                box->entry_sizes[i] = fields.u32();  // entry_size
        }
    } else {
        return ZX_STATUS_INVALID_ARGUMENT;
    }
    return finish_box(box, fields, object);
}

void zx_container_isobmff_stsz_box_delete(zx_container_isobmff_stsz_box_t *object) {
    if (!object) return;
    std::free(object->entry_sizes);
    std::free(object);
}

uint32_t zx_container_isobmff_stsz_box_sample_size(const zx_container_isobmff_stsz_box_t *object,
                                                   uint32_t index) {
    return object->entry_sizes ? object->entry_sizes[index] : object->sample_size;
}

zx_status_t zx_container_isobmff_stsc_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_stsc_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_stsc_box_delete>(box_data, "stsc", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    const uint32_t count = box->entry_count = fields.u32();  // unsigned int(32) entry_count;
    if (!fields.holds(count, 12)) return ZX_STATUS_INVALID_ARGUMENT;
    if (!allocate_table(&box->first_chunk, count) || !allocate_table(&box->samples_per_chunk, count) ||
        !allocate_table(&box->sample_description_index, count)) {
        return ZX_STATUS_OUT_OF_MEMORY;
    }
    for (uint32_t i = 0; i < count; i++) {
        box->first_chunk[i] = fields.u32();               // unsigned int(32) first_chunk;
        box->samples_per_chunk[i] = fields.u32();         // unsigned int(32) samples_per_chunk;
        box->sample_description_index[i] = fields.u32();  // unsigned int(32) sample_description_index;
    }
    return finish_box(box, fields, object);
}

void zx_container_isobmff_stsc_box_delete(zx_container_isobmff_stsc_box_t *object) {
    if (!object) return;
    std::free(object->sample_description_index);
    std::free(object->samples_per_chunk);
    std::free(object->first_chunk);
    std::free(object);
}

zx_status_t zx_container_isobmff_stco_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_stco_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_stco_box_delete>(box_data, nullptr, object);
    if (status != ZX_STATUS_SUCCESS) return status;
    const bool is_wide = has_type(box->header.type, "co64");
    if (!is_wide && !has_type(box->header.type, "stco")) return ZX_STATUS_INVALID_ARGUMENT;
    box->entry_count = fields.u32();  // unsigned int(32) entry_count;
    if (!fields.holds(box->entry_count, is_wide ? 8 : 4)) return ZX_STATUS_INVALID_ARGUMENT;
    if (!allocate_table(&box->chunk_offsets, box->entry_count)) return ZX_STATUS_OUT_OF_MEMORY;
    for (uint32_t i = 0; i < box->entry_count; i++) {
        box->chunk_offsets[i] =
            is_wide ? fields.u64() : fields.u32();  // unsigned int(64 or 32) chunk_offset;
    }
    return finish_box(box, fields, object);
}

void zx_container_isobmff_stco_box_delete(zx_container_isobmff_stco_box_t *object) {
    if (!object) return;
    std::free(object->chunk_offsets);
    std::free(object);
}

zx_status_t zx_container_isobmff_stbl_box_init(const uint8_t *box_data, const char *handler_type,
                                               zx_container_isobmff_stbl_box_t **object) {
    ZX_ASSERT(handler_type);
    auto [box, fields, status] = open_box<zx_container_isobmff_stbl_box_delete>(box_data, "stbl", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    return finish_container(
        box, fields, object,
        [parsed = box.get(), handler_type](const char *type, const uint8_t *child) -> zx_status_t {
            if (has_type(type, "stsd")) {
                return set_child<zx_container_isobmff_stsd_box_init, zx_container_isobmff_stsd_box_delete>(
                    &parsed->stsd, child, handler_type);
            }
            if (has_type(type, "stsc")) {
                return set_child<zx_container_isobmff_stsc_box_init, zx_container_isobmff_stsc_box_delete>(
                    &parsed->stsc, child);
            }
            if (has_type(type, "stsz") || has_type(type, "stz2")) {
                return set_child<zx_container_isobmff_stsz_box_init, zx_container_isobmff_stsz_box_delete>(
                    &parsed->stsz, child);
            }
            if (has_type(type, "stco") || has_type(type, "co64")) {
                return set_child<zx_container_isobmff_stco_box_init, zx_container_isobmff_stco_box_delete>(
                    &parsed->stco, child);
            }
            return ZX_STATUS_SUCCESS;
        });
}

void zx_container_isobmff_stbl_box_delete(zx_container_isobmff_stbl_box_t *object) {
    if (!object) return;
    zx_container_isobmff_stco_box_delete(object->stco);
    zx_container_isobmff_stsz_box_delete(object->stsz);
    zx_container_isobmff_stsc_box_delete(object->stsc);
    zx_container_isobmff_stsd_box_delete(object->stsd);
    std::free(object);
}

// ---- Track

zx_status_t zx_container_isobmff_minf_box_init(const uint8_t *box_data, const char *handler_type,
                                               zx_container_isobmff_minf_box_t **object) {
    ZX_ASSERT(handler_type);
    auto [box, fields, status] = open_box<zx_container_isobmff_minf_box_delete>(box_data, "minf", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    return finish_container(
        box, fields, object,
        [parsed = box.get(), handler_type](const char *type, const uint8_t *child) -> zx_status_t {
            if (!has_type(type, "stbl")) return ZX_STATUS_SUCCESS;
            return set_child<zx_container_isobmff_stbl_box_init, zx_container_isobmff_stbl_box_delete>(
                &parsed->stbl, child, handler_type);
        });
}

void zx_container_isobmff_minf_box_delete(zx_container_isobmff_minf_box_t *object) {
    if (!object) return;
    zx_container_isobmff_stbl_box_delete(object->stbl);
    std::free(object);
}

zx_status_t zx_container_isobmff_hdlr_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_hdlr_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_hdlr_box_delete>(box_data, "hdlr", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    box->pre_defined = fields.u32();       // unsigned int(32) pre_defined = 0;
    fields.characters(box->handler_type);  // unsigned int(32) handler_type;
    fields.skip(12);                       // const unsigned int(32)[3] reserved = 0;
    if (!fields.is_good()) return ZX_STATUS_INVALID_ARGUMENT;
    const size_t room = static_cast<size_t>(fields.remaining());  // string name;
    const void *text = fields.position();
    const void *zero = room > 0 ? std::memchr(text, '\0', room) : nullptr;
    const size_t length =
        zero ? static_cast<size_t>(static_cast<const char *>(zero) - static_cast<const char *>(text)) : room;
    if (!allocate_table(&box->name, length)) return ZX_STATUS_OUT_OF_MEMORY;
    std::memcpy(box->name, text, length);
    return finish_box(box, fields, object);
}

void zx_container_isobmff_hdlr_box_delete(zx_container_isobmff_hdlr_box_t *object) {
    if (!object) return;
    std::free(object->name);
    std::free(object);
}

zx_status_t zx_container_isobmff_mdhd_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_mdhd_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_mdhd_box_delete>(box_data, "mdhd", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    box->creation_time = fields.u32();      // unsigned int(32) creation_time;
    box->modification_time = fields.u32();  // unsigned int(32) modification_time;
    box->timescale = fields.u32();          // unsigned int(32) timescale;
    box->duration = fields.u32();           // unsigned int(32) duration;
    box->language = fields.u16();           // bit(1) pad = 0; unsigned int(5)[3] language;
    box->pre_defined = fields.u16();        // unsigned int(16) pre_defined = 0;
    return finish_box(box, fields, object);
}

void zx_container_isobmff_mdhd_box_delete(zx_container_isobmff_mdhd_box_t *object) {
    std::free(object);
}

zx_status_t zx_container_isobmff_mdia_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_mdia_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_mdia_box_delete>(box_data, "mdia", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    return finish_container(
        box, fields, object, [parsed = box.get()](const char *type, const uint8_t *child) -> zx_status_t {
            if (has_type(type, "mdhd")) {
                return set_child<zx_container_isobmff_mdhd_box_init, zx_container_isobmff_mdhd_box_delete>(
                    &parsed->mdhd, child);
            }
            if (has_type(type, "hdlr")) {
                return set_child<zx_container_isobmff_hdlr_box_init, zx_container_isobmff_hdlr_box_delete>(
                    &parsed->hdlr, child);
            }
            if (has_type(type, "minf")) {
                if (!parsed->hdlr) return ZX_STATUS_RUNTIME_ERROR;
                return set_child<zx_container_isobmff_minf_box_init, zx_container_isobmff_minf_box_delete>(
                    &parsed->minf, child, static_cast<const char *>(parsed->hdlr->handler_type));
            }
            return ZX_STATUS_SUCCESS;
        });
}

void zx_container_isobmff_mdia_box_delete(zx_container_isobmff_mdia_box_t *object) {
    if (!object) return;
    zx_container_isobmff_minf_box_delete(object->minf);
    zx_container_isobmff_hdlr_box_delete(object->hdlr);
    zx_container_isobmff_mdhd_box_delete(object->mdhd);
    std::free(object);
}

zx_status_t zx_container_isobmff_elst_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_elst_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_elst_box_delete>(box_data, "elst", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    const uint32_t count = box->entry_count = fields.u32();  // unsigned int(32) entry_count;
    if (!fields.holds(count, 12)) return ZX_STATUS_INVALID_ARGUMENT;
    if (!allocate_table(&box->segment_duration, count) || !allocate_table(&box->media_time, count) ||
        !allocate_table(&box->media_rate_integer, count) ||
        !allocate_table(&box->media_rate_fraction, count)) {
        return ZX_STATUS_OUT_OF_MEMORY;
    }
    for (uint32_t i = 0; i < count; i++) {
        box->segment_duration[i] = fields.u32();     // unsigned int(32) segment_duration;
        box->media_time[i] = fields.i32();           // int(32) media_time;
        box->media_rate_integer[i] = fields.i16();   // int(16) media_rate_integer;
        box->media_rate_fraction[i] = fields.i16();  // int(16) media_rate_fraction = 0;
    }
    return finish_box(box, fields, object);
}

void zx_container_isobmff_elst_box_delete(zx_container_isobmff_elst_box_t *object) {
    if (!object) return;
    std::free(object->media_rate_fraction);
    std::free(object->media_rate_integer);
    std::free(object->media_time);
    std::free(object->segment_duration);
    std::free(object);
}

zx_status_t zx_container_isobmff_edts_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_edts_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_edts_box_delete>(box_data, "edts", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    return finish_container(
        box, fields, object, [parsed = box.get()](const char *type, const uint8_t *child) -> zx_status_t {
            if (!has_type(type, "elst")) return ZX_STATUS_SUCCESS;
            return set_child<zx_container_isobmff_elst_box_init, zx_container_isobmff_elst_box_delete>(
                &parsed->elst, child);
        });
}

void zx_container_isobmff_edts_box_delete(zx_container_isobmff_edts_box_t *object) {
    if (!object) return;
    zx_container_isobmff_elst_box_delete(object->elst);
    std::free(object);
}

zx_status_t zx_container_isobmff_tkhd_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_tkhd_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_tkhd_box_delete>(box_data, "tkhd", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    box->creation_time = fields.u32();      // unsigned int(32) creation_time;
    box->modification_time = fields.u32();  // unsigned int(32) modification_time;
    box->track_ID = fields.u32();           // unsigned int(32) track_ID;
    fields.skip(4);                         // const unsigned int(32) reserved = 0;
    box->duration = fields.u32();           // unsigned int(32) duration;
    fields.skip(8);                         // const unsigned int(32)[2] reserved = 0;
    box->layer = fields.i16();              // template int(16) layer = 0;
    box->alternate_group = fields.i16();    // template int(16) alternate_group = 0;
    box->volume = fields.i16();             // template int(16) volume;
    fields.skip(2);                         // const unsigned int(16) reserved = 0;
    fields.matrix(box->matrix);             // template int(32)[9] matrix;
    box->width = fields.u32();              // unsigned int(32) width;
    box->height = fields.u32();             // unsigned int(32) height;
    return finish_box(box, fields, object);
}

void zx_container_isobmff_tkhd_box_delete(zx_container_isobmff_tkhd_box_t *object) {
    std::free(object);
}

zx_status_t zx_container_isobmff_trak_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_trak_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_trak_box_delete>(box_data, "trak", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    return finish_container(
        box, fields, object, [parsed = box.get()](const char *type, const uint8_t *child) -> zx_status_t {
            if (has_type(type, "tkhd")) {
                return set_child<zx_container_isobmff_tkhd_box_init, zx_container_isobmff_tkhd_box_delete>(
                    &parsed->tkhd, child);
            }
            if (has_type(type, "edts")) {
                return set_child<zx_container_isobmff_edts_box_init, zx_container_isobmff_edts_box_delete>(
                    &parsed->edts, child);
            }
            if (has_type(type, "mdia")) {
                return set_child<zx_container_isobmff_mdia_box_init, zx_container_isobmff_mdia_box_delete>(
                    &parsed->mdia, child);
            }
            return ZX_STATUS_SUCCESS;
        });
}

void zx_container_isobmff_trak_box_delete(zx_container_isobmff_trak_box_t *object) {
    if (!object) return;
    zx_container_isobmff_mdia_box_delete(object->mdia);
    zx_container_isobmff_edts_box_delete(object->edts);
    zx_container_isobmff_tkhd_box_delete(object->tkhd);
    std::free(object);
}

// ---- Movie

zx_status_t zx_container_isobmff_mvhd_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_mvhd_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_mvhd_box_delete>(box_data, "mvhd", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    box->creation_time = fields.u32();      // unsigned int(32) creation_time;
    box->modification_time = fields.u32();  // unsigned int(32) modification_time;
    box->timescale = fields.u32();          // unsigned int(32) timescale;
    box->duration = fields.u32();           // unsigned int(32) duration;
    box->rate = fields.i32();               // template int(32) rate = 0x00010000;
    box->volume = fields.i16();             // template int(16) volume = 0x0100;
    fields.skip(10);                    // const bit(16) reserved = 0; const unsigned int(32)[2] reserved = 0;
    fields.matrix(box->matrix);         // template int(32)[9] matrix;
    fields.skip(24);                    // bit(32)[6] pre_defined = 0;
    box->next_track_ID = fields.u32();  // unsigned int(32) next_track_ID;
    return finish_box(box, fields, object);
}

void zx_container_isobmff_mvhd_box_delete(zx_container_isobmff_mvhd_box_t *object) {
    std::free(object);
}

zx_status_t zx_container_isobmff_trex_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_trex_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_trex_box_delete>(box_data, "trex", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    box->track_ID = fields.u32();  // unsigned int(32) track_ID;
    box->default_sample_description_index =
        fields.u32();                             // unsigned int(32) default_sample_description_index;
    box->default_sample_duration = fields.u32();  // unsigned int(32) default_sample_duration;
    box->default_sample_size = fields.u32();      // unsigned int(32) default_sample_size;
    box->default_sample_flags = fields.u32();     // unsigned int(32) default_sample_flags;
    return finish_box(box, fields, object);
}

void zx_container_isobmff_trex_box_delete(zx_container_isobmff_trex_box_t *object) {
    std::free(object);
}

zx_status_t zx_container_isobmff_mvex_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_mvex_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_mvex_box_delete>(box_data, "mvex", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    return finish_container(
        box, fields, object, [parsed = box.get()](const char *type, const uint8_t *child) -> zx_status_t {
            if (!has_type(type, "trex")) return ZX_STATUS_SUCCESS;
            return append_child<zx_container_isobmff_trex_box_init, zx_container_isobmff_trex_box_delete>(
                &parsed->trexs, &parsed->num_trexs, child);
        });
}

void zx_container_isobmff_mvex_box_delete(zx_container_isobmff_mvex_box_t *object) {
    if (!object) return;
    delete_children<zx_container_isobmff_trex_box_delete>(object->trexs, object->num_trexs);
    std::free(object);
}

zx_status_t zx_container_isobmff_moov_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_moov_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_moov_box_delete>(box_data, "moov", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    return finish_container(
        box, fields, object, [parsed = box.get()](const char *type, const uint8_t *child) -> zx_status_t {
            if (has_type(type, "mvhd")) {
                return set_child<zx_container_isobmff_mvhd_box_init, zx_container_isobmff_mvhd_box_delete>(
                    &parsed->mvhd, child);
            }
            if (has_type(type, "trak")) {
                return append_child<zx_container_isobmff_trak_box_init, zx_container_isobmff_trak_box_delete>(
                    &parsed->traks, &parsed->num_traks, child);
            }
            if (has_type(type, "mvex")) {
                return set_child<zx_container_isobmff_mvex_box_init, zx_container_isobmff_mvex_box_delete>(
                    &parsed->mvex, child);
            }
            return ZX_STATUS_SUCCESS;
        });
}

void zx_container_isobmff_moov_box_delete(zx_container_isobmff_moov_box_t *object) {
    if (!object) return;
    zx_container_isobmff_mvex_box_delete(object->mvex);
    delete_children<zx_container_isobmff_trak_box_delete>(object->traks, object->num_traks);
    zx_container_isobmff_mvhd_box_delete(object->mvhd);
    std::free(object);
}

// ---- Fragments

zx_status_t zx_container_isobmff_mfhd_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_mfhd_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_mfhd_box_delete>(box_data, "mfhd", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    box->sequence_number = fields.u32();  // unsigned int(32) sequence_number;
    return finish_box(box, fields, object);
}

void zx_container_isobmff_mfhd_box_delete(zx_container_isobmff_mfhd_box_t *object) {
    std::free(object);
}

zx_status_t zx_container_isobmff_tfhd_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_tfhd_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_tfhd_box_delete>(box_data, "tfhd", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    const uint32_t flags = box->header.flags;
    box->base_data_offset_present = flags & 0x000001;
    box->sample_description_index_present = flags & 0x000002;
    box->default_sample_duration_present = flags & 0x000008;
    box->default_sample_size_present = flags & 0x000010;
    box->default_sample_flags_present = flags & 0x000020;
    box->duration_is_empty = flags & 0x010000;
    box->track_ID = fields.u32();  // unsigned int(32) track_ID;
    if (box->base_data_offset_present)
        box->base_data_offset = fields.u64();  // unsigned int(64) base_data_offset;
    if (box->sample_description_index_present) box->sample_description_index = fields.u32();
    if (box->default_sample_duration_present) box->default_sample_duration = fields.u32();
    if (box->default_sample_size_present) box->default_sample_size = fields.u32();
    if (box->default_sample_flags_present) box->default_sample_flags = fields.u32();
    return finish_box(box, fields, object);
}

void zx_container_isobmff_tfhd_box_delete(zx_container_isobmff_tfhd_box_t *object) {
    std::free(object);
}

zx_status_t zx_container_isobmff_trun_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_trun_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_trun_box_delete>(box_data, "trun", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    const uint32_t flags = box->header.flags;
    box->data_offset_present = flags & 0x000001;
    box->first_sample_flags_present = flags & 0x000004;
    box->sample_duration_present = flags & 0x000100;
    box->sample_size_present = flags & 0x000200;
    box->sample_flags_present = flags & 0x000400;
    box->sample_composition_time_offsets_present = flags & 0x000800;
    const uint32_t count = box->sample_count = fields.u32();        // unsigned int(32) sample_count;
    if (box->data_offset_present) box->data_offset = fields.i32();  // signed int(32) data_offset;
    if (box->first_sample_flags_present) box->first_sample_flags = fields.u32();  // unsigned int(32)
    if (!fields.is_good()) return ZX_STATUS_INVALID_ARGUMENT;
    if (count == 0) return ZX_STATUS_OUT_OF_MEMORY;

    struct column {
        bool is_present;
        uint32_t **table;
    };
    const column columns[] = {
        {box->sample_duration_present, &box->sample_duration},
        {box->sample_size_present, &box->sample_size},
        {box->sample_flags_present, &box->sample_flags},
        {box->sample_composition_time_offsets_present, &box->sample_composition_time_offset},
    };
    uint64_t row_size = 0;
    for (const column &c : columns) row_size += c.is_present ? 4 : 0;
    if (!fields.holds(count, row_size)) return ZX_STATUS_INVALID_ARGUMENT;
    for (const column &c : columns) {
        if (c.is_present && !allocate_table(c.table, count)) return ZX_STATUS_OUT_OF_MEMORY;
    }
    for (uint32_t i = 0; row_size > 0 && i < count; i++) {
        for (const column &c : columns) {
            if (c.is_present) (*c.table)[i] = fields.u32();
        }
    }
    return finish_box(box, fields, object);
}

void zx_container_isobmff_trun_box_delete(zx_container_isobmff_trun_box_t *object) {
    if (!object) return;
    std::free(object->sample_composition_time_offset);
    std::free(object->sample_flags);
    std::free(object->sample_size);
    std::free(object->sample_duration);
    std::free(object);
}

zx_status_t zx_container_isobmff_traf_box_init(const uint8_t *box_data,
                                               zx_container_isobmff_traf_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_traf_box_delete>(box_data, "traf", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    return finish_container(
        box, fields, object, [parsed = box.get()](const char *type, const uint8_t *child) -> zx_status_t {
            if (has_type(type, "tfhd")) {
                return set_child<zx_container_isobmff_tfhd_box_init, zx_container_isobmff_tfhd_box_delete>(
                    &parsed->tfhd, child);
            }
            if (has_type(type, "trun")) {
                return append_child<zx_container_isobmff_trun_box_init, zx_container_isobmff_trun_box_delete>(
                    &parsed->truns, &parsed->num_truns, child);
            }
            return ZX_STATUS_SUCCESS;
        });
}

void zx_container_isobmff_traf_box_delete(zx_container_isobmff_traf_box_t *object) {
    if (!object) return;
    delete_children<zx_container_isobmff_trun_box_delete>(object->truns, object->num_truns);
    zx_container_isobmff_tfhd_box_delete(object->tfhd);
    std::free(object);
}

zx_status_t zx_container_isobmff_moof_box_init(const uint8_t *box_data, uint64_t file_position,
                                               zx_container_isobmff_moof_box_t **object) {
    auto [box, fields, status] = open_box<zx_container_isobmff_moof_box_delete>(box_data, "moof", object);
    if (status != ZX_STATUS_SUCCESS) return status;
    box->file_position = file_position;
    return finish_container(
        box, fields, object, [parsed = box.get()](const char *type, const uint8_t *child) -> zx_status_t {
            if (has_type(type, "mfhd")) {
                return set_child<zx_container_isobmff_mfhd_box_init, zx_container_isobmff_mfhd_box_delete>(
                    &parsed->mfhd, child);
            }
            if (has_type(type, "traf")) {
                return append_child<zx_container_isobmff_traf_box_init, zx_container_isobmff_traf_box_delete>(
                    &parsed->trafs, &parsed->num_trafs, child);
            }
            return ZX_STATUS_SUCCESS;
        });
}

void zx_container_isobmff_moof_box_delete(zx_container_isobmff_moof_box_t *object) {
    if (!object) return;
    delete_children<zx_container_isobmff_traf_box_delete>(object->trafs, object->num_trafs);
    zx_container_isobmff_mfhd_box_delete(object->mfhd);
    std::free(object);
}
