// SPDX-License-Identifier: Apache-2.0
#include "zx_rnn.h"

#include "model_builder.h"
#include "zx_file.h"
#include "zx_math.h"

namespace {

auto load_rnn(const std::string &block) {
    const temporary_file file(block);
    const zx_file_ptr stream(zx_fopen(file.path(), "rb"));
    zx_rnn_param_t *param = nullptr;
    EXPECT_EQ(zx_rnn_param_load(stream.get(), &param), ZX_STATUS_SUCCESS);
    return owned<zx_rnn_param_delete>(param);
}

auto make_rnn(const zx_rnn_param_t *param) {
    zx_rnn_t *rnn = nullptr;
    EXPECT_EQ(zx_rnn_init(test_memory(), param, &rnn), ZX_STATUS_SUCCESS);
    return owned<zx_rnn_delete>(rnn);
}

// A layer of one unit: every projection weight 0, the three biases chosen.
std::string constant_layer(int8_t input_gate, int8_t candidate, int8_t output_gate) {
    return bytes_of(int32_t{1}, int32_t{3}, input_gate, candidate, output_gate, int8_t{0}, int8_t{0},
                    int8_t{0}) +
           bytes_of(int32_t{1}, int32_t{3}) + std::string(6, '\0');
}

}  // namespace

TEST(zx_rnn, zero_input_leaves_zero_state) {
    const auto param = load_rnn(constant_layer(0, 0, 0));
    const auto rnn = make_rnn(param.get());
    const int16_t x = 0;
    int16_t y = 77;
    for (int t = 0; t < 3; t++) {
        ASSERT_EQ(zx_rnn_process(rnn.get(), &x, &y), ZX_STATUS_SUCCESS);
        EXPECT_EQ(y, 0);
        EXPECT_EQ(rnn->cell_state[0], 0);
    }
}

// Gates held constant: i = sigmoid(127/128), g = tanh(127/128), o = sigmoid(127/128); c and h follow the
// recursion c = i g + (1 - i) c, h = o tanh(c) with the roundings written out in 64 bits.
TEST(zx_rnn, follows_the_recursion_with_its_roundings) {
    const auto param = load_rnn(constant_layer(127, 127, 127));
    const auto rnn = make_rnn(param.get());
    const int16_t bias_q10 = 127 * 8;
    int16_t gate, candidate;
    zx_sigmoid(1, &bias_q10, &gate);
    zx_tanh(1, &bias_q10, &candidate);
    int64_t cell = 0;
    const int16_t x = 5;
    for (int t = 0; t < 50; t++) {
        int16_t y;
        ASSERT_EQ(zx_rnn_process(rnn.get(), &x, &y), ZX_STATUS_SUCCESS);
        cell = ((int64_t{gate} * candidate + 524288) >> 20) + ((cell * (32767 - gate) + 16384) >> 15);
        const auto cell_q10 = static_cast<int16_t>(cell);
        int16_t squashed;
        zx_tanh(1, &cell_q10, &squashed);
        EXPECT_EQ(rnn->cell_state[0], cell) << t;
        EXPECT_EQ(y, (int64_t{gate} * squashed + 524288) >> 20) << t;
        EXPECT_EQ(rnn->hidden_state[0], y) << t;
    }
    EXPECT_GT(cell, 700);  // it has converged to about tanh(0.99) in Q10
}

// Sequences of falling lengths, shorter and longer than a tile of steps, equal ones among them.
TEST(zx_rnn, sequences_side_by_side_give_what_frames_one_by_one_give) {
    random_numbers random(21);
    const auto param =
        load_rnn(model_builder::fc_block({7, 60}, random) + model_builder::fc_block({20, 60}, random));
    const auto rnn = make_rnn(param.get());
    for (const std::vector<int32_t> &lengths :
         {std::vector<int32_t>{1}, {40}, {33, 33, 5}, {50, 32, 31, 17, 16, 15, 3, 1}}) {
        for (const auto direction : {zx_rnn_direction::forward, zx_rnn_direction::backward}) {
            std::vector<std::vector<int16_t>> x, y, expected;
            std::vector<zx_rnn_sequence_t> sequences;
            for (const int32_t length : lengths) {
                const auto n = static_cast<size_t>(length);
                x.push_back(random_int16(n * 7, random.next(), -3000, 3000));
                y.push_back(random_int16(n * 20, random.next()));
                expected.push_back(y.back());
                zx_rnn_reset(rnn.get());
                for (size_t i = 0; i < n; i++) {
                    const size_t t = direction == zx_rnn_direction::forward ? i : n - 1 - i;
                    std::vector<int16_t> row(20);
                    ASSERT_EQ(zx_rnn_process(rnn.get(), &x.back()[t * 7], row.data()), ZX_STATUS_SUCCESS);
                    for (size_t j = 0; j < 20; j++) {
                        int16_t &value = expected.back()[t * 20 + j];
                        value = direction == zx_rnn_direction::forward ? row[j] : zx_add_int16(value, row[j]);
                    }
                }
            }
            for (size_t s = 0; s < x.size(); s++) sequences.push_back({x[s].data(), y[s].data(), lengths[s]});
            ASSERT_EQ(zx_rnn_process_sequences(rnn.get(), direction, static_cast<int32_t>(x.size()),
                                               sequences.data()),
                      ZX_STATUS_SUCCESS);
            EXPECT_EQ(y, expected);
        }
    }
}

TEST(zx_rnn, reset_makes_it_new_and_the_hidden_state_feeds_back) {
    random_numbers random(3);
    const auto param =
        load_rnn(model_builder::fc_block({5, 27}, random) + model_builder::fc_block({9, 27}, random));
    EXPECT_EQ(zx_rnn_param_hidden_size(param.get()), 9);
    const auto rnn = make_rnn(param.get());
    const auto x = random_int16(5, 8, -4000, 4000);
    std::vector<int16_t> first(9), second(9), third(9);
    ASSERT_EQ(zx_rnn_process(rnn.get(), x.data(), first.data()), ZX_STATUS_SUCCESS);
    ASSERT_EQ(zx_rnn_process(rnn.get(), x.data(), second.data()), ZX_STATUS_SUCCESS);
    zx_rnn_reset(rnn.get());
    ASSERT_EQ(zx_rnn_process(rnn.get(), x.data(), third.data()), ZX_STATUS_SUCCESS);
    EXPECT_NE(first, second);
    EXPECT_EQ(first, third);
    EXPECT_ASSERTION(zx_rnn_reset(nullptr), "object");
}
