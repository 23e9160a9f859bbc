// SPDX-License-Identifier: Apache-2.0
// The resampler: any rates, any order, input in any pieces of up to 1024 samples. Every call writes what was
// promised or one more, in memory of exactly that size. Where positions between samples are exact in single
// precision, however far from the start of a piece they are counted, pieces give the same samples as one
// call.
#include <algorithm>
#include <memory>
#include <vector>

#include "fuzz.h"
#include "zx_heap.h"
#include "zx_resampler.h"

namespace {

using resampler = zx_owned<zx_resampler_t, zx_resampler_delete>;

std::vector<int16_t> convert(zx_resampler_t *object, const int16_t *input, int32_t size) {
    const int32_t promised = zx_resampler_convert_num_samples_to_output_sample_rate(object, size);
    fuzz_require(promised >= 0, "a promise is no negative number");
    std::vector<int16_t> output(static_cast<size_t>(promised) + 1);
    const int32_t written = zx_resampler_process(object, input, size, output.data());
    fuzz_require(written == promised || written == promised + 1, "as many as promised or one more");
    output.resize(static_cast<size_t>(written));
    return output;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_bytes bytes(data, size);
    const int32_t output_rate = bytes.between(1, 50000);
    const bool doubles = bytes.take<uint8_t>() % 4 == 0;
    const int32_t input_rate = doubles ? output_rate / 2 : bytes.between(1, 400000);
    const int32_t order = bytes.between(2, 80);
    const uint8_t piece = bytes.take<uint8_t>();
    if (input_rate < 1) return 0;
    zx_resampler_t *whole_object = nullptr, *pieces_object = nullptr;
    const zx_status_t status = zx_resampler_init(input_rate, output_rate, order, &whole_object);
    const resampler whole(whole_object);
    if (status != ZX_STATUS_SUCCESS) return 0;
    fuzz_require(zx_resampler_init(input_rate, output_rate, order, &pieces_object) == ZX_STATUS_SUCCESS,
                 "what could be had once can be had again");
    const resampler pieces(pieces_object);

    std::vector<int16_t> input(bytes.size() / sizeof(int16_t));
    if (input.empty()) return 0;
    const bool is_exact = doubles || input_rate % output_rate == 0;
    if (input.size() > (doubles ? 1024 : 4096)) input.resize(doubles ? 1024 : 4096);
    std::memcpy(input.data(), bytes.data(), input.size() * sizeof(int16_t));
    const std::vector<int16_t> expected =
        convert(whole.get(), input.data(), static_cast<int32_t>(input.size()));
    std::vector<int16_t> result;
    for (size_t done = 0, step = piece; done < input.size(); step = step * 7 + 1) {
        const size_t n = std::min(step % 1024 + 1, input.size() - done);
        const std::vector<int16_t> part = convert(pieces.get(), input.data() + done, static_cast<int32_t>(n));
        result.insert(result.end(), part.begin(), part.end());
        done += n;
    }
    const size_t common = std::min(result.size(), expected.size());
    fuzz_require(std::max(result.size(), expected.size()) - common <= 1, "pieces give as much as the whole");
    fuzz_require(!is_exact || result == expected, "pieces give what the whole gives");
    return 0;
}
