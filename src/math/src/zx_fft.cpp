#include "zx_fft.h"

#include <array>

#include "zx_assert.h"
#include "zx_fft_tables.h"
#include "zx_math.h"
#include "zx_multiversion.h"
#include "zx_processor.h"

namespace {

constexpr int32_t NUM_COMPLEX = ZX_FFT_LENGTH / 2;
constexpr int32_t QUARTER_PERIOD = ZX_FFT_LENGTH / 4;

// Entry n: offset in floats of the complex slot whose index is n with its 8 bits reversed.
constexpr std::array<int16_t, NUM_COMPLEX> make_bit_reversal_table() {
    std::array<int16_t, NUM_COMPLEX> table{};
    for (int32_t n = 0; n < NUM_COMPLEX; n++) {
        int32_t reversed = 0;
        for (int32_t bit = 0; bit < 8; bit++) reversed |= ((n >> bit) & 1) << (7 - bit);
        table[static_cast<size_t>(n)] = static_cast<int16_t>(2 * reversed);
    }
    return table;
}

constexpr std::array<int16_t, NUM_COMPLEX> BIT_REVERSAL_TABLE = make_bit_reversal_table();
static_assert(BIT_REVERSAL_TABLE[1] == 256 && BIT_REVERSAL_TABLE[8] == 32 && BIT_REVERSAL_TABLE[9] == 288);

}  // namespace

zx_status_t zx_fft_init(zx_memory_t *memory, zx_fft_t **object) {
    ZX_ASSERT(memory);
    ZX_ASSERT(object);
    *object = zx_memory_zeroed<zx_fft_t>(memory);
    if (!*object) return ZX_STATUS_OUT_OF_MEMORY;
    (*object)->memory = memory;
    return ZX_STATUS_SUCCESS;
}

void zx_fft_delete(zx_fft_t *object) {
    if (object) zx_memory_free(object->memory, object);
}

float zx_fft_sin(int32_t k) {
    return SIN_TABLE[static_cast<size_t>(k)];
}

float zx_fft_cos(int32_t k) {
    return SIN_TABLE[static_cast<size_t>(k + QUARTER_PERIOD)];
}

zx_status_t zx_fft_forward(zx_fft_t *object, const float *x, float *y) {
    ZX_ASSERT(object);
    ZX_ASSERT(x);
    ZX_ASSERT(y);
    const auto buffer = zx_scratch_allocate<float>(object->memory, ZX_FFT_LENGTH, zx_fill::none);
    if (!buffer) return ZX_STATUS_OUT_OF_MEMORY;
    zx_fft_forward_preprocess(x, buffer.get());
    zx_fft_complex_DIT_RN(buffer.get(), -1.0f);
    zx_fft_forward_postprocess(buffer.get(), y);
    return ZX_STATUS_SUCCESS;
}

void zx_fft_forward_preprocess(const float *x, float *buffer) {
    for (int32_t n = 0; n < NUM_COMPLEX; n++) {
        float *slot = buffer + BIT_REVERSAL_TABLE[static_cast<size_t>(n)];
        slot[0] = x[2 * n];
        slot[1] = x[2 * n + 1];
    }
}

ZX_MULTIVERSION
void zx_fft_complex_DIT_RN_generic(float *buffer, float sign) {
    for (int32_t stage = 0; stage < 8; stage++) {
        const int32_t half =
            1 << stage;  // butterflies per group; partners lie this many complex values apart
        const int32_t num_groups = (NUM_COMPLEX / 2) >> stage;
        const int32_t twiddle_step = NUM_COMPLEX >> stage;
        for (int32_t group = 0; group < num_groups; group++) {
            float *a = buffer + group * 4 * half;
            float *b = a + 2 * half;
            for (int32_t k = 0; k < half; k++) {
                const float sine = SIN_TABLE[static_cast<size_t>(k * twiddle_step)];
                const float cosine = SIN_TABLE[static_cast<size_t>(k * twiddle_step + QUARTER_PERIOD)];
                const float b_re = b[2 * k], b_im = b[2 * k + 1];
                const float a_re = a[2 * k], a_im = a[2 * k + 1];
                const float t_re = zx_fma(b_re, cosine, -(sign * b_im * sine));
                const float t_im = zx_fma(b_im, cosine, sign * b_re * sine);
                a[2 * k] = a_re + t_re;
                a[2 * k + 1] = a_im + t_im;
                b[2 * k] = a_re - t_re;
                b[2 * k + 1] = a_im - t_im;
            }
        }
    }
}

#if ZX_X86_KERNELS

namespace {

// Factors of the stages with four and more butterflies, in the order in which vectors of four complex values
// take them. The stage whose partners lie `half` complex values apart has 2 half factors from entry 2 half
// on: each cosine twice, each sine as (s, -s), by which the imaginary and the real part are multiplied in the
// forward transform.
struct fft_factors {
    alignas(32) std::array<float, ZX_FFT_LENGTH> cosines, sines;
};

constexpr fft_factors make_factors() {
    fft_factors factors{};
    for (int32_t half = 4; half < NUM_COMPLEX; half *= 2) {
        for (int32_t k = 0; k < half; k++) {
            const auto at = static_cast<size_t>(2 * (half + k));
            const auto angle = static_cast<size_t>(k * (NUM_COMPLEX / half));
            factors.cosines[at] = factors.cosines[at + 1] = SIN_TABLE[angle + QUARTER_PERIOD];
            factors.sines[at] = SIN_TABLE[angle];
            factors.sines[at + 1] = -SIN_TABLE[angle];
        }
    }
    return factors;
}

constexpr fft_factors FACTORS = make_factors();

// Four butterflies: t = b (cosine + sign i sine); (a, b) becomes (a + t, a - t). Each product and sum is
// rounded as in the readable form; only the places of signs differ, which rounding does not see.
ZX_TARGET_AVX2_FMA inline void butterflies(__m256 *a, __m256 *b, __m256 cosines, __m256 sines) {
    const __m256 swapped = _mm256_permute_ps(*b, 0xB1);
    const __m256 t = _mm256_fmadd_ps(*b, cosines, _mm256_mul_ps(swapped, sines));
    *b = _mm256_sub_ps(*a, t);
    *a = _mm256_add_ps(*a, t);
}

ZX_TARGET_AVX2_FMA void transform_avx2(float *buffer, float sign) {
    const __m256 direction = _mm256_set1_ps(-sign);
    // The first two stages, partners 1 and 2 apart, on eight values at a time.
    const __m256 one = _mm256_set1_ps(1.0f);
    const __m256 no_sines = _mm256_mul_ps(direction, _mm256_setr_ps(0, -0.0f, 0, -0.0f, 0, -0.0f, 0, -0.0f));
    const __m256 quarter_cosines = _mm256_setr_ps(1, 1, 0, 0, 1, 1, 0, 0);
    const __m256 quarter_sines = _mm256_mul_ps(direction, _mm256_setr_ps(0, -0.0f, 1, -1, 0, -0.0f, 1, -1));
    for (int32_t i = 0; i < ZX_FFT_LENGTH; i += 16) {
        const __m256d low = _mm256_castps_pd(_mm256_loadu_ps(buffer + i));
        const __m256d high = _mm256_castps_pd(_mm256_loadu_ps(buffer + i + 8));
        __m256 a = _mm256_castpd_ps(_mm256_unpacklo_pd(low, high));  // 0 4 2 6
        __m256 b = _mm256_castpd_ps(_mm256_unpackhi_pd(low, high));  // 1 5 3 7
        butterflies(&a, &b, one, no_sines);
        const __m256d even = _mm256_castps_pd(a), odd = _mm256_castps_pd(b);
        const __m256 first = _mm256_castpd_ps(_mm256_unpacklo_pd(even, odd));   // 0 1 2 3
        const __m256 second = _mm256_castpd_ps(_mm256_unpackhi_pd(even, odd));  // 4 5 6 7
        a = _mm256_permute2f128_ps(first, second, 0x20);                        // 0 1 4 5
        b = _mm256_permute2f128_ps(first, second, 0x31);                        // 2 3 6 7
        butterflies(&a, &b, quarter_cosines, quarter_sines);
        _mm256_storeu_ps(buffer + i, _mm256_permute2f128_ps(a, b, 0x20));
        _mm256_storeu_ps(buffer + i + 8, _mm256_permute2f128_ps(a, b, 0x31));
    }
    for (int32_t half = 4; half < NUM_COMPLEX; half *= 2) {
        const float *cosines = FACTORS.cosines.data() + 2 * half, *sines = FACTORS.sines.data() + 2 * half;
        for (int32_t group = 0; group < ZX_FFT_LENGTH; group += 4 * half) {
            for (int32_t k = 0; k < 2 * half; k += 8) {
                float *at_a = buffer + group + k, *at_b = at_a + 2 * half;
                __m256 a = _mm256_loadu_ps(at_a), b = _mm256_loadu_ps(at_b);
                butterflies(&a, &b, _mm256_load_ps(cosines + k),
                            _mm256_mul_ps(direction, _mm256_load_ps(sines + k)));
                _mm256_storeu_ps(at_a, a);
                _mm256_storeu_ps(at_b, b);
            }
        }
    }
}

}  // namespace

#endif

void zx_fft_complex_DIT_RN(float *buffer, float sign) {
#if ZX_X86_KERNELS
    if (zx_has_avx2_fma()) return transform_avx2(buffer, sign);
#endif
    zx_fft_complex_DIT_RN_generic(buffer, sign);
}

// With Z the transform of the packed pairs, the spectrum of the real signal at bin k combines Z[k] and Z[256
// - k]: their sum and difference are the spectra of the even and the odd samples.
ZX_MULTIVERSION
void zx_fft_forward_postprocess(const float *buffer, float *y) {
    constexpr float SCALE = 1.0f / ZX_FFT_LENGTH;
    y[0] = (buffer[0] + buffer[1]) * SCALE;
    y[1] = 0.0f;
    for (int32_t k = 1; k < NUM_COMPLEX; k++) {
        const float re = buffer[2 * k], im = buffer[2 * k + 1];
        const float mirror_re = buffer[2 * (NUM_COMPLEX - k)], mirror_im = buffer[2 * (NUM_COMPLEX - k) + 1];
        const float sine = SIN_TABLE[static_cast<size_t>(k)];
        const float cosine = SIN_TABLE[static_cast<size_t>(k + QUARTER_PERIOD)];
        const float sum_re = re + mirror_re, sum_im = im + mirror_im;
        const float difference_re = mirror_re - re, difference_im = im - mirror_im;
        y[2 * k] = zx_fma(sine, difference_re, zx_fma(cosine, sum_im, sum_re)) * SCALE;
        y[2 * k + 1] = zx_fma(-sine, sum_im, zx_fma(cosine, difference_re, difference_im)) * SCALE;
    }
    y[2 * NUM_COMPLEX] = (buffer[0] - buffer[1]) * SCALE;
    y[2 * NUM_COMPLEX + 1] = 0.0f;
}
