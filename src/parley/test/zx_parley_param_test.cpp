// SPDX-License-Identifier: Apache-2.0
#include "zx_parley_param.h"

#include "model_builder.h"
#include "zx_error.h"
#include "zx_file.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

zx_status_t load(const std::string &bytes) {
    const temporary_file file(bytes);
    const zx_file_ptr stream(zx_fopen(file.path(), "rb"));
    auto *param = reinterpret_cast<zx_parley_param_t *>(1);
    testing::internal::CaptureStdout();
    zx_error_prepare();
    const zx_status_t status = zx_parley_param_load(stream.get(), &param);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(param == nullptr, status != ZX_STATUS_SUCCESS);
    zx_parley_param_delete(param);
    return status;
}

}  // namespace

TEST(zx_parley_param, headers_of_other_files_are_refused_with_their_messages) {
    const std::string model = model_builder().bytes();
    EXPECT_EQ(load(""), ZX_STATUS_IO_ERROR);
    EXPECT_EQ(load("parle"), ZX_STATUS_IO_ERROR);
    EXPECT_THAT(take_messages(), IsEmpty()) << "a file shorter than the magic leaves no message";
    EXPECT_EQ(load("parlez" + model.substr(6)), ZX_STATUS_INVALID_ARGUMENT);
    EXPECT_THAT(take_messages(),
                ElementsAre("Parley model (.zx) file has incorrect format or belongs to a different "
                            "platform."));
    EXPECT_EQ(load("parley1.0"), ZX_STATUS_IO_ERROR);
    EXPECT_THAT(take_messages(),
                ElementsAre(MatchesRegex("Failed to read \\(fread\\) from file ptr `\\w+`.")));
    EXPECT_EQ(load("parley1.0.1" + model.substr(11)), ZX_STATUS_INVALID_ARGUMENT);
    EXPECT_THAT(take_messages(),
                ElementsAre("Parley model (.zx) file belongs to a different version of the library. "
                            "File is `1.0.1` while library is `1.0.0`."));
}

// Every length at which a file can be cut, so that every read of every block fails once. Leaks show under
// sanitizers.
TEST(zx_parley_param, a_model_cut_anywhere_is_a_read_error) {
    model_builder model;
    model.forward = model.backward = {make_rnn_shape(80, 2), make_rnn_shape(2, 2)};
    model.embedding = {2, 2};
    const std::string bytes = model.bytes();
    EXPECT_EQ(load(bytes + "and more"), ZX_STATUS_SUCCESS);
    for (size_t length = 11; length < bytes.size(); length++) {
        ASSERT_EQ(load(bytes.substr(0, length)), ZX_STATUS_IO_ERROR) << length;
    }
}

TEST(zx_parley_param, counts_out_of_range_are_refused) {
    model_builder warmup_above_chunk;
    warmup_above_chunk.warmup_length_frames = 21;
    model_builder no_layers;
    no_layers.forward = no_layers.backward = {};
    model_builder no_chunk;
    no_chunk.chunk_length_frames = 0;
    model_builder no_reference;
    no_reference.reference_centroid = {};
    model_builder no_embedding;
    no_embedding.embedding.outputs = 0;
    for (const model_builder &model : {warmup_above_chunk, no_layers, no_chunk, no_reference, no_embedding}) {
        EXPECT_EQ(load(model.bytes()), ZX_STATUS_INVALID_ARGUMENT);
    }
}
