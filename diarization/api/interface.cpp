// SPDX-License-Identifier: Apache-2.0
// The C interface (parley.h) over the library's C++: no exception leaves it.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <sstream>
#include <string_view>

#include "assignment.h"
#include "diarizer.h"
#include "errors.h"
#include "formats.h"
#include "guarded.h"
#include "media.h"
#include "options.h"
#include "reading.h"
#include "recognizers.h"
#include "rttm.h"
#include "score.h"
#include "session.h"
#include "system.h"
#include "transcribing.h"
#include "transcript.h"
#include "voices.h"
#include "zx_parley.h"

struct parley_diarizer {
    explicit parley_diarizer(const std::string &model_path) : inner(model_path) {}
    diarizer inner;
};

struct parley_result {
    diarization inner;
};

struct parley_session {
    session inner;
    bool has_ended = false;
};

namespace {

// What the calling thread's last failure says. Arrays, since they take no memory when there is none, and
// since MinGW releases a thread's variables before it destroys them.
struct failure_texts {
    char message[4608];  // a name of a file, as long as systems take it, and a sentence
    char details[2304];  // nine messages of the engine
};
thread_local failure_texts last_failure;

// Behind `used` bytes of a text goes as much of another as fits, no character cut apart; the bytes used then.
size_t append_cut(std::string_view more, char *text, size_t size, size_t used) {
    size_t length = std::min(more.size(), size - 1 - used);
    if (length < more.size())
        while (length > 0 && (more[length] & 0xC0) == 0x80) length--;
    std::memcpy(text + used, more.data(), length);
    text[used + length] = '\0';
    return used + length;
}

// A later version's record is longer than this one's, an earlier one's shorter.
parley_options known_options(const parley_options *given) {
    parley_options options;
    init_options(&options);
    if (!given) return options;
    require(given->size >= offsetof(parley_options, max_speakers) && given->size < 4096,
            "options were not made by parley_options_init");
    const size_t own = options.size;
    std::memcpy(static_cast<void *>(&options), given, std::min(own, given->size));
    options.size = own;
    return options;
}

// A share that never falls, for a caller who may want to stop.
progress_function rising(parley_progress progress, void *context) {
    if (!progress) return nullptr;
    return [progress, context, highest = 0.0](double done) mutable {
        highest = std::max(highest, std::min(done, 1.0));
        return progress(context, highest) != 0;
    };
}

void fill(const scratch_file &file, const void *data, size_t size) {
    if (!write_all(file.descriptor(), data, size))
        throw diarization_error(PARLEY_FAILED, file.path() + ": cannot be written");
}

void name_recording(const std::string &path, diarization *result) {
    result->path = path;
    result->recording = path == "-" ? "stdin" : stem_of(path);
}

// A copy that parley_free releases, with a zero behind it.
char *copied(const std::string &text) {
    char *block = static_cast<char *>(std::malloc(text.size() + 1));
    if (!block) throw std::bad_alloc();
    std::memcpy(block, text.c_str(), text.size() + 1);
    return block;
}

void hand_out(const std::string &written, char **text, size_t *size) {
    *text = copied(written);
    if (size) *size = written.size();
}

// What is wrong with a text that a caller gave.
template <class Work>
void as_invalid(Work work) {
    try {
        work();
    } catch (const diarization_error &) {
        throw;
    } catch (const std::runtime_error &error) {
        throw diarization_error(PARLEY_INVALID, error.what());
    }
}

template <class Formats>
const parley_format *shown_at(const Formats &formats, int32_t index) {
    return index >= 0 && index < static_cast<int32_t>(formats.size())
               ? &formats[static_cast<size_t>(index)].shown
               : nullptr;
}

speakers_over_time speakers_of(const diarization &result, double reach) {
    std::vector<turn> turns;
    for (const segment &s : result.segments)
        turns.push_back({s.start, s.end, result.speakers[static_cast<size_t>(s.speaker)].name});
    return {std::move(turns), reach, voice_of(result)};
}

std::vector<turn> turns_of(const parley_turn *turns, int32_t count) {
    require(count >= 0 && (turns || count == 0), "turns are missing");
    std::vector<turn> result;
    result.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; i++) {
        const auto &[start, end, speaker] = turns[i];
        require(std::isfinite(start) && std::isfinite(end) && speaker,
                "turns have a start, an end and a speaker");
        result.push_back({start, end, speaker});
    }
    return result;
}

constexpr double NEAR_TURN = 1;         // seconds
constexpr double AFTER_LAST_TURN = 60;  // seconds in which others than those of the turns may speak

void check_reach(double reach) {
    require(reach >= 0, "turns reach 0 s or more");
}

void check_rule(int32_t rule) {
    require(rule == PARLEY_WORDS_WHOLE_SENTENCES || rule == PARLEY_WORDS_BY_TIME, "there is no such rule");
}

void check_channels(int32_t num_channels) {
    require(num_channels >= 1 && num_channels <= PARLEY_MOST_CHANNELS,
            ("there are 1 to " + std::to_string(PARLEY_MOST_CHANNELS) + " channels").c_str());
}

void check_collar(double collar) {
    require(collar >= 0 && std::isfinite(collar), "collars are 0 s or more");
}

// An empty one for none.
const diarization &of(const parley_result *result) {
    static const diarization none;
    return result ? result->inner : none;
}

}  // namespace

parley_status keep_failure(parley_status status, const char *message,
                           const std::vector<std::string> &details) {
    append_cut(message, last_failure.message, sizeof(last_failure.message), 0);
    last_failure.details[0] = '\0';
    size_t used = 0;
    for (const std::string_view line : details)
        for (const std::string_view part : {line, std::string_view("\n")})
            used = append_cut(part, last_failure.details, sizeof(last_failure.details), used);
    return status;
}

extern "C" {

const char *parley_message(void) {
    return last_failure.message;
}

const char *parley_details(void) {
    return last_failure.details;
}

const char *parley_version(void) {
    return PARLEY_PROJECT_VERSION;
}

void parley_options_init(parley_options *options) {
    if (options) init_options(options);
}

const parley_option *parley_option_at(int32_t index) {
    return option_at(index);
}

parley_status parley_options_set(parley_options *options, const char *name, const char *value) {
    return guarded([&] {
        require(options && name && value, "an option, its name or its value is missing");
        set_option(options, name, value);
    });
}

parley_status parley_options_check(const parley_options *options) {
    return guarded([&] { check_options(known_options(options)); });
}

parley_status parley_open(const char *model_path, parley_diarizer **diarizer) {
    return guarded([&] {
        require(model_path && diarizer, "a model's path or the place for the diarizer is missing");
        *diarizer = nullptr;
        *diarizer = new parley_diarizer(model_path);
    });
}

parley_status parley_open_memory(const void *model, size_t size, parley_diarizer **diarizer) {
    return guarded([&] {
        require(model && diarizer, "a model or the place for the diarizer is missing");
        *diarizer = nullptr;
        const scratch_file file;
        fill(file, model, size);
        *diarizer = new parley_diarizer(file.path());
    });
}

const char *parley_model(const parley_diarizer *diarizer) {
    return diarizer ? const_cast<parley_diarizer *>(diarizer)->inner.own_engine()->id().c_str() : "";
}

void parley_close(parley_diarizer *diarizer) {
    delete diarizer;
}

parley_status parley_diarize_file(parley_diarizer *diarizer, const char *path, const parley_options *options,
                                  parley_progress progress, void *context, parley_result **result) {
    return guarded([&] {
        require(diarizer && path && result, "a diarizer, a path or the place for the result is missing");
        *result = nullptr;
        *result = new parley_result{
            diarizer->inner.run(path, nullptr, known_options(options), rising(progress, context))};
    });
}

parley_status parley_diarize_memory(parley_diarizer *diarizer, const void *file, size_t size,
                                    const char *name, const parley_options *options, parley_progress progress,
                                    void *context, parley_result **result) {
    return guarded([&] {
        require(diarizer && file && name && result,
                "a diarizer, a file, its name or the place for the result is missing");
        *result = nullptr;
        const scratch_file copy;
        fill(copy, file, size);
        auto made = std::make_unique<parley_result>(parley_result{
            diarizer->inner.run(copy.path(), nullptr, known_options(options), rising(progress, context))});
        name_recording(name, &made->inner);
        *result = made.release();
    });
}

parley_status parley_diarize_samples(parley_diarizer *diarizer, const int16_t *samples, int64_t num_frames,
                                     int32_t num_channels, int32_t rate, const char *name,
                                     const parley_options *options, parley_progress progress, void *context,
                                     parley_result **result) {
    return guarded([&] {
        require(diarizer && (samples || num_frames == 0) && name && result,
                "a diarizer, samples, their name or the place for the result is missing");
        *result = nullptr;
        require(num_frames >= 0 && num_frames <= INT32_MAX, "there are more than 2^31 - 1 samples");
        check_channels(num_channels);
        const given_samples given = {samples, num_frames, num_channels, rate};
        *result = new parley_result{
            diarizer->inner.run(name, &given, known_options(options), rising(progress, context))};
    });
}

parley_status parley_listen(parley_diarizer *diarizer, const char *name, int32_t num_channels, int32_t rate,
                            const parley_options *options, parley_session **session) {
    return guarded([&] {
        require(diarizer && name && session, "a diarizer, a name or the place for the session is missing");
        *session = nullptr;
        check_channels(num_channels);
        *session = new parley_session{{&diarizer->inner, name, known_options(options), num_channels, rate}};
    });
}

parley_status parley_session_feed(parley_session *session, const int16_t *samples, int64_t num_frames) {
    return guarded([&] {
        require(session && (samples || num_frames == 0) && num_frames >= 0,
                "a session or samples are missing");
        require(!session->has_ended, "the session has ended");
        session->inner.feed(samples, num_frames);
    });
}

parley_status parley_session_update(parley_session *session, double share, parley_result **result) {
    return guarded([&] {
        require(session && result, "a session or the place for the result is missing");
        *result = nullptr;
        require(!session->has_ended, "the session has ended");
        require(share >= 0 && share <= 1, "the share of time lies between 0 and 1");
        auto made = std::make_unique<parley_result>();
        if (session->inner.update(share, &made->inner)) *result = made.release();
    });
}

parley_status parley_session_end(parley_session *session, parley_result **result) {
    return guarded([&] {
        require(session && result, "a session or the place for the result is missing");
        *result = nullptr;
        require(!session->has_ended, "the session has ended");
        session->has_ended = true;
        *result = new parley_result{session->inner.end()};
    });
}

void parley_session_delete(parley_session *session) {
    delete session;
}

parley_status parley_recluster(parley_diarizer *diarizer, const parley_result *result,
                               const parley_options *options, parley_result **again) {
    return guarded([&] {
        require(diarizer && result && again, "a diarizer, a result or the place for another is missing");
        *again = nullptr;
        *again = new parley_result{diarizer->inner.recluster(result->inner, known_options(options))};
    });
}

void parley_result_delete(parley_result *result) {
    delete result;
}

double parley_result_duration(const parley_result *result) {
    return of(result).duration;
}

int32_t parley_result_num_segments(const parley_result *result) {
    return static_cast<int32_t>(of(result).segments.size());
}

int32_t parley_result_num_speakers(const parley_result *result) {
    return static_cast<int32_t>(of(result).speakers.size());
}

parley_segment parley_result_segment(const parley_result *result, int32_t index) {
    if (index < 0 || index >= parley_result_num_segments(result)) return {};
    const segment &s = of(result).segments[static_cast<size_t>(index)];
    return {s.start, s.end, s.speaker, s.confidence};
}

parley_speaker parley_result_speaker(const parley_result *result, int32_t index) {
    if (index < 0 || index >= parley_result_num_speakers(result)) return {"", 0, nullptr, 0, 0};
    const speaker &s = of(result).speakers[static_cast<size_t>(index)];
    return {s.name.c_str(), s.seconds, s.embedding.data(), static_cast<int32_t>(s.embedding.size()),
            s.similarity};
}

const float *parley_result_waveform(const parley_result *result, int32_t *count, int32_t *rate) {
    if (count) *count = static_cast<int32_t>(of(result).waveform.size());
    if (rate) *rate = WAVEFORM_RATE;
    return of(result).waveform.data();
}

const char *parley_result_note(const parley_result *result) {
    return of(result).note.c_str();
}

parley_status parley_voices_add(const char *voices, const char *name, const parley_result *result,
                                int32_t speaker, double start, double end, char **text) {
    return guarded([&] {
        require(voices && name && result && text,
                "voices, a name, a result or the place for the text is missing");
        voice_list list = read_voices(voices);
        add_voice(&list, name, result->inner.model, sample_of(result->inner, speaker, start, end));
        *text = copied(write_voices(list));
    });
}

parley_status parley_voices_remove(const char *voices, const char *name, char **text) {
    return guarded([&] {
        require(voices && name && text, "voices, a name or the place for the text is missing");
        voice_list list = read_voices(voices);
        const auto gone = std::erase_if(list.people, [name](const voice &v) { return v.name == name; });
        require(gone > 0, ("there is no voice of " + std::string(name)).c_str());
        *text = copied(write_voices(list));
    });
}

parley_status parley_voices_at(const char *voices, int32_t index, char **name, int32_t *num_samples) {
    return guarded([&] {
        require(voices && index >= 0 && name, "voices, an index or the place for the name is missing");
        *name = nullptr;
        const voice_list list = read_voices(voices);
        if (static_cast<size_t>(index) >= list.people.size()) return;
        const voice &found = list.people[static_cast<size_t>(index)];
        if (num_samples) *num_samples = static_cast<int32_t>(found.samples.size());
        *name = copied(found.name);
    });
}

parley_status parley_voices_sample_at(const char *voices, int32_t index, int32_t sample, double *seconds,
                                      char *date, char **source) {
    return guarded([&] {
        require(voices && index >= 0 && sample >= 0 && source,
                "voices, an index or the place for the source is missing");
        *source = nullptr;
        const voice_list list = read_voices(voices);
        if (static_cast<size_t>(index) >= list.people.size()) return;
        const std::vector<voice_sample> &samples = list.people[static_cast<size_t>(index)].samples;
        if (static_cast<size_t>(sample) >= samples.size()) return;
        const voice_sample &found = samples[static_cast<size_t>(sample)];
        if (seconds) *seconds = found.seconds;
        if (date) std::snprintf(date, 11, "%s", found.date.c_str());
        *source = copied(found.source);
    });
}

parley_status parley_result_name_voices(parley_result *result, const char *voices, double threshold) {
    constexpr double NEAR_ENOUGH = 0.8;  // test/voices/trials
    return guarded([&] {
        require(result && voices, "a result or voices are missing");
        require(threshold >= 0 && threshold <= 1, "the threshold lies between 0 and 1");
        name_voices(&result->inner, read_voices(voices), threshold > 0 ? threshold : NEAR_ENOUGH);
    });
}

parley_status parley_result_rename(parley_result *result, const char *path) {
    return guarded([&] {
        require(result && path, "a result or its path is missing");
        if (result->inner.file.empty()) result->inner.file = result->inner.path;
        name_recording(path, &result->inner);
    });
}

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
    const auto known = known_recognizers();
    return index >= 0 && index < static_cast<int32_t>(known.size()) ? &known[static_cast<size_t>(index)]
                                                                    : nullptr;
}

void parley_transcription_init(parley_transcription *how) {
    if (how) *how = {sizeof(*how), "pocketsphinx", nullptr, 0, 0, 0, PARLEY_WORDS_WHOLE_SENTENCES, NEAR_TURN};
}

parley_status parley_transcribe(parley_diarizer *diarizer, parley_result *result, const char *path,
                                const parley_transcription *given, const parley_options *options,
                                parley_progress progress, void *context) {
    return guarded([&] {
        require(diarizer && result && path, "a diarizer, a result or a path is missing");
        parley_transcription how;
        parley_transcription_init(&how);
        if (given) how = *given;
        require(how.size == sizeof(how), "a transcription was not made by parley_transcription_init");
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

const char *parley_result_model(const parley_result *result) {
    return of(result).model.c_str();
}

const char *parley_result_path(const parley_result *result) {
    return of(result).path.c_str();
}

parley_status parley_result_link_audio(parley_result *result, const char *url, int64_t embedded) {
    return guarded([&] {
        require(result && url, "a result or a URL is missing");
        result->inner.sound = url;
        if (embedded >= 0) result->inner.most_embedded = embedded;
    });
}

parley_status parley_url_of_path(const char *path, char **url) {
    return guarded([&] {
        require(path && url, "a path or the place for the URL is missing");
        *url = copied(url_of_path(path));
    });
}

const parley_format *parley_format_at(int32_t index) {
    return shown_at(output_formats(), index);
}

parley_status parley_write(const parley_result *result, const char *format, const parley_terminal *terminal,
                           parley_sink sink, void *context) {
    return guarded([&] {
        require(result && format && sink, "a result, a format or a sink is missing");
        const std::string text = write_format(of(result), format, terminal ? *terminal : parley_terminal{});
        if (!sink(context, text.data(), text.size()))
            throw diarization_error(PARLEY_CANCELLED, "writing was stopped");
    });
}

parley_status parley_write_text(const parley_result *result, const char *format, char **text, size_t *size) {
    return guarded([&] {
        require(result && format && text, "a result, a format or the place for the text is missing");
        *text = nullptr;
        hand_out(write_format(of(result), format, {}), text, size);
    });
}

void parley_free(void *block) {
    std::free(block);
}

void parley_clock(double seconds, char *text) {
    if (text) std::snprintf(text, 32, "%s", clock_time(seconds).c_str());
}

const char *parley_color(int32_t speaker) {
    return speaker_color(std::max(0, speaker));
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

parley_status parley_read_rttm(const char *text, size_t size, const char *name, parley_turn **turns,
                               int32_t *num_turns) {
    return guarded([&] {
        require(text && name && turns && num_turns, "a text, its name or the place for the turns is missing");
        *turns = nullptr;
        *num_turns = 0;
        std::istringstream stream(std::string(text, size));
        const rttm all = read_rttm(stream, name);
        if (all.size() > 1)
            throw diarization_error(PARLEY_INVALID, std::string(name) + ": holds several recordings");
        if (all.empty()) return;
        const std::vector<turn> &found = all.begin()->second;
        size_t bytes = found.size() * sizeof(parley_turn);  // names lie behind the records
        for (const turn &t : found) bytes += t.speaker.size() + 1;
        char *block = static_cast<char *>(std::malloc(bytes));
        if (!block) throw std::bad_alloc();
        auto *records = reinterpret_cast<parley_turn *>(block);
        char *names = block + found.size() * sizeof(parley_turn);
        for (size_t i = 0; i < found.size(); i++) {
            records[i] = {found[i].start, found[i].end, names};
            std::memcpy(names, found[i].speaker.c_str(), found[i].speaker.size() + 1);
            names += found[i].speaker.size() + 1;
        }
        *turns = records;
        *num_turns = static_cast<int32_t>(found.size());
    });
}

parley_status parley_match(const float *here, int32_t num_here, const float *there, int32_t num_there,
                           int32_t dimension, double threshold, int32_t *others, double *cosines) {
    return guarded([&] {
        require(num_here >= 0 && (here || num_here == 0) && num_there >= 0 && (there || num_there == 0) &&
                    others && cosines && dimension > 0,
                "voices or the places for the result are missing");
        require(threshold >= -1 && threshold <= 1, "the threshold lies between -1 and 1");
        const auto cosine = [dimension](const float *a, const float *b) {
            double product = 0, squares_a = 0, squares_b = 0;
            for (int32_t i = 0; i < dimension; i++) {
                product += double{a[i]} * double{b[i]};
                squares_a += double{a[i]} * double{a[i]};
                squares_b += double{b[i]} * double{b[i]};
            }
            return squares_a > 0 && squares_b > 0 ? product / std::sqrt(squares_a * squares_b) : 0.0;
        };
        std::vector<std::vector<double>> values(static_cast<size_t>(num_here));
        for (int32_t i = 0; i < num_here; i++) {
            for (int32_t j = 0; j < num_there; j++) {
                const double c = cosine(here + int64_t{i} * dimension, there + int64_t{j} * dimension);
                values[static_cast<size_t>(i)].push_back(std::max(0.0, c - threshold));
            }
        }
        const std::vector<int> mapping = best_assignment(values);
        for (int32_t i = 0; i < num_here; i++) {
            const int j = mapping[static_cast<size_t>(i)];
            const double above = j < 0 ? 0 : values[static_cast<size_t>(i)][static_cast<size_t>(j)];
            others[i] = above > 0 ? j : -1;
            cosines[i] = above > 0 ? above + threshold : 0;
        }
    });
}

parley_status parley_score_turns(const parley_turn *reference, int32_t num_reference,
                                 const parley_turn *hypothesis, int32_t num_hypothesis, const double *parts,
                                 int32_t num_parts, double collar, int32_t skip_overlap,
                                 parley_score *result) {
    return guarded([&] {
        require(result, "the place for the score is missing");
        check_collar(collar);
        std::vector<span> spans;
        for (int32_t i = 0; parts && i < num_parts; i++) spans.push_back({parts[2 * i], parts[2 * i + 1]});
        const score s =
            score_recording(turns_of(reference, num_reference), turns_of(hypothesis, num_hypothesis),
                            parts ? &spans : nullptr, {collar, skip_overlap != 0});
        *result = {s.speech,         s.missed,       s.false_alarm, s.confusion,
                   s.jaccard_errors, s.num_speakers, s.num_found};
    });
}

parley_status parley_score_text(const char *reference, const char *reference_name, const char *hypothesis,
                                const char *hypothesis_name, const char *uem_text, const double *collars,
                                int32_t num_collars, int32_t skip_overlap, int32_t each, char **text) {
    return guarded([&] {
        require(reference && reference_name && hypothesis && hypothesis_name && num_collars >= 0 &&
                    (collars || num_collars == 0) && text,
                "a reference, a hypothesis or the place for the table is missing");
        *text = nullptr;
        std::for_each(collars, collars + num_collars, check_collar);
        std::istringstream first(reference), second(hypothesis), third(uem_text ? uem_text : "");
        const rttm known = read_rttm(first, reference_name), found = read_rttm(second, hypothesis_name);
        const uem parts = read_uem(third, "UEM");
        *text = copied(score_table(known, found, uem_text ? &parts : nullptr,
                                   {collars, collars + num_collars}, skip_overlap != 0, each != 0));
    });
}

}  // extern "C"
