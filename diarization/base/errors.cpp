// SPDX-License-Identifier: Apache-2.0
#include "errors.h"

#include <vector>

#if PARLEY_WITH_AAC
#include "zx_codec_aac.h"
#endif

namespace {

parley_status status_of(zx_status_t status) {
    switch (status) {
        case ZX_STATUS_OUT_OF_MEMORY:
            return PARLEY_OUT_OF_MEMORY;
        case ZX_STATUS_IO_ERROR:
            return PARLEY_UNREADABLE;
        case ZX_STATUS_INVALID_ARGUMENT:
            return PARLEY_INVALID;
        case ZX_STATUS_STOP_ITERATION:
            return PARLEY_CANCELLED;
        default:
            return PARLEY_FAILED;
    }
}

constexpr char AAC_IS_MISSING[] =
    "; MP4 with AAC is read where libfdk-aac.so.2 is installed (in Debian the package libfdk-aac2)";

bool is_aac_missing() {
#if PARLEY_WITH_AAC
    return !zx_codec_aac_is_available();
#else
    return false;
#endif
}

// What this build reads by itself.
std::string readable_formats() {
    std::vector<std::string> formats = {"WAV"};
    const auto add = [&formats](bool is_there, const char *name) {
        if (is_there) formats.push_back(name);
    };
    add(PARLEY_WITH_FLAC, "FLAC");
    add(PARLEY_WITH_MP3, "MP3");
    add(PARLEY_WITH_OPUS, PARLEY_WITH_VORBIS ? "Ogg (Opus, Vorbis)" : "Ogg (Opus)");
    add(PARLEY_WITH_VORBIS && !PARLEY_WITH_OPUS, "Ogg (Vorbis)");
    add(PARLEY_WITH_AAC && !is_aac_missing(), "MP4 (AAC)");
    add(PARLEY_WITH_AMR, "3GP (AMR)");
    add(PARLEY_WITH_WEBM, "WebM");
    std::string list = formats.front();
    for (size_t i = 1; i < formats.size(); i++)
        list += (i + 1 < formats.size() ? ", " : " and ") + formats[i];
    return list;
}

std::string sentence_of(parley_status status) {
    switch (status) {
        case PARLEY_OUT_OF_MEMORY:
            return "there is not enough memory";
        case PARLEY_UNREADABLE:
            return "cannot be read, or ends before its audio does";
        case PARLEY_INVALID:
            return "holds no audio that can be read here: " + readable_formats() +
                   " of one or two channels, at 8 kHz or 16 kHz and more, can; ffmpeg converts others: " +
                   HOW_TO_CONVERT + (is_aac_missing() ? AAC_IS_MISSING : "");
        case PARLEY_CANCELLED:
            return "was cancelled";
        default:
            return "cannot be worked on: it is damaged, or not what its beginning says";
    }
}

}  // namespace

void check_engine(zx_status_t status, const std::string &subject) {
    if (status == ZX_STATUS_SUCCESS) return;
    char **stack = nullptr;
    int32_t depth = 0;
    (void) zx_get_error_stack(&stack, &depth);  // whatever it says, `stack` and `depth` are right
    std::vector<std::string> messages(stack, stack + depth);
    zx_free_error_stack(stack);
    const parley_status mine = status_of(status);
    throw diarization_error(mine, subject + ": " + sentence_of(mine), std::move(messages));
}
