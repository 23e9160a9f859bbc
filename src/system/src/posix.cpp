// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <glob.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>
#if !defined(__EMSCRIPTEN__)
#include <dlfcn.h>
#include <spawn.h>
#include <sys/wait.h>
#endif
#if defined(__linux__)
#include <malloc.h>
#include <sys/auxv.h>
#endif
#if defined(__APPLE__)
#include <xlocale.h>
#endif

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cwchar>
#include <system_error>
#include <thread>

#include "system.h"

#if !defined(__EMSCRIPTEN__)
extern char **environ;
#endif

const char *const NOWHERE = "/dev/null";

std::filesystem::path path_of(const std::string &name) {
    return name;
}

std::filesystem::path file_at(const std::string &name) {
    return name;
}

std::string text_of(const std::filesystem::path &path) {
    return path.string();
}

scratch_file::scratch_file() : path_((std::filesystem::temp_directory_path() / "parley.XXXXXX").string()) {
    descriptor_ = mkostemp(path_.data(), O_CLOEXEC);
    if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), path_);
#if defined(__linux__)
    // As child processes find it, too.
    const std::string nameless = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(descriptor_);
    if (access(nameless.c_str(), R_OK) != 0) return;
    unlink(path_.c_str());
    path_ = nameless;
    has_name_ = false;
#endif
}

scratch_file::~scratch_file() {
    close(descriptor_);
    if (has_name_) unlink(path_.c_str());
}

#if defined(__EMSCRIPTEN__)

child_process::child_process(const std::vector<std::string> &, bool) {}

child_process::~child_process() = default;

program_outcome run_program(const std::vector<std::string> &, double, const std::function<bool()> &) {
    return {};
}

#else

namespace {

// False, with nothing open, on failure. A child of another thread must not have these ends: macOS cannot say
// so at once.
bool open_pipe(int ends[2]) {
#if defined(__APPLE__)
    if (pipe(ends) != 0) return false;
    for (const int end : {ends[0], ends[1]}) fcntl(end, F_SETFD, FD_CLOEXEC);
    return true;
#else
    return pipe2(ends, O_CLOEXEC) == 0;
#endif
}

// A program that reads and writes these descriptors; -1 stands for none. Its number, or -1.
pid_t spawn(const std::vector<std::string> &words, int input, int output, int errors, bool in_own_group) {
    std::vector<std::string> copies = words;
    std::vector<char *> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string &word : copies) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (input >= 0) posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    if (errors >= 0)
        posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
    else
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, NOWHERE, O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    if (in_own_group) {
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    }
    pid_t process = -1;
    const int status = posix_spawnp(&process, arguments[0], &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return status == 0 ? process : -1;
}

}  // namespace

program_outcome run_program(const std::vector<std::string> &words, double seconds,
                            const std::function<bool()> &goes_on) {
    using namespace std::chrono;
    program_outcome outcome;
    const scratch_file output, errors;
    const int nothing = open(NOWHERE, O_RDONLY | O_CLOEXEC);
    const pid_t process = spawn(words, nothing, output.descriptor(), errors.descriptor(), true);
    if (nothing >= 0) close(nothing);
    if (process < 0) return outcome;
    const auto begin = steady_clock::now();
    int status = 0;
    for (auto pause = 1ms; waitpid(process, &status, WNOHANG) == 0; pause = std::min(2 * pause, 50ms)) {
        const bool is_late = seconds > 0 && duration<double>(steady_clock::now() - begin).count() > seconds;
        if (is_late || !goes_on()) {
            outcome.end = is_late ? program_end::too_slow : program_end::stopped;
            kill(-process, SIGKILL);
            waitpid(process, &status, 0);
            return outcome;
        }
        std::this_thread::sleep_for(pause);
    }
    outcome.end = program_end::itself;
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    outcome.output = content_of(output);
    outcome.errors = content_of(errors);
    return outcome;
}

child_process::child_process(const std::vector<std::string> &words, bool with_input) {
    int to[2] = {-1, -1}, from[2];
    if (!open_pipe(from)) return;
    if (with_input && !open_pipe(to)) {
        close(from[0]);
        close(from[1]);
        return;
    }
    const pid_t process = spawn(words, to[0], from[1], -1, false);
    if (with_input) close(to[0]);
    close(from[1]);
    input_ = to[1];
    output_ = from[0];
    process_ = process;
    if (process > 0) return;
    close_input();
    close_output();
}

child_process::~child_process() {
    close_input();
    close_output();
    if (process_ > 0) waitpid(static_cast<pid_t>(process_), nullptr, 0);
}

#endif

int open_to_read(const std::string &path) {
    return open(path.c_str(), O_RDONLY | O_CLOEXEC);
}

bool wait_for_bytes(int file, int milliseconds) {
    pollfd asked = {file, POLLIN, 0};
    return poll(&asked, 1, milliseconds) > 0;
}

void return_large_blocks() {
#if defined(__GLIBC__)
    (void) mallopt(M_MMAP_THRESHOLD, 4 << 20);  // which stays there, once it is said
    (void) mallopt(M_TRIM_THRESHOLD, 2 << 20);  // smaller free ends of the heap come and go
#endif
}

std::string library_path() {
#if defined(__EMSCRIPTEN__)
    return "";
#else
    Dl_info own{};
    if (!dladdr(reinterpret_cast<const void *>(&library_path), &own) || !own.dli_fname) return "";
#if defined(__linux__)
    // Of the program itself the linker knows the name that it was called by, not where it lies.
    Dl_info program{};
    if (dladdr(reinterpret_cast<const void *>(getauxval(AT_PHDR)), &program) &&
        program.dli_fbase == own.dli_fbase) {
        std::error_code error;
        return std::filesystem::read_symlink("/proc/self/exe", error).string();
    }
#endif
    return own.dli_fname;
#endif
}

std::string settings_folder() {
    if (const char *folder = std::getenv("XDG_CONFIG_HOME"); folder && *folder) return folder;
    const char *home = std::getenv("HOME");
    return std::string(home ? home : ".") + "/.config";
}

std::vector<std::string> files_like(const std::string &pattern) {
    glob_t matches{};
    std::vector<std::string> paths;
    if (glob(pattern.c_str(), 0, nullptr, &matches) == 0)
        paths.assign(matches.gl_pathv, matches.gl_pathv + matches.gl_pathc);
    globfree(&matches);
    return paths;
}

void prepare_streams() {}

bool is_terminal(std::FILE *stream) {
    return isatty(fileno(stream)) != 0;
}

namespace {

winsize size_of_terminal(std::FILE *stream) {
    winsize size{};
    if (is_terminal(stream) && ioctl(fileno(stream), TIOCGWINSZ, &size) != 0) size = {};
    return size;
}

}  // namespace

int columns_of_terminal(std::FILE *stream) {
    return size_of_terminal(stream).ws_col;
}

int lines_of_terminal(std::FILE *stream) {
    return size_of_terminal(stream).ws_row;
}

// The C library knows them by locale.
character_widths::character_widths() {
    const locale_t unicode = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    locale_ = unicode;
    if (unicode) before_ = uselocale(unicode);
}

character_widths::~character_widths() {
    if (!locale_) return;
    uselocale(static_cast<locale_t>(before_));
    freelocale(static_cast<locale_t>(locale_));
}

size_t character_widths::of(char32_t character) const {
    const int width = wcwidth(static_cast<wchar_t>(character));
    return width < 0 ? 1 : static_cast<size_t>(width);
}
