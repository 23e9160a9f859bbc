// SPDX-License-Identifier: Apache-2.0
// Every variant of every hot function (zx_kernels.h) beside the plain one: the same bytes for shapes and
// values drawn at random, with borders that must stay as they are; and the same calls timed.
//
//     kernels [--rounds N]     rounds of draws for each function and variant (300)
//     kernels --bench          nanoseconds a call, for the sizes of the shipped model
//     kernels --list           the calls of --bench by number, variant and name
//     kernels --call K N       call K of that list N times, for those who count its instructions
//
// Needs nothing but the library, so that it also runs where no test framework is to be had
// (scripts/same-bits).
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "zx_fc_packing.h"
#include "zx_fc_tile_layer.h"
#include "zx_fft_tables.h"
#include "zx_filterbank.h"
#include "zx_kernels.h"

namespace {

using random_numbers = std::mt19937;

int32_t between(random_numbers &random, int32_t low, int32_t high) {
    return low + static_cast<int32_t>(random() % static_cast<uint32_t>(high - low + 1));
}

// Of all magnitudes, more often small; extremes are likely.
int16_t draw(random_numbers &random, int16_t) {
    switch (random() % 8) {
        case 0:
            return random() % 2 ? INT16_MAX : INT16_MIN;
        case 1:
            return static_cast<int16_t>(between(random, -2, 2));
        case 2:
        case 3:
            return static_cast<int16_t>(random());
        default:
            return static_cast<int16_t>(between(random, -4000, 4000));
    }
}

int8_t draw(random_numbers &random, int8_t) {
    return random() % 8 ? static_cast<int8_t>(random()) : random() % 2 ? int8_t{127} : int8_t{-128};
}

float draw(random_numbers &random, float) {
    switch (random() % 16) {
        case 0:
            return 0.0f;
        case 1:
            return -0.0f;
        case 2:
            return std::ldexp(static_cast<float>(between(random, -32768, 32767)), between(random, -140, 40));
        default:
            return static_cast<float>(between(random, -32768, 32767)) / 16384;
    }
}

double draw(random_numbers &random, double) {
    return double{draw(random, 0.0f)};
}

// Values at any alignment that the type allows, between borders.
template <class T>
class values {
public:
    values(random_numbers &random, int64_t count) : first_(16 + random() % 16) {
        all_.resize(first_ + static_cast<size_t>(count) + 32);
        for (T &value : all_) value = draw(random, T{});
    }
    T *data() { return &all_[first_]; }
    const T *data() const { return &all_[first_]; }
    std::string bytes() const {
        return std::string(reinterpret_cast<const char *>(all_.data()), all_.size() * sizeof(T));
    }

private:
    size_t first_;
    std::vector<T> all_;
};

// One call. `prepare` sets the outputs to what they held at first, `outputs` are their bytes afterwards.
struct trial {
    std::string shape;
    double num_items;  // that a call computes
    const char *item;
    std::function<void(const zx_kernels_t &)> call;
    std::function<void()> prepare;
    std::function<std::string()> outputs;
};

template <class T>
trial on_output(std::string shape, double num_items, const char *item, const values<T> &before,
                std::function<void(const zx_kernels_t &, T *)> call) {
    const auto output = std::make_shared<values<T>>(before);
    return {std::move(shape),
            num_items,
            item,
            [=](const zx_kernels_t &variant) { call(variant, output->data()); },
            [=] { *output = before; },
            [=] { return output->bytes(); }};
}

template <class T>
std::shared_ptr<values<T>> inputs(random_numbers &random, int64_t count) {
    return std::make_shared<values<T>>(random, count);
}

// ---- Layers

struct layer_data {
    zx_fc_param_t param;
    values<int8_t> weights, biases;
    std::map<zx_packing, values<int8_t>> packed;

    layer_data(random_numbers &random, int32_t num_inputs, int32_t num_outputs)
        : weights(random, int64_t{num_inputs} * num_outputs), biases(random, num_outputs) {
        param = {num_inputs, num_outputs, weights.data(), biases.data()};
        for (const zx_packing packing :
             {zx_packing::none, zx_packing::pairs, zx_packing::columns, zx_packing::quads}) {
            const auto &[at, is_new] =
                packed.try_emplace(packing, random, static_cast<int64_t>(zx_fc_packed_size(&param, packing)));
            zx_fc_pack(&param, packing, at->second.data());
        }
    }
};

trial layer(random_numbers &random, int32_t num_inputs, int32_t num_outputs, int32_t num_rows, int32_t apart,
            bool is_reversed, bool accumulate) {
    const auto data = std::make_shared<layer_data>(random, num_inputs, num_outputs);
    const ptrdiff_t x_stride = num_inputs + apart, y_stride = num_outputs + apart;
    const auto x = inputs<int16_t>(random, num_rows * x_stride);
    return on_output<int16_t>(
        std::to_string(num_inputs) + " x " + std::to_string(num_outputs) + ", rows " +
            std::to_string(num_rows),
        double{1} * num_inputs * num_outputs * num_rows, "MAC", values<int16_t>(random, num_rows * y_stride),
        [=](const zx_kernels_t &variant, int16_t *y) {
            const zx_fc_t fc = {nullptr, &data->param, accumulate, &variant,
                                data->packed.at(variant.packing).data()};
            const int16_t *first = x->data() + (is_reversed ? (num_rows - 1) * x_stride : 0);
            variant.layer(&fc, num_rows, first, is_reversed ? -x_stride : x_stride, y, y_stride);
        });
}

// ---- All functions: as the engine calls them, or drawn

struct subject {
    const char *name;
    std::vector<trial> (*make)(random_numbers &random, bool as_engine);
};

std::vector<const float *> rows_of(const values<float> &x, int32_t size, int32_t num_rows) {
    std::vector<const float *> rows;
    for (int32_t r = 0; r < num_rows; r++) rows.push_back(x.data() + int64_t{size} * r);
    return rows;
}

using unary = void (*)(int32_t, const int16_t *, int16_t *);

// A function from int16 values to as many, sometimes in place.
template <class Choose>
std::vector<trial> map_values(random_numbers &random, bool as_engine, Choose choose) {
    const int32_t count = as_engine ? 192 : between(random, 0, 300);
    const auto x = inputs<int16_t>(random, count);
    const bool in_place = random() % 2;
    return {on_output<int16_t>(std::to_string(count), count, "value", values<int16_t>(random, count),
                               [=](const zx_kernels_t &variant, int16_t *y) {
                                   choose(variant)(count, in_place ? y : x->data(), y);
                               })};
}

// A function that changes int16 values by as many others.
std::vector<trial> change_values(random_numbers &random, bool as_engine,
                                 void (*zx_loops_t::*function)(int32_t, const int16_t *, int16_t *)) {
    const int32_t count = as_engine ? 192 : between(random, 0, 300);
    const auto x = inputs<int16_t>(random, count);
    return {on_output<int16_t>(
        std::to_string(count), count, "value", values<int16_t>(random, count),
        [=](const zx_kernels_t &variant, int16_t *y) { (variant.loops->*function)(count, x->data(), y); })};
}

const subject SUBJECTS[] = {
    {"layer",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         if (!as_engine) {
             const int32_t longest = random() % 16 ? 200 : 2000;  // whose sums wrap
             return {layer(random, between(random, 1, longest), between(random, 1, 100),
                           between(random, 1, 20), between(random, 0, 3), random() % 2, random() % 2)};
         }
         return {layer(random, 192, 576, 16, 0, false, false), layer(random, 192, 576, 8, 0, false, true),
                 layer(random, 192, 576, 1, 0, false, true), layer(random, 192, 64, 32, 0, false, false)};
     }},
    {"sigmoid",
     [](random_numbers &random, bool as_engine) {
         return map_values(random, as_engine, [](const zx_kernels_t &variant) { return variant.sigmoid; });
     }},
    {"tanh",
     [](random_numbers &random, bool as_engine) {
         return map_values(random, as_engine, [](const zx_kernels_t &variant) { return variant.tanh; });
     }},
    {"update_cell",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t count = as_engine ? 192 : between(random, 0, 300);
         const auto gate = inputs<int16_t>(random, count), candidate = inputs<int16_t>(random, count);
         for (int32_t i = 0; i < count; i++) gate->data()[i] &= INT16_MAX;  // what a sigmoid gives
         return {on_output<int16_t>(std::to_string(count), count, "value", values<int16_t>(random, count),
                                    [=](const zx_kernels_t &variant, int16_t *cell) {
                                        variant.loops->update_cell(count, gate->data(), candidate->data(),
                                                                   cell);
                                    })};
     }},
    {"gate_output",
     [](random_numbers &random, bool as_engine) {
         return change_values(random, as_engine, &zx_loops_t::gate_output);
     }},
    {"add", [](random_numbers &random,
               bool as_engine) { return change_values(random, as_engine, &zx_loops_t::add); }},
    {"normalize_rows",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t size = as_engine ? 80 : between(random, 1, 100),
                       rows = as_engine ? 16 : between(random, 0, 9);
         const auto mean = inputs<int16_t>(random, size), scale = inputs<int16_t>(random, size);
         // The product of two extremes would not fit 32 bits.
         for (int32_t i = 0; i < size; i++) scale->data()[i] = static_cast<int16_t>(scale->data()[i] / 4);
         const auto x = inputs<int16_t>(random, int64_t{size} * rows);
         const bool in_place = random() % 2;
         return {on_output<int16_t>(std::to_string(rows) + " x " + std::to_string(size), size * rows, "value",
                                    values<int16_t>(random, int64_t{size} * rows),
                                    [=](const zx_kernels_t &variant, int16_t *y) {
                                        variant.loops->normalize_rows(size, rows, mean->data(), scale->data(),
                                                                      in_place ? y : x->data(), y);
                                    })};
     }},
    {"preemphasize",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t count = as_engine ? 256 : between(random, 1, 600);
         const auto x = inputs<int16_t>(random, count);
         const int16_t previous = draw(random, int16_t{});
         return {on_output<float>(std::to_string(count), count, "sample", values<float>(random, count),
                                  [=](const zx_kernels_t &variant, float *y) {
                                      variant.loops->preemphasize(count, previous, x->data(), y);
                                  })};
     }},
    {"transform",
     [](random_numbers &random, bool) -> std::vector<trial> {
         const float sign = random() % 2 ? 1.0f : -1.0f;
         return {
             on_output<float>("256 complex", 1, "call", values<float>(random, 512),
                              [=](const zx_kernels_t &variant, float *y) { variant.transform(y, sign); })};
     }},
    {"separate_pairs",
     [](random_numbers &random, bool) -> std::vector<trial> {
         const auto pairs = inputs<float>(random, 512);
         return {on_output<float>("257 bins", 1, "call", values<float>(random, 514),
                                  [=](const zx_kernels_t &variant, float *y) {
                                      variant.loops->separate_pairs(SIN_TABLE.data(), pairs->data(), y);
                                  })};
     }},
    {"power",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t count = as_engine ? 257 : between(random, 0, 300);
         const auto x = inputs<float>(random, 2 * count);
         return {on_output<float>(
             std::to_string(count) + " bins", count, "bin", values<float>(random, count),
             [=](const zx_kernels_t &variant, float *y) { variant.loops->power(count, x->data(), y); })};
     }},
    {"weigh_bands",
     [](random_numbers &random, bool) -> std::vector<trial> {
         const auto rising = inputs<float>(random, 40), falling = inputs<float>(random, 40),
                    power = inputs<float>(random, 257);
         return {on_output<float>(
             "40 bands", 1, "call", values<float>(random, 40), [=](const zx_kernels_t &variant, float *y) {
                 variant.loops->weigh_bands(40, FILTERBANK_BAND_EDGES.data(), rising->data(), falling->data(),
                                            power->data(), y);
             })};
     }},
    {"dot",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t count = as_engine ? 64 : between(random, 0, 300);
         const auto x = inputs<int16_t>(random, count), y = inputs<int16_t>(random, count);
         return {on_output<double>(std::to_string(count), count, "value", values<double>(random, 1),
                                   [=](const zx_kernels_t &variant, double *sum) {
                                       *sum = static_cast<double>(
                                           variant.loops->dot(count, x->data(), y->data()));
                                   })};
     }},
    {"dot_float",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t count = as_engine ? 64 : between(random, 0, 300);
         const auto x = inputs<float>(random, count), y = inputs<float>(random, count);
         return {on_output<float>(std::to_string(count), count, "value", values<float>(random, 1),
                                  [=](const zx_kernels_t &variant, float *sum) {
                                      *sum = variant.loops->dot_float(count, x->data(), y->data());
                                  })};
     }},
    {"average",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t count = as_engine ? 64 : between(random, 0, 300);
         const auto other = inputs<float>(random, count);
         const auto weight = static_cast<float>(between(random, 1, 1000)),
                    other_weight = static_cast<float>(between(random, 1, 1000));
         return {on_output<float>(std::to_string(count), count, "value", values<float>(random, count),
                                  [=](const zx_kernels_t &variant, float *centroid) {
                                      variant.loops->average(count, centroid, weight, other->data(),
                                                             other_weight);
                                  })};
     }},
    {"sum_up",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t size = as_engine ? 64 : between(random, 0, 300),
                       num_rows = as_engine ? 16 : between(random, 0, 9);
         const auto x = inputs<float>(random, int64_t{size} * num_rows);
         const auto rows = rows_of(*x, size, num_rows);
         return {on_output<float>(std::to_string(num_rows) + " x " + std::to_string(size), size * num_rows,
                                  "value", values<float>(random, size),
                                  [=, keeps = x](const zx_kernels_t &variant, float *sums) {
                                      variant.loops->sum_up(size, num_rows, rows.data(), sums);
                                  })};
     }},
    {"distances",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t size = as_engine ? 64 : between(random, 1, 100),
                       groups = as_engine ? 32 : between(random, 0, 5);
         const auto x = inputs<float>(random, size);
         const auto centroids = inputs<float>(random, int64_t{size} * groups * ZX_KERNELS_GROUP);
         return {on_output<float>(std::to_string(groups) + " groups of " + std::to_string(size),
                                  groups * ZX_KERNELS_GROUP, "centroid",
                                  values<float>(random, groups * ZX_KERNELS_GROUP),
                                  [=](const zx_kernels_t &variant, float *y) {
                                      variant.loops->distances(size, groups, x->data(), centroids->data(), y);
                                  })};
     }},
    {"distances_of_rows",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t size = as_engine ? 64 : between(random, 1, 100),
                       num_rows = as_engine ? 4 : between(random, 1, 9);
         const auto rows = inputs<float>(random, int64_t{size} * num_rows),
                    centroid = inputs<float>(random, size);
         return {on_output<float>(
             std::to_string(num_rows) + " x " + std::to_string(size), size * num_rows, "row",
             values<float>(random, num_rows), [=](const zx_kernels_t &variant, float *y) {
                 variant.loops->distances_of_rows(size, num_rows, rows->data(), centroid->data(), y);
             })};
     }},
    {"products",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t size = as_engine ? 64 : between(random, 1, 100),
                       num_rows = as_engine ? 8 : between(random, 0, 9),
                       groups = as_engine ? 1 : between(random, 0, 5);
         const int32_t count = num_rows * groups * ZX_KERNELS_GROUP;
         const auto x = inputs<float>(random, int64_t{size} * num_rows);
         const auto centroids = inputs<float>(random, int64_t{size} * groups * ZX_KERNELS_GROUP);
         const auto rows = rows_of(*x, size, num_rows);
         return {on_output<float>(std::to_string(num_rows) + " by " + std::to_string(groups) + " groups of " +
                                      std::to_string(size),
                                  count, "product", values<float>(random, count),
                                  [=, keeps = x](const zx_kernels_t &variant, float *y) {
                                      variant.loops->products(size, num_rows, rows.data(), groups,
                                                              centroids->data(), y);
                                  })};
     }},
    {"filter",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t order = as_engine ? 50 : between(random, 2, random() % 8 ? 60 : 300);
         const int32_t count = as_engine ? 1024 : between(random, 0, 200);
         const auto x = inputs<int16_t>(random, count + 2 * order);
         const auto taps = inputs<float>(random, 2 * order + 1);
         return {on_output<int16_t>(std::to_string(count) + " by order " + std::to_string(order), count,
                                    "sample", values<int16_t>(random, count),
                                    [=](const zx_kernels_t &variant, int16_t *y) {
                                        variant.loops->filter(count, order, x->data(), taps->data(), y);
                                    })};
     }},
    {"mix",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t count = as_engine ? 1024 : between(random, 0, 300);
         const auto x = inputs<int16_t>(random, 2 * count);
         return {on_output<int16_t>(
             std::to_string(count), count, "sample", values<int16_t>(random, count),
             [=](const zx_kernels_t &variant, int16_t *y) { variant.loops->mix(count, x->data(), y); })};
     }},
    {"mix_float",
     [](random_numbers &random, bool as_engine) -> std::vector<trial> {
         const int32_t count = as_engine ? 1024 : between(random, 0, 300);
         const auto left = inputs<float>(random, count), right = inputs<float>(random, count);
         return {on_output<float>(std::to_string(count), count, "sample", values<float>(random, count),
                                  [=](const zx_kernels_t &variant, float *y) {
                                      variant.loops->mix_float(count, left->data(), right->data(), y);
                                  })};
     }},
};

// ---- Tiles of AMX as its instructions are documented, for the layers that are computed by them

class modelled_tiles {
public:
    explicit modelled_tiles(int32_t num_rows) : num_rows_(num_rows) {}
    void clear() { std::memset(&sums_, 0, sizeof(sums_)); }
    void load_inputs(const int8_t (*low)[TILE_INPUTS], const int8_t (*high)[TILE_INPUTS]) {
        low_ = low;
        high_ = high;
    }
    void load_weights(const int8_t *first, const int8_t *second) {
        weights_[0] = first;
        weights_[1] = second;
    }
    void multiply() {
        for (int block = 0; block < 2; block++) {
            multiply(low_, weights_[block], sums_.low[block]);
            multiply(high_, weights_[block], sums_.high[block]);
        }
    }
    void store(tile_sums *sums) { *sums = sums_; }

private:
    // Row m and column n of the sums get, for each group of four bytes k, those of row m times those of
    // column n of row k of the weights.
    void multiply(const int8_t (*inputs)[TILE_INPUTS], const int8_t *weights,
                  int32_t (*sums)[ZX_FC_BLOCK]) const {
        for (int32_t m = 0; m < num_rows_; m++)
            for (int32_t k = 0; k < TILE_INPUTS / 4; k++)
                for (int32_t n = 0; n < ZX_FC_BLOCK; n++)
                    for (int32_t i = 0; i < 4; i++)
                        sums[m][n] += inputs[m][4 * k + i] * weights[k * 64 + n * 4 + i];
    }

    int32_t num_rows_;
    const int8_t (*low_)[TILE_INPUTS] = nullptr;
    const int8_t (*high_)[TILE_INPUTS] = nullptr;
    const int8_t *weights_[2] = {};
    tile_sums sums_;
};

bool hold_to_plain(const zx_kernels_t &variant, const zx_kernels_t &plain, int num_rounds) {
    bool is_same = true;
    for (const subject &subject : SUBJECTS) {
        random_numbers random(1);
        int num_different = 0;
        std::string where;
        for (int round = 0; round < num_rounds; round++) {
            for (const trial &t : subject.make(random, round == 0)) {
                t.prepare();
                t.call(plain);
                const std::string expected = t.outputs();
                t.prepare();
                t.call(variant);
                if (t.outputs() == expected) continue;
                if (num_different++ == 0) where = t.shape;
            }
        }
        if (num_different == 0) continue;
        std::printf("%s, %s: %d of %d rounds differ from the plain variant, the first with %s\n",
                    variant.name, subject.name, num_different, num_rounds, where.c_str());
        is_same = false;
    }
    if (is_same)
        std::printf("%s: as the plain variant, %zu functions, %d rounds each\n", variant.name,
                    std::size(SUBJECTS), num_rounds);
    return is_same;
}

// The shortest of several times is the one least disturbed.
template <class Call>
double measure(Call call) {
    using clock = std::chrono::steady_clock;
    const auto seconds = [](clock::time_point since) {
        return std::chrono::duration<double>(clock::now() - since).count();
    };
    int64_t count = 1;
    for (;; count *= 2) {
        const auto start = clock::now();
        for (int64_t i = 0; i < count; i++) call();
        if (seconds(start) > 0.005) break;
    }
    double best = 1e9;
    for (int repetition = 0; repetition < 20; repetition++) {
        const auto start = clock::now();
        for (int64_t i = 0; i < count; i++) call();
        best = std::min(best, seconds(start) / static_cast<double>(count));
    }
    return best;
}

void print_time(const std::string &name, const char *variant, double seconds, double num_items,
                const char *item) {
    std::printf("%-36s %-22s %12.1f ns %10.3f G%s/s\n", name.c_str(), variant, seconds * 1e9,
                num_items / seconds * 1e-9, item);
}

// What a core can do at most: multiply-accumulates in registers, as many sums under way as hide the latency.
void time_bare_loops(const std::string &variant) {
#if defined(__x86_64__)
    constexpr int ROUNDS = 1000;
    if (variant == "AVX-512 VNNI") {
        print_time("bare loop", variant.c_str(), measure([] {
                       for (int i = 0; i < ROUNDS; i++) {
                           asm volatile(
                               ".irp n,0,1,2,3,4,5,6,7,8,9,10,11,12,13\n\t"
                               "vpdpwssd %%zmm14, %%zmm15, %%zmm\\n\n\t.endr" ::
                                   : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8",
                                     "xmm9", "xmm10", "xmm11", "xmm12", "xmm13");
                       }
                   }),
                   ROUNDS * 14 * 32.0, "MAC");
    } else if (variant == "AVX2") {
        print_time("bare loop", variant.c_str(), measure([] {
                       for (int i = 0; i < ROUNDS; i++) {
                           asm volatile(
                               ".irp n,0,1,2,3,4,5,6\n\t"
                               "vpmaddwd %%ymm14, %%ymm15, %%ymm13\n\t"
                               "vpaddd %%ymm13, %%ymm\\n, %%ymm\\n\n\t.endr" ::
                                   : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm13");
                       }
                   }),
                   ROUNDS * 7 * 16.0, "MAC");
    }
#else
    (void) variant;
#endif
}

void time_form(const zx_kernels_t &variant) {
    time_bare_loops(variant.name);
    for (const subject &subject : SUBJECTS) {
        random_numbers random(2);
        for (const trial &t : subject.make(random, true)) {
            print_time(std::string(subject.name) + " " + t.shape, variant.name,
                       measure([&] { t.call(variant); }), t.num_items, t.item);
        }
    }
}

// Call `number` of all that are timed, `num_calls` times; or, without a number, a list of them.
bool call_one(const zx_kernels_t *variants, size_t num_forms, int number, int num_calls) {
    int current = 0;
    for (size_t f = 0; f < num_forms; f++) {
        if (!variants[f].is_supported()) continue;
        for (const subject &subject : SUBJECTS) {
            random_numbers random(2);
            for (const trial &t : subject.make(random, true)) {
                if (number < 0)
                    std::printf("%d\t%s\t%s %s\n", current, variants[f].name, subject.name, t.shape.c_str());
                for (int i = 0; current == number && i < num_calls; i++) t.call(variants[f]);
                current++;
            }
        }
    }
    return number < current;
}

}  // namespace

int main(int argc, char **argv) {
    const bool is_bench = argc == 2 && !std::strcmp(argv[1], "--bench");
    const bool has_rounds = argc == 3 && !std::strcmp(argv[1], "--rounds");
    const bool is_list = argc == 2 && !std::strcmp(argv[1], "--list");
    const bool is_call = argc == 4 && !std::strcmp(argv[1], "--call");
    if (argc > 1 && !is_bench && !has_rounds && !is_list && !is_call) {
        std::fprintf(stderr, "usage: kernels [--rounds N | --bench | --list | --call K N]\n");
        return 2;
    }
    size_t count;
    const zx_kernels_t *variants = zx_kernels_all(&count);
    if (is_list) return call_one(variants, count, -1, 0) ? 0 : 1;
    if (is_call) return call_one(variants, count, std::atoi(argv[2]), std::atoi(argv[3])) ? 0 : 1;
    const zx_kernels_t &plain = variants[count - 1];
    const int num_rounds = has_rounds ? std::atoi(argv[2]) : 300;
    bool is_same = true;
    for (size_t f = 0; f < count; f++) {
        if (!variants[f].is_supported()) {
            std::printf("%s: not on this processor\n", variants[f].name);
        } else if (is_bench) {
            time_form(variants[f]);
        } else if (&variants[f] != &plain) {
            is_same = hold_to_plain(variants[f], plain, num_rounds) && is_same;
        }
    }
    if (!is_bench) {
        zx_kernels_t modelled = plain;
        modelled.name = "tiles, modelled";
        modelled.layer = process_by_tiles<modelled_tiles>;
        modelled.packing = zx_packing::quads;
        is_same = hold_to_plain(modelled, plain, num_rounds) && is_same;
    }
    return is_same ? 0 : 1;
}
