// parley: who spoke when in audio files, one line per segment; and scores of such lines against a reference.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "rttm.h"
#include "score_command.h"
#include "zx_parley.h"

namespace {

constexpr int EXIT_USAGE = 2;

constexpr char USAGE[] =
    "usage: parley [--model FILE] [--format text|rttm] AUDIO...\n"
    "       parley score [OPTION]... REFERENCE.rttm HYPOTHESIS.rttm\n"
    "\n"
    "Prints one line per segment: start and end in seconds, and the speaker. With several files each line "
    "begins\n"
    "with the file's name and a tab.\n"
    "\n"
    "  --model FILE  the model; otherwise $PARLEY_MODEL, the installed one, or models/parley.zx of the "
    "source tree\n"
    "  --format F    text (default), or rttm: SPEAKER lines, in which a segment includes its last frame of "
    "32 ms\n"
    "  --version     print the version\n"
    "  --help        print this text\n"
    "\n"
    "Exit status: 0 all files were diarized, 1 the model or a file failed, 2 the command line is wrong.\n";

enum class output_format { text, rttm };

struct options {
    std::string model;
    output_format format = output_format::text;
    std::vector<std::string> files;
};

// Standard output is for results alone. The library prints notices there, so results go to a copy of it, and
// the library's own output nowhere: what matters of it comes back as messages.
std::FILE *take_standard_output() {
    const int results = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY);
    if (results < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) return nullptr;
    close(nowhere);
    return fdopen(results, "w");
}

void print_messages(const std::string &subject, zx_status_t status) {
    std::fprintf(stderr, "parley: %s: %s\n", subject.c_str(), zx_status_to_string(status));
    char **messages = nullptr;
    int32_t depth = 0;
    (void) zx_get_error_stack(&messages, &depth);  // whatever it says, `messages` and `depth` are right
    for (int32_t i = 0; i < depth; i++) std::fprintf(stderr, "  %s\n", messages[i]);
    zx_free_error_stack(messages);
}

std::string find_model() {
    if (const char *path = std::getenv("PARLEY_MODEL"); path && *path) return path;
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        const std::filesystem::path installed = program.parent_path() / PARLEY_SHARE_FROM_BIN / "parley.zx";
        if (std::filesystem::exists(installed, error)) return installed.lexically_normal().string();
    }
    return PARLEY_SOURCE_MODEL;
}

// Fills `result`, or returns an exit status to stop with; -1 to go on.
int parse_arguments(int argc, char **argv, options *result) {
    bool options_end = false;
    for (int i = 1; i < argc; i++) {
        const std::string_view argument = argv[i];
        if (options_end || argument.size() < 2 || argument[0] != '-') {
            result->files.emplace_back(argument);
        } else if (argument == "--") {
            options_end = true;
        } else if (argument == "--help") {
            std::fputs(USAGE, stdout);
            return EXIT_SUCCESS;
        } else if (argument == "--version") {
            std::printf("parley %s\n", zx_parley_version());
            return EXIT_SUCCESS;
        } else if (argument == "--model" && i + 1 < argc) {
            result->model = argv[++i];
        } else if (argument == "--format" && i + 1 < argc) {
            const std::string_view name = argv[++i];
            if (name != "text" && name != "rttm") {
                std::fprintf(stderr, "parley: unknown format %s\n\n%s", argv[i], USAGE);
                return EXIT_USAGE;
            }
            result->format = name == "rttm" ? output_format::rttm : output_format::text;
        } else if (argument.starts_with("--model=")) {
            result->model = argument.substr(std::strlen("--model="));
        } else {
            std::fprintf(stderr, "parley: unknown or incomplete option %s\n\n%s", argv[i], USAGE);
            return EXIT_USAGE;
        }
    }
    if (result->files.empty()) {
        std::fprintf(stderr, "parley: no audio file given\n\n%s", USAGE);
        return EXIT_USAGE;
    }
    if (result->model.empty()) result->model = find_model();
    return -1;
}

void print_segment(std::FILE *out, const options &arguments, const std::string &file,
                   const zx_parley_segment_t &segment) {
    constexpr double FRAME_SECONDS = 0.032;
    const double start = static_cast<double>(segment.start_sec), end = static_cast<double>(segment.end_sec);
    if (arguments.format == output_format::rttm) {
        const turn spoken = {start, end + FRAME_SECONDS, "speaker_" + std::to_string(segment.speaker_tag)};
        std::fputs(format_rttm(std::filesystem::path(file).stem().string(), spoken).c_str(), out);
        return;
    }
    if (arguments.files.size() > 1) std::fprintf(out, "%s\t", file.c_str());
    std::fprintf(out, "%9.3f %9.3f  speaker %d\n", start, end, segment.speaker_tag);
}

struct engine_deleter {
    void operator()(zx_parley_t *engine) const { zx_parley_delete(engine); }
};

}  // namespace

int main(int argc, char **argv) {
    if (argc > 1 && std::string_view(argv[1]) == "score") return score_command(argc - 2, argv + 2);
    options arguments;
    if (const int status = parse_arguments(argc, argv, &arguments); status >= 0) return status;
    std::FILE *out = take_standard_output();
    if (!out) {
        std::perror("parley: standard output");
        return EXIT_FAILURE;
    }
    zx_log_disable();

    zx_parley_t *object = nullptr;
    zx_status_t status = zx_parley_init(arguments.model.c_str(), &object);
    const std::unique_ptr<zx_parley_t, engine_deleter> engine(object);
    if (status != ZX_STATUS_SUCCESS) {
        print_messages(arguments.model, status);
        return EXIT_FAILURE;
    }

    bool all_succeeded = true;
    for (const std::string &file : arguments.files) {
        int32_t num_segments = 0;
        zx_parley_segment_t *segments = nullptr;
        status = zx_parley_process_file(engine.get(), file.c_str(), &num_segments, &segments);
        if (status != ZX_STATUS_SUCCESS) {
            print_messages(file, status);
            all_succeeded = false;
            continue;
        }
        for (int32_t i = 0; i < num_segments; i++) {
            if (segments[i].speaker_tag != 0) print_segment(out, arguments, file, segments[i]);
        }
        zx_parley_segments_delete(segments);
    }
    if (std::fclose(out) != 0) {
        std::perror("parley: standard output");
        return EXIT_FAILURE;
    }
    return all_succeeded ? EXIT_SUCCESS : EXIT_FAILURE;
}
