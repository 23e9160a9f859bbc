// SPDX-License-Identifier: Apache-2.0
// The reader of Ogg pages and packets: reading ends, and after every reset the same packets come again. (The
// first time is another: no stream has begun that pages could continue.)
#include <memory>
#include <vector>

#include "fuzz.h"
#include "zx_container_ogg.h"
#include "zx_heap.h"

namespace {

// A fingerprint of every packet of the file.
uint64_t read_packets(zx_container_ogg_t *object) {
    uint64_t fingerprint = 14695981039346656037u;
    const auto add = [&](uint64_t value) { fingerprint = (fingerprint ^ value) * 1099511628211u; };
    for (;;) {
        const zx_status_t status = zx_container_ogg_read_ogg_page(object);
        if (status == ZX_STATUS_IO_ERROR) return fingerprint;
        add(static_cast<uint64_t>(status));
        if (status != ZX_STATUS_SUCCESS) continue;
        ogg_packet packet;
        while (const int result = zx_container_ogg_stream_packetout(object, &packet)) {
            if (result < 0) continue;
            add(static_cast<uint64_t>(packet.granulepos));
            for (long i = 0; i < packet.bytes; i++) add(packet.packet[i]);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static fuzz_file file;
    zx_container_ogg_t *object = nullptr;
    if (zx_container_ogg_init(file.with(data, size), &object) != ZX_STATUS_SUCCESS) return 0;
    const zx_owned<zx_container_ogg_t, zx_container_ogg_delete> container(object);
    uint64_t fingerprints[3];
    for (uint64_t &fingerprint : fingerprints) {
        fingerprint = read_packets(object);
        fuzz_require(zx_container_ogg_reset(object) == ZX_STATUS_SUCCESS, "a reset succeeds");
    }
    fuzz_require(fingerprints[1] == fingerprints[2], "a reset starts again");
    return 0;
}
