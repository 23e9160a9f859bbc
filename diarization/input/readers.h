// SPDX-License-Identifier: Apache-2.0
// Samples of whatever people have. The engine's own readers come first; what they refuse goes to libsndfile
// where it is linked, then to ffmpeg where it is installed; of a file that ends too early there is what is
// there.
#ifndef PARLEY_READERS_H
#define PARLEY_READERS_H

#include <string>

#include "engine.h"
#include "parley.h"

enum class ffmpeg_use : int32_t { where_needed, never, at_once };  // as `via_ffmpeg` counts them

// Samples at the engine's rate that a recording may have.
int64_t longest_of(const parley_options &options);

// What to read and how. `max_samples`: beyond which a recording is refused.
struct read_request {
    read_request(const std::string &file, const parley_options &options, const progress_function &callback,
                 waveform_drawer *drawer);

    const std::string &path;
    ffmpeg_use ffmpeg;
    int64_t max_samples;
    const progress_function &progress;
    waveform_drawer *waveform;
    bool as_samples = false;  // not as features
};

// Mono samples at the engine's rate, or the features and the waveform of them. What a user should know of the
// way the file was read is added to `note`. Throws diarization_error: what the engine's own readers say of
// the file when nobody can read it.
zx_parley_samples_t read_any(engine *own, const read_request &request, std::string *note);

#endif
