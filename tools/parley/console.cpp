#include "console.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace {

[[noreturn]] void fail(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

std::FILE *take_standard_output() {
    const int results = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY);
    if (results < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) fail("standard output");
    close(nowhere);
    std::FILE *stream = fdopen(results, "w");
    if (!stream) fail("standard output");
    return stream;
}

void close_standard_output(std::FILE *stream) {
    const bool failed = std::ferror(stream) != 0;
    if (std::fclose(stream) != 0 || failed) fail("standard output");
}

bool is_terminal(std::FILE *stream) {
    return isatty(fileno(stream)) != 0;
}

terminal terminal_of(std::FILE *stream, const std::string &color) {
    terminal result;
    const char *no_color = std::getenv("NO_COLOR");
    result.colors = color == "always" || (color == "auto" && is_terminal(stream) && !(no_color && *no_color));
    winsize size{};
    if (is_terminal(stream) && ioctl(fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        result.columns = size.ws_col;
    return result;
}

void print_error(const std::string &subject, const engine_error &error, bool brief) {
    std::string hint;
    std::error_code ignored;
    if (subject != "-" && !std::filesystem::exists(subject, ignored)) {
        hint = "There is no such file.";
    } else if (error.status == ZX_STATUS_INVALID_ARGUMENT) {
        hint =
            "Audio comes as WAV, FLAC, MP3, Ogg (Opus, Vorbis), MP4 (AAC), 3GP (AMR) or WebM; ffmpeg "
            "converts others.";
    }
    std::string text = "parley: " + subject + ": " + error.what();
    if (brief) {
        if (!error.messages.empty()) text += ": " + error.messages.back();
        text += "\n";
    } else {
        text += "\n";
        for (const std::string &message : error.messages) text += "  " + message + "\n";
        if (!hint.empty()) text += "  " + hint + "\n";
    }
    std::fputs(text.c_str(), stderr);
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

void write_atomically(const std::string &path, const std::string &content) {
    const std::filesystem::path target(path);
    std::string name = ".";
    name.append(target.filename().string()).append(".").append(std::to_string(getpid())).append(".part");
    const std::string part = (target.parent_path() / name).string();
    std::FILE *file = std::fopen(part.c_str(), "wb");
    if (!file) fail(part);
    const bool written = std::fwrite(content.data(), 1, content.size(), file) == content.size();
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed || std::rename(part.c_str(), path.c_str()) != 0) {
        const int reason = errno;
        std::remove(part.c_str());
        errno = reason;
        fail(path);
    }
}
