// Samples of whatever people have. The engine's own readers come first; what they refuse goes to libsndfile
// where it is linked, then to ffmpeg where it is installed; of a file that ends too early there is what is
// there.
#ifndef PARLEY_READERS_H
#define PARLEY_READERS_H

#include <string>

#include "engine.h"

// Mono samples at the engine's rate, not longer than `longest` seconds (0: no limit). `ffmpeg`: 0 where it is
// needed, 1 never, 2 at once. What a user should know of the way the file was read is added to `note`. Throws
// diarization_error: what the engine's own readers say of the file when nobody can read it.
zx_parley_samples_t read_any(engine *own, const std::string &path, int ffmpeg, double longest,
                             const progress_function &progress, std::string *note);

#endif
