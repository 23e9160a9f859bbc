// SPDX-License-Identifier: Apache-2.0
// Where the time goes when a file is diarized: shares of opening (which counts by decoding where the format
// needs it), decoding, resampling, features, network and clustering.
//
//   audio_formats_bench MODEL FILE...
//
// bench/audio-formats makes hour-long files of several formats and runs this over them.

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <vector>

#include "zx_audio_file.h"
#include "zx_log.h"
#include "zx_parley_internal.h"

namespace {

// Processor time of this thread.
double now() {
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

void check(zx_status_t status, const char *what) {
    if (status == ZX_STATUS_SUCCESS) return;
    std::fprintf(stderr, "audio_formats_bench: %s: %s\n", what, zx_status_to_string(status));
    std::exit(1);
}

// An adapter's read that adds up its time, put in front of the real one.
double decode_seconds = 0;
zx_status_t (*real_read)(void *object, int32_t num_samples, int16_t *pcm) = nullptr;

zx_status_t timed_read(void *object, int32_t num_samples, int16_t *pcm) {
    const double start = now();
    const zx_status_t status = real_read(object, num_samples, pcm);
    decode_seconds += now() - start;
    return status;
}

void run(zx_parley_t *engine, const char *path) {
    double marks[6];
    decode_seconds = 0;
    marks[0] = now();
    zx_audio_file_t *reader = nullptr;
    check(zx_audio_file_init(path, &reader), path);
    marks[1] = now();
    const int32_t num_samples = zx_audio_file_num_samples(reader);
    std::vector<int16_t> pcm(static_cast<size_t>(num_samples) + 1);
    real_read = reader->adapter.read_fn;
    reader->adapter.read_fn = timed_read;
    check(zx_audio_file_read(reader, num_samples, pcm.data()), path);
    zx_audio_file_delete(reader);
    marks[2] = now();

    const int32_t num_frames = num_samples / ZX_PARLEY_FRAME_LENGTH;
    std::vector<int16_t> feature(static_cast<size_t>(num_frames) * ZX_PARLEY_FRAME_SIZE);
    for (size_t hop = 0; hop < 2 * static_cast<size_t>(num_frames); hop++) {
        check(zx_filterbank_compute(engine->filterbank, &pcm[hop * ZX_PARLEY_HOP_LENGTH],
                                    &feature[hop * ZX_FILTERBANK_NUM_BANDS]),
              "features");
    }
    zx_filterbank_reset(engine->filterbank);
    zx_parley_internal_preprocess(engine, feature.data(), 2 * num_frames);
    marks[3] = now();
    const int32_t embedding_size = engine->param->classifier->embedding->output_dimension;
    std::vector<float> embeddings(static_cast<size_t>(num_frames) * static_cast<size_t>(embedding_size));
    check(zx_parley_classifier_process(engine->classifier, feature.data(), num_frames, embeddings.data()),
          "network");
    marks[4] = now();
    std::vector<uint32_t> tags(static_cast<size_t>(num_frames));
    uint32_t num_tags;
    check(zx_parley_cluster_process(engine->cluster, embeddings.data(), embedding_size, num_frames, &num_tags,
                                    tags.data()),
          "clustering");
    marks[5] = now();

    const double total = marks[5] - marks[0];
    const double resample_seconds = marks[2] - marks[1] - decode_seconds;
    const double audio_seconds = num_samples / 16000.0;
    const auto share = [total](double seconds) { return 100 * seconds / total; };
    std::printf("%-28s %7.2f %7.0f  %5.1f %6.1f %8.1f %8.1f %7.1f %10.1f\n", path, total,
                audio_seconds / total, share(marks[1] - marks[0]), share(decode_seconds),
                share(resample_seconds), share(marks[3] - marks[2]), share(marks[4] - marks[3]),
                share(marks[5] - marks[4]));
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: audio_formats_bench MODEL FILE...\n");
        return 2;
    }
    zx_log_disable();
    zx_parley_t *engine = nullptr;
    check(zx_parley_init(argv[1], &engine), argv[1]);
    std::printf("%-28s %7s %7s  %5s %6s %8s %8s %7s %10s\n", "file", "s", "x real", "open%", "decode%",
                "resample%", "feature%", "network%", "clustering%");
    for (int i = 2; i < argc; i++) run(engine, argv[i]);
    zx_parley_delete(engine);
    return 0;
}
