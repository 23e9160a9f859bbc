// SPDX-License-Identifier: Apache-2.0
// Recordings to results, one after the other or side by side.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "command_options.h"
#include "commands.h"
#include "documents.h"
#include "files.h"
#include "help.h"
#include "library.h"
#include "model.h"
#include "progress.h"
#include "recordings.h"
#include "result_log.h"
#include "system.h"
#include "terminal.h"
#include "voices.h"
#include "workers.h"

namespace fs = std::filesystem;

namespace parley {

namespace diarizing {
namespace {

struct arguments {
    std::vector<std::string> files, manifests, formats;
    std::string output_file;  // where the result of one recording has a name of its own
    std::string model, voices, output_dir, keep, again, audio = "auto", color = "auto";
    uint64_t max_input = uint64_t{8} << 30;
    bool resume = false, verbose = false, quiet = false;
    command_options options;
};

// The two columns of help fit a terminal of 80.
void define(CLI::App *app, arguments *a) {
    app->add_option("AUDIO", a->files, "audio files, folders, patterns; - is standard input")->type_name("");
    const auto list = [app](const char *name, std::vector<std::string> *values, const char *what) {
        return app->add_option(name, *values, what)->allow_extra_args(false);
    };
    list("--manifest", &a->manifests, "file that lists recordings, one per line")
        ->type_name("FILE")
        ->group(MORE_OPTIONS);
    list("-f,--format", &a->formats, "formats of the result, see below")
        ->delimiter(',')
        ->type_name("NAME,...");
    app->add_option("-o,--output-dir", a->output_dir, "folder for the results, or file for a single one")
        ->type_name("DIR");
    define_audio(app, &a->audio)->group(MORE_OPTIONS);
    app->add_flag("--resume", a->resume, "skip recordings whose results are up to date")->group(MORE_OPTIONS);
    app->add_option("--keep", a->keep, "keep embeddings there for --again, 8 kB a second")
        ->type_name("DIR")
        ->group(MORE_OPTIONS);
    app->add_option("--again", a->again, "find speakers again from what --keep kept there")
        ->type_name("DIR")
        ->group(MORE_OPTIONS);
    a->options.define(app, {"speakers", "min-speakers", "max-speakers", "names", "sensitivity", "jobs"});
    app->add_option("--max-input", a->max_input, "limit on standard input and pipes (8G)")
        ->transform(CLI::AsSizeValue(false).description(""))
        ->type_name("BYTES")
        ->group(MORE_OPTIONS);
    define_files(app, &a->voices, &a->model);
    app->add_option("--color", a->color, "colours: auto, always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""))
        ->type_name("WHEN")
        ->group(MORE_OPTIONS);
    app->add_flag("-q,--quiet", a->quiet, "print no progress and no notes");
    app->add_flag("-v,--verbose", a->verbose, "print the engine's messages on failures")->group(MORE_OPTIONS);
    app->footer("Exit status: 0 all were diarized, 1 the model or a recording failed, 2 usage.");
}

// What becomes of several results that go to standard output one after the other.
enum class joined { not_at_all, by_lines, with_one_header, as_json_lines };

struct traits {
    joined several;
    bool tells_notes;  // has a place for what the user should know of a result
};

traits traits_of(const parley_format *format) {
    static const std::map<std::string, traits> TRAITS = {
        {"table", {joined::by_lines, true}},     {"text", {joined::by_lines, false}},
        {"rttm", {joined::by_lines, false}},     {"uem", {joined::by_lines, false}},
        {"ctm", {joined::by_lines, false}},      {"jsonl", {joined::by_lines, true}},
        {"json", {joined::as_json_lines, true}}, {"csv", {joined::with_one_header, false}}};
    const auto found = TRAITS.find(format->name);
    return found == TRAITS.end() ? traits{} : found->second;
}

std::string file_of(const arguments &a, const recording_file &recording, const parley_format &format) {
    if (!a.output_file.empty()) return a.output_file;
    return text_of(path_of(a.output_dir) / path_of(recording.output + format.extension));
}

void make_folder_of(const std::string &file) {
    fs::create_directories(fs::absolute(path_of(file)).parent_path());
}

std::string kept_file_of(const std::string &folder, const recording_file &recording) {
    return text_of(path_of(folder) / path_of(recording.output + ".embeddings"));
}

// What keeps an earlier run's file from being about the recording as it is now, or "".
std::string fault_of_kept(const std::string &file, const recording_file &recording) {
    std::error_code ignored;
    if (!fs::exists(path_of(file), ignored)) return "nothing was kept of it: there is no " + file;
    if (fs::last_write_time(path_of(recording.path), ignored) > fs::last_write_time(path_of(file), ignored))
        return "has changed since " + file + " was kept";
    return "";
}

size_t num_threads(const parley_options &options) {
    return options.jobs > 0 ? static_cast<size_t>(options.jobs)
                            : std::clamp(std::thread::hardware_concurrency(), 1u, unsigned{PARLEY_MAX_JOBS});
}

class batch {
public:
    batch(const arguments &a, std::vector<const parley_format *> formats,
          std::vector<recording_file> recordings, std::FILE *out)
        : a_(a),
          formats_(std::move(formats)),
          recordings_(std::move(recordings)),
          out_(out),
          terminal_(terminal_of(out, a.color)),
          voices_(read_voices(a.voices)),
          options_(*a.options.get()),
          num_workers_(std::min<size_t>(num_threads(options_), recordings_.size())),
          shows_progress_(!a.quiet && is_terminal(stderr) && !is_dumb_terminal()),
          progress_(recordings_.size(), num_workers_, shows_progress_) {
        options_.jobs = static_cast<int32_t>(num_threads(options_) / num_workers_);
        options_.keep_embeddings = !a.keep.empty();
    }

    // The number of recordings that failed.
    size_t run() {
        for (size_t w = 0; w < num_workers_; w++) diarizers_.push_back(open_model(a_.model));
        if (a_.resume)
            log_ = {a_.output_dir, read_text(a_.model) + voices_ + a_.audio + "\n" + a_.options.text()};
        run_workers(static_cast<int>(num_workers_), recordings_.size(),
                    [this](int worker, size_t item) { one(static_cast<size_t>(worker), item); });
        progress_.clear();
        if (shows_progress_) sum_up();
        return failed_;
    }

private:
    // What was done and where it is, on a terminal.
    void sum_up() const {
        if (recordings_.size() > 1 && progress_.seconds() >= 1) {
            const size_t done = recordings_.size() - failed_;
            std::fprintf(stderr, "parley: %zu recording%s, %s of audio in %s\n", done, done == 1 ? "" : "s",
                         clock(seconds_).c_str(), clock(progress_.seconds()).c_str());
        }
        if (num_files_ == 1) std::fprintf(stderr, "parley: wrote %s\n", printable(last_file_).c_str());
        if (num_files_ > 1)
            std::fprintf(stderr, "parley: wrote %zu files in %s\n", num_files_,
                         printable(a_.output_dir).c_str());
    }

    void one(size_t worker, size_t item) {
        const recording_file &recording = recordings_[item];
        std::string text;
        bool failed = true;
        try {
            if (!is_there(recording)) text = diarize(worker, recording);
            failed = false;
        } catch (const std::exception &error) {
            const std::lock_guard lock(mutex_);
            progress_.clear();
            print_error(error, a_.verbose);
        }
        progress_.finish(worker);
        const std::lock_guard lock(mutex_);
        failed_ += failed;
        waiting_[item] = std::move(text);
        // On standard output results come in the order of the command line.
        for (auto first = waiting_.begin(); first != waiting_.end() && first->first == printed_;
             first = waiting_.erase(first), printed_++) {
            print(first->second);
        }
        std::fflush(out_);
    }

    void print(const std::string &text) {
        if (text.empty()) return;
        progress_.clear();
        const bool headless = has_printed_ && traits_of(formats_.front()).several == joined::with_one_header;
        const size_t begin = headless ? text.find('\n') + 1 : 0;
        if (recordings_.size() == 1)
            show(out_, text);
        else
            std::fwrite(text.data() + begin, 1, text.size() - begin, out_);
        has_printed_ = true;
    }

    bool is_there(const recording_file &recording) const {
        return a_.resume &&
               (a_.keep.empty() || fault_of_kept(kept_file_of(a_.keep, recording), recording).empty()) &&
               std::ranges::all_of(formats_, [&](const parley_format *format) {
                   return fs::exists(path_of(file_of(a_, recording, *format))) &&
                          log_.is_current(recording.output + format->extension, recording.path);
               });
    }

    // With what can be read only once as a file.
    result_ptr hear(size_t worker, const recording_file &recording, const spooled_stream *stream) {
        struct worker_progress {
            progress_line *line;
            size_t worker;
        } reported = {&progress_, worker};
        const auto report = [](void *context, double done) {
            const auto *to = static_cast<const worker_progress *>(context);
            to->line->update(to->worker, done);
            return 1;
        };
        parley_result *made = nullptr;
        const parley_status status = parley_diarize_file(
            diarizers_[worker].get(), stream ? stream->path().c_str() : recording.path.c_str(), &options_,
            report, &reported, &made);
        result_ptr result(made);
        if (status != PARLEY_OK && stream) {  // whose place in the system nobody knows
            parley_error failure(status);
            const std::string name = recording.path == "-" ? "standard input" : recording.path;
            const std::string message = failure.what();
            throw std::runtime_error(name + message.substr(std::min(message.find(": "), message.size())));
        }
        check(status);
        if (stream) check(parley_result_rename(result.get(), recording.path.c_str()));
        return result;
    }

    // From what an earlier run kept.
    result_ptr find_again(size_t worker, const recording_file &recording) {
        const std::string file = kept_file_of(a_.again, recording);
        if (const std::string fault = fault_of_kept(file, recording); !fault.empty())
            throw std::runtime_error(recording.path + ": " + fault);
        const std::string bytes = read_text(file);
        parley_result *made = nullptr;
        check(parley_read_embeddings(diarizers_[worker].get(), bytes.data(), bytes.size(),
                                     recording.path.c_str(), &options_, &made));
        return result_ptr(made);
    }

    void keep(const parley_result *result, const recording_file &recording) const {
        char *bytes = nullptr;
        size_t size = 0;
        check(parley_write_embeddings(result, &bytes, &size));
        const text_ptr owned(bytes);
        const std::string path = kept_file_of(a_.keep, recording);
        make_folder_of(path);
        write_atomically(path, {bytes, size});
    }

    // What goes to standard output; nothing with an output folder.
    std::string diarize(size_t worker, const recording_file &recording) {
        std::optional<spooled_stream> stream;  // pages take the sound from there
        if (is_stream(recording.path)) stream.emplace(recording.path, a_.max_input);
        const result_ptr result = a_.again.empty() ? hear(worker, recording, stream ? &*stream : nullptr)
                                                   : find_again(worker, recording);
        if (!a_.keep.empty()) keep(result.get(), recording);
        name_known(result.get(), voices_, 0);
        {
            const std::lock_guard lock(mutex_);
            seconds_ += parley_result_duration(result.get());
            const std::string note = parley_result_note(result.get());
            if (!note.empty() && !a_.quiet &&
                !std::ranges::all_of(formats_, &traits::tells_notes, traits_of)) {
                progress_.clear();
                std::fprintf(stderr, "parley: %s: %s\n", printable(recording.path).c_str(), note.c_str());
            }
        }
        if (a_.output_dir.empty()) {
            if (refers_to_audio(*formats_.front())) link_audio(a_.audio, recording.path, "", result.get());
            return printed_form(result.get(), recording);
        }
        for (const parley_format *format : formats_) {
            const std::string path = file_of(a_, recording, *format);
            make_folder_of(path);
            if (refers_to_audio(*format))
                link_audio(is_page(*format) ? a_.audio : "link", recording.path, path, result.get());
            write_atomically(path, write(result.get(), format->name, {0, 0}));
            const std::lock_guard lock(mutex_);
            log_.add(recording.output + format->extension, recording.path);
            num_files_++;
            last_file_ = path;
        }
        return "";
    }

    std::string printed_form(const parley_result *result, const recording_file &recording) const {
        std::string format = formats_.front()->name;
        if (recordings_.size() == 1) return write(result, format, terminal_);
        if (traits_of(formats_.front()).several == joined::as_json_lines) format = "jsonl";
        std::string text = write(result, format, terminal_);
        if (format != "text") return text;
        // Plain lines of several files carry the file's name.
        std::string named;
        for (size_t at = 0; at < text.size(); at = text.find('\n', at) + 1)
            named += recording.path + "\t" + text.substr(at, text.find('\n', at) + 1 - at);
        return named;
    }

    const arguments &a_;
    std::vector<const parley_format *> formats_;
    std::vector<recording_file> recordings_;
    std::FILE *out_;
    parley_terminal terminal_;
    std::string voices_;
    result_log log_;
    parley_options options_;
    size_t num_workers_;  // recordings at a time, among which threads are divided
    std::vector<diarizer_ptr> diarizers_;
    bool shows_progress_;
    progress_line progress_;
    std::mutex mutex_;  // guards what follows
    std::map<size_t, std::string> waiting_;
    size_t printed_ = 0, failed_ = 0, num_files_ = 0;
    std::string last_file_;
    double seconds_ = 0;
    bool has_printed_ = false;
};

// What the parser cannot see. Throws CLI::ValidationError.
std::vector<const parley_format *> check_arguments(const CLI::App &app, const arguments &a) {
    if (a.files.empty() && a.manifests.empty()) throw CLI::ValidationError("no audio file given");
    for (const std::string &file : a.files) {
        const std::string meant = suggested_command(app, file);
        if (!meant.empty() && !fs::exists(path_of(file)))
            throw CLI::ValidationError(file + " is no file and no command" + meant);
    }
    if (parley_options_check(a.options.get()) != PARLEY_OK) throw CLI::ValidationError(parley_message());
    const std::vector<const parley_format *> formats = formats_named(a.formats);
    if (a.output_dir.empty() && formats.size() > 1)
        throw CLI::ValidationError("several formats need --output-dir");
    constexpr int32_t SPLIT = 1;
    if (a.options.get()->channels == SPLIT && !(a.keep.empty() && a.again.empty()))
        throw CLI::ValidationError("--keep and --again go without --channels split");
    if (!a.again.empty() && std::ranges::any_of(a.files, is_stream))
        throw CLI::ValidationError("--again takes recordings that are files");
    if (a.output_dir.empty() && a.resume) throw CLI::ValidationError("--resume needs --output-dir");
    return formats;
}

// What is called like a file of a format, and is no folder, is the file for the result of one recording.
void settle_output_file(size_t num_recordings, arguments *a, std::vector<const parley_format *> *formats) {
    const fs::path output = path_of(a->output_dir);
    const parley_format *format = find_format_of_files(text_of(output.extension()));
    std::error_code ignored;
    if (!format || fs::is_directory(output, ignored)) return;
    if (num_recordings > 1 || formats->size() > 1 || a->resume)
        throw CLI::ValidationError(a->output_dir + " is the name of one file: several results take a folder");
    if (formats->empty()) formats->push_back(format);
    a->output_file = a->output_dir;
}

// Pages and pictures are nothing to look at there.
int run(const CLI::App &app, arguments *a) {
    std::vector<const parley_format *> formats = check_arguments(app, *a);
    left_out others;
    const std::vector<recording_file> recordings = list_recordings(a->files, a->manifests, &others);
    if (others.count > 0 && !a->quiet) {
        std::fprintf(stderr, "parley: left out: %zu file%s that by name %s no audio, as %s\n", others.count,
                     others.count == 1 ? "" : "s", others.count == 1 ? "is" : "are", others.example.c_str());
    }
    for (const std::string &folder : others.unreadable) print_error(std::runtime_error(folder));
    if (recordings.empty() && !others.unreadable.empty()) return EXIT_FAILURE;
    if (recordings.empty()) throw std::runtime_error("there are no recordings in what was named");
    if (a->output_dir.empty() && recordings.size() > 1 && !formats.empty() &&
        traits_of(formats.front()).several == joined::not_at_all) {
        throw CLI::ValidationError(std::string("several recordings cannot be one ") + formats.front()->name +
                                   ": -o DIR writes a file for each");
    }
    if (!(a->output_dir.empty() && a->keep.empty() && a->again.empty())) check_outputs(recordings);
    if (!a->output_dir.empty()) settle_output_file(recordings.size(), a, &formats);
    if (a->model.empty()) a->model = find_model();
    std::FILE *out = take_standard_output();
    if (!formats.empty()) check_terminal(*formats.front(), a->output_dir, out);
    if (formats.empty())
        formats.push_back(find_format(a->output_dir.empty() && is_terminal(out) ? "table" : "text"));
    const size_t failed = batch(*a, formats, recordings, out).run();
    if (failed > 0 && recordings.size() > 1)
        std::fprintf(stderr, "parley: %zu of %zu recordings failed\n", failed, recordings.size());
    close_standard_output(out);
    return failed > 0 || !others.unreadable.empty() ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace
}  // namespace diarizing

command diarize_command(CLI::App *app) {
    using namespace diarizing;
    const auto a = std::make_shared<arguments>();
    define(app, a.get());
    return [a, app] {
        if (app->count("--speakers") > 0 && app->count("--min-speakers") + app->count("--max-speakers") > 0)
            throw CLI::ValidationError("--speakers goes without --min-speakers and --max-speakers");
        return run(*app, a.get());
    };
}

}  // namespace parley
