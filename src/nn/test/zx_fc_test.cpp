// SPDX-License-Identifier: Apache-2.0
#include "zx_fc.h"

#include "model_builder.h"
#include "zx_file.h"

namespace {

auto load_layer(const std::string &block, zx_status_t expected_status = ZX_STATUS_SUCCESS) {
    const temporary_file file(block);
    const zx_file_ptr stream(zx_fopen(file.path(), "rb"));
    auto *param = reinterpret_cast<zx_fc_param_t *>(1);
    EXPECT_EQ(zx_fc_param_load(stream.get(), &param), expected_status);
    EXPECT_EQ(param == nullptr, expected_status != ZX_STATUS_SUCCESS);
    return owned<zx_fc_param_delete>(param);
}

std::vector<int16_t> process(const zx_fc_param_t *param, const std::vector<int16_t> &x, bool accumulate,
                             std::vector<int16_t> y) {
    zx_fc_t *fc = nullptr;
    EXPECT_EQ(zx_fc_init(test_memory(), param, accumulate, &fc), ZX_STATUS_SUCCESS);
    const auto owner = owned<zx_fc_delete>(fc);
    zx_fc_process(fc, x.data(), y.data());
    return y;
}

// The definition: an exact sum reduced modulo 2^32 at the end.
int16_t slow_output(const zx_fc_param_t *param, const std::vector<int16_t> &x, size_t o, int16_t previous) {
    int64_t sum = int64_t{param->biases[o]} * 1024 + 64;
    for (size_t i = 0; i < x.size(); i++) sum += int64_t{x[i]} * param->weights[o * x.size() + i];
    const int64_t wrapped = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(sum)));
    const int64_t y = previous + (wrapped >= 0 ? wrapped / 128 : -((127 - wrapped) / 128));
    return static_cast<int16_t>(std::min<int64_t>(std::max<int64_t>(y, -32768), 32767));
}

}  // namespace

// Sizes around every unrolling and vector width, inputs that saturate, and sums long enough to wrap.
TEST(zx_fc, agrees_with_the_definition_for_all_sizes) {
    random_numbers random(11);
    for (int32_t inputs : {1, 2, 7, 8, 15, 16, 17, 31, 33, 64, 80, 127, 128, 2000}) {
        for (int32_t outputs : {1, 3, 4, 5, 24}) {
            std::string block = bytes_of(inputs, outputs);
            const bool is_extreme = inputs == 2000;
            for (int32_t i = 0; i < outputs * (1 + inputs); i++) {
                block += static_cast<char>(is_extreme ? -128 : random.between(-128, 127));
            }
            const auto param = load_layer(block);
            const auto x = is_extreme ? std::vector<int16_t>(2000, -32768)
                                      : random_int16(static_cast<size_t>(inputs), random.next());
            const auto before = random_int16(static_cast<size_t>(outputs), random.next());
            for (bool accumulate : {false, true}) {
                const auto y = process(param.get(), x, accumulate, before);
                for (size_t o = 0; o < y.size(); o++) {
                    ASSERT_EQ(y[o], slow_output(param.get(), x, o, accumulate ? before[o] : int16_t{0}))
                        << inputs << " x " << outputs << " output " << o;
                }
            }
        }
    }
}

TEST(zx_fc, rounds_halves_up_and_converts_biases) {
    const auto param =
        load_layer(bytes_of(int32_t{1}, int32_t{2}, int8_t{0}, int8_t{-128}, int8_t{1}, int8_t{0}));
    EXPECT_THAT(process(param.get(), {-64}, false, {9, 9}), testing::ElementsAre(0, -1024));
    EXPECT_THAT(process(param.get(), {-65}, false, {9, 9}), testing::ElementsAre(-1, -1024));
    EXPECT_THAT(process(param.get(), {1000}, true, {32767, -32768}), testing::ElementsAre(32767, -32768));
}

TEST(zx_fc, damaged_blocks_are_refused) {
    load_layer(bytes_of(int32_t{0}), ZX_STATUS_INVALID_ARGUMENT);
    load_layer(bytes_of(int32_t{1}, int32_t{-1}), ZX_STATUS_INVALID_ARGUMENT);
    load_layer(bytes_of(int32_t{65536}, int32_t{32768}), ZX_STATUS_INVALID_ARGUMENT);  // 2^31 weights
    random_numbers random(1);
    const std::string block = model_builder::fc_block({3, 2}, random);
    for (size_t length = 0; length < block.size(); length++)
        load_layer(block.substr(0, length), ZX_STATUS_IO_ERROR);
    load_layer(block);
}
