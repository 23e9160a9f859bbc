// SPDX-License-Identifier: Apache-2.0
// The box parsers alone. The first byte chooses the parser; the rest is exactly the memory that it may read,
// so that one byte too far is seen.
#include <memory>
#include <vector>

#include "fuzz.h"
#include "zx_container_isobmff_boxes.h"

namespace {

template <auto init, auto delete_fn, class T>
void parse(const uint8_t *data) {
    T *object = nullptr;
    const zx_status_t status = init(data, &object);
    fuzz_require((status == ZX_STATUS_SUCCESS) == (object != nullptr), "a box exactly on success");
    delete_fn(object);
}

// Parsers of the sample table are told the kind of track.
template <auto init, auto delete_fn, class T>
void parse_of_sound(const uint8_t *data) {
    T *object = nullptr;
    const zx_status_t status = init(data, "soun", &object);
    fuzz_require((status == ZX_STATUS_SUCCESS) == (object != nullptr), "a box exactly on success");
    delete_fn(object);
}

#define BOX(name) BOX_BY(parse, name)
#define BOX_OF_SOUND(name) BOX_BY(parse_of_sound, name)
#define BOX_BY(parser, name)                                                                 \
    parser<zx_container_isobmff_##name##_box_init, zx_container_isobmff_##name##_box_delete, \
           zx_container_isobmff_##name##_box_t>

using parser = void (*)(const uint8_t *data);
constexpr parser PARSERS[] = {BOX(ftyp), BOX(moov), BOX(trak), BOX_OF_SOUND(stbl), BOX_OF_SOUND(stsd),
                              BOX(esds), BOX(stsz), BOX(stsc), BOX(stco),          BOX(edts),
                              BOX(mvex), BOX(traf), BOX(trun)};
constexpr size_t NUM_PARSERS = std::size(PARSERS);

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    const size_t which = data[0] % (NUM_PARSERS + 2);
    const std::vector<uint8_t> bytes(data + 1, data + size);
    if (which == NUM_PARSERS) {
        zx_container_isobmff_es_descriptor_t *object = nullptr;
        if (zx_container_isobmff_es_descriptor_init(bytes.data(), bytes.size(), &object) ==
            ZX_STATUS_SUCCESS) {
            zx_container_isobmff_es_descriptor_delete(object);
        }
        return 0;
    }
    // The caller has checked that the header is there and that the whole box is.
    if (bytes.size() < 8) return 0;
    uint64_t box_size = big_endian_to_host_endian_u32(bytes.data());
    if (box_size == 1) {
        if (bytes.size() < 16) return 0;
        box_size = big_endian_to_host_endian_u64(bytes.data() + 8);
        if (box_size < 16) return 0;
    }
    if (box_size < 8 || box_size > bytes.size()) return 0;
    const auto exact = std::make_unique<uint8_t[]>(box_size);
    std::memcpy(exact.get(), bytes.data(), box_size);
    if (which < NUM_PARSERS) {
        PARSERS[which](exact.get());
    } else {
        zx_container_isobmff_moof_box_t *object = nullptr;
        if (zx_container_isobmff_moof_box_init(exact.get(), 1 << 20, &object) == ZX_STATUS_SUCCESS) {
            zx_container_isobmff_moof_box_delete(object);
        }
    }
    return 0;
}
