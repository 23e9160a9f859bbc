// A recording that is still going on: who speaks, as it comes.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <system_error>

#include "commands.h"
#include "files.h"
#include "model.h"
#include "room.h"
#include "room_options.h"
#include "terminal.h"
#include "voices.h"

namespace fs = std::filesystem;

namespace parley {

namespace {

using json = nlohmann::ordered_json;
using session_ptr = std::unique_ptr<parley_session, releaser<parley_session_delete>>;

struct arguments {
    std::string source = "-", model, voices, output_dir, color = "auto";
    std::vector<std::string> formats;
    int rate = 16000, channels = 1;
    double every = 1, share = 0.05;
    bool lines = false;
    room_options options;
};

volatile sig_atomic_t was_interrupted = 0;

// What comes through a pipe: raw samples of 16 bits, or a WAV file of such samples, which says their rate.
class source {
public:
    source(const std::string &path, int rate, int channels) : rate_(rate), channels_(channels) {
        file_ = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY);
        if (file_ < 0) throw std::system_error(errno, std::generic_category(), path);
        while (bytes_.size() < 12 && fill(-1)) {
        }
        if (bytes_.compare(0, 4, "RIFF") == 0 || bytes_.compare(0, 4, "RF64") == 0) read_header(path);
        for (const char *other : {"fLaC", "OggS", "ID3", "\x1A\x45\xDF\xA3"}) {
            if (bytes_.starts_with(other))
                throw std::runtime_error(path + ": is compressed; ffmpeg makes samples of it: ffmpeg -i " +
                                         path + " -f s16le -ac 1 -ar 16000 - | parley listen -");
        }
    }
    ~source() {
        if (file_ > STDIN_FILENO) close(file_);
    }
    source(const source &) = delete;
    source &operator=(const source &) = delete;

    int rate() const { return rate_; }
    int channels() const { return channels_; }
    bool has_ended() const { return has_ended_; }
    const std::string &failure() const { return failure_; }

    // Samples that came within so many milliseconds (-1: as long as it takes), whole frames of all channels.
    std::vector<int16_t> take(int wait) {
        fill(wait);
        const size_t frame = sizeof(int16_t) * static_cast<size_t>(channels_);
        const size_t size = bytes_.size() / frame * frame;
        std::vector<int16_t> samples(size / sizeof(int16_t));
        std::memcpy(samples.data(), bytes_.data(), size);
        bytes_.erase(0, size);
        return samples;
    }

private:
    bool fill(int wait) {
        pollfd asked = {file_, POLLIN, 0};
        const int ready = poll(&asked, 1, wait);
        if (ready <= 0) return ready == 0 || errno == EINTR;
        char block[1 << 16];
        const ssize_t got = read(file_, block, sizeof(block));
        if (got > 0) {
            bytes_.append(block, static_cast<size_t>(got));
            return true;
        }
        if (got < 0 && errno == EINTR) return true;
        if (got < 0) failure_ = std::strerror(errno);
        has_ended_ = true;
        return false;
    }

    uint32_t number(size_t at, size_t size) const {
        uint32_t value = 0;
        for (size_t i = size; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes_[at + i]);
        return value;
    }

    // Chunks up to the samples, which go on to the end of the stream whatever their size says.
    void read_header(const std::string &path) {
        const auto need = [&](size_t size) {
            while (bytes_.size() < size && fill(-1)) {
            }
            if (bytes_.size() < size) throw std::runtime_error(path + ": ends within its header");
        };
        for (size_t at = 12;; at += 8 + number(at + 4, 4) + number(at + 4, 4) % 2) {
            need(at + 8);
            if (bytes_.compare(at, 4, "data") == 0) {
                bytes_.erase(0, at + 8);
                return;
            }
            if (number(at + 4, 4) > 1 << 20) throw std::runtime_error(path + ": its header is damaged");
            need(at + 8 + number(at + 4, 4));
            if (bytes_.compare(at, 4, "fmt ") != 0) continue;
            need(at + 24);
            const uint32_t kind = number(at + 8, 2), bits = number(at + 22, 2);
            if ((kind != 1 && kind != 0xFFFE) || bits != 16)
                throw std::runtime_error(
                    path +
                    ": its samples are not of 16 bits: ffmpeg -i FILE -f s16le -ac 1 -ar 16000 - "
                    "makes such");
            channels_ = static_cast<int>(number(at + 10, 2));
            rate_ = static_cast<int>(number(at + 12, 4));
        }
    }

    int file_ = -1, rate_, channels_;
    std::string bytes_, failure_;
    bool has_ended_ = false;
};

// A segment as it was told, by a number that stays its own.
struct told_segment {
    int64_t number;
    double start, end;
    std::string speaker;
};

std::vector<told_segment> segments_of(const parley_result *result) {
    std::vector<told_segment> found;
    for (int32_t i = 0; i < parley_result_num_segments(result); i++) {
        const parley_segment s = parley_result_segment(result, i);
        const auto rounded = [](double seconds) { return std::round(seconds * 1000) / 1000; };
        found.push_back(
            {-1, rounded(s.start), rounded(s.end), parley_result_speaker(result, s.speaker).name});
    }
    return found;
}

// What became of the segments: those of the same speaker that overlap are the same.
class changes {
public:
    json tell(double heard, const parley_result *result) {
        std::vector<told_segment> now = segments_of(result);
        json added = json::array(), changed = json::array(), withdrawn = json::array();
        size_t first = 0;  // of those before that may overlap
        std::vector<bool> is_kept(before_.size());
        for (told_segment &s : now) {
            while (first < before_.size() && before_[first].end <= s.start && before_[first].start < s.start)
                first++;
            const told_segment *same = nullptr;
            for (size_t i = first > 8 ? first - 8 : 0; i < before_.size() && before_[i].start < s.end; i++) {
                if (is_kept[i] || before_[i].speaker != s.speaker || before_[i].end <= s.start) continue;
                same = &before_[i];
                is_kept[i] = true;
                break;
            }
            s.number = same ? same->number : next_++;
            const bool is_as_before = same && same->start == s.start && same->end == s.end;
            if (!is_as_before) (same ? changed : added).push_back(shown(s));
        }
        for (size_t i = 0; i < before_.size(); i++)
            if (!is_kept[i]) withdrawn.push_back(before_[i].number);
        before_ = std::move(now);
        json line = {{"heard", std::round(heard * 1000) / 1000}};
        if (!added.empty()) line["added"] = std::move(added);
        if (!changed.empty()) line["changed"] = std::move(changed);
        if (!withdrawn.empty()) line["withdrawn"] = std::move(withdrawn);
        return line;
    }

private:
    static json shown(const told_segment &s) {
        return {{"id", s.number}, {"start", s.start}, {"end", s.end}, {"speaker", s.speaker}};
    }

    std::vector<told_segment> before_;
    int64_t next_ = 1;
};

// The answer in place of the one before: as many lanes as there are, and the last few segments.
class screen {
public:
    screen(std::FILE *out, const parley_terminal &terminal) : out_(out), terminal_(terminal) {}

    void draw(const parley_result *result) {
        constexpr int ROWS = 8;  // of segments, the last ones
        const std::string table = write(result, "table", terminal_);
        std::vector<std::string> lines;
        for (size_t at = 0; at < table.size(); at = table.find('\n', at) + 1)
            lines.push_back(table.substr(at, table.find('\n', at) - at));
        const auto lanes = static_cast<size_t>(parley_result_num_speakers(result)) + 3;
        if (lines.size() > lanes + ROWS)
            lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(lanes), lines.end() - ROWS);
        if (drawn_ > 0) std::fprintf(out_, "\033[%zuA\033[J", drawn_);
        for (const std::string &line : lines) std::fprintf(out_, "%s\n", line.c_str());
        std::fflush(out_);
        drawn_ = lines.size();
    }

private:
    std::FILE *out_;
    parley_terminal terminal_;
    size_t drawn_ = 0;
};

void put_line(std::FILE *out, const json &line) {
    std::fprintf(out, "%s\n", line.dump(-1, ' ', false, json::error_handler_t::replace).c_str());
    std::fflush(out);
}

int run(const arguments &a) {
    std::FILE *out = take_standard_output();
    const parley_terminal terminal = terminal_of(out, a.color);
    const bool draws = !a.lines && is_terminal(out) && !is_dumb_terminal();
    const diarizer_ptr diarizer = open_model(a.model.empty() ? find_model() : a.model);
    struct sigaction stop {};
    stop.sa_handler = [](int) { was_interrupted = 1; };
    sigaction(SIGINT, &stop, nullptr);
    sigaction(SIGTERM, &stop, nullptr);

    source from(a.source, a.rate, a.channels);
    const std::string name = a.source == "-" ? "live" : fs::path(a.source).stem().string();
    parley_session *created = nullptr;
    check(
        parley_listen(diarizer.get(), name.c_str(), from.channels(), from.rate(), a.options.get(), &created));
    const session_ptr session(created);
    const std::string voices = a.voices.empty() ? "" : read_text(a.voices);
    screen lanes(out, terminal);
    changes since;
    const auto tell = [&](const parley_result *result) {
        if (draws) return lanes.draw(result);
        put_line(out, since.tell(parley_result_duration(result), result));
    };

    using clock = std::chrono::steady_clock;
    clock::time_point told = clock::now();
    int64_t heard = 0, told_at = 0;  // samples of a channel: a source faster than time is told by its own
    while (!from.has_ended() && !was_interrupted) {
        const std::vector<int16_t> samples = from.take(200);
        const auto frames = static_cast<int64_t>(samples.size()) / from.channels();
        check(parley_session_feed(session.get(), samples.data(), frames));
        heard += frames;
        const bool is_time = std::chrono::duration<double>(clock::now() - told).count() >= a.every &&
                             static_cast<double>(heard - told_at) >= a.every * from.rate();
        if (!is_time) continue;
        parley_result *state = nullptr;
        check(parley_session_update(session.get(), a.share, &state));
        const result_ptr owned(state);
        if (state) name_known(state, voices, 0);
        if (state) tell(state);
        told = clock::now();
        told_at = heard;
    }
    parley_result *answer = nullptr;
    check(parley_session_end(session.get(), &answer));
    const result_ptr owned(answer);
    name_known(answer, voices, 0);
    if (draws) {
        lanes.draw(answer);
    } else {
        json line = since.tell(parley_result_duration(answer), answer);
        line["final"] = true;
        put_line(out, line);
    }
    for (const std::string &format : a.formats) {
        const parley_format *known = find_format(format);
        fs::create_directories(a.output_dir);
        write_atomically((fs::path(a.output_dir) / (name + known->extension)).string(),
                         write(answer, known->name, {0, 0}));
    }
    close_standard_output(out);
    if (!from.failure().empty())
        throw std::runtime_error(a.source + ": " + from.failure() + "; what was heard before was kept");
    return EXIT_SUCCESS;
}

}  // namespace

command listen_command(CLI::App *app) {
    const auto a = std::make_shared<arguments>();
    app->description(
        "Tells who speaks while it is recorded: lanes on a terminal, elsewhere JSON lines of what changes.");
    app->add_option("SOURCE", a->source, "- (standard input) or a pipe: samples of 16 bits, or WAV")
        ->type_name("");
    app->add_option("--rate", a->rate, "of raw samples (16000)")
        ->check(CLI::Range(1, 1000000).description(""))
        ->type_name("HZ");
    app->add_option("--input-channels", a->channels, "of raw samples (1)")
        ->check(CLI::Range(1, 64).description(""))
        ->type_name("N");
    app->add_option("--every", a->every, "told at most that often (1)")
        ->check(CLI::Range(0.0, 3600.0).description(""))
        ->type_name("SECONDS");
    app->add_option("--share", a->share, "of a core for clustering again (0.05)")
        ->check(CLI::Range(0.0, 1.0).description(""))
        ->type_name("SHARE");
    app->add_flag("--lines", a->lines, "JSON lines on a terminal, too");
    app->add_option("-f,--format", a->formats, "of the answer's files")
        ->delimiter(',')
        ->type_name("NAME,...");
    app->add_option("-o,--output-dir", a->output_dir, "a file per format, there, at the end")
        ->type_name("DIR");
    a->options.define(app);
    app->add_option("--voices", a->voices, "known people (parley voices) get their names")->type_name("FILE");
    app->add_option("-m,--model", a->model, "the model (or $PARLEY_MODEL)")->type_name("FILE");
    app->add_option("--color", a->color, "auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
        ->type_name("WHEN");
    app->callback([a] {
        if (a->output_dir.empty() != a->formats.empty())
            throw CLI::ValidationError("--format and --output-dir go together");
        for (const std::string &format : a->formats)
            if (!find_format(format)) throw CLI::ValidationError("unknown format " + format);
    });
    return [a] { return run(*a); };
}

}  // namespace parley
