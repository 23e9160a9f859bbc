// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <random>
#include <system_error>
#include <vector>

#include "system.h"
#include "zx_file.h"
#include "zx_heap.h"

const char *const NOWHERE = "NUL";

namespace {

struct handle_closer {
    void operator()(void *handle) const { CloseHandle(handle); }
};
using handle_ptr = std::unique_ptr<void, handle_closer>;

std::wstring wide(const std::string &utf8) {
    const auto size = static_cast<int>(utf8.size());
    std::wstring text(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, nullptr, 0)), 0);
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, text.data(), static_cast<int>(text.size()));
    return text;
}

// Of a variable of the environment; empty if there is none.
std::wstring variable(const wchar_t *name) {
    const wchar_t *value = _wgetenv(name);
    return value ? value : L"";
}

HANDLE handle_of(int file) {
    return reinterpret_cast<HANDLE>(_get_osfhandle(file));
}

}  // namespace

std::filesystem::path path_of(const std::string &name) {
    return wide(name);
}

std::filesystem::path file_at(const std::string &name) {
    const zx_heap_ptr<wchar_t> converted(zx_file_system_name(name.c_str()));
    return converted ? std::filesystem::path(converted.get()) : std::filesystem::path();
}

std::string text_of(const std::filesystem::path &path) {
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

scratch_file::scratch_file() : descriptor_(-1) {
    std::random_device random;
    for (int tries = 0; descriptor_ < 0 && tries < 100; tries++) {
        const std::filesystem::path path =
            std::filesystem::temp_directory_path() / ("parley." + std::to_string(random()));
        path_ = text_of(path);
        descriptor_ = _wopen(path.c_str(), _O_RDWR | _O_CREAT | _O_EXCL | _O_BINARY | _O_NOINHERIT,
                             _S_IREAD | _S_IWRITE);
    }
    if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), path_);
}

scratch_file::~scratch_file() {
    _close(descriptor_);
    if (has_name_) _wunlink(path_of(path_).c_str());
}

namespace {

// Of a program in $PATH: not in the folder where this one works, which holds what others made.
std::wstring found_in_path(const std::string &name) {
    std::wstring found(32768, 0);
    const DWORD length = SearchPathW(variable(L"PATH").c_str(), wide(name).c_str(), L".exe",
                                     static_cast<DWORD>(found.size()), found.data(), nullptr);
    found.resize(length < found.size() ? length : 0);
    return found;
}

// A command line that programs take apart into these words again: quoted, a quotation mark and the
// backslashes in front of one with a backslash each.
std::wstring command_line(const std::vector<std::string> &words) {
    std::wstring line;
    for (const std::string &word : words) {
        line += L"\"";
        size_t backslashes = 0;
        for (const wchar_t c : wide(word)) {
            if (c == L'"') line.append(backslashes + 1, L'\\');
            backslashes = c == L'\\' ? backslashes + 1 : 0;
            line += c;
        }
        line.append(backslashes, L'\\') += L"\" ";
    }
    return line;
}

// A pipe of which a child gets one end.
struct child_pipe {
    explicit child_pipe(bool child_reads) {
        SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
        HANDLE read = nullptr, write = nullptr;
        if (!CreatePipe(&read, &write, &inherited, 0)) return;
        childs.reset(child_reads ? read : write);
        ours.reset(child_reads ? write : read);
        SetHandleInformation(ours.get(), HANDLE_FLAG_INHERIT, 0);
    }

    int descriptor() {
        return _open_osfhandle(reinterpret_cast<intptr_t>(ours.release()), _O_BINARY | _O_NOINHERIT);
    }

    handle_ptr childs, ours;
};

struct attribute_list_deleter {
    void operator()(char *list) const {
        DeleteProcThreadAttributeList(reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(list));
        delete[] list;
    }
};

// A program with these handles for input, output and errors, and no others, which children of other threads
// may be waiting for. Null where it cannot be started.
handle_ptr start_program(const std::vector<std::string> &words, const std::array<HANDLE, 3> &streams) {
    const std::wstring program = found_in_path(words[0]);
    if (program.empty()) return nullptr;
    std::vector<HANDLE> inherited;  // each may be named once
    for (const HANDLE stream : streams)
        if (std::ranges::find(inherited, stream) == inherited.end()) inherited.push_back(stream);
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    std::unique_ptr<char, attribute_list_deleter> attributes(new char[size]);
    STARTUPINFOEXW start = {};
    start.StartupInfo.cb = sizeof(start);
    start.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    start.StartupInfo.hStdInput = streams[0];
    start.StartupInfo.hStdOutput = streams[1];
    start.StartupInfo.hStdError = streams[2];
    start.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(attributes.get());
    PROCESS_INFORMATION process = {};
    std::wstring line = command_line(words);
    if (!InitializeProcThreadAttributeList(start.lpAttributeList, 1, 0, &size) ||
        !UpdateProcThreadAttribute(start.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST,
                                   inherited.data(), inherited.size() * sizeof(HANDLE), nullptr, nullptr) ||
        !CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE,
                        CREATE_NO_WINDOW | EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr, &start.StartupInfo,
                        &process))
        return nullptr;
    CloseHandle(process.hThread);
    return handle_ptr(process.hProcess);
}

handle_ptr open_nowhere() {
    SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
    return handle_ptr(CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  &inherited, OPEN_EXISTING, 0, nullptr));
}

HANDLE inheritable(const scratch_file &file) {
    const HANDLE handle = handle_of(file.descriptor());
    SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
    return handle;
}

}  // namespace

program_outcome run_program(const std::vector<std::string> &words, double seconds,
                            const std::function<bool()> &goes_on) {
    constexpr DWORD PAUSE = 20;  // milliseconds
    program_outcome outcome;
    const scratch_file output, errors;
    const handle_ptr nowhere = open_nowhere();
    const handle_ptr process =
        start_program(words, {nowhere.get(), inheritable(output), inheritable(errors)});
    if (!process) return outcome;
    const ULONGLONG begin = GetTickCount64();
    while (WaitForSingleObject(process.get(), PAUSE) == WAIT_TIMEOUT) {
        const bool is_late = seconds > 0 && static_cast<double>(GetTickCount64() - begin) > 1000 * seconds;
        if (!is_late && goes_on()) continue;
        outcome.end = is_late ? program_end::too_slow : program_end::stopped;
        TerminateProcess(process.get(), 1);
        WaitForSingleObject(process.get(), INFINITE);
        return outcome;
    }
    DWORD status = 1;
    GetExitCodeProcess(process.get(), &status);
    outcome.end = program_end::itself;
    outcome.status = static_cast<int>(status);
    outcome.output = content_of(output);
    outcome.errors = content_of(errors);
    return outcome;
}

child_process::child_process(const std::vector<std::string> &words, bool with_input) {
    const handle_ptr nowhere = open_nowhere();
    child_pipe from(false), to(true);
    if (!from.childs || !to.childs) return;
    handle_ptr process = start_program(
        words, {with_input ? to.childs.get() : nowhere.get(), from.childs.get(), nowhere.get()});
    if (!process) return;
    process_ = reinterpret_cast<intptr_t>(process.release());
    if (with_input) input_ = to.descriptor();
    output_ = from.descriptor();
}

child_process::~child_process() {
    close_input();
    close_output();
    if (process_ == -1) return;
    const handle_ptr process(reinterpret_cast<HANDLE>(process_));
    WaitForSingleObject(process.get(), INFINITE);
}

int open_to_read(const std::string &path) {
    return _wopen(file_at(path).c_str(), _O_RDONLY | _O_BINARY | _O_NOINHERIT);
}

// Pipes cannot be waited for, only asked.
bool wait_for_bytes(int file, int milliseconds) {
    constexpr DWORD PAUSE = 10;  // milliseconds
    const HANDLE handle = handle_of(file);
    if (GetFileType(handle) != FILE_TYPE_PIPE) return true;
    for (const ULONGLONG begin = GetTickCount64();; Sleep(PAUSE)) {
        DWORD size = 0;
        if (!PeekNamedPipe(handle, nullptr, 0, nullptr, &size, nullptr) || size > 0) return true;
        if (milliseconds >= 0 && GetTickCount64() - begin >= static_cast<ULONGLONG>(milliseconds))
            return false;
    }
}

void return_large_blocks() {}

std::string library_path() {
    HMODULE own = nullptr;
    const auto *address = reinterpret_cast<const wchar_t *>(&library_path);
    if (!GetModuleHandleExW(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT, address,
            &own))
        return "";
    std::wstring path(32768, 0);
    path.resize(GetModuleFileNameW(own, path.data(), static_cast<DWORD>(path.size())));
    return text_of(path);
}

std::string settings_folder() {
    const std::wstring folder = variable(L"APPDATA");
    return folder.empty() ? "." : text_of(folder);
}

// * and ? in the last part of a name, as Windows has them; [ ] are characters like others there.
std::vector<std::string> files_like(const std::string &pattern) {
    std::vector<std::string> names;
    const std::filesystem::path whole = path_of(pattern);
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(whole.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return names;
    do {
        const std::wstring name = found.cFileName;
        if (name != L"." && name != L"..") names.push_back(text_of(whole.parent_path() / name));
    } while (FindNextFileW(search, &found));
    FindClose(search);
    std::ranges::sort(names);
    return names;
}

void prepare_streams() {
    for (std::FILE *stream : {stdin, stdout, stderr}) {
        _setmode(_fileno(stream), _O_BINARY);
        const HANDLE handle = handle_of(_fileno(stream));
        DWORD mode = 0;
        if (stream != stdin && GetConsoleMode(handle, &mode))
            SetConsoleMode(handle, mode | ENABLE_PROCESSED_OUTPUT | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
    }
    SetConsoleOutputCP(CP_UTF8);
}

bool is_terminal(std::FILE *stream) {
    DWORD mode = 0;
    return GetConsoleMode(handle_of(_fileno(stream)), &mode) != 0;
}

int columns_of_terminal(std::FILE *stream) {
    CONSOLE_SCREEN_BUFFER_INFO about;
    if (!GetConsoleScreenBufferInfo(handle_of(_fileno(stream)), &about)) return 0;
    return about.srWindow.Right - about.srWindow.Left + 1;
}

int lines_of_terminal(std::FILE *stream) {
    CONSOLE_SCREEN_BUFFER_INFO about;
    if (!GetConsoleScreenBufferInfo(handle_of(_fileno(stream)), &about)) return 0;
    return about.srWindow.Bottom - about.srWindow.Top + 1;
}

character_widths::character_widths() = default;
character_widths::~character_widths() = default;

size_t character_widths::of(char32_t character) const {
    static constexpr struct {
        char32_t first, last;
    } WIDE[] = {{0x1100, 0x115F},  {0x2E80, 0x303E},   {0x3041, 0xA4CF},   {0xA960, 0xA97F},
                {0xAC00, 0xD7A3},  {0xF900, 0xFAFF},   {0xFE30, 0xFE6F},   {0xFF01, 0xFF60},
                {0xFFE0, 0xFFE6},  {0x1F300, 0x1F64F}, {0x1F680, 0x1F6FF}, {0x1F900, 0x1F9FF},
                {0x20000, 0x3FFFD}};
    for (const auto &range : WIDE)
        if (character >= range.first && character <= range.last) return 2;
    const auto unit = static_cast<wchar_t>(character);
    WORD kind = 0;
    const bool combines = character < 0x10000 && GetStringTypeW(CT_CTYPE3, &unit, 1, &kind) &&
                          (kind & C3_NONSPACING) != 0 && (kind & C3_ALPHA) == 0;
    return combines ? 0 : 1;
}
