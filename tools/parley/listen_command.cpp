// SPDX-License-Identifier: Apache-2.0
// A recording that is still going on: who speaks, as it comes.

#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "command_options.h"
#include "commands.h"
#include "files.h"
#include "library.h"
#include "microphone.h"
#include "model.h"
#include "renaming.h"
#include "source.h"
#include "system.h"
#include "terminal.h"
#include "voices.h"

namespace fs = std::filesystem;

namespace parley {

namespace listening {
namespace {

using json = nlohmann::ordered_json;
using session_ptr = std::unique_ptr<parley_session, releaser<parley_session_delete>>;

struct arguments {
    std::string source, device, model, voices, output_dir, color = "auto";
    std::vector<std::string> formats;
    int rate = 16000, channels = 1;
    double every = 1, share = 0.05;
    bool lines = false;
    command_options options;
};

volatile std::sig_atomic_t was_interrupted = 0;

// A segment as it was told, by a number that stays its own.
struct reported_segment : named_segment {
    int64_t number;
};

std::vector<reported_segment> segments_of(const parley_result *result) {
    std::vector<reported_segment> found;
    for (int32_t i = 0; i < parley_result_num_segments(result); i++) {
        const parley_segment s = parley_result_segment(result, i);
        const auto rounded = [](double seconds) { return std::round(seconds * 1000) / 1000; };
        found.push_back(
            {{rounded(s.start), rounded(s.end), parley_result_speaker(result, s.speaker).name}, -1});
    }
    return found;
}

// What became of the segments: those of the same speaker that overlap are the same.
class changes {
public:
    json report(double heard, const parley_result *result) {
        std::vector<reported_segment> now = segments_of(result);
        json added = json::array(), changed = json::array(), withdrawn = json::array();
        size_t first = 0;  // of those before that may overlap
        std::vector<bool> is_kept(before_.size());
        for (reported_segment &s : now) {
            while (first < before_.size() && before_[first].end <= s.start && before_[first].start < s.start)
                first++;
            const reported_segment *same = nullptr;
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
        renamed_ = renamed_speakers({before_.begin(), before_.end()}, {now.begin(), now.end()});
        before_ = std::move(now);
        json line = {{"heard", std::round(heard * 1000) / 1000}};
        if (!added.empty()) line["added"] = std::move(added);
        if (!changed.empty()) line["changed"] = std::move(changed);
        if (!withdrawn.empty()) line["withdrawn"] = std::move(withdrawn);
        return line;
    }

    // Who has another name since the last call than before: by the old name, the new one.
    const std::map<std::string, std::string> &renamed() const { return renamed_; }

private:
    static json shown(const reported_segment &s) {
        return {{"id", s.number}, {"start", s.start}, {"end", s.end}, {"speaker", s.speaker}};
    }

    std::vector<reported_segment> before_;
    std::map<std::string, std::string> renamed_;
    int64_t next_ = 1;
};

// The result in place of the one before: as many lanes as there are, and the last few segments.
class screen {
public:
    screen(std::FILE *out, const parley_terminal &terminal) : out_(out), terminal_(terminal) {}

    void draw(const parley_result *result) {
        constexpr int ROWS = 8;                         // of segments, the last ones
        terminal_.columns = columns_of_terminal(out_);  // which may have been resized
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

int list_devices() {
    const std::vector<std::string> names = recording_devices();
    for (const std::string &name : names) std::printf("%s\n", printable(name).c_str());
    if (names.empty())
        throw std::runtime_error("there is no recording device, or this build does not know any");
    return EXIT_SUCCESS;
}

int run(const arguments &a) {
    std::FILE *out = take_standard_output();
    const parley_terminal terminal = terminal_of(out, a.color);
    const bool draws = !a.lines && is_terminal(out) && !is_dumb_terminal();
    const diarizer_ptr diarizer = open_given_model(a.model);
#if defined(SIGPIPE)
    std::signal(SIGPIPE, SIG_IGN);  // of a decoder that has ended
#endif
    std::unique_ptr<microphone> recorder;
    if (a.source.empty()) recorder = std::make_unique<microphone>(a.device);
    const auto opened = recorder ? std::make_unique<source>(recorder->descriptor(), recorder->rate())
                                 : std::make_unique<source>(a.source, a.rate, a.channels);
    source &from = *opened;
    if (recorder && draws) std::fprintf(out, "listening; Ctrl+C ends it\n");
    // Before there is any result an interruption just ends the program.
    for (const int signal : {SIGINT, SIGTERM}) std::signal(signal, [](int) { was_interrupted = 1; });
    const std::string name = recorder || a.source == "-" ? "live" : stem_of(a.source);
    parley_session *created = nullptr;
    check(
        parley_listen(diarizer.get(), name.c_str(), from.channels(), from.rate(), a.options.get(), &created));
    const session_ptr session(created);
    const std::string voices = read_voices(a.voices);
    screen lanes(out, terminal);
    changes since;
    const auto emit = [&](const parley_result *result) {
        const json line = since.report(parley_result_duration(result), result);
        draws ? lanes.draw(result) : put_line(out, line);
    };

    using clock = std::chrono::steady_clock;
    clock::time_point emitted = clock::now();
    int64_t heard = 0, emitted_at = 0;  // samples of a channel: a source faster than time is told by its own
    while (!from.has_ended() && !was_interrupted) {
        const std::vector<int16_t> samples = from.take(200);
        const auto frames = static_cast<int64_t>(samples.size()) / from.channels();
        check(parley_session_feed(session.get(), samples.data(), frames));
        heard += frames;
        const bool is_time = std::chrono::duration<double>(clock::now() - emitted).count() >= a.every &&
                             static_cast<double>(heard - emitted_at) >= a.every * from.rate();
        if (!is_time) continue;
        parley_result *state = nullptr;
        check(parley_session_update(session.get(), a.share, &state));
        const result_ptr owned(state);
        if (state) name_known(state, voices, 0);
        if (state) emit(state);
        emitted = clock::now();
        emitted_at = heard;
    }
    parley_result *result = nullptr;
    if (const std::string file = from.whole(); file.empty()) {
        check(parley_session_end(session.get(), &result));
    } else {
        check(parley_diarize_file(diarizer.get(), file.c_str(), a.options.get(), nullptr, nullptr, &result));
        check(parley_result_rename(result, name.c_str()));
    }
    const result_ptr owned(result);
    name_known(result, voices, 0);
    json line = since.report(parley_result_duration(result), result);
    if (draws) {
        lanes.draw(result);
        for (const auto &[before, now] : since.renamed())
            std::fprintf(out, "%s was %s so far\n", printable(now).c_str(), printable(before).c_str());
    } else {
        if (!since.renamed().empty()) line["renamed"] = since.renamed();
        line["final"] = true;
        put_line(out, line);
    }
    for (const parley_format *format : formats_named(a.formats)) {
        fs::create_directories(path_of(a.output_dir));
        write_atomically(text_of(path_of(a.output_dir) / path_of(name + format->extension)),
                         write(result, format->name, {0, 0}));
    }
    close_standard_output(out);
    if (!from.failure().empty())
        throw std::runtime_error(a.source + ": " + from.failure() + "; what was heard before was kept");
    return EXIT_SUCCESS;
}

}  // namespace
}  // namespace listening

command listen_command(CLI::App *app) {
    using namespace listening;
    const auto a = std::make_shared<arguments>();
    app->description("Prints who speaks while it is recorded.");
    app->add_option("SOURCE", a->source, "- (standard input) or a pipe: 16-bit samples, WAV")->type_name("");
    app->add_option("--device", a->device, "recording device by its name; list prints them")
        ->type_name("NAME");
    app->add_option("--rate", a->rate, "sample rate of raw samples (16000)")
        ->check(CLI::Range(1, 1000000).description(""))
        ->type_name("HZ");
    app->add_option("--input-channels", a->channels, "number of channels of raw samples (1)")
        ->check(CLI::Range(1, int{PARLEY_MAX_CHANNELS}).description(""))
        ->type_name("N");
    app->add_option("--every", a->every, "time between two updates (1)")
        ->check(CLI::Range(0.0, 3600.0).description(""))
        ->type_name("SECONDS");
    app->add_option("--share", a->share, "share of a core for clustering again (0.05)")
        ->check(CLI::Range(0.0, 1.0).description(""))
        ->type_name("SHARE");
    app->add_flag("--lines", a->lines, "print JSON lines on a terminal, too");
    app->add_option("-f,--format", a->formats, "formats of the files written at the end")
        ->delimiter(',')
        ->type_name("NAME,...");
    app->add_option("-o,--output-dir", a->output_dir, "folder for these files")->type_name("DIR");
    a->options.define(app, {"speakers", "names"});
    define_files(app, &a->voices, &a->model);
    app->add_option("--color", a->color, "colours: auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
        ->type_name("WHEN");
    app->footer(
        "Without SOURCE, and at a terminal, the microphone is heard. Lanes are drawn on a\n"
        "terminal, elsewhere JSON lines tell what changes.");
    app->callback([a] {
        if (a->output_dir.empty() != a->formats.empty())
            throw CLI::ValidationError("--format and --output-dir go together");
        (void) formats_named(a->formats);
    });
    return [a] {
        if (a->device == "list") return list_devices();
        if (!a->source.empty() && !a->device.empty())
            throw CLI::ValidationError("a source or --device, not both");
        if (a->source.empty() && a->device.empty() && !is_terminal(stdin)) a->source = "-";
        if (a->source.empty() && a->device.empty() && recording_devices().empty())
            throw CLI::ValidationError(
                "nothing comes in, and there is no microphone: pipe samples, as in "
                "arecord -q -f S16_LE -r 16000 | parley listen");
        return run(*a);
    };
}

}  // namespace parley
