// SPDX-License-Identifier: Apache-2.0
#include "zx_normalization.h"

#include "support.h"
#include "zx_file.h"

namespace {

zx_status_t load(const std::string &bytes, zx_normalization_param_t **param) {
    const temporary_file file(bytes);
    const zx_file_ptr stream(zx_fopen(file.path(), "rb"));
    *param = reinterpret_cast<zx_normalization_param_t *>(1);
    return zx_normalization_param_load(stream.get(), param);
}

}  // namespace

TEST(zx_normalization, scales_in_place_rounding_down_and_saturating) {
    zx_normalization_param_t *param = nullptr;
    ASSERT_EQ(load(bytes_of(int32_t{3}, int16_t{32767}, int16_t{0}, int16_t{100}, int16_t{32767}, int16_t{1},
                            int16_t{2048}),
                   &param),
              ZX_STATUS_SUCCESS);
    const auto owner = owned<zx_normalization_param_delete>(param);
    int16_t x[] = {-32768, -1, 110, 32767, 1024, -32768};
    zx_normalization_process(param, x, x, 2);
    EXPECT_THAT(x, testing::ElementsAre(-32768, -1, 20, 0, 1, -32768));
    EXPECT_ASSERTION(zx_normalization_process(param, x, x, 0), "num_frames > 0");
}

TEST(zx_normalization, damaged_blocks_are_refused) {
    zx_normalization_param_t *param;
    for (int32_t dimension : {0, -1, INT32_MIN}) {
        EXPECT_EQ(load(bytes_of(dimension), &param), ZX_STATUS_INVALID_ARGUMENT);
        EXPECT_EQ(param, nullptr);
    }
    const std::string block = bytes_of(int32_t{2}, int16_t{1}, int16_t{2}, int16_t{3}, int16_t{4});
    for (size_t length = 0; length < block.size(); length++) {
        EXPECT_EQ(load(block.substr(0, length), &param), ZX_STATUS_IO_ERROR) << length;
        EXPECT_EQ(param, nullptr);
    }
}
