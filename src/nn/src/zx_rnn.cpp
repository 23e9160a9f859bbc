// SPDX-License-Identifier: Apache-2.0
#include "zx_rnn.h"

#include <cstring>
#include <memory>

#include "zx_assert.h"
#include "zx_heap.h"
#include "zx_kernels.h"
#include "zx_math.h"

zx_status_t zx_rnn_param_load(FILE *file, zx_rnn_param_t **param) {
    ZX_ASSERT(file);
    ZX_ASSERT(param);
    *param = nullptr;
    zx_owned<zx_rnn_param_t, zx_rnn_param_delete> p(zx_heap_zeroed<zx_rnn_param_t>());
    if (!p) return ZX_STATUS_OUT_OF_MEMORY;
    zx_status_t status = zx_fc_param_load(file, &p->input_projection);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = zx_fc_param_load(file, &p->hidden_projection);
    if (status != ZX_STATUS_SUCCESS) return status;
    *param = p.release();
    return ZX_STATUS_SUCCESS;
}

void zx_rnn_param_delete(zx_rnn_param_t *param) {
    if (!param) return;
    zx_fc_param_delete(param->hidden_projection);
    zx_fc_param_delete(param->input_projection);
    std::free(param);
}

int32_t zx_rnn_param_hidden_size(const zx_rnn_param_t *param) {
    return param->hidden_projection->input_dimension;
}

zx_status_t zx_rnn_init(zx_memory_t *memory, const zx_rnn_param_t *param, zx_rnn_t **object) {
    ZX_ASSERT(memory);
    ZX_ASSERT(param);
    ZX_ASSERT(object);
    *object = nullptr;
    zx_owned<zx_rnn_t, zx_rnn_delete> o(zx_memory_zeroed<zx_rnn_t>(memory));
    if (!o) return ZX_STATUS_OUT_OF_MEMORY;
    o->memory = memory;
    o->param = param;
    const size_t hidden_size = static_cast<size_t>(zx_rnn_param_hidden_size(param));
    o->hidden_state = zx_memory_zeroed<int16_t>(memory, hidden_size);
    o->cell_state = zx_memory_zeroed<int16_t>(memory, hidden_size);
    if (!o->hidden_state || !o->cell_state) return ZX_STATUS_OUT_OF_MEMORY;
    zx_status_t status = zx_fc_init(memory, param->input_projection, false, &o->input_projection);
    if (status != ZX_STATUS_SUCCESS) return status;
    status = zx_fc_init(memory, param->hidden_projection, true, &o->hidden_projection);
    if (status != ZX_STATUS_SUCCESS) return status;
    *object = o.release();
    return ZX_STATUS_SUCCESS;
}

void zx_rnn_delete(zx_rnn_t *object) {
    if (!object) return;
    zx_fc_delete(object->hidden_projection);
    zx_fc_delete(object->input_projection);
    zx_memory_free(object->memory, object->cell_state);
    zx_memory_free(object->memory, object->hidden_state);
    zx_memory_free(object->memory, object);
}

namespace {

// From the sums of both projections to the next state; `gates` are used up.
void step_cell(int32_t hidden_size, int16_t *gates, int16_t *cell, int16_t *hidden) {
    int16_t *input_gate = gates;
    int16_t *candidate = input_gate + hidden_size;
    int16_t *output_gate = candidate + hidden_size;
    zx_sigmoid(hidden_size, input_gate, input_gate);
    zx_tanh(hidden_size, candidate, candidate);
    zx_sigmoid(hidden_size, output_gate, output_gate);
    zx_kernels()->loops->update_cell(hidden_size, input_gate, candidate, cell);
    zx_tanh(hidden_size, cell, hidden);
    zx_kernels()->loops->gate_output(hidden_size, output_gate, hidden);
}

}  // namespace

zx_status_t zx_rnn_process(zx_rnn_t *object, const int16_t *x, int16_t *y) {
    ZX_ASSERT(object);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    const int32_t hidden_size = zx_rnn_param_hidden_size(object->param);
    const auto gates =
        zx_scratch_allocate<int16_t>(object->memory, 3 * static_cast<size_t>(hidden_size), zx_fill::zero);
    if (!gates) return ZX_STATUS_OUT_OF_MEMORY;
    zx_fc_process(object->input_projection, x, gates.get());
    zx_fc_process(object->hidden_projection, object->hidden_state, gates.get());
    step_cell(hidden_size, gates.get(), object->cell_state, y);
    std::memcpy(object->hidden_state, y, static_cast<size_t>(hidden_size) * sizeof(int16_t));
    return ZX_STATUS_SUCCESS;
}

// Steps go by in tiles. For a tile, the input projections of every sequence's frames are computed first, into
// rows of gates ordered by step and then by sequence; then step by step the hidden projections of all
// sequences are added and their cells updated. A tile's gates are small enough for the second level of the
// cache.
zx_status_t zx_rnn_process_sequences(const zx_rnn_t *object, zx_rnn_direction direction,
                                     int32_t num_sequences, const zx_rnn_sequence_t *sequences) {
    ZX_ASSERT(object);
    ZX_ASSERT(num_sequences > 0);
    ZX_ASSERT(sequences);
    constexpr int32_t TILE = 16;  // steps
    const int32_t hidden_size = zx_rnn_param_hidden_size(object->param);
    const size_t size = static_cast<size_t>(hidden_size);
    const ptrdiff_t input_size = object->param->input_projection->input_dimension;
    const ptrdiff_t gates_size = 3 * ptrdiff_t{hidden_size};
    const size_t lanes = static_cast<size_t>(num_sequences);
    const auto gates = zx_scratch_allocate<int16_t>(object->memory, TILE * lanes * 3 * size, zx_fill::none);
    const auto cells = zx_scratch_allocate<int16_t>(object->memory, lanes * size, zx_fill::zero);
    const auto hidden = zx_scratch_allocate<int16_t>(object->memory, lanes * size, zx_fill::zero);
    if (!gates || !cells || !hidden) return ZX_STATUS_OUT_OF_MEMORY;

    // The frame that a sequence is at in a step, and the way to the next one.
    const bool is_forward = direction == zx_rnn_direction::forward;
    const auto frame = [is_forward](const zx_rnn_sequence_t &sequence, int32_t step) {
        return ptrdiff_t{is_forward ? step : sequence.num_frames - 1 - step};
    };
    int32_t num_active = num_sequences;
    for (int32_t first = 0; first < sequences[0].num_frames; first += TILE) {
        for (int32_t lane = 0; lane < num_sequences; lane++) {
            const zx_rnn_sequence_t &sequence = sequences[lane];
            const int32_t num_steps = zx_min_int32(sequence.num_frames - first, TILE);
            if (num_steps <= 0) break;
            zx_fc_process_rows(object->input_projection, num_steps,
                               sequence.x + frame(sequence, first) * input_size,
                               is_forward ? input_size : -input_size, gates.get() + lane * gates_size,
                               num_sequences * gates_size);
        }
        const int32_t end = zx_min_int32(first + TILE, sequences[0].num_frames);
        for (int32_t step = first; step < end; step++) {
            while (sequences[num_active - 1].num_frames <= step) num_active--;
            int16_t *step_gates = gates.get() + (step - first) * num_sequences * gates_size;
            zx_fc_process_rows(object->hidden_projection, num_active, hidden.get(), hidden_size, step_gates,
                               gates_size);
            for (int32_t lane = 0; lane < num_active; lane++) {
                int16_t *h = hidden.get() + lane * ptrdiff_t{hidden_size};
                step_cell(hidden_size, step_gates + lane * gates_size,
                          cells.get() + lane * ptrdiff_t{hidden_size}, h);
                int16_t *y = sequences[lane].y + frame(sequences[lane], step) * hidden_size;
                if (is_forward) {
                    std::memcpy(y, h, size * sizeof(int16_t));
                } else {
                    zx_kernels()->loops->add(hidden_size, h, y);
                }
            }
        }
    }
    return ZX_STATUS_SUCCESS;
}

void zx_rnn_reset(zx_rnn_t *object) {
    ZX_ASSERT(object);
    const size_t size = static_cast<size_t>(zx_rnn_param_hidden_size(object->param)) * sizeof(int16_t);
    std::memset(object->hidden_state, 0, size);
    std::memset(object->cell_state, 0, size);
}
