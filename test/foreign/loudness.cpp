// SPDX-License-Identifier: Apache-2.0
// What the readers make of a file: MODEL FILE WHEN, where the last is never or auto (ffmpeg). Prints the
// seconds, the note and the level of every 32 ms in dB, a line each.

#include <cmath>
#include <cstdio>

#include "channels.h"
#include "errors.h"
#include "readers.h"

int main(int argc, char **argv) {
    if (argc != 4) return 2;
    parley_options options;
    parley_options_init(&options, sizeof(options));
    if (parley_options_set(&options, "via-ffmpeg", argv[3]) != PARLEY_OK) return 2;
    try {
        engine own(argv[1]);
        const std::string path = argv[2];
        const progress_function unwatched;
        std::string note;
        waveform_drawer waveform;
        zx_parley_samples_t samples =
            read_any(&own, read_request(path, options, unwatched, &waveform), &note);
        if (!samples.pcm) samples = own.read_samples(path, unwatched);  // what has become features
        std::printf("%.3f\n%s\n", static_cast<double>(samples.count) / RATE, note.c_str());
        constexpr int32_t FRAME = ZX_PARLEY_FRAME_LENGTH;
        for (int32_t at = 0; at + FRAME <= samples.count; at += FRAME) {
            double energy = 0;
            for (int32_t i = at; i < at + FRAME; i++)
                energy += static_cast<double>(samples.pcm[i]) * samples.pcm[i];
            std::printf("%.1f\n", 10 * std::log10(energy / FRAME + 1));
        }
    } catch (const diarization_error &refusal) {
        std::fprintf(stderr, "%s\n", refusal.what());
        return 1;
    }
    return 0;
}
