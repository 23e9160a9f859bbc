// SPDX-License-Identifier: Apache-2.0
// The same people in another recording: voices AUDIO OTHER_AUDIO. Whoever speaks in the first gets the
// same name in the second.
#include <iostream>
#include <string>

#include "owners.h"

namespace {

owned<parley_result> diarize(parley_diarizer *diarizer, const char *path) {
    parley_result *made = nullptr;
    check(parley_diarize_file(diarizer, path, nullptr, nullptr, nullptr, &made));
    return owned<parley_result>(made);
}

}  // namespace

int main(int argc, char **argv) try {
    if (argc != 3) throw std::runtime_error("usage: voices AUDIO OTHER_AUDIO");
    const owned<parley_diarizer> diarizer = open_model();
    const owned<parley_result> first = diarize(diarizer.get(), argv[1]);
    std::string voices;  // the text of a list, to be kept in a file
    for (int32_t i = 0; i < parley_result_num_speakers(first.get()); i++) {
        const std::string name = "person " + std::to_string(i + 1);
        char *longer = nullptr;
        check(parley_voices_add(voices.c_str(), name.c_str(), first.get(), i, 0, 0, &longer));
        voices = owned<char>(longer).get();
    }
    const owned<parley_result> second = diarize(diarizer.get(), argv[2]);
    check(parley_result_name_voices(second.get(), voices.c_str(), 0));
    for (int32_t i = 0; i < parley_result_num_speakers(second.get()); i++) {
        const parley_speaker speaker = parley_result_speaker(second.get(), i);
        std::cout << speaker.name << ": " << speaker.seconds << " s, similarity " << speaker.similarity
                  << "\n";
    }
} catch (const std::exception &error) {
    std::cerr << error.what() << "\n";
    return 1;
}
