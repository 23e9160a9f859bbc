// SPDX-License-Identifier: Apache-2.0
// Detection of the format, which looks at the first 35 bytes and, in MP4, at the brands.
#include "fuzz.h"
#include "zx_audio_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static fuzz_file file;
    zx_audio_format_t format = -1;
    const zx_status_t status = zx_audio_file_get_format(file.with(data, size), &format);
    fuzz_require(status == (size < 35 ? ZX_STATUS_IO_ERROR : ZX_STATUS_SUCCESS),
                 "files of 35 bytes have a format");
    fuzz_require(format >= ZX_AUDIO_FORMAT_UNKNOWN && format <= ZX_AUDIO_FORMAT_WEBM, "the format is one");
    return 0;
}
