#include "diarize_command.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "batch.h"
#include "console.h"
#include "diarizer.h"
#include "formats.h"
#include "zx_parley.h"

namespace fs = std::filesystem;

namespace {

struct arguments {
    std::vector<std::string> files, manifests, formats;
    std::string model, output_dir, color = "auto", channels = "mix";
    int speakers = 0;
    int jobs = 1;
    bool resume = false, verbose = false, quiet = false, confidence = false, embeddings = false;
    std::vector<float> thresholds;
    controls wishes;
};

// Checks of CLI11 without what they would add to the help.
CLI::Validator within(double low, double high) {
    return CLI::Range(low, high).description("");
}

// The two columns of help fit a terminal of 80 and a screen of 50 lines.
void define(CLI::App *app, arguments *a) {
    app->add_option("AUDIO", a->files, "files, folders, patterns; - is standard input")->type_name("");
    const auto list = [app](const char *name, auto *values, const char *what) {
        return app->add_option(name, *values, what)->allow_extra_args(false);
    };
    list("--manifest", &a->manifests, "a list of these, one a line")->type_name("FILE");
    list("-f,--format", &a->formats, "how to write the answer, see below")
        ->delimiter(',')
        ->type_name("NAME,...");
    app->add_option("-o,--output-dir", a->output_dir, "a file per recording and format, there")
        ->type_name("DIR");
    app->add_option("-j,--jobs", a->jobs, "recordings at a time")->check(within(1, 256))->type_name("N");
    app->add_flag("--resume", a->resume, "leave out recordings whose files are there");
    const auto number = [app](const char *name, int *value, const char *what) {
        app->add_option(name, *value, what)->check(within(1, 1000))->type_name("N");
    };
    number("-n,--speakers", &a->speakers, "exactly that many speakers");
    number("--min-speakers", &a->wishes.min_speakers, "at least");
    number("--max-speakers", &a->wishes.max_speakers, "at most");
    list("--threshold", &a->thresholds, "offline, prune, segment, background threshold")
        ->delimiter(',')
        ->check(within(0, 1))
        ->type_name("O,P,S,B");
    app->add_option("--channels", a->channels, "mix them (default), or split: each is a speaker")
        ->check(CLI::IsMember({"mix", "split"}).description(""))
        ->type_name("HOW");
    const auto seconds = [app](const char *name, double *value, const char *what) {
        app->add_option(name, *value, what)->check(within(0, 3600))->type_name("SECONDS");
    };
    seconds("--merge-gap", &a->wishes.merge_gap, "join a speaker's segments that close");
    seconds("--min-duration", &a->wishes.min_duration, "drop shorter segments");
    seconds("--pad", &a->wishes.pad, "lengthen segments where there is room");
    app->add_option("--speaker-prefix", a->wishes.speaker_prefix, "before the number of a speaker")
        ->type_name("TEXT");
    list("--names", &a->wishes.names, "of the first speakers heard")->delimiter(',')->type_name("A,B,...");
    app->add_flag("--confidence", a->confidence, "tell how sure each segment's speaker is");
    app->add_flag("--embeddings", a->embeddings, "add speakers' vectors to JSON");
    app->add_option("-m,--model", a->model, "the model (or $PARLEY_MODEL)")->type_name("FILE");
    app->add_option("--color", a->color, "auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
        ->type_name("WHEN");
    app->add_flag("-q,--quiet", a->quiet, "no progress");
    app->add_flag("-v,--verbose", a->verbose, "the engine's own log on standard error");
}

std::string footer() {
    std::string text = "Formats:\n";
    for (const output_format &f : output_formats()) {
        std::string name = std::string("  ") + f.name;
        name.resize(12, ' ');
        text += name + f.purpose + "\n";
    }
    return text +
           "\nOther commands: parley score, parley assign, parley match; --help tells of each.\n"
           "Exit status: 0 all recordings were diarized, 1 the model or a recording failed,\n"
           "2 the command line is wrong.";
}

// Standard input as a file, for as long as it is needed.
class spooled_input {
public:
    spooled_input() : path_((fs::temp_directory_path() / "parley.XXXXXX").string()) {
        const int file = mkstemp(path_.data());
        if (file < 0) throw std::system_error(errno, std::generic_category(), path_);
        char block[1 << 16];
        ssize_t got = 0;
        bool written = true;
        while (written && (got = read(STDIN_FILENO, block, sizeof(block))) > 0)
            written = write(file, block, static_cast<size_t>(got)) == got;
        close(file);
        if (got < 0 || !written) throw std::system_error(errno, std::generic_category(), "standard input");
    }
    ~spooled_input() { std::remove(path_.c_str()); }
    spooled_input(const spooled_input &) = delete;
    spooled_input &operator=(const spooled_input &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

// One line on a terminal that says how far the work is.
class progress {
public:
    progress(size_t total, bool shown)
        : total_(total), shown_(shown), start_(std::chrono::steady_clock::now()) {}
    void done(double seconds_of_audio) {
        done_++;
        audio_ += seconds_of_audio;
        if (!shown_) return;
        const double spent = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
        const double left = spent / static_cast<double>(done_) * static_cast<double>(total_ - done_);
        std::fprintf(stderr, "\r\033[K%zu/%zu recordings, %.0f times real time, %s left", done_, total_,
                     spent > 0 ? audio_ / spent : 0, clock_time(std::round(left)).c_str());
    }
    void clear() const {
        if (shown_) std::fputs("\r\033[K", stderr);
    }

private:
    size_t total_, done_ = 0;
    bool shown_;
    double audio_ = 0;
    std::chrono::steady_clock::time_point start_;
};

std::string file_of(const arguments &a, const recording_file &recording, const output_format &format) {
    return (fs::path(a.output_dir) / (recording.output + format.extension)).string();
}

class batch {
public:
    batch(const arguments &a, std::vector<const output_format *> formats,
          std::vector<recording_file> recordings, std::FILE *out)
        : a_(a),
          formats_(std::move(formats)),
          recordings_(std::move(recordings)),
          out_(out),
          look_(terminal_of(out, a.color)),
          progress_(recordings_.size(), !a.quiet && recordings_.size() > 1 && is_terminal(stderr) &&
                                            (!a.output_dir.empty() || !is_terminal(out))) {}

    // The number of recordings that failed.
    size_t run() {
        const auto workers =
            static_cast<int>(std::min<size_t>(static_cast<size_t>(a_.jobs), recordings_.size()));
        for (int w = 0; w < workers; w++) engines_.push_back(std::make_unique<diarizer>(a_.model));
        run_workers(workers, recordings_.size(), [this](int worker, size_t item) { one(worker, item); });
        progress_.clear();
        return failed_;
    }

private:
    void one(int worker, size_t item) {
        const recording_file &recording = recordings_[item];
        double seconds = 0;
        std::string text;
        bool failed = true;
        try {
            if (!is_there(recording)) text = diarize(worker, recording, &seconds);
            failed = false;
        } catch (const engine_error &error) {
            const std::lock_guard lock(mutex_);
            progress_.clear();
            print_error(recording.path, error, recordings_.size() > 1);
        } catch (const std::exception &error) {
            const std::lock_guard lock(mutex_);
            progress_.clear();
            std::fprintf(stderr, "parley: %s: %s\n", recording.path.c_str(), error.what());
        }
        const std::lock_guard lock(mutex_);
        failed_ += failed;
        progress_.done(seconds);
        waiting_[item] = std::move(text);
        // On standard output results come in the order of the command line.
        for (auto first = waiting_.begin(); first != waiting_.end() && first->first == printed_;
             first = waiting_.erase(first), printed_++) {
            std::fputs(first->second.c_str(), out_);
        }
        std::fflush(out_);
    }

    bool is_there(const recording_file &recording) const {
        return a_.resume && std::ranges::all_of(formats_, [&](const output_format *format) {
                   return fs::exists(file_of(a_, recording, *format));
               });
    }

    // What goes to standard output; nothing with an output folder.
    std::string diarize(int worker, const recording_file &recording, double *seconds) {
        std::optional<spooled_input> input;
        if (recording.path == "-") input.emplace();
        diarization result =
            engines_[static_cast<size_t>(worker)]->run(input ? input->path() : recording.path, a_.wishes);
        if (input) {
            result.path = "-";
            result.recording = "stdin";
        }
        result.with_confidence = a_.confidence;
        result.with_embeddings = a_.embeddings;
        *seconds = result.duration;
        if (a_.output_dir.empty()) {
            std::string text = formats_.front()->write(result, look_);
            if (formats_.front()->write != write_text || recordings_.size() == 1) return text;
            // Plain lines of several files carry the file's name.
            std::string named;
            for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1)
                named += recording.path + "\t" + text.substr(at, text.find('\n', at) + 1 - at);
            return named;
        }
        for (const output_format *format : formats_) {
            const std::string path = file_of(a_, recording, *format);
            fs::create_directories(fs::path(path).parent_path());
            write_atomically(path, format->write(result, {}));
        }
        return "";
    }

    const arguments &a_;
    std::vector<const output_format *> formats_;
    std::vector<recording_file> recordings_;
    std::FILE *out_;
    terminal look_;
    std::vector<std::unique_ptr<diarizer>> engines_;
    std::mutex mutex_;  // guards what follows
    progress progress_;
    std::map<size_t, std::string> waiting_;
    size_t printed_ = 0, failed_ = 0;
};

// What the parser cannot see. Throws CLI::ValidationError.
std::vector<const output_format *> check(arguments *a) {
    if (a->files.empty() && a->manifests.empty()) throw CLI::ValidationError("no audio file given");
    if (a->speakers > 0) {
        if (a->wishes.min_speakers > 0 || a->wishes.max_speakers > 0)
            throw CLI::ValidationError("--speakers goes without --min-speakers and --max-speakers");
        a->wishes.min_speakers = a->wishes.max_speakers = a->speakers;
    }
    if (a->wishes.max_speakers > 0 && a->wishes.min_speakers > a->wishes.max_speakers)
        throw CLI::ValidationError("--min-speakers is above --max-speakers");
    a->wishes.split_channels = a->channels == "split";
    if (a->wishes.split_channels && a->wishes.max_speakers + a->wishes.min_speakers > 0)
        throw CLI::ValidationError("with --channels split the channels are the speakers");
    if (!a->thresholds.empty()) {
        if (a->thresholds.size() != 4) throw CLI::ValidationError("--threshold takes four numbers");
        a->wishes.thresholds = a->thresholds;
    }
    std::vector<const output_format *> formats;
    for (const std::string &name : a->formats) {
        const output_format *format = find_output_format(name);
        if (!format) throw CLI::ValidationError("unknown format " + name);
        formats.push_back(format);
    }
    if (a->output_dir.empty() && formats.size() > 1)
        throw CLI::ValidationError("several formats need --output-dir");
    if (a->output_dir.empty() && a->resume) throw CLI::ValidationError("--resume needs --output-dir");
    return formats;
}

}  // namespace

int diarize_command(int argc, char **argv) {
    CLI::App app("Tells who spoke when in audio files.", "parley");
    app.set_version_flag("--version", std::string("parley ") + zx_parley_version());
    app.get_formatter()->column_width(30);
    app.footer(footer());
    arguments a;
    define(&app, &a);
    std::vector<const output_format *> formats;
    std::vector<recording_file> recordings;
    try {
        app.parse(argc, argv);
        formats = check(&a);
        recordings = list_recordings(a.files, a.manifests);
    } catch (const CLI::Success &message) {  // --help and --version
        return app.exit(message);
    } catch (const CLI::ValidationError &error) {
        std::fprintf(stderr, "parley: %s\nparley --help tells more.\n", error.what());
        return EXIT_USAGE;
    } catch (const CLI::ParseError &error) {
        std::fprintf(stderr, "parley: %s\nparley --help tells more.\n", error.what());
        return EXIT_USAGE;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "parley: %s\n", error.what());
        return EXIT_FAILURE;
    }
    if (a.model.empty()) a.model = find_model();
    try {
        std::FILE *out = take_standard_output();
        if (a.verbose) {
            dup2(STDERR_FILENO, STDOUT_FILENO);  // where the engine logs
        } else {
            zx_log_disable();
        }
        if (formats.empty())
            formats.push_back(
                find_output_format(a.output_dir.empty() && is_terminal(out) ? "table" : "text"));
        const size_t failed = batch(a, formats, recordings, out).run();
        if (failed > 0 && recordings.size() > 1)
            std::fprintf(stderr, "parley: %zu of %zu recordings failed\n", failed, recordings.size());
        close_standard_output(out);
        return failed > 0 ? EXIT_FAILURE : EXIT_SUCCESS;
    } catch (const engine_error &error) {
        print_error(a.model, error);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "parley: %s\n", error.what());
    }
    return EXIT_FAILURE;
}
