#include "zx_sigmoid_kernels.h"

#include <array>
#include <iterator>

#include "zx_integer.h"
#include "zx_math_tables.h"
#include "zx_processor.h"

static_assert(ZX_SIGMOID_TABLE[0] == 16384 && ZX_SIGMOID_TABLE[128] == 11 && ZX_SIGMOID_TABLE[256] == 16384);

namespace {

constexpr int16_t MIN_INPUT = -8192, MAX_INPUT = 8128;  // -8 and 7.9375

enum class form { sigmoid, tanh };

// The results for each of the 2^14 inputs that clamping leaves: one look-up, of which few lines are in use,
// takes a quarter of the time of interpolating one value.
constexpr auto make_values() {
    std::array<int16_t, 1 << 14> values{};
    for (uint32_t u = 0; u < values.size(); u++) {  // 8 bits of index, 6 bits of fraction
        const int32_t fraction = static_cast<int32_t>(u & 63);
        const int32_t low = ZX_SIGMOID_TABLE[u >> 6];
        const int32_t high = ZX_SIGMOID_TABLE[(u + 63) >> 6];  // the same entry when the fraction is 0
        values[u] = static_cast<int16_t>((low * (64 - fraction) + fraction * high) >> 6);
    }
    return values;
}

constexpr auto VALUES = make_values();

inline int16_t look_up(int32_t x) {
    const int32_t clamped = zx_max_int32(zx_min_int32(x, MAX_INPUT), MIN_INPUT);
    return VALUES[static_cast<uint32_t>(clamped) & 0x3FFF];
}

template <form FORM>
void process_plain(int32_t length, const int16_t *x, int16_t *y) {
    for (int32_t i = 0; i < length; i++) {
        // tanh(v) = 2 sigmoid(2 v) - 1. Doubling needs no saturation of its own: the clamp is tighter.
        y[i] = FORM == form::sigmoid ? look_up(x[i]) : zx_int32_to_int16(2 * look_up(2 * x[i]) - 32768);
    }
}

#if ZX_X86_KERNELS

template <form FORM>
ZX_TARGET_AVX2 void process_avx2(int32_t length, const int16_t *x, int16_t *y) {
    const __m256i minimum = _mm256_set1_epi16(MIN_INPUT), maximum = _mm256_set1_epi16(MAX_INPUT);
    const __m256i zero = _mm256_setzero_si256();
    const auto *table = reinterpret_cast<const int *>(ZX_SIGMOID_TABLE.data());
    int32_t i = 0;
    for (; i + 16 <= length; i += 16) {
        __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(x + i));
        if (FORM == form::tanh) v = _mm256_adds_epi16(v, v);
        v = _mm256_max_epi16(_mm256_min_epi16(v, maximum), minimum);
        const __m256i index = _mm256_and_si256(_mm256_srli_epi16(v, 6), _mm256_set1_epi16(0xFF));
        const __m256i f = _mm256_and_si256(v, _mm256_set1_epi16(63));
        const __m256i one_minus_f = _mm256_sub_epi16(_mm256_set1_epi16(64), f);
        // 32 bits at an entry are that entry and the next one.
        const __m256i pairs0 = _mm256_i32gather_epi32(table, _mm256_unpacklo_epi16(index, zero), 2);
        const __m256i pairs1 = _mm256_i32gather_epi32(table, _mm256_unpackhi_epi16(index, zero), 2);
        const __m256i sums0 = _mm256_madd_epi16(pairs0, _mm256_unpacklo_epi16(one_minus_f, f));
        const __m256i sums1 = _mm256_madd_epi16(pairs1, _mm256_unpackhi_epi16(one_minus_f, f));
        __m256i result = _mm256_packs_epi32(_mm256_srai_epi32(sums0, 6), _mm256_srai_epi32(sums1, 6));
        if (FORM == form::tanh)
            result = _mm256_xor_si256(_mm256_slli_epi16(result, 1), _mm256_set1_epi16(INT16_MIN));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(y + i), result);
    }
    process_plain<FORM>(length - i, x + i, y + i);
}

// The entries that 8-bit indices select from 256 of them in 8 registers: of each two registers by the low 6
// bits, and among these by bits 6 and 7.
ZX_TARGET_AVX512 inline __m512i select_entries(const __m512i (&entries)[8], __m512i index, __mmask32 bit6,
                                               __mmask32 bit7) {
    const __m512i quarter0 = _mm512_permutex2var_epi16(entries[0], index, entries[1]);
    const __m512i quarter1 = _mm512_permutex2var_epi16(entries[2], index, entries[3]);
    const __m512i quarter2 = _mm512_permutex2var_epi16(entries[4], index, entries[5]);
    const __m512i quarter3 = _mm512_permutex2var_epi16(entries[6], index, entries[7]);
    return _mm512_mask_blend_epi16(bit7, _mm512_mask_blend_epi16(bit6, quarter0, quarter1),
                                   _mm512_mask_blend_epi16(bit6, quarter2, quarter3));
}

template <form FORM>
ZX_TARGET_AVX512 void process_avx512(int32_t length, const int16_t *x, int16_t *y) {
    const __m512i minimum = _mm512_set1_epi16(MIN_INPUT), maximum = _mm512_set1_epi16(MAX_INPUT);
    __m512i low_entries[8], high_entries[8];
    for (int32_t r = 0; r < 8; r++) {
        low_entries[r] = _mm512_loadu_si512(ZX_SIGMOID_TABLE.data() + 32 * r);
        high_entries[r] = _mm512_loadu_si512(ZX_SIGMOID_TABLE.data() + 32 * r + 1);
    }
    for (int32_t i = 0; i < length; i += 32) {
        const __mmask32 is_there = length - i < 32 ? (1u << (length - i)) - 1 : ~0u;
        __m512i v = _mm512_maskz_loadu_epi16(is_there, x + i);
        if (FORM == form::tanh) v = _mm512_adds_epi16(v, v);
        v = _mm512_max_epi16(_mm512_min_epi16(v, maximum), minimum);
        const __m512i index = _mm512_srli_epi16(v, 6);
        const __mmask32 bit6 = _mm512_test_epi16_mask(v, _mm512_set1_epi16(1 << 12));
        const __mmask32 bit7 = _mm512_test_epi16_mask(v, _mm512_set1_epi16(1 << 13));
        const __m512i low = select_entries(low_entries, index, bit6, bit7);
        const __m512i high = select_entries(high_entries, index, bit6, bit7);
        // low + (f (high - low) >> 6) is the same, and neighbours differ by less than 2^9.
        const __m512i f = _mm512_and_si512(v, _mm512_set1_epi16(63));
        const __m512i rise = _mm512_srai_epi16(_mm512_mullo_epi16(f, _mm512_sub_epi16(high, low)), 6);
        __m512i result = _mm512_add_epi16(low, rise);
        if (FORM == form::tanh)
            result = _mm512_xor_si512(_mm512_slli_epi16(result, 1), _mm512_set1_epi16(INT16_MIN));
        _mm512_mask_storeu_epi16(y + i, is_there, result);
    }
}

#endif

constexpr zx_sigmoid_kernel_t KERNELS[] = {
#if ZX_X86_KERNELS
    {"AVX-512", zx_has_avx512, process_avx512<form::sigmoid>, process_avx512<form::tanh>},
    {"AVX2", zx_has_avx2, process_avx2<form::sigmoid>, process_avx2<form::tanh>},
#endif
    {"plain", zx_has_nothing_special, process_plain<form::sigmoid>, process_plain<form::tanh>},
};

}  // namespace

const zx_sigmoid_kernel_t *zx_sigmoid_kernels(size_t *count) {
    *count = std::size(KERNELS);
    return KERNELS;
}

const zx_sigmoid_kernel_t *zx_sigmoid_best_kernel() {
    const zx_sigmoid_kernel_t *kernel = KERNELS;
    while (!kernel->is_supported()) kernel++;
    return kernel;
}
