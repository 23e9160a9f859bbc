// SPDX-License-Identifier: Apache-2.0
// Layers by AMX. No processor that has it was at hand when this was written: its tiles are modelled in
// the tests, and it is only taken where it gives what the plain variant gives (zx_fc_amx_agrees).
#include <immintrin.h>

#include "zx_fc_tile_layer.h"
#include "zx_kernel_functions.h"

namespace {

// Tiles 0 and 1 sum what the lower bytes give, 2 and 3 what the upper ones give; 4 and 5 hold bytes of
// inputs, 6 and 7 the weights of two blocks. The intrinsics take their numbers as literals.
class amx_tiles {
public:
    explicit amx_tiles(int32_t num_rows) {
        struct {
            uint8_t palette = 1, start_row = 0, reserved[14] = {};
            uint16_t row_bytes[16] = {};
            uint8_t rows[16] = {};
        } config;
        static_assert(sizeof(config) == 64);
        for (int32_t t = 0; t < 8; t++) {
            config.row_bytes[t] = 64;
            config.rows[t] = t < 6 ? static_cast<uint8_t>(num_rows) : uint8_t{16};
        }
        _tile_loadconfig(&config);
    }
    ~amx_tiles() { _tile_release(); }

    void clear() {
        _tile_zero(0);
        _tile_zero(1);
        _tile_zero(2);
        _tile_zero(3);
    }

    void load_inputs(const int8_t (*low)[TILE_INPUTS], const int8_t (*high)[TILE_INPUTS]) {
        _tile_loadd(4, low, TILE_INPUTS);
        _tile_loadd(5, high, TILE_INPUTS);
    }

    void load_weights(const int8_t *first, const int8_t *second) {
        _tile_loadd(6, first, ZX_FC_GROUP_SIZE);
        _tile_loadd(7, second, ZX_FC_GROUP_SIZE);
    }

    void multiply() {
        _tile_dpbssd(0, 4, 6);
        _tile_dpbssd(1, 4, 7);
        _tile_dpbssd(2, 5, 6);
        _tile_dpbssd(3, 5, 7);
    }

    void store(tile_sums *sums) {
        constexpr int ROW = ZX_FC_BLOCK * sizeof(int32_t);
        _tile_stored(0, sums->low[0], ROW);
        _tile_stored(1, sums->low[1], ROW);
        _tile_stored(2, sums->high[0], ROW);
        _tile_stored(3, sums->high[1], ROW);
    }
};

}  // namespace

void zx_fc_layer_amx(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                     int16_t *y, ptrdiff_t y_stride) {
    process_by_tiles<amx_tiles>(object, num_rows, x, x_stride, y, y_stride);
}

bool zx_fc_amx_agrees() {
    constexpr int32_t INPUTS = 70, OUTPUTS = 50, ROWS = 17, BLOCKS = 4;
    constexpr size_t PACKED = BLOCKS * (ZX_FC_STARTS_SIZE + 2 * TILE_INPUTS * ZX_FC_BLOCK);
    int8_t weights[INPUTS * OUTPUTS], biases[OUTPUTS], packed[PACKED];
    int16_t x[ROWS * INPUTS], y[ROWS * OUTPUTS], expected[ROWS * OUTPUTS];
    uint32_t state = 1;  // of a linear congruence
    const auto next = [&state] { return static_cast<int32_t>(state = state * 1664525 + 1013904223) >> 16; };
    for (int8_t &w : weights) w = static_cast<int8_t>(next());
    for (int8_t &b : biases) b = static_cast<int8_t>(next());
    for (int16_t &value : x) value = static_cast<int16_t>(next());
    zx_fc_param_t param = {INPUTS, OUTPUTS, weights, biases};
    if (zx_fc_packed_size(&param, zx_packing::quads) != PACKED) return false;
    zx_fc_pack(&param, zx_packing::quads, packed);
    const zx_fc_t layer = {nullptr, &param, false, nullptr, packed};
    zx_fc_layer_amx(&layer, ROWS, x, INPUTS, y, OUTPUTS);
    zx_fc_layer_plain(&layer, ROWS, x, INPUTS, expected, OUTPUTS);
    return __builtin_memcmp(y, expected, sizeof(y)) == 0;
}
