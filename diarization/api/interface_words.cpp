// SPDX-License-Identifier: Apache-2.0
// The C interface's part about words, and about results that come from files.

#include <algorithm>
#include <string_view>

#include "formats.h"
#include "interface.h"
#include "reading.h"
#include "recognizers.h"
#include "transcribing.h"
#include "transcript.h"

namespace {

constexpr double NEAR_TURN = 1;  // seconds
constexpr parley_transcription DEFAULT_TRANSCRIPTION = {
    sizeof(DEFAULT_TRANSCRIPTION), "pocketsphinx", nullptr, 0, 0, 0, PARLEY_WORDS_WHOLE_SENTENCES, NEAR_TURN};
constexpr double AFTER_LAST_TURN = 60;  // seconds in which others than those of the turns may speak

speakers_over_time speakers_of(const diarization &result, double reach) {
    std::vector<turn> turns;
    for (const segment &s : result.segments)
        if (!s.is_overlap)
            turns.push_back({s.start, s.end, result.speakers[static_cast<size_t>(s.speaker)].name});
    return {std::move(turns), reach, voice_of(result)};
}

void check_reach(double reach) {
    require(reach >= 0, "turns reach 0 s or more");
}

void check_rule(int32_t rule) {
    require(rule == PARLEY_WORDS_WHOLE_SENTENCES || rule == PARLEY_WORDS_BY_TIME, "there is no such rule");
}

}  // namespace

extern "C" {

parley_status parley_result_add_words(parley_result *result, const char *transcript, size_t size,
                                      double reach, int32_t rule) {
    return guarded([&] {
        require(result && transcript, "a result or a transcript is missing");
        check_rule(rule);
        check_reach(reach);
        as_invalid([&] {
            const speakers_over_time speakers = speakers_of(result->inner, reach);
            std::vector<spoken_word> words = read_words({transcript, size}, speakers);
            check_words_lie_within(words, result->inner.duration);
            if (rule == PARLEY_WORDS_WHOLE_SENTENCES) keep_sentences_together(speakers, &words);
            result->inner.words = std::move(words);
        });
    });
}

parley_status parley_result_assign(const parley_result *result, const char *transcript, size_t size,
                                   double reach, char **text, size_t *text_size) {
    return guarded([&] {
        require(result && transcript && text, "a result, a transcript or the place for the text is missing");
        *text = nullptr;
        check_reach(reach);
        as_invalid([&] {
            const speakers_over_time speakers = speakers_of(result->inner, reach);
            const std::string given(transcript, size);
            check_words_lie_within(find_words(given, speakers), result->inner.duration);
            hand_out(assign_speakers(given, speakers), text, text_size);
        });
    });
}

const parley_recognizer *parley_recognizer_at(int32_t index) {
    return entry_at(known_recognizers(), index);
}

void parley_transcription_init(parley_transcription *how, size_t size) {
    fill_record(DEFAULT_TRANSCRIPTION, size, how);
}

parley_status parley_transcribe(parley_diarizer *diarizer, parley_result *result, const char *path,
                                const parley_transcription *given, const parley_options *options,
                                parley_progress progress, void *context) {
    return guarded([&] {
        require(diarizer && result && path, "a diarizer, a result or a path is missing");
        const parley_transcription how = known_record(DEFAULT_TRANSCRIPTION, given);
        require(how.recognizer && how.num_arguments >= 0 && (how.arguments || how.num_arguments == 0),
                "a recognizer or its arguments are missing");
        require(how.time_limit >= 0, "the time limit is 0 s or more");
        check_rule(how.rule);
        check_reach(how.reach);
        transcription asked = {find_recognizer(how.recognizer), {}, how.time_limit, how.by_turn != 0, 1};
        for (int32_t i = 0; i < how.num_arguments; i++) {
            require(how.arguments[i], "an argument is missing");
            asked.arguments.emplace_back(how.arguments[i]);
        }
        const speakers_over_time speakers = speakers_of(result->inner, how.reach);
        std::vector<spoken_word> words = diarizer->inner.transcribe(
            path, result->inner, asked, speakers, known_options(options), rising(progress, context));
        if (how.rule == PARLEY_WORDS_WHOLE_SENTENCES) keep_sentences_together(speakers, &words);
        result->inner.words = std::move(words);
    });
}

int32_t parley_result_num_words(const parley_result *result) {
    return static_cast<int32_t>(of(result).words.size());
}

parley_word parley_result_word(const parley_result *result, int32_t index) {
    if (index < 0 || index >= parley_result_num_words(result)) return {0, 0, "", ""};
    const spoken_word &w = of(result).words[static_cast<size_t>(index)];
    return {w.start, w.end, w.text.c_str(), w.speaker.c_str()};
}

const parley_format *parley_transcript_format_at(int32_t index) {
    return shown_at(transcript_formats(), index);
}

parley_status parley_write_words(const parley_result *result, const char *format, char **text, size_t *size) {
    return guarded([&] {
        require(result && format && text, "a result, a format or the place for the text is missing");
        *text = nullptr;
        require(!result->inner.words.empty(), "the result has no words");
        as_invalid([&] {
            hand_out(format == std::string_view("html")
                         ? write_format(result->inner, format, {})
                         : write_words(result->inner.words, format, result->inner.recording),
                     text, size);
        });
    });
}

parley_status parley_read_result(const char *text, size_t size, const char *name, parley_result **result) {
    return guarded([&] {
        require(text && name && result, "a text, its name or the place for the result is missing");
        *result = nullptr;
        as_invalid([&] { *result = new parley_result{read_result({text, size}, name)}; });
    });
}

parley_status parley_result_read_audio(parley_diarizer *diarizer, parley_result *result, const char *path,
                                       const parley_options *options, parley_progress progress,
                                       void *context) {
    return guarded([&] {
        require(diarizer && result && path, "a diarizer, a result or a path is missing");
        diarizer->inner.read_audio(path, known_options(options), rising(progress, context), &result->inner);
    });
}

parley_status parley_assign(const char *transcript, size_t size, const parley_turn *turns, int32_t num_turns,
                            double reach, const char *format, char **text, size_t *text_size) {
    return guarded([&] {
        require(transcript && text, "a transcript or the place for the text is missing");
        *text = nullptr;
        check_reach(reach);
        as_invalid([&] {
            const speakers_over_time speakers(turns_of(turns, num_turns), reach);
            const std::string given(transcript, size);
            const std::vector<spoken_word> words =
                format ? read_words(given, speakers) : find_words(given, speakers);
            double last = 0;
            for (int32_t i = 0; i < num_turns; i++) last = std::max(last, turns[i].end);
            if (num_turns > 0) check_words_lie_within(words, last + AFTER_LAST_TURN);
            hand_out(format ? write_words(words, format, "recording") : assign_speakers(given, speakers),
                     text, text_size);
        });
    });
}

}  // extern "C"
