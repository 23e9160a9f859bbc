#include "zx_fc.h"

#include "model_builder.h"
#include "zx_fc_kernels.h"
#include "zx_file.h"

namespace {

auto load(const std::string &block, zx_status_t expected_status = ZX_STATUS_SUCCESS) {
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
            const auto param = load(block);
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

// Every version that this processor runs against the plain loop: numbers of rows around each size of a tile,
// sizes around each block, rows that lie apart and in reverse, values at their extremes.
TEST(zx_fc, every_version_gives_what_the_plain_loop_gives) {
    random_numbers random(12);
    size_t num_kernels;
    const zx_fc_kernel_t *kernels = zx_fc_kernels(&num_kernels);
    for (const fc_shape shape :
         {fc_shape{1, 1}, {2, 16}, {3, 17}, {80, 480}, {33, 50}, {160, 64}, {17, 15}, {9, 700}}) {
        const auto param = load(model_builder::fc_block(shape, random));
        for (int32_t i = 0; i < shape.inputs * shape.outputs; i += 5) param->weights[i] = i % 2 ? 127 : -128;
        const auto inputs = static_cast<size_t>(shape.inputs), outputs = static_cast<size_t>(shape.outputs);
        for (size_t k = 0; k < num_kernels; k++) {
            if (!kernels[k].is_supported()) continue;
            SCOPED_TRACE(kernels[k].name);
            for (const bool accumulate : {false, true}) {
                std::vector<int8_t> packed(zx_fc_packed_size(param.get()));
                zx_fc_pack(param.get(), packed.data());
                const zx_fc_t fc = {test_memory(), param.get(), accumulate, &kernels[k], packed.data()};
                for (const int32_t rows : {1, 2, 3, 4, 5, 7, 8, 9, 19}) {
                    for (const int32_t apart : {0, 3}) {  // values between rows, which stay as they are
                        const size_t x_stride = inputs + static_cast<size_t>(apart);
                        const size_t y_stride = outputs + static_cast<size_t>(apart);
                        const size_t num_rows = static_cast<size_t>(rows);
                        const auto x = random_int16(num_rows * x_stride, random.next());
                        auto y = random_int16(num_rows * y_stride, random.next());
                        auto expected = y;
                        // The last row first.
                        zx_fc_process_rows(&fc, rows, &x[(num_rows - 1) * x_stride],
                                           -static_cast<ptrdiff_t>(x_stride), y.data(),
                                           static_cast<ptrdiff_t>(y_stride));
                        for (size_t r = 0; r < num_rows; r++) {
                            zx_fc_process_generic(&fc, &x[(num_rows - 1 - r) * x_stride],
                                                  &expected[r * y_stride]);
                        }
                        ASSERT_EQ(y, expected)
                            << shape.inputs << " x " << shape.outputs << ", " << rows << " rows";
                    }
                }
            }
        }
    }
}

TEST(zx_fc, rounds_halves_up_and_converts_biases) {
    const auto param = load(bytes_of(int32_t{1}, int32_t{2}, int8_t{0}, int8_t{-128}, int8_t{1}, int8_t{0}));
    EXPECT_THAT(process(param.get(), {-64}, false, {9, 9}), testing::ElementsAre(0, -1024));
    EXPECT_THAT(process(param.get(), {-65}, false, {9, 9}), testing::ElementsAre(-1, -1024));
    EXPECT_THAT(process(param.get(), {1000}, true, {32767, -32768}), testing::ElementsAre(32767, -32768));
}

TEST(zx_fc, damaged_blocks_are_refused) {
    load(bytes_of(int32_t{0}), ZX_STATUS_INVALID_ARGUMENT);
    load(bytes_of(int32_t{1}, int32_t{-1}), ZX_STATUS_INVALID_ARGUMENT);
    load(bytes_of(int32_t{65536}, int32_t{32768}), ZX_STATUS_INVALID_ARGUMENT);  // 2^31 weights
    random_numbers random(1);
    const std::string block = model_builder::fc_block({3, 2}, random);
    for (size_t length = 0; length < block.size(); length++)
        load(block.substr(0, length), ZX_STATUS_IO_ERROR);
    load(block);
}
