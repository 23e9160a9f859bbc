#include "channels.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#if PARLEY_WITH_SNDFILE
#include <sndfile.h>
#endif

#include "errors.h"
#include "zx_heap.h"
#include "zx_resampler.h"

namespace {

constexpr int32_t FILTER_ORDER = 50, BLOCK = 1024;

}  // namespace

std::vector<int16_t> resample(const int16_t *samples, int64_t count, int32_t from, int32_t to) {
    zx_resampler_t *created = nullptr;
    const zx_status_t status = zx_resampler_init(from, to, FILTER_ORDER, &created);
    const zx_owned<zx_resampler_t, zx_resampler_delete> resampler(created);
    if (status != ZX_STATUS_SUCCESS)
        throw diarization_error(PARLEY_INVALID,
                                "a rate of " + std::to_string(from) +
                                    " Hz cannot be converted: 8000 Hz can, and 16000 Hz and more");
    std::vector<int16_t> result, block(2 * BLOCK + 2);
    for (int64_t at = 0; at < count; at += BLOCK) {
        const auto size = static_cast<int32_t>(std::min<int64_t>(BLOCK, count - at));
        const int32_t made = zx_resampler_process(resampler.get(), samples + at, size, block.data());
        result.insert(result.end(), block.begin(), block.begin() + made);
    }
    return result;
}

std::vector<int16_t> convert_rate(std::vector<int16_t> samples, int32_t rate) {
    if (rate == RATE) return samples;
    return resample(samples.data(), static_cast<int64_t>(samples.size()), rate, RATE);
}

#if PARLEY_WITH_SNDFILE

namespace {

struct closer {
    void operator()(SNDFILE *file) const { sf_close(file); }
};

}  // namespace

std::vector<std::vector<int16_t>> read_channels(const std::string &path) {
    SF_INFO info{};
    const std::unique_ptr<SNDFILE, closer> file(sf_open(path.c_str(), SFM_READ, &info));
    if (!file) throw diarization_error(PARLEY_UNREADABLE, path + ": " + sf_strerror(nullptr));
    const auto count = static_cast<size_t>(info.channels);
    std::vector<std::vector<int16_t>> channels(count);
    std::vector<int16_t> block(BLOCK * count);
    for (sf_count_t got; (got = sf_readf_short(file.get(), block.data(), BLOCK)) > 0;)
        for (size_t i = 0; i < static_cast<size_t>(got) * count; i++) channels[i % count].push_back(block[i]);
    for (auto &channel : channels) channel = convert_rate(std::move(channel), info.samplerate);
    if (channels.empty() || channels.front().empty())
        throw diarization_error(PARLEY_INVALID, path + ": holds no audio");
    return channels;
}

#else

std::vector<std::vector<int16_t>> read_channels(const std::string &) {
    throw diarization_error(PARLEY_INVALID,
                            "this build cannot read channels apart (libsndfile was left out)");
}

#endif
