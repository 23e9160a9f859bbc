#include "zx_fc_kernels.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "zx_processor.h"

namespace {

int32_t num_blocks(const zx_fc_param_t *param) {
    return (param->output_dimension - 1) / ZX_FC_BLOCK + 1;
}

int32_t num_groups(const zx_fc_param_t *param) {
    return (param->input_dimension - 1) / ZX_FC_GROUP + 1;
}

constexpr ptrdiff_t STARTS_SIZE = ZX_FC_BLOCK * sizeof(int32_t);
constexpr ptrdiff_t GROUP_SIZE = ZX_FC_BLOCK * ZX_FC_GROUP;

ptrdiff_t block_size(const zx_fc_param_t *param) {
    return STARTS_SIZE + num_groups(param) * GROUP_SIZE;
}

void process_plain(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride, int16_t *y,
                   ptrdiff_t y_stride) {
    for (int32_t r = 0; r < num_rows; r++, x += x_stride, y += y_stride) zx_fc_process_generic(object, x, y);
}

}  // namespace

size_t zx_fc_packed_size(const zx_fc_param_t *param) {
    return static_cast<size_t>(num_blocks(param)) * static_cast<size_t>(block_size(param));
}

void zx_fc_pack(const zx_fc_param_t *param, int8_t *packed) {
    const int32_t num_inputs = param->input_dimension, num_outputs = param->output_dimension;
    for (int32_t first = 0; first < num_outputs; first += ZX_FC_BLOCK) {
        const int32_t end = first + ZX_FC_BLOCK;
        for (int32_t o = first; o < end; o++, packed += sizeof(int32_t)) {
            const int32_t start = o < num_outputs ? param->biases[o] * 1024 + 64 : 0;
            std::memcpy(packed, &start, sizeof(start));
        }
        for (int32_t group = 0; group < num_inputs; group += ZX_FC_GROUP) {
            for (int32_t o = first; o < end; o++) {
                for (const int32_t i : {group, group + 2, group + 1, group + 3}) {
                    const bool is_there = o < num_outputs && i < num_inputs;
                    *packed++ = is_there ? param->weights[ptrdiff_t{o} * num_inputs + i] : int8_t{0};
                }
            }
        }
    }
}

#if ZX_X86_KERNELS || ZX_WASM_KERNELS

namespace {

inline int32_t load_pair(const int16_t *x) {
    int32_t pair;
    std::memcpy(&pair, x, sizeof(pair));
    return pair;
}

// The last inputs of each row when they are fewer than a group, followed by zeros.
template <int ROWS>
struct partial_groups {
    partial_groups(const int16_t *x, ptrdiff_t x_stride, int32_t count) {
        for (int r = 0; r < ROWS; r++, x += x_stride) {
            for (int32_t i = 0; i < ZX_FC_GROUP; i++) values[r][i] = i < count ? x[i] : int16_t{0};
        }
    }
    int16_t values[ROWS][ZX_FC_GROUP];
};

// What the versions share: they go through the rows in groups, and for each group through all blocks of
// outputs, several of both at a time, so that enough sums are under way to hide the latency of an addition.
// `Tile` computes one group of rows by one group of blocks, whose first output is at y, with loops of its
// own: code for one kind of processor cannot be inlined into code for all of them.
template <class Tile>
struct tiles {
    // Each block is a stream of weights from the second level of the cache, which fetches only so many ahead.
    static constexpr int MAX_BLOCKS = 5;

    template <int ROWS, int BLOCKS>
    static void through_blocks(const zx_fc_t *object, const int16_t *x, ptrdiff_t x_stride, int16_t *y,
                               ptrdiff_t y_stride, int32_t block) {
        const int32_t end = object->param->output_dimension / ZX_FC_BLOCK;
        for (; block + BLOCKS <= end; block += BLOCKS) {
            Tile::template compute<ROWS, BLOCKS>(object, block, x, x_stride, y + block * ZX_FC_BLOCK,
                                                 y_stride);
        }
        if constexpr (BLOCKS > 1) {
            if (block < end) through_blocks<ROWS, BLOCKS / 2>(object, x, x_stride, y, y_stride, block);
        }
    }

    // The last block where it is only partly there: it goes through a buffer.
    template <int ROWS>
    static void partial_block(const zx_fc_t *object, const int16_t *x, ptrdiff_t x_stride, int16_t *y,
                              ptrdiff_t y_stride) {
        const int32_t block = object->param->output_dimension / ZX_FC_BLOCK;
        const int32_t count = object->param->output_dimension % ZX_FC_BLOCK;
        if (count == 0) return;
        y += block * ZX_FC_BLOCK;
        int16_t outputs[ROWS][ZX_FC_BLOCK] = {};
        if (object->accumulate) {
            for (int r = 0; r < ROWS; r++) std::copy_n(y + r * y_stride, count, outputs[r]);
        }
        Tile::template compute<ROWS, 1>(object, block, x, x_stride, outputs[0], ZX_FC_BLOCK);
        for (int r = 0; r < ROWS; r++) std::copy_n(outputs[r], count, y + r * y_stride);
    }

    template <int ROWS>
    static void through_rows(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride,
                             int16_t *y, ptrdiff_t y_stride) {
        constexpr int BLOCKS = std::min(Tile::MAX_SUMS / ROWS, MAX_BLOCKS);
        for (; num_rows >= ROWS; num_rows -= ROWS, x += ROWS * x_stride, y += ROWS * y_stride) {
            through_blocks<ROWS, BLOCKS>(object, x, x_stride, y, y_stride, 0);
            partial_block<ROWS>(object, x, x_stride, y, y_stride);
        }
        if constexpr (ROWS > 1) {
            if (num_rows > 0) through_rows<ROWS - 1>(object, num_rows, x, x_stride, y, y_stride);
        }
    }
};

#if ZX_X86_KERNELS

// 512 bits: a block of outputs is one register, multiplied, paired and added by one instruction.
struct vnni_tile {
    static constexpr int MAX_SUMS = 16;
    static constexpr int MAX_ROWS = 8;

    // Adds the products of a group of inputs.
    template <int ROWS, int BLOCKS>
    ZX_TARGET_VNNI static inline void add_group(__m512i (&sums)[ROWS][BLOCKS], const int8_t *weights,
                                                ptrdiff_t stride, const int16_t *x, ptrdiff_t x_stride) {
        __m512i low[BLOCKS], high[BLOCKS];
#pragma GCC unroll 16
        for (int b = 0; b < BLOCKS; b++) {
            const __m512i w = _mm512_loadu_si512(weights + b * stride);
            low[b] = _mm512_srai_epi16(_mm512_slli_epi16(w, 8), 8);
            high[b] = _mm512_srai_epi16(w, 8);
        }
#pragma GCC unroll 16
        for (int r = 0; r < ROWS; r++, x += x_stride) {
            const __m512i first = _mm512_set1_epi32(load_pair(x)),
                          second = _mm512_set1_epi32(load_pair(x + 2));
#pragma GCC unroll 16
            for (int b = 0; b < BLOCKS; b++) {
                sums[r][b] = _mm512_dpwssd_epi32(sums[r][b], low[b], first);
                sums[r][b] = _mm512_dpwssd_epi32(sums[r][b], high[b], second);
            }
        }
    }

    template <int ROWS, int BLOCKS>
    ZX_TARGET_VNNI static void compute(const zx_fc_t *object, int32_t block, const int16_t *x,
                                       ptrdiff_t x_stride, int16_t *y, ptrdiff_t y_stride) {
        const zx_fc_param_t *param = object->param;
        const ptrdiff_t stride = block_size(param);
        const int8_t *weights = object->packed + block * stride;
        __m512i sums[ROWS][BLOCKS];
        for (int b = 0; b < BLOCKS; b++) {
            for (int r = 0; r < ROWS; r++) sums[r][b] = _mm512_loadu_si512(weights + b * stride);
        }
        weights += STARTS_SIZE;
        int32_t num_left = param->input_dimension;
        for (; num_left >= ZX_FC_GROUP; num_left -= ZX_FC_GROUP, weights += GROUP_SIZE, x += ZX_FC_GROUP) {
            add_group(sums, weights, stride, x, x_stride);
        }
        if (num_left > 0) {
            const partial_groups<ROWS> last(x, x_stride, num_left);
            add_group(sums, weights, stride, last.values[0], ZX_FC_GROUP);
        }
        for (int r = 0; r < ROWS; r++, y += y_stride) {
            for (int b = 0; b < BLOCKS; b++) {
                auto *at = reinterpret_cast<__m256i *>(y + b * ZX_FC_BLOCK);
                __m512i sum = _mm512_srai_epi32(sums[r][b], 7);
                if (object->accumulate)
                    sum = _mm512_add_epi32(sum, _mm512_cvtepi16_epi32(_mm256_loadu_si256(at)));
                _mm256_storeu_si256(at, _mm512_cvtsepi32_epi16(sum));
            }
        }
    }
};

// 256 bits: a block of outputs is two registers; a product and a sum are two instructions.
struct avx2_tile {
    static constexpr int MAX_SUMS = 8;
    static constexpr int MAX_ROWS = 4;

    // Adds the products of a group of inputs.
    template <int ROWS, int BLOCKS>
    ZX_TARGET_AVX2 static inline void add_group(__m256i (&sums)[ROWS][BLOCKS][2], const int8_t *weights,
                                                ptrdiff_t stride, const int16_t *x, ptrdiff_t x_stride) {
        __m256i first[ROWS], second[ROWS];
#pragma GCC unroll 16
        for (int r = 0; r < ROWS; r++, x += x_stride) {
            first[r] = _mm256_set1_epi32(load_pair(x));
            second[r] = _mm256_set1_epi32(load_pair(x + 2));
        }
#pragma GCC unroll 16
        for (int b = 0; b < BLOCKS; b++) {
#pragma GCC unroll 2
            for (int half = 0; half < 2; half++) {
                const void *at = weights + b * stride + half * GROUP_SIZE / 2;
                const __m256i w = _mm256_loadu_si256(static_cast<const __m256i *>(at));
                const __m256i low = _mm256_srai_epi16(_mm256_slli_epi16(w, 8), 8);
                const __m256i high = _mm256_srai_epi16(w, 8);
#pragma GCC unroll 16
                for (int r = 0; r < ROWS; r++) {
                    const __m256i products = _mm256_add_epi32(_mm256_madd_epi16(low, first[r]),
                                                              _mm256_madd_epi16(high, second[r]));
                    sums[r][b][half] = _mm256_add_epi32(sums[r][b][half], products);
                }
            }
        }
    }

    template <int ROWS, int BLOCKS>
    ZX_TARGET_AVX2 static void compute(const zx_fc_t *object, int32_t block, const int16_t *x,
                                       ptrdiff_t x_stride, int16_t *y, ptrdiff_t y_stride) {
        const zx_fc_param_t *param = object->param;
        const ptrdiff_t stride = block_size(param);
        const int8_t *weights = object->packed + block * stride;
        __m256i sums[ROWS][BLOCKS][2];
        for (int b = 0; b < BLOCKS; b++) {
            const auto *starts = reinterpret_cast<const __m256i *>(weights + b * stride);
            for (int r = 0; r < ROWS; r++) {
                sums[r][b][0] = _mm256_loadu_si256(starts);
                sums[r][b][1] = _mm256_loadu_si256(starts + 1);
            }
        }
        weights += STARTS_SIZE;
        int32_t num_left = param->input_dimension;
        for (; num_left >= ZX_FC_GROUP; num_left -= ZX_FC_GROUP, weights += GROUP_SIZE, x += ZX_FC_GROUP) {
            add_group(sums, weights, stride, x, x_stride);
        }
        if (num_left > 0) {
            const partial_groups<ROWS> last(x, x_stride, num_left);
            add_group(sums, weights, stride, last.values[0], ZX_FC_GROUP);
        }
        for (int r = 0; r < ROWS; r++, y += y_stride) {
            for (int b = 0; b < BLOCKS; b++) {
                auto *at = reinterpret_cast<__m128i *>(y + b * ZX_FC_BLOCK);
                __m256i low = _mm256_srai_epi32(sums[r][b][0], 7), high = _mm256_srai_epi32(sums[r][b][1], 7);
                if (object->accumulate) {
                    low = _mm256_add_epi32(low, _mm256_cvtepi16_epi32(_mm_loadu_si128(at)));
                    high = _mm256_add_epi32(high, _mm256_cvtepi16_epi32(_mm_loadu_si128(at + 1)));
                }
                // Packing works in each half of 128 bits: the quarters come out as 0 2 1 3.
                const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(low, high), 0xD8);
                _mm256_storeu_si256(reinterpret_cast<__m256i *>(at), packed);
            }
        }
    }
};

#elif ZX_WASM_KERNELS

// 128 bits: a block of outputs is four registers.
struct wasm_tile {
    static constexpr int MAX_SUMS = 2;
    static constexpr int MAX_ROWS = 2;

    // Adds the products of a group of inputs.
    template <int ROWS, int BLOCKS>
    static inline void add_group(v128_t (&sums)[ROWS][BLOCKS][4], const int8_t *weights, ptrdiff_t stride,
                                 const int16_t *x, ptrdiff_t x_stride) {
        v128_t first[ROWS], second[ROWS];
        for (int r = 0; r < ROWS; r++, x += x_stride) {
            first[r] = wasm_i32x4_splat(load_pair(x));
            second[r] = wasm_i32x4_splat(load_pair(x + 2));
        }
        for (int b = 0; b < BLOCKS; b++) {
            for (int quarter = 0; quarter < 4; quarter++) {
                const v128_t w = wasm_v128_load(weights + b * stride + quarter * GROUP_SIZE / 4);
                const v128_t low = wasm_i16x8_shr(wasm_i16x8_shl(w, 8), 8);
                const v128_t high = wasm_i16x8_shr(w, 8);
                for (int r = 0; r < ROWS; r++) {
                    const v128_t products = wasm_i32x4_add(wasm_i32x4_dot_i16x8(low, first[r]),
                                                           wasm_i32x4_dot_i16x8(high, second[r]));
                    sums[r][b][quarter] = wasm_i32x4_add(sums[r][b][quarter], products);
                }
            }
        }
    }

    template <int ROWS, int BLOCKS>
    static void compute(const zx_fc_t *object, int32_t block, const int16_t *x, ptrdiff_t x_stride,
                        int16_t *y, ptrdiff_t y_stride) {
        const zx_fc_param_t *param = object->param;
        const ptrdiff_t stride = block_size(param);
        const int8_t *weights = object->packed + block * stride;
        v128_t sums[ROWS][BLOCKS][4];
        for (int b = 0; b < BLOCKS; b++) {
            for (int quarter = 0; quarter < 4; quarter++) {
                const v128_t start = wasm_v128_load(weights + b * stride + quarter * 16);
                for (int r = 0; r < ROWS; r++) sums[r][b][quarter] = start;
            }
        }
        weights += STARTS_SIZE;
        int32_t num_left = param->input_dimension;
        for (; num_left >= ZX_FC_GROUP; num_left -= ZX_FC_GROUP, weights += GROUP_SIZE, x += ZX_FC_GROUP) {
            add_group(sums, weights, stride, x, x_stride);
        }
        if (num_left > 0) {
            const partial_groups<ROWS> last(x, x_stride, num_left);
            add_group(sums, weights, stride, last.values[0], ZX_FC_GROUP);
        }
        for (int r = 0; r < ROWS; r++, y += y_stride) {
            for (int b = 0; b < BLOCKS; b++) {
                int16_t *at = y + b * ZX_FC_BLOCK;
                for (int half = 0; half < 2; half++, at += 8) {
                    v128_t low = wasm_i32x4_shr(sums[r][b][2 * half], 7);
                    v128_t high = wasm_i32x4_shr(sums[r][b][2 * half + 1], 7);
                    if (object->accumulate) {
                        low = wasm_i32x4_add(low, wasm_i32x4_load16x4(at));
                        high = wasm_i32x4_add(high, wasm_i32x4_load16x4(at + 4));
                    }
                    wasm_v128_store(at, wasm_i16x8_narrow_i32x4(low, high));
                }
            }
        }
    }
};

#endif

template <class Tile>
void process_tiles(const zx_fc_t *object, int32_t num_rows, const int16_t *x, ptrdiff_t x_stride, int16_t *y,
                   ptrdiff_t y_stride) {
    tiles<Tile>::template through_rows<Tile::MAX_ROWS>(object, num_rows, x, x_stride, y, y_stride);
}

}  // namespace

#endif

namespace {

constexpr zx_fc_kernel_t KERNELS[] = {
#if ZX_X86_KERNELS
    {"AVX-512 VNNI", true, zx_has_vnni, process_tiles<vnni_tile>},
    {"AVX2", true, zx_has_avx2, process_tiles<avx2_tile>},
#elif ZX_WASM_KERNELS
    {"WebAssembly", true, zx_has_nothing_special, process_tiles<wasm_tile>},
#endif
    {"plain", false, zx_has_nothing_special, process_plain},
};

}  // namespace

const zx_fc_kernel_t *zx_fc_kernels(size_t *count) {
    *count = std::size(KERNELS);
    return KERNELS;
}

const zx_fc_kernel_t *zx_fc_best_kernel() {
    const zx_fc_kernel_t *kernel = KERNELS;
    while (!kernel->is_supported()) kernel++;
    return kernel;
}
