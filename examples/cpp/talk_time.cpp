// Who speaks how much, in C++, from samples in memory: talk_time MODEL < 16-bit mono samples at 16 kHz
#include <zx_parley.h>

#include <cstdint>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct deleter {
    void operator()(zx_parley_t *engine) const { zx_parley_delete(engine); }
    void operator()(zx_parley_segment_t *segments) const { zx_parley_segments_delete(segments); }
};

void check(zx_status_t status) {
    if (status != ZX_STATUS_SUCCESS) throw std::runtime_error(zx_status_to_string(status));
}

// Seconds of speech of every speaker.
std::map<int32_t, float> talk_time(zx_parley_t *engine, const std::vector<int16_t> &samples) {
    int32_t count = 0;
    zx_parley_segment_t *found = nullptr;
    check(zx_parley_process(engine, samples.data(), static_cast<int32_t>(samples.size()), &count, &found));
    const std::unique_ptr<zx_parley_segment_t, deleter> owned(found);
    std::map<int32_t, float> seconds;
    for (int32_t i = 0; i < count; i++) {
        if (found[i].speaker_tag == 0) continue;  // a record that belongs to nobody
        seconds[found[i].speaker_tag] += found[i].end_sec - found[i].start_sec;
    }
    return seconds;
}

}  // namespace

int main(int argc, char **argv) try {
    if (argc != 2) throw std::runtime_error("usage: talk_time MODEL < samples");
    zx_log_disable();
    zx_parley_t *created = nullptr;
    check(zx_parley_init(argv[1], &created));
    const std::unique_ptr<zx_parley_t, deleter> engine(created);
    const std::string bytes{std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    std::vector<int16_t> samples(bytes.size() / 2);
    for (size_t i = 0; i < samples.size(); i++) {
        const auto low = static_cast<uint8_t>(bytes[2 * i]), high = static_cast<uint8_t>(bytes[2 * i + 1]);
        samples[i] = static_cast<int16_t>(low | high << 8);
    }
    for (const auto &[speaker, seconds] : talk_time(engine.get(), samples))
        std::cout << "speaker " << speaker << ": " << seconds << " s\n";
} catch (const std::exception &error) {
    std::cerr << error.what() << "\n";
    return 1;
}
