// SPDX-License-Identifier: Apache-2.0
// Texts that people hand to the library: transcripts of every format, lists of voices, references. The first
// byte chooses. What is read can be written, and what is written read again.
#include <cmath>
#include <sstream>
#include <stdexcept>
#include <string>

#include "errors.h"
#include "formats.h"
#include "fuzz.h"
#include "reading.h"
#include "rttm.h"
#include "score.h"
#include "transcript.h"
#include "voices.h"

namespace {

void check_transcript(const std::string &text) {
    const speakers_over_time speakers({{0, 1.5, "A"}, {1, 2, "B <b>"}, {30, 3600, ""}}, 1);
    const std::vector<spoken_word> words = read_words(text, speakers);
    for (const spoken_word &word : words)
        fuzz_require(std::isfinite(word.start) && std::isfinite(word.end), "words have times");
    for (const char *format :
         {"text", "markdown", "docx", "odt", "srt", "vtt", "tei", "ctm", "stm", "json"}) {
        const std::string written = write_words(words, format, "x");
        if (format == std::string("json") && !words.empty())
            fuzz_require(read_words(written, speakers).size() == words.size(), "no word is lost");
    }
    (void) assign_speakers(text, speakers);
}

void check_voices(const std::string &text) {
    const voice_list voices = read_voices(text);
    const std::string written = write_voices(voices);
    fuzz_require(write_voices(read_voices(written)) == written, "a list of voices is written as it is read");
    diarization result;
    result.model = voices.model;
    result.speakers.push_back({"speaker 1", 5, {1, 0}, 0});
    name_voices(&result, voices, 0.8);
}

void check_result(const std::string &text) {
    const std::string written = write_format(read_result(text, "text"), "json", {});
    fuzz_require(write_format(read_result(written, "text"), "json", {}) == written,
                 "a result is written as it is read");
}

void check_reference(const std::string &text) {
    std::istringstream lines(text), parts(text);
    const rttm reference = read_rttm(lines, "text");
    (void) score_table(reference, reference, nullptr, {0.25}, false, true);
    (void) read_uem(parts, "text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    try {
        switch (data[0] % 4) {
            case 0:
                check_transcript(text);
                break;
            case 1:
                check_voices(text);
                break;
            case 3:
                check_result(text);
                break;
            default:
                check_reference(text);
        }
    } catch (const diarization_error &) {   // of voices
    } catch (const std::runtime_error &) {  // of the others
    }
    return 0;
}
