// SPDX-License-Identifier: Apache-2.0
// Clustering: embeddings of any kind, thresholds below 1 (at 1 opposite directions merge, whose mean has no
// direction:
// that is asserted), two runs on one object. Runs agree, tags are as announced, and
// speakers are numbered in the order in which their clusters were opened.
#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "fuzz.h"
#include "zx_heap.h"
#include "zx_log_switch.h"
#include "zx_parley_cluster.h"

namespace {

// Unit length, as the network gives them; an all-zero vector becomes the first axis.
void scale_to_unit(float *x, int32_t dimension) {
    float sum = 0.0f;
    for (int32_t d = 0; d < dimension; d++) sum += x[d] * x[d];
    if (sum == 0.0f) x[0] = sum = 1.0f;
    for (int32_t d = 0; d < dimension; d++) x[d] /= std::sqrt(sum);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_bytes bytes(data, size);
    const int32_t dimension = bytes.between(1, 6);
    // A voice is a run of frames about one direction: a byte for its length, then a byte a dimension.
    float reference[6] = {};
    zx_parley_cluster_param_t param = {};
    param.reference_centroid = reference;
    param.count = dimension;
    for (float *threshold : {&param.offline_threshold, &param.prune_threshold, &param.segment_threshold,
                             &param.background_threshold}) {
        *threshold = static_cast<float>(bytes.take<int16_t>()) / 32768.0f;
    }
    for (int32_t d = 0; d < dimension; d++) reference[d] = bytes.take<int8_t>();
    scale_to_unit(reference, dimension);
    const bool wobbles = bytes.take<uint8_t>() % 2 == 1;
    std::vector<float> input;
    while (bytes.size() > 0 && input.size() < 20000) {
        const int32_t length = bytes.take<uint8_t>() % 64 + 1;
        float voice[6];
        for (int32_t d = 0; d < dimension; d++) voice[d] = bytes.take<int8_t>();
        for (int32_t i = 0; i < length; i++) {
            float row[6];
            std::copy_n(voice, dimension, row);
            if (wobbles) row[i % dimension] += static_cast<float>(i % 7);
            scale_to_unit(row, dimension);
            input.insert(input.end(), row, row + dimension);
        }
    }
    if (input.empty() || zx_parley_cluster_param_inconsistency(&param, dimension)) return 0;
    const int32_t num_frames = static_cast<int32_t>(input.size() / static_cast<size_t>(dimension));

    zx_log_disable();
    zx_parley_cluster_t *object = nullptr;
    fuzz_require(zx_parley_cluster_init(&param, &object) == ZX_STATUS_SUCCESS, "an object is made");
    const zx_owned<zx_parley_cluster_t, zx_parley_cluster_delete> cluster(object);
    std::vector<uint32_t> first, tags(static_cast<size_t>(num_frames));
    uint32_t num_clusters = 0;
    for (int run = 0; run < 2; run++) {
        std::fill(tags.begin(), tags.end(), UINT32_MAX);
        fuzz_require(zx_parley_cluster_process(object, input.data(), dimension, num_frames, &num_clusters,
                                               tags.data()) == ZX_STATUS_SUCCESS,
                     "clustering succeeds");
        if (run == 0) first = tags;
    }
    fuzz_require(tags == first, "two runs agree");
    std::vector<int32_t> frames(num_clusters);
    for (uint32_t tag : tags) {
        fuzz_require(tag < num_clusters, "every frame has a tag");
        frames[tag]++;
    }
    fuzz_require(std::count(frames.begin() + 1, frames.end(), 0) == 0, "every speaker has a frame");
    return 0;
}
