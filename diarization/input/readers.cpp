// SPDX-License-Identifier: Apache-2.0
#include "readers.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <vector>

#include "channels.h"
#include "errors.h"
#include "joined.h"
#include "readable_file.h"
#include "result.h"
#include "sample_buffer.h"
#include "system.h"

namespace {

// Whether a file begins like one of those that libsndfile knows surely. Anything else it takes for MP3, of
// which its decoder complains on standard error.
bool is_for_libsndfile(const std::string &path) {
    static constexpr std::string_view BEGINNINGS[] = {"RIFF", "RF64", "RIFX", "riff", "FORM",
                                                      "caff", ".snd", "fLaC", "OggS"};
    return std::find(std::begin(BEGINNINGS), std::end(BEGINNINGS), kind_of_file(path)) !=
           std::end(BEGINNINGS);
}

// ffmpeg as a child that opens this one file and nothing else: playlists and what else names other files are
// not among the formats, and the network is not among the protocols.
std::vector<std::string> ffmpeg_for(const std::string &path) {
    static constexpr const char *FORMATS =
        "aac,ac3,aiff,amr,amrnb,amrwb,ape,asf,au,avi,caf,dts,eac3,flac,flv,gsm,loas,matroska,mov,mp3,mpeg,"
        "mpegts,ogg,rm,truehd,tta,voc,w64,wav,wv";
    return {"ffmpeg",
            "-nostdin",
            "-v",
            "quiet",
            "-protocol_whitelist",
            "file,pipe",
            "-format_whitelist",
            FORMATS,
            "-i",
            "file:" + path,
            "-map",
            "0:a:0",
            "-vn",
            "-ac",
            "1",
            "-ar",
            std::to_string(RATE),
            "-f",
            "s16le",
            "pipe:1"};
}

// Nothing where it may not be asked or is not there.
zx_parley_samples_t read_with_ffmpeg(const read_request &request) {
    if (request.ffmpeg == ffmpeg_use::never) return {};
    const child_process ffmpeg(ffmpeg_for(request.path), false);
    if (!ffmpeg.has_started()) return {};
    sample_buffer samples;
    std::vector<int16_t> block(1 << 15);
    auto *bytes = reinterpret_cast<char *>(block.data());
    size_t held = 0;  // bytes: a pipe may give half a sample
    for (std::ptrdiff_t got;
         (got = read_some(ffmpeg.output(), bytes + held, block.size() * sizeof(int16_t) - held)) > 0;) {
        held += static_cast<size_t>(got);
        const size_t whole = held / sizeof(int16_t);
        samples.append({block.data(), whole});
        held %= sizeof(int16_t);
        std::copy_n(bytes + whole * sizeof(int16_t), held, bytes);
        if (static_cast<int64_t>(samples.count()) > request.max_samples)
            refuse_length(request.path, request.max_samples);
        if (request.progress && !request.progress(0))
            throw diarization_error(PARLEY_CANCELLED, request.path + ": was cancelled");
    }
    return samples.release();
}

// What others make of a file that the engine's own readers refuse; maybe nothing.
zx_parley_samples_t read_with_others(const read_request &request, std::string *note) {
    zx_parley_samples_t samples;
    try {
        if (is_for_libsndfile(request.path)) samples = read_mixed(request.path, request.max_samples);
    } catch (const diarization_error &) {
    }
    const char *reader = "libsndfile";
    if (samples.count == 0) {
        samples = read_with_ffmpeg(request);
        reader = "ffmpeg";
    }
    if (samples.count > 0)
        add_note(note, std::string("read by ") + reader + ", since the own readers refuse the file");
    return samples;
}

// Where a container and its decoder disagree about the time that the audio takes. With the two rates of
// HE-AAC the container names the lower and the decoder gives the higher: everything seems to take twice as
// long.
void settle_duration(engine *own, const read_request &request, zx_parley_samples_t *samples,
                     std::string *note) {
    const double media = samples->media_seconds, read = static_cast<double>(samples->count) / RATE;
    if (media <= 0 || std::abs(read - media) < std::max(0.25, 0.03 * media)) return;
    if (std::abs(read / 2 - media) < std::max(0.5, 0.03 * media)) {
        *samples = own->read_samples(request.path, request.progress);
        sample_buffer halved;
        halved.append(resample({samples->pcm, static_cast<size_t>(samples->count)}, 2 * RATE, RATE));
        *samples = halved.release();
        add_note(note, "HE-AAC: taken at the decoder's rate, twice the one that the file names");
        return;
    }
    zx_parley_samples_t others = read_with_ffmpeg(request);
    if (std::abs(static_cast<double>(others.count) / RATE - media) < std::abs(read - media)) {
        *samples = std::move(others);
        add_note(note, "read by ffmpeg, since the own reader finds another length than the file names");
    } else {
        add_note(note, "the file names a length of " + seconds_of(std::llround(media * RATE)) +
                           " but holds " + seconds_of(samples->count) + ": times may be wrong");
    }
}

// Where rate or channels change on the way the own readers would give noise.
zx_parley_samples_t read_joined(const read_request &request, std::string *note) {
    constexpr const char *WHAT = "joined from recordings of different rates or channels";
    zx_parley_samples_t samples = read_with_ffmpeg(request);
    if (samples.count == 0) {
        throw diarization_error(PARLEY_INVALID,
                                request.path + ": is " + WHAT + "; ffmpeg converts it: " + HOW_TO_CONVERT);
    }
    add_note(note, std::string(WHAT) + ": read by ffmpeg");
    return samples;
}

}  // namespace

int64_t longest_of(const parley_options &options) {
    constexpr double ANY = static_cast<double>(INT32_MAX) / RATE;
    return options.max_duration > 0 && options.max_duration < ANY ? std::llround(options.max_duration * RATE)
                                                                  : INT32_MAX;
}

read_request::read_request(const std::string &file, const parley_options &options,
                           const progress_function &callback, waveform_drawer *drawer)
    : path(file),
      ffmpeg(static_cast<ffmpeg_use>(options.via_ffmpeg)),
      max_samples(longest_of(options)),
      progress(callback),
      waveform(drawer) {}

zx_parley_samples_t read_any(engine *own, const read_request &request, std::string *note) {
    check_is_readable(request.path, request.path);
    zx_parley_samples_t result;
    if (request.ffmpeg == ffmpeg_use::at_once) result = read_with_ffmpeg(request);
    if (result.count == 0 && changes_on_the_way(request.path)) result = read_joined(request, note);
    if (result.count == 0) {
        try {
            result = request.as_samples
                         ? own->read_samples(request.path, request.progress)
                         : own->read(request.path, request.max_samples, request.progress, request.waveform);
            if (result.count <= request.max_samples) settle_duration(own, request, &result, note);
            if (is_for_libsndfile(request.path)) add_note(note, note_on_mixing(request.path));
        } catch (const diarization_error &refusal) {
            if (refusal.status == PARLEY_CANCELLED || refusal.status == PARLEY_OUT_OF_MEMORY) throw;
            result = read_with_others(request, note);
            if (result.count == 0) result = own->read_what_is_there(request.path, request.progress);
            if (result.count < ZX_PARLEY_FRAME_LENGTH && is_text(request.path))
                throw diarization_error(PARLEY_INVALID, request.path + ": is text, not audio");
            if (result.count < ZX_PARLEY_FRAME_LENGTH) throw;
            if (refusal.status == PARLEY_UNREADABLE)
                add_note(note,
                         "damaged or cut short: the first " + seconds_of(result.count) + " could be read");
        }
    }
    if (result.count > request.max_samples) refuse_length(request.path, request.max_samples);
    return result;
}
