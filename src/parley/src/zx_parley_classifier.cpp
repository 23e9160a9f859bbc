// SPDX-License-Identifier: Apache-2.0
#include "zx_parley_classifier.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "zx_assert.h"
#include "zx_check_status.h"
#include "zx_file.h"
#include "zx_heap.h"
#include "zx_math.h"
#include "zx_memory.h"
#include "zx_parallel.h"
#include "zx_parley_chunks.h"

namespace {

zx_status_t load_layers(FILE *file, int32_t num_layers, zx_rnn_param_t ***layers) {
    *layers = zx_heap_zeroed<zx_rnn_param_t *>(static_cast<size_t>(num_layers));
    if (!*layers) return ZX_STATUS_OUT_OF_MEMORY;
    for (int32_t l = 0; l < num_layers; l++) {
        const zx_status_t status = zx_rnn_param_load(file, &(*layers)[l]);
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    return ZX_STATUS_SUCCESS;
}

// A file may claim any number of layers: only those that were made are looked at.
template <auto delete_layer, class Layer>
void delete_layers(Layer **layers, int32_t num_layers) {
    if (!layers) return;
    int32_t num_made = 0;
    while (num_made < num_layers && layers[num_made]) num_made++;
    for (int32_t l = num_made - 1; l >= 0; l--) delete_layer(layers[l]);
    std::free(layers);
}

}  // namespace

zx_status_t zx_parley_classifier_param_load(FILE *file, zx_parley_classifier_param_t **param) {
    ZX_ASSERT(file);
    ZX_ASSERT(param);
    *param = nullptr;
    zx_owned<zx_parley_classifier_param_t, zx_parley_classifier_param_delete> p(
        zx_heap_zeroed<zx_parley_classifier_param_t>());
    if (!p) return zx_check_status(__FILE__, __LINE__, ZX_STATUS_OUT_OF_MEMORY);

    zx_status_t status = zx_normalization_param_load(file, &p->normalization);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = zx_file_read_count(file, &p->num_layers);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = load_layers(file, p->num_layers, &p->forward);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = load_layers(file, p->num_layers, &p->backward);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = zx_fc_param_load(file, &p->embedding);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = zx_file_read_count(file, &p->chunk_length_frames);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = zx_file_read_count(file, &p->warmup_length_frames, p->chunk_length_frames);
    if (status != ZX_STATUS_SUCCESS) return status;
    *param = p.release();
    return ZX_STATUS_SUCCESS;
}

void zx_parley_classifier_param_delete(zx_parley_classifier_param_t *param) {
    if (!param) return;
    zx_fc_param_delete(param->embedding);
    delete_layers<zx_rnn_param_delete>(param->backward, param->num_layers);
    delete_layers<zx_rnn_param_delete>(param->forward, param->num_layers);
    zx_normalization_param_delete(param->normalization);
    std::free(param);
}

const char *zx_parley_classifier_param_inconsistency(const zx_parley_classifier_param_t *param,
                                                     int32_t normalization_dimension, int32_t frame_size) {
    if (param->normalization->dimension != normalization_dimension) return "normalization dimension";
    const int32_t first_hidden_size = zx_rnn_param_hidden_size(param->forward[0]);
    int32_t input_size = frame_size;
    for (int32_t l = 0; l < param->num_layers; l++) {
        const int32_t hidden_size = zx_rnn_param_hidden_size(param->forward[l]);
        if (hidden_size > first_hidden_size) return "hidden size above that of the first layer";
        for (const zx_rnn_param_t *layer : {param->forward[l], param->backward[l]}) {
            if (zx_rnn_param_hidden_size(layer) != hidden_size) return "hidden size of the backward layer";
            if (layer->input_projection->input_dimension != input_size)
                return "input size of a recurrent layer";
            // Three outputs per hidden value; the comparison in 64 bits cannot overflow.
            if (layer->input_projection->output_dimension != int64_t{3} * hidden_size ||
                layer->hidden_projection->output_dimension != int64_t{3} * hidden_size) {
                return "output size of a recurrent layer's projection";
            }
        }
        input_size = hidden_size;
    }
    if (param->embedding->input_dimension != input_size) return "input size of the embedding layer";
    return nullptr;
}

zx_status_t zx_parley_classifier_init(const zx_parley_classifier_param_t *param,
                                      zx_parley_classifier_t **object) {
    ZX_ASSERT(param);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<zx_parley_classifier_t, zx_parley_classifier_delete> o(zx_heap_zeroed<zx_parley_classifier_t>());
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->param = param;
    const size_t num_layers = static_cast<size_t>(param->num_layers);
    o->forward = zx_heap_zeroed<zx_rnn_t *>(num_layers);
    o->backward = zx_heap_zeroed<zx_rnn_t *>(num_layers);
    if (!o->forward || !o->backward) return ZX_STATUS_OUT_OF_MEMORY;

    zx_memory_t *memory = nullptr;
    zx_status_t status = zx_memory_init(&memory);
    if (status != ZX_STATUS_SUCCESS) return status;
    for (int32_t l = 0; l < param->num_layers; l++) {
        status = zx_rnn_init(memory, param->forward[l], &o->forward[l]);
        if (status != ZX_STATUS_SUCCESS) return status;
        status = zx_rnn_init(memory, param->backward[l], &o->backward[l]);
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    status = zx_fc_init(memory, param->embedding, false, &o->embedding);
    if (status != ZX_STATUS_SUCCESS) return status;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_parley_classifier_delete(zx_parley_classifier_t *object) {
    if (!object) return;
    zx_fc_delete(object->embedding);
    delete_layers<zx_rnn_delete>(object->forward, object->param->num_layers);
    delete_layers<zx_rnn_delete>(object->backward, object->param->num_layers);
    std::free(object);
}

void zx_parley_classifier_preprocess(const zx_parley_classifier_t *object, int16_t *feature,
                                     int32_t num_frames) {
    ZX_ASSERT(object);
    ZX_ASSERT(feature);
    ZX_ASSERT(num_frames > 0);
    zx_normalization_process(object->param->normalization, feature, feature, num_frames);
}

namespace {

// Chunks that are computed side by side. Each load of a recurrent layer's weights then serves as many steps.
constexpr int32_t MAX_SIDE_BY_SIDE = 8;
constexpr int32_t MAX_SIDE_BY_SIDE_OF_MANY = 6;  // where there are several workers, of 2 MB a chunk each

// What a layer reads and what it writes, kept from one group of chunks to the next: memory that is new to a
// process costs a page fault every 4 kB.
struct layer_buffers {
    zx_heap_ptr<int16_t> x, y;
    size_t size = 0;  // of each

    [[nodiscard]] bool make_room(size_t wanted) {
        if (wanted <= size) return true;
        size = 0;
        for (zx_heap_ptr<int16_t> *buffer : {&x, &y}) {
            buffer->reset();
            buffer->reset(static_cast<int16_t *>(std::malloc(wanted * sizeof(int16_t))));
            if (!*buffer) return false;
        }
        size = wanted;
        return true;
    }
};

// Runs chunks, in falling order of length, through the network. Row 0 of d_vector is that of frame first_row.
zx_status_t process_chunks(const zx_parley_classifier_t *object, const int16_t *feature,
                           const zx_parley_chunk_t *chunks, int32_t num_chunks, layer_buffers *buffers,
                           float *d_vector, int32_t first_row) {
    const zx_parley_classifier_param_t *param = object->param;
    const size_t frame_size = static_cast<size_t>(param->forward[0]->input_projection->input_dimension);
    const auto hidden_size = [param](int32_t layer) {
        return static_cast<size_t>(zx_rnn_param_hidden_size(param->forward[layer]));
    };
    size_t num_frames = 0;
    for (int32_t c = 0; c < num_chunks; c++) num_frames += static_cast<size_t>(chunks[c].length);

    // The first layer reads the features. It is the widest of all.
    if (!buffers->make_room(num_frames * hidden_size(0))) return ZX_STATUS_OUT_OF_MEMORY;
    size_t x_size = frame_size;
    zx_rnn_sequence_t sequences[MAX_SIDE_BY_SIDE];
    for (int32_t l = 0; l < param->num_layers; l++) {
        size_t done = 0;
        for (int32_t c = 0; c < num_chunks; c++) {
            sequences[c] = {l == 0 ? feature + static_cast<size_t>(chunks[c].start) * frame_size
                                   : buffers->x.get() + done * x_size,
                            buffers->y.get() + done * hidden_size(l), chunks[c].length};
            done += static_cast<size_t>(chunks[c].length);
        }
        zx_status_t status =
            zx_rnn_process_sequences(object->forward[l], zx_rnn_direction::forward, num_chunks, sequences);
        if (status != ZX_STATUS_SUCCESS) return status;
        status =
            zx_rnn_process_sequences(object->backward[l], zx_rnn_direction::backward, num_chunks, sequences);
        if (status != ZX_STATUS_SUCCESS) return status;
        std::swap(buffers->x, buffers->y);
        x_size = hidden_size(l);
    }

    constexpr int32_t BATCH = 32;  // rows
    const int32_t embedding_size = param->embedding->output_dimension;
    const size_t row_size = static_cast<size_t>(embedding_size);
    const zx_heap_ptr<int16_t> embeddings(
        static_cast<int16_t *>(std::malloc(BATCH * row_size * sizeof(int16_t))));
    if (!embeddings) return ZX_STATUS_OUT_OF_MEMORY;
    const int16_t *chunk_rows = buffers->x.get();
    for (int32_t c = 0; c < num_chunks; c++) {
        for (int32_t t = chunks[c].first_kept; t < chunks[c].end_kept; t += BATCH) {
            const int32_t count = zx_min_int32(BATCH, chunks[c].end_kept - t);
            zx_fc_process_rows(object->embedding, count,
                               chunk_rows + static_cast<size_t>(t - chunks[c].start) * x_size,
                               static_cast<ptrdiff_t>(x_size), embeddings.get(), embedding_size);
            for (int32_t i = 0; i < count; i++) {
                zx_normalize_q510(embedding_size, embeddings.get() + static_cast<size_t>(i) * row_size,
                                  d_vector + static_cast<size_t>(t + i - first_row) * row_size);
            }
        }
        chunk_rows += static_cast<size_t>(chunks[c].length) * x_size;
    }
    return ZX_STATUS_SUCCESS;
}

// What is common to all chunks of a run.
struct chunk_run {
    chunk_run(const zx_parley_classifier_t *object_, const int16_t *feature_, int32_t num_frames,
              int32_t num_workers)
        : object(object_),
          feature(feature_),
          layout{num_frames, object->param->chunk_length_frames, object->param->warmup_length_frames},
          num_chunks(layout.num_chunks()),
          is_alone(num_workers == 1) {
        // As many groups for each worker; what a group takes of memory grows with its chunks.
        const int32_t limit = num_workers > 1 ? MAX_SIDE_BY_SIDE_OF_MANY : MAX_SIDE_BY_SIDE;
        num_groups = divide_up(divide_up(num_chunks, limit), num_workers) * num_workers;
        num_groups = std::min(num_groups, num_chunks);
    }

    static int32_t divide_up(int32_t a, int32_t b) { return (a + b - 1) / b; }

    // Groups differ by at most one chunk.
    int32_t first_of_group(int32_t group) const {
        return static_cast<int32_t>(int64_t{num_chunks} * group / num_groups);
    }

    // The frames whose rows a group keeps.
    int32_t first_row_of(int32_t group) const { return layout.at(first_of_group(group)).first_kept; }
    int32_t num_rows_of(int32_t group) const {
        return layout.at(first_of_group(group + 1) - 1).end_kept - first_row_of(group);
    }

    zx_status_t process(int32_t group, layer_buffers *own, float *rows, int32_t first_row) const {
        zx_parley_chunk_t chunks[MAX_SIDE_BY_SIDE];
        const int32_t first = first_of_group(group), end = first_of_group(group + 1);
        for (int32_t c = first; c < end; c++) chunks[c - first] = layout.at(c);
        return process_chunks(object, feature, chunks, end - first, own, rows, first_row);
    }

    static zx_status_t process_group(void *context, int32_t, int32_t group) {
        auto *self = static_cast<chunk_run *>(context);
        layer_buffers own;
        return self->process(self->first_group + group, self->is_alone ? &self->buffers : &own,
                             self->d_vector, 0);
    }

    const zx_parley_classifier_t *object;
    const int16_t *feature;
    zx_parley_chunk_layout_t layout;
    int32_t num_chunks, num_groups;
    int32_t first_group = 0;    // of those that are under way
    float *d_vector = nullptr;  // the rows of all frames, where they are kept
    bool is_alone;              // one worker keeps its buffers; several would hold too much at a time
    layer_buffers buffers;
};

}  // namespace

zx_status_t zx_parley_classifier_process(const zx_parley_classifier_t *object, const int16_t *feature,
                                         int32_t num_frames, float *d_vector, const zx_progress_t *progress,
                                         int32_t num_workers, const zx_parley_rows_sink_t *sink) {
    ZX_ASSERT(object);
    ZX_ASSERT(feature);
    ZX_ASSERT(num_frames > 0);
    ZX_ASSERT(d_vector);
    const int64_t chunk_length_frames = object->param->chunk_length_frames;
    const int64_t warmup_length_frames = object->param->warmup_length_frames;
    ZX_ASSERT(3 * warmup_length_frames < chunk_length_frames);
    chunk_run run(object, feature, num_frames, num_workers);
    if (!sink) {
        run.d_vector = d_vector;
        return zx_parallel_run(num_workers, run.num_groups, {chunk_run::process_group, &run}, progress);
    }
    for (int32_t group = 0; group < run.num_groups; group++) {
        if (!zx_progress_report(progress, group, run.num_groups)) return ZX_STATUS_STOP_ITERATION;
        const int32_t first = run.first_row_of(group);
        zx_status_t status = run.process(group, &run.buffers, d_vector, first);
        if (status == ZX_STATUS_SUCCESS)
            status = sink->take(sink->context, d_vector, first, run.num_rows_of(group));
        if (status != ZX_STATUS_SUCCESS) return status;
    }
    return ZX_STATUS_SUCCESS;
}

zx_status_t zx_parley_classifier_process_releasing(const zx_parley_classifier_t *object,
                                                   zx_heap_ptr<int16_t> *feature, int32_t num_frames,
                                                   float *d_vector, const zx_progress_t *progress,
                                                   int32_t num_workers) {
    constexpr int32_t NUM_PARTS = 8;
    const auto frame_size = static_cast<size_t>(object->param->forward[0]->input_projection->input_dimension);
    chunk_run run(object, feature->get(), num_frames, num_workers);
    run.d_vector = d_vector;
    struct part_of_progress {
        const zx_progress_t *whole;
        double before, share;
    };
    // As many groups for each worker in every part, so that none waits for long.
    const int32_t groups_a_part = num_workers * chunk_run::divide_up(run.num_groups, num_workers * NUM_PARTS);
    for (int32_t end = run.num_groups; end > 0; end = run.first_group) {
        run.first_group = std::max(0, end - groups_a_part);
        run.feature = feature->get();
        part_of_progress share = {progress, 1 - static_cast<double>(end) / run.num_groups,
                                  static_cast<double>(end - run.first_group) / run.num_groups};
        const auto report = [](void *context, double done) {
            const auto *of = static_cast<const part_of_progress *>(context);
            return !of->whole || of->whole->report(of->whole->context, of->before + of->share * done);
        };
        const zx_progress_t reported = {report, &share};
        const zx_status_t status =
            zx_parallel_run(num_workers, end - run.first_group, {chunk_run::process_group, &run}, &reported);
        if (status != ZX_STATUS_SUCCESS) return status;
        if (run.first_group == 0) continue;
        const zx_parley_chunk_t last = run.layout.at(run.first_of_group(run.first_group) - 1);
        const auto needed = static_cast<size_t>(last.start + last.length) * frame_size;
        if (void *shorter = std::realloc(feature->get(), needed * sizeof(int16_t))) {
            static_cast<void>(feature->release());
            feature->reset(static_cast<int16_t *>(shorter));
        }
    }
    return ZX_STATUS_SUCCESS;
}

int32_t zx_parley_classifier_rows_at_once(const zx_parley_classifier_t *object, int32_t num_frames) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_frames > 0);
    const chunk_run run(object, nullptr, num_frames, 1);
    int32_t largest = 0;
    for (int32_t group = 0; group < run.num_groups; group++)
        largest = zx_max_int32(largest, run.num_rows_of(group));
    return largest;
}

zx_status_t zx_parley_classifier_internal_process_chunk(zx_parley_classifier_t *object,
                                                        const int16_t *feature, int32_t num_frames,
                                                        float *d_vector) {
    ZX_ASSERT(object);
    ZX_ASSERT(feature);
    ZX_ASSERT(d_vector);
    const zx_parley_chunk_t whole = {0, num_frames, 0, num_frames};
    layer_buffers buffers;
    return process_chunks(object, feature, &whole, 1, &buffers, d_vector, 0);
}
