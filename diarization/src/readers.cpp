#include "readers.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <vector>

#if !defined(__EMSCRIPTEN__)
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include "channels.h"
#include "diarization.h"
#include "errors.h"

namespace {

zx_parley_samples_t owned_samples(const std::vector<int16_t> &from) {
    zx_parley_samples_t result;
    if (from.size() > INT32_MAX) throw diarization_error(PARLEY_INVALID, "more than 2^31 - 1 samples");
    result.own.reset(static_cast<int16_t *>(std::malloc((from.size() + 1) * sizeof(int16_t))));
    if (!result.own) throw std::bad_alloc();
    std::copy(from.begin(), from.end(), result.own.get());
    result.pcm = result.own.get();
    result.count = static_cast<int32_t>(from.size());
    return result;
}

// Whether a file begins like one of those that libsndfile knows surely. Anything else it takes for MP3, of
// which its decoder complains on standard error.
bool is_for_libsndfile(const std::string &path) {
    static constexpr std::string_view BEGINNINGS[] = {"RIFF", "RF64", "RIFX", "riff", "FORM",
                                                      "caff", ".snd", "fLaC", "OggS"};
    std::array<char, 4> bytes{};
    std::ifstream(path, std::ios::binary).read(bytes.data(), bytes.size());
    const std::string_view begin(bytes.data(), bytes.size());
    return std::find(std::begin(BEGINNINGS), std::end(BEGINNINGS), begin) != std::end(BEGINNINGS);
}

// The mean of all channels, rounded towards zero; empty where it is not to be had.
std::vector<int16_t> read_with_libsndfile(const std::string &path) {
    if (!is_for_libsndfile(path)) return {};
    std::vector<std::vector<int16_t>> channels = read_channels(path);
    for (size_t i = 0; channels.size() > 1 && i < channels.front().size(); i++) {
        int64_t sum = 0;
        for (const auto &channel : channels) sum += channel[i];
        channels.front()[i] = static_cast<int16_t>(sum / static_cast<int64_t>(channels.size()));
    }
    return std::move(channels.front());
}

#if !defined(__EMSCRIPTEN__)

// ffmpeg as a child whose output is read through a pipe. It opens this one file and nothing else: playlists
// and what else names other files are not among the formats, and the network is not among the protocols.
class ffmpeg_process {
public:
    explicit ffmpeg_process(const std::string &path) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return;
        output_ = ends[0];
        const std::string input = "file:" + path;
        std::vector<std::string> words = {"ffmpeg",
                                          "-nostdin",
                                          "-v",
                                          "quiet",
                                          "-protocol_whitelist",
                                          "file,pipe",
                                          "-format_whitelist",
                                          FORMATS,
                                          "-i",
                                          input,
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
        std::vector<char *> arguments;
        for (std::string &word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        if (posix_spawnp(&child_, "ffmpeg", &actions, nullptr, arguments.data(), environ) != 0) child_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
    }
    ~ffmpeg_process() {
        if (output_ >= 0) close(output_);  // a child that still writes ends by it
        if (child_ > 0) waitpid(child_, nullptr, 0);
    }
    ffmpeg_process(const ffmpeg_process &) = delete;
    ffmpeg_process &operator=(const ffmpeg_process &) = delete;

    // Bytes read; 0 at the end and where there is no ffmpeg.
    size_t read(void *to, size_t size) const {
        if (child_ < 0) return 0;
        for (;;) {
            const ssize_t got = ::read(output_, to, size);
            if (got >= 0 || errno != EINTR) return got > 0 ? static_cast<size_t>(got) : 0;
        }
    }

private:
    static constexpr const char *FORMATS =
        "aac,ac3,aiff,amr,amrnb,amrwb,ape,asf,au,avi,caf,eac3,flac,flv,gsm,loas,matroska,mov,mp3,mpeg,mpegts,"
        "ogg,tta,w64,wav,wv";
    int output_ = -1;
    pid_t child_ = -1;
};

// Empty where it may not be asked.
std::vector<int16_t> read_with_ffmpeg(const read_request &request) {
    if (request.ffmpeg == ffmpeg_use::never) return {};
    const ffmpeg_process process(request.path);
    std::vector<int16_t> result;
    size_t bytes = 0;
    for (;;) {
        constexpr size_t BLOCK = size_t{1} << 16;
        result.resize((bytes + BLOCK) / sizeof(int16_t) + 1);
        const size_t got = process.read(reinterpret_cast<char *>(result.data()) + bytes, BLOCK);
        if (got == 0) break;
        bytes += got;
        if (static_cast<int64_t>(bytes / sizeof(int16_t)) > request.most) break;  // told by the caller
        if (request.progress && !request.progress(0))
            throw diarization_error(PARLEY_CANCELLED, request.path + ": was cancelled");
    }
    result.resize(bytes / sizeof(int16_t));
    return result;
}

#else

std::vector<int16_t> read_with_ffmpeg(const read_request &) {
    return {};
}

#endif

std::string seconds_of(int64_t count) {
    const int64_t tenths = (count * 10 + RATE / 2) / RATE;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
}

// What others make of a file that the engine's own readers refuse; empty if nothing.
std::vector<int16_t> read_with_others(const read_request &request, std::string *note) {
    std::vector<int16_t> samples;
    try {
        samples = read_with_libsndfile(request.path);
    } catch (const diarization_error &) {
    }
    const char *reader = "libsndfile";
    if (samples.empty()) {
        samples = read_with_ffmpeg(request);
        reader = "ffmpeg";
    }
    if (!samples.empty())
        add_note(note, std::string("read by ") + reader + ", since the own readers refuse the file");
    return samples;
}

// Where a container and its decoder disagree about the time that the audio takes. With the two rates of
// HE-AAC the container names the lower and the decoder gives the higher: everything seems to take twice as
// long.
void settle_duration(const read_request &request, zx_parley_samples_t *samples, std::string *note) {
    const double media = samples->media_seconds, read = static_cast<double>(samples->count) / RATE;
    if (media <= 0 || std::abs(read - media) < std::max(1.0, 0.03 * media)) return;
    if (std::abs(read / 2 - media) < std::max(0.5, 0.03 * media)) {
        *samples = owned_samples(resample(samples->pcm, samples->count, 2 * RATE, RATE));
        add_note(note, "HE-AAC: taken at the decoder's rate, twice the one that the file names");
        return;
    }
    const std::vector<int16_t> others = read_with_ffmpeg(request);
    if (std::abs(static_cast<double>(others.size()) / RATE - media) < std::abs(read - media)) {
        *samples = owned_samples(others);
        add_note(note, "read by ffmpeg, since the own reader finds another length than the file names");
    } else {
        add_note(note, "the file names a length of " + seconds_of(std::llround(media * RATE)) +
                           " but holds " + seconds_of(samples->count) + ": times may be wrong");
    }
}

}  // namespace

read_request::read_request(const std::string &file, const parley_options &options,
                           const progress_function &callback)
    : path(file),
      ffmpeg(static_cast<ffmpeg_use>(options.via_ffmpeg)),
      most(options.max_duration > 0 && options.max_duration < static_cast<double>(INT32_MAX) / RATE
               ? std::llround(options.max_duration * RATE)
               : INT32_MAX),
      progress(callback) {}

zx_parley_samples_t read_any(engine *own, const read_request &request, std::string *note) {
    zx_parley_samples_t result;
    if (request.ffmpeg == ffmpeg_use::at_once) result = owned_samples(read_with_ffmpeg(request));
    if (result.count == 0) {
        try {
            result = own->read(request.path, request.most, request.progress);
            if (result.count <= request.most) settle_duration(request, &result, note);
        } catch (const diarization_error &refusal) {
            if (refusal.status != PARLEY_INVALID && refusal.status != PARLEY_UNREADABLE) throw;
            const std::vector<int16_t> samples = read_with_others(request, note);
            result = samples.empty() ? own->read_what_is_there(request.path, request.progress)
                                     : owned_samples(samples);
            if (result.count < ZX_PARLEY_FRAME_LENGTH) throw;
            if (refusal.status == PARLEY_UNREADABLE)
                add_note(note,
                         "damaged or cut short: the first " + seconds_of(result.count) + " could be read");
        }
    }
    if (result.count > request.most)
        throw diarization_error(
            PARLEY_INVALID, request.path + ": is longer than the " + seconds_of(request.most) + " allowed");
    return result;
}
