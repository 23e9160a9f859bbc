// SPDX-License-Identifier: Apache-2.0
// Who speaks, while samples come: live < 16-bit mono samples at 16 kHz of this machine's byte order
#include <array>
#include <cstdint>
#include <iostream>

#include "owners.h"

int main(int argc, char **) try {
    if (argc != 1) throw std::runtime_error("usage: live < samples");
    const owned<parley_diarizer> diarizer = open_model();
    parley_session *begun = nullptr;
    check(parley_listen(diarizer.get(), "live", 1, 16000, nullptr, &begun));
    const owned<parley_session> session(begun);

    std::array<int16_t, 16000> second{};
    while (std::cin.read(reinterpret_cast<char *>(second.data()), sizeof(second)) || std::cin.gcount() > 1) {
        check(parley_session_feed(begun, second.data(), std::cin.gcount() / 2));
        parley_result *state = nullptr;
        check(parley_session_update(begun, 0.05, &state));
        const owned<parley_result> result(state);
        if (const int32_t count = parley_result_num_segments(state); count > 0) {
            const parley_segment last = parley_result_segment(state, count - 1);
            std::cout << parley_result_duration(state)
                      << " s: " << parley_result_speaker(state, last.speaker).name << " until " << last.end
                      << " s\n";
        }
    }
    parley_result *whole = nullptr;
    check(parley_session_end(begun, &whole));
    const owned<parley_result> result(whole);
    std::cout << parley_result_num_speakers(whole) << " speakers\n";
} catch (const std::exception &error) {
    std::cerr << error.what() << "\n";
    return 1;
}
