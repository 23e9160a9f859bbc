#include "zx_parley_classifier.h"

#include <cstring>
#include <memory>

#include "zx_assert.h"
#include "zx_check_status.h"
#include "zx_file.h"
#include "zx_heap.h"
#include "zx_math.h"
#include "zx_memory.h"

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

template <auto delete_layer, class Layer>
void delete_layers(Layer **layers, int32_t num_layers) {
    if (!layers) return;
    for (int32_t l = num_layers - 1; l >= 0; l--) delete_layer(layers[l]);
    std::free(layers);
}

}  // namespace

zx_status_t zx_parley_classifier_param_load(FILE *file, zx_parley_classifier_param_t **param) {
    ZX_ASSERT(file);
    ZX_ASSERT(param);
    *param = nullptr;
    std::unique_ptr<zx_parley_classifier_param_t, zx_deleter<zx_parley_classifier_param_delete>> p(
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
    std::unique_ptr<zx_parley_classifier_t, zx_deleter<zx_parley_classifier_delete>> o(
        zx_heap_zeroed<zx_parley_classifier_t>());
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

void reset_layers(zx_parley_classifier_t *object) {
    for (int32_t l = 0; l < object->param->num_layers; l++) {
        zx_rnn_reset(object->forward[l]);
        zx_rnn_reset(object->backward[l]);
    }
}

}  // namespace

// A later chunk starts 2 W frames before the end of the one before, K frames long at most. Its first W rows
// lack context to the left and are thrown away; the W after them replace rows that lacked context to the
// right:
//
//   chunk 1   |.....................|
//   chunk 2                 |..wwwwwx...................|      two letters stand for W rows: warm-up,
//   replaced
//
// It advances by K - 2 W > W frames.
zx_status_t zx_parley_classifier_process(zx_parley_classifier_t *object, const int16_t *feature,
                                         int32_t num_frames, float *d_vector) {
    ZX_ASSERT(object);
    ZX_ASSERT(feature);
    ZX_ASSERT(num_frames > 0);
    ZX_ASSERT(d_vector);
    const int32_t chunk_length_frames = object->param->chunk_length_frames;
    const int64_t warmup_length_frames = object->param->warmup_length_frames;
    ZX_ASSERT(3 * warmup_length_frames < chunk_length_frames);
    const int32_t num_warmup = object->param->warmup_length_frames;
    const size_t frame_size =
        static_cast<size_t>(object->param->forward[0]->input_projection->input_dimension);
    const size_t embedding_size = static_cast<size_t>(object->param->embedding->output_dimension);

    // Never longer than the input, so that a model with a huge chunk length costs no memory.
    const size_t buffer_frames = static_cast<size_t>(zx_min_int32(num_frames, chunk_length_frames));
    const zx_heap_ptr<float> rows(
        static_cast<float *>(std::calloc(buffer_frames, embedding_size * sizeof(float))));
    if (!rows) return ZX_STATUS_OUT_OF_MEMORY;

    int32_t start = 0;
    int32_t num_skipped = 0;
    for (;;) {
        const int32_t length = zx_min_int32(num_frames - start, chunk_length_frames);
        const zx_status_t status = zx_parley_classifier_internal_process_chunk(
            object, feature + static_cast<size_t>(start) * frame_size, length, rows.get());
        if (status != ZX_STATUS_SUCCESS) {
            reset_layers(object);  // half a chunk's state must not leak into the next call
            return status;
        }
        std::memcpy(d_vector + static_cast<size_t>(start + num_skipped) * embedding_size,
                    rows.get() + static_cast<size_t>(num_skipped) * embedding_size,
                    static_cast<size_t>(length - num_skipped) * embedding_size * sizeof(float));
        const int32_t end = start + length;
        if (end == num_frames) return ZX_STATUS_SUCCESS;
        start = end - 2 * num_warmup;
        num_skipped = num_warmup;
    }
}

zx_status_t zx_parley_classifier_internal_process_chunk(zx_parley_classifier_t *object,
                                                        const int16_t *feature, int32_t num_frames,
                                                        float *d_vector) {
    ZX_ASSERT(object);
    ZX_ASSERT(feature);
    ZX_ASSERT(d_vector);
    const zx_parley_classifier_param_t *param = object->param;
    const size_t length = static_cast<size_t>(num_frames);
    const auto hidden_size = [param](int32_t layer) {
        return static_cast<size_t>(zx_rnn_param_hidden_size(param->forward[layer]));
    };

    zx_heap_ptr<int16_t> out(static_cast<int16_t *>(std::calloc(length, hidden_size(0) * sizeof(int16_t))));
    const zx_heap_ptr<int16_t> backward_row(zx_heap_zeroed<int16_t>(hidden_size(0)));
    if (!out || !backward_row) return ZX_STATUS_OUT_OF_MEMORY;

    zx_heap_ptr<int16_t>
        layer_input;  // the previous layer's output; null while the input is the caller's features
    const int16_t *x = feature;
    size_t x_size = static_cast<size_t>(param->forward[0]->input_projection->input_dimension);
    for (int32_t l = 0; l < param->num_layers; l++) {
        const size_t size = hidden_size(l);
        for (size_t t = 0; t < length; t++) {
            const zx_status_t status =
                zx_rnn_process(object->forward[l], x + t * x_size, out.get() + t * size);
            if (status != ZX_STATUS_SUCCESS) return status;
        }
        for (size_t t = length; t-- > 0;) {
            const zx_status_t status =
                zx_rnn_process(object->backward[l], x + t * x_size, backward_row.get());
            if (status != ZX_STATUS_SUCCESS) return status;
            int16_t *row = out.get() + t * size;
            for (size_t j = 0; j < size; j++) row[j] = zx_add_int16(row[j], backward_row.get()[j]);
        }
        layer_input = std::move(out);
        x = layer_input.get();
        x_size = size;
        if (l + 1 < param->num_layers) {
            out.reset(static_cast<int16_t *>(std::malloc(length * hidden_size(l + 1) * sizeof(int16_t))));
            if (!out) return ZX_STATUS_OUT_OF_MEMORY;
        }
    }

    const int32_t embedding_size = param->embedding->output_dimension;
    const zx_heap_ptr<int16_t> embedding(zx_heap_zeroed<int16_t>(static_cast<size_t>(embedding_size)));
    if (!embedding) return ZX_STATUS_OUT_OF_MEMORY;
    for (size_t t = 0; t < length; t++) {
        zx_fc_process(object->embedding, x + t * x_size, embedding.get());
        zx_normalize_q510(embedding_size, embedding.get(),
                          d_vector + t * static_cast<size_t>(embedding_size));
    }
    reset_layers(object);
    return ZX_STATUS_SUCCESS;
}
