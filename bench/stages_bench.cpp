// SPDX-License-Identifier: Apache-2.0
// The stages of the engine one by one: the network, the filterbank beside the same bands by FFTW,
// clustering at several sizes. Run by bench/run, beside the hot functions by themselves (test/kernels).

#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "zx_filterbank.h"
#include "zx_heap.h"
#include "zx_log_switch.h"
#include "zx_math.h"
#include "zx_parley_internal.h"
#include "zx_resampler.h"
#include "zx_rnn.h"

namespace {

zx_memory_t *memory() {
    zx_memory_t *object = nullptr;
    (void) zx_memory_init(&object);
    return object;
}

std::vector<int16_t> random_values(size_t count, int range) {
    std::mt19937 random(1);
    std::vector<int16_t> values(count);
    for (int16_t &value : values)
        value = static_cast<int16_t>(static_cast<int>(random() % (2 * static_cast<unsigned>(range))) - range);
    return values;
}

using engine_ptr = zx_owned<zx_parley_t, zx_parley_delete>;

const char *model_path = "models/parley.zx";

engine_ptr make_engine() {
    zx_log_disable();
    zx_parley_t *object = nullptr;
    (void) zx_parley_init(model_path, &object);
    return engine_ptr(object);
}

// ---- The network of the shipped model

void recurrent(benchmark::State &state, int32_t num_sequences) {
    const engine_ptr engine = make_engine();
    const zx_rnn_t *rnn = engine->classifier->forward[1];
    const size_t hidden = static_cast<size_t>(zx_rnn_param_hidden_size(rnn->param));
    const int32_t num_frames = 400;
    const auto x = random_values(static_cast<size_t>(num_frames) * hidden, 1000);
    std::vector<int16_t> y(static_cast<size_t>(num_sequences) * x.size());
    std::vector<zx_rnn_sequence_t> sequences;
    for (int32_t s = 0; s < num_sequences; s++) {
        sequences.push_back({x.data(), &y[static_cast<size_t>(s) * x.size()], num_frames});
    }
    for (auto _ : state) {
        (void) zx_rnn_process_sequences(rnn, zx_rnn_direction::forward, num_sequences, sequences.data());
    }
    state.counters["frames/s"] = benchmark::Counter(
        static_cast<double>(num_sequences) * num_frames * static_cast<double>(state.iterations()),
        benchmark::Counter::kIsRate);
}

// A minute of features is one chunk, ten minutes are several.
void network(benchmark::State &state) {
    const engine_ptr engine = make_engine();
    const auto num_frames = static_cast<int32_t>(state.range(0) * 16000 / ZX_PARLEY_FRAME_LENGTH);
    const auto features = random_values(static_cast<size_t>(num_frames) * ZX_PARLEY_FRAME_SIZE, 2000);
    const auto size = static_cast<size_t>(engine->param->classifier->embedding->output_dimension);
    std::vector<float> rows(static_cast<size_t>(num_frames) * size);
    for (auto _ : state) {
        (void) zx_parley_classifier_process(engine->classifier, features.data(), num_frames, rows.data());
    }
    state.counters["x real time"] = benchmark::Counter(
        static_cast<double>(state.range(0) * state.iterations()), benchmark::Counter::kIsRate);
}

// ---- Filterbank

void filterbank(benchmark::State &state) {
    zx_filterbank_t *object = nullptr;
    if (zx_filterbank_init(memory(), ZX_PARLEY_HOP_LENGTH, &object) != ZX_STATUS_SUCCESS) return;
    const auto pcm = random_values(ZX_PARLEY_HOP_LENGTH, 8000);
    int16_t row[ZX_FILTERBANK_NUM_BANDS];
    for (auto _ : state) {
        (void) zx_filterbank_compute(object, pcm.data(), row);
        benchmark::ClobberMemory();
    }
    zx_filterbank_delete(object);
    state.counters["hops/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

// The same bands as one would compute them without a care for bits: FFTW's real transform, weights in a
// table, logarithms of the C library.
void filterbank_by_fftw(benchmark::State &state) {
    constexpr int LENGTH = ZX_FFT_LENGTH, NUM_BINS = LENGTH / 2 + 1;
    float *frame = fftwf_alloc_real(LENGTH);
    fftwf_complex *spectrum = fftwf_alloc_complex(NUM_BINS);
    const fftwf_plan plan = fftwf_plan_dft_r2c_1d(LENGTH, frame, spectrum, FFTW_MEASURE);
    std::vector<float> window(LENGTH), history(LENGTH);
    for (int i = 0; i < LENGTH; i++)
        window[static_cast<size_t>(i)] =
            static_cast<float>(0.5 - 0.5 * std::cos(2 * M_PI * i / (LENGTH - 1)));
    std::vector<float> weights[ZX_FILTERBANK_NUM_BANDS];
    for (size_t b = 0; b < ZX_FILTERBANK_NUM_BANDS; b++) {
        const int low = FILTERBANK_BAND_EDGES[b], top = FILTERBANK_BAND_EDGES[b + 1],
                  high = FILTERBANK_BAND_EDGES[b + 2];
        for (int k = low; k < high; k++)
            weights[b].push_back(k < top ? static_cast<float>(k - low) / static_cast<float>(top - low)
                                         : static_cast<float>(high - k) / static_cast<float>(high - top));
    }
    const auto pcm = random_values(ZX_PARLEY_HOP_LENGTH, 8000);
    float power[NUM_BINS];
    int16_t row[ZX_FILTERBANK_NUM_BANDS];
    for (auto _ : state) {
        constexpr size_t HOP = ZX_PARLEY_HOP_LENGTH;
        std::copy(history.begin() + HOP, history.end(), history.begin());
        float previous = 0.0f;
        for (size_t i = 0; i < HOP; i++) {
            const float sample = pcm[i];
            history[LENGTH - HOP + i] = sample - 0.97f * previous;
            previous = sample;
        }
        for (size_t i = 0; i < LENGTH; i++) frame[i] = history[i] * window[i];
        fftwf_execute(plan);
        for (int k = 0; k < NUM_BINS; k++)
            power[k] = spectrum[k][0] * spectrum[k][0] + spectrum[k][1] * spectrum[k][1];
        for (size_t b = 0; b < ZX_FILTERBANK_NUM_BANDS; b++) {
            float energy = 0.0f;
            for (size_t k = 0; k < weights[b].size(); k++)
                energy += power[static_cast<size_t>(FILTERBANK_BAND_EDGES[b]) + k] * weights[b][k];
            row[b] = static_cast<int16_t>(1024.0f * std::log10(energy + 1e-9f));
        }
        benchmark::DoNotOptimize(row);
        benchmark::ClobberMemory();
    }
    fftwf_destroy_plan(plan);
    fftwf_free(spectrum);
    fftwf_free(frame);
    state.counters["hops/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

// ---- Clustering: runs of 20 frames of 8 voices, each run a little off its voice

void clustering(benchmark::State &state) {
    const int32_t dimension = 64;
    const engine_ptr engine = make_engine();
    zx_parley_cluster_param_t param = *engine->param->cluster;
    std::mt19937 random(2);
    std::normal_distribution<float> normal;
    std::vector<float> voices(8 * static_cast<size_t>(dimension)), input;
    for (float &value : voices) value = normal(random);
    const int32_t num_runs = static_cast<int32_t>(state.range(0));
    for (int32_t r = 0; r < num_runs; r++) {
        const float *voice = &voices[random() % 8 * static_cast<size_t>(dimension)];
        std::vector<float> row(static_cast<size_t>(dimension));
        for (size_t d = 0; d < row.size(); d++) row[d] = voice[d] + 0.7f * normal(random);
        zx_normalize_float(dimension, row.data(), row.data());
        for (int i = 0; i < 20; i++) input.insert(input.end(), row.begin(), row.end());
    }
    zx_parley_cluster_t *object = nullptr;
    if (zx_parley_cluster_init(&param, &object) != ZX_STATUS_SUCCESS) return;
    const int32_t num_frames = num_runs * 20;
    std::vector<uint32_t> tags(static_cast<size_t>(num_frames));
    uint32_t num_clusters = 0;
    for (auto _ : state) {
        (void) zx_parley_cluster_process(object, input.data(), dimension, num_frames, &num_clusters,
                                         tags.data());
    }
    zx_parley_cluster_delete(object);
    state.counters["clusters"] = static_cast<double>(num_clusters);
}

void segmenter(benchmark::State &state) {
    const engine_ptr engine = make_engine();
    const int32_t num_frames = static_cast<int32_t>(state.range(0));
    std::vector<uint32_t> tags(static_cast<size_t>(num_frames));
    for (size_t i = 0; i < tags.size(); i++) tags[i] = static_cast<uint32_t>(i / 40 % 5);
    for (auto _ : state) {
        int32_t count = 0;
        zx_parley_segment_t *segments = nullptr;
        (void) zx_parley_internal_segment(engine.get(), tags.data(), num_frames, &count, &segments);
        zx_parley_segments_delete(segments);
    }
    state.counters["frames/s"] =
        benchmark::Counter(static_cast<double>(num_frames) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate);
}

void resampler(benchmark::State &state) {
    zx_resampler_t *object = nullptr;
    const auto rate = static_cast<int32_t>(state.range(0));
    if (zx_resampler_init(rate, 16000, 50, &object) != ZX_STATUS_SUCCESS) return;
    const auto input = random_values(1024, 8000);
    std::vector<int16_t> output(4096);
    for (auto _ : state) {
        benchmark::DoNotOptimize(zx_resampler_process(object, input.data(), 1024, output.data()));
    }
    zx_resampler_delete(object);
    state.counters["x real time"] = benchmark::Counter(static_cast<double>(state.iterations()) * 1024 / rate,
                                                       benchmark::Counter::kIsRate);
}

}  // namespace

int main(int argc, char **argv) {
    if (const char *path = std::getenv("PARLEY_MODEL")) model_path = path;
    if (!make_engine()) {
        std::fprintf(stderr, "bench_stages: %s cannot be read; set PARLEY_MODEL\n", model_path);
        return 1;
    }
    using benchmark::RegisterBenchmark;
    for (const int32_t lanes : {1, 8}) {
        RegisterBenchmark(("recurrent_layer/" + std::to_string(lanes) + "_chunks").c_str(), recurrent, lanes);
    }
    RegisterBenchmark("network/seconds", network)->Arg(60)->Arg(600)->Unit(benchmark::kMillisecond);
    RegisterBenchmark("filterbank", filterbank);
    RegisterBenchmark("filterbank_by_fftw", filterbank_by_fftw);
    RegisterBenchmark("clustering/runs", clustering)
        ->ArgsProduct({{250, 500, 1000, 2000, 4000}})
        ->Unit(benchmark::kMillisecond);
    RegisterBenchmark("segmenter/frames", segmenter)->Arg(112500);
    RegisterBenchmark("resampler/rate", resampler)->Arg(8000)->Arg(22050)->Arg(44100)->Arg(48000);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
