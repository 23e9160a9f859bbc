#include "errors.h"

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

std::string sentence_of(parley_status status) {
    switch (status) {
        case PARLEY_OUT_OF_MEMORY:
            return "there is not enough memory";
        case PARLEY_UNREADABLE:
            return "cannot be read, or ends before its audio does";
        case PARLEY_INVALID:
            return std::string(
                       "holds no audio that can be read here: WAV, FLAC, MP3, Ogg (Opus, Vorbis), MP4 "
                       "(AAC), 3GP (AMR) and WebM of one or two channels, at 8 kHz or 16 kHz and more, "
                       "can; ffmpeg converts others: ") +
                   HOW_TO_CONVERT;
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
