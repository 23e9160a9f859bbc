// SPDX-License-Identifier: Apache-2.0
// Who speaks how much, in C++, from samples in memory: talk_time < 16-bit mono samples at 16 kHz
#include <cstdint>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "owners.h"

int main(int argc, char **) try {
    if (argc != 1) throw std::runtime_error("usage: talk_time < samples");
    const owned<parley_diarizer> diarizer = open_model();
    const std::string bytes{std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
    std::vector<int16_t> samples(bytes.size() / 2);
    for (size_t i = 0; i < samples.size(); i++) {
        const auto low = static_cast<uint8_t>(bytes[2 * i]), high = static_cast<uint8_t>(bytes[2 * i + 1]);
        samples[i] = static_cast<int16_t>(low | high << 8);
    }
    parley_result *made = nullptr;
    check(parley_diarize_samples(diarizer.get(), samples.data(), static_cast<int64_t>(samples.size()), 1,
                                 16000, "input", nullptr, nullptr, nullptr, &made));
    const owned<parley_result> result(made);
    for (int32_t i = 0; i < parley_result_num_speakers(made); i++) {
        const parley_speaker speaker = parley_result_speaker(made, i);
        std::cout << speaker.name << ": " << speaker.seconds << " s\n";
    }
} catch (const std::exception &error) {
    std::cerr << error.what() << "\n";
    return 1;
}
