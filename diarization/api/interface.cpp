// SPDX-License-Identifier: Apache-2.0
// The C interface (parley.h) over the C++ of the library, of which no exception leaves it: running, results,
// formats. interface_words.cpp has transcripts and results from files, interface_tools.cpp what is done with
// results.

#include "interface.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <string_view>

#include "formats.h"
#include "media.h"
#include "options.h"
#include "session.h"
#include "system.h"
#include "zx_parley.h"

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

void fill(const scratch_file &file, const void *data, size_t size) {
    if (!write_all(file.descriptor(), data, size))
        throw diarization_error(PARLEY_FAILED, file.path() + ": cannot be written");
}

std::string find_model() {
    if (const char *path = std::getenv("PARLEY_MODEL"); path && *path) return path;
    const std::filesystem::path library = path_of(library_path());
    for (const char *folder : {".", "../share/parley", "../../share/parley"}) {  // lib may have folders in it
        std::error_code error;  // not by names alone: /lib may be a link to /usr/lib
        const std::filesystem::path model =
            std::filesystem::canonical(library.parent_path() / folder / "parley.zx", error);
        if (!library.empty() && !error) return text_of(model);
    }
    throw diarization_error(PARLEY_MISSING, "no model parley.zx is installed: name one, or set PARLEY_MODEL");
}

void name_recording(const std::string &path, diarization *result) {
    result->path = path;
    result->recording = path == "-" ? "stdin" : stem_of(path);
}

void check_channels(int32_t num_channels) {
    require(num_channels >= 1 && num_channels <= PARLEY_MAX_CHANNELS,
            ("there are 1 to " + std::to_string(PARLEY_MAX_CHANNELS) + " channels").c_str());
}

}  // namespace

parley_options known_options(const parley_options *given) {
    return known_record(default_options(), given);
}

progress_function rising(parley_progress progress, void *context) {
    if (!progress) return nullptr;
    return [progress, context, highest = 0.0](double done) mutable {
        highest = std::max(highest, std::min(done, 1.0));
        return progress(context, highest) != 0;
    };
}

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

const diarization &of(const parley_result *result) {
    static const diarization none;
    return result ? result->inner : none;
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

void parley_options_init(parley_options *options, size_t size) {
    fill_record(default_options(), size, options);
}

const parley_option *parley_option_at(int32_t index) {
    return option_at(index);
}

parley_status parley_options_set(parley_options *options, const char *name, const char *value) {
    return guarded([&] {
        require(options && name && value, "an option, its name or its value is missing");
        parley_options changed = known_options(options);
        set_option(&changed, name, value);
        put_record(changed, options->size, options);
    });
}

parley_status parley_options_check(const parley_options *options) {
    return guarded([&] { check_options(known_options(options)); });
}

parley_status parley_find_model(char **path) {
    return guarded([&] {
        require(path, "the place for the path is missing");
        *path = nullptr;
        *path = copied(find_model());
    });
}

parley_status parley_open(const char *model_path, parley_diarizer **diarizer) {
    return guarded([&] {
        require(diarizer, "the place for the diarizer is missing");
        *diarizer = nullptr;
        *diarizer = new parley_diarizer(model_path ? model_path : find_model());
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

parley_status parley_write_embeddings(const parley_result *result, char **bytes, size_t *size) {
    return guarded([&] {
        require(result && bytes && size, "a result or the place for its embeddings is missing");
        *bytes = nullptr;
        hand_out(embeddings_of(result->inner), bytes, size);
    });
}

parley_status parley_read_embeddings(parley_diarizer *diarizer, const void *bytes, size_t size,
                                     const char *path, const parley_options *options,
                                     parley_result **result) {
    return guarded([&] {
        require(diarizer && bytes && path && result,
                "a diarizer, embeddings, a path or the place for the result is missing");
        *result = nullptr;
        *result = new parley_result{diarizer->inner.recluster_file({static_cast<const char *>(bytes), size},
                                                                   path, known_options(options))};
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

parley_status parley_result_rename(parley_result *result, const char *path) {
    return guarded([&] {
        require(result && path, "a result or its path is missing");
        if (result->inner.file.empty()) result->inner.file = result->inner.path;
        name_recording(path, &result->inner);
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
        if (embedded >= 0) result->inner.max_embedded = embedded;
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

}  // extern "C"
