// SPDX-License-Identifier: Apache-2.0
// What operating systems do differently, for the library and for the tool: names of files, files that go with
// whoever made them, child processes, pipes, terminals. Texts are UTF-8 everywhere; descriptors are binary
// and not inherited. posix.cpp and windows.cpp hold one implementation each, system.cpp what is the same.
#ifndef PARLEY_SYSTEM_H
#define PARLEY_SYSTEM_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

// A file's name, and the way back.
std::filesystem::path path_of(const std::string &name);
std::string text_of(const std::filesystem::path &path);

// The same for opening a file or asking about it: names of more than 260 characters are written otherwise on
// Windows and cannot be taken apart.
std::filesystem::path file_at(const std::string &name);

// A name without its folders and its extension.
inline std::string stem_of(const std::string &name) {
    return text_of(path_of(name).stem());
}

// A file for what comes as a stream or lies in memory, gone with the object. Where the system can, it has no
// name from its beginning on, so that nothing stays behind whatever happens.
class scratch_file {
public:
    scratch_file();  // throws std::system_error
    ~scratch_file();
    scratch_file(const scratch_file &) = delete;
    scratch_file &operator=(const scratch_file &) = delete;
    int descriptor() const { return descriptor_; }
    const std::string &path() const { return path_; }  // under which it can be opened as long as it is there

private:
    int descriptor_;
    bool has_name_ = true;
    std::string path_;
};

// A folder for files that child processes read and write, gone with all that is in it with the object.
class scratch_folder {
public:
    scratch_folder();  // throws std::system_error
    ~scratch_folder();
    scratch_folder(const scratch_folder &) = delete;
    scratch_folder &operator=(const scratch_folder &) = delete;
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

// How a program came to its end.
enum class program_end { not_started, itself, too_slow, stopped };

struct program_outcome {
    program_end end = program_end::not_started;
    int status = -1;             // of one that ended itself; 128 and more: by a signal
    std::string output, errors;  // what it wrote
};

// Runs a program, looked for in $PATH alone, with nothing to read, until it ends, `seconds` have passed (0:
// any number) or `goes_on`, asked some times a second, says no; it is ended then. Throws std::system_error
// where there is no room for what it writes.
program_outcome run_program(const std::vector<std::string> &words, double seconds,
                            const std::function<bool()> &goes_on);

// A program that runs beside this one. Its output is a pipe, its input too if asked for; what it complains of
// goes nowhere.
class child_process {
public:
    // words: the program, looked for in $PATH alone, and its arguments.
    child_process(const std::vector<std::string> &words, bool with_input);
    ~child_process();  // closes the pipes, by which it ends, and waits for that
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;

    bool has_started() const { return output_ >= 0; }
    int input() const { return input_; }    // what it reads; -1 without
    int output() const { return output_; }  // what it writes; -1 where it could not be started
    void close_input();
    void close_output();  // by which it ends as soon as it writes

private:
    int input_ = -1, output_ = -1;
    [[maybe_unused]] std::intptr_t process_ = -1;
};

// All that was written to a scratch file.
std::string content_of(const scratch_file &file);

// All that a file holds; "" where it cannot be opened.
std::string content_of_file(const std::string &path);

// A descriptor; -1, with errno.
int open_to_read(const std::string &path);

// What read(2) and write(2) do, but going on after interruptions: bytes read, 0 at the end, -1 with errno;
// and whether all of it could be written, else with errno.
std::ptrdiff_t read_some(int file, void *to, size_t size);
bool write_all(int file, const void *data, size_t size);

// Whether there is something to read, or an end, within so many milliseconds (-1: as long as it takes).
bool wait_for_bytes(int file, int milliseconds);

// From now on the allocator gives blocks of 4 MB and more back to the system as soon as they are free, where
// it would keep them for later, and keeps up to 2 MB behind smaller ones. It holds for the whole program.
void return_large_blocks();

// The file that this code was loaded from: a dynamic library, or the program; "" where nobody knows.
std::string library_path();

// Where settings of a user's lie, each program's in a folder of its own.
std::string settings_folder();

// The files whose names match a pattern with * ? [ ] as the system's own shell knows it, sorted; none where
// nothing does.
std::vector<std::string> files_like(const std::string &pattern);

// At the beginning of a program: results and messages are bytes, those on a terminal UTF-8.
void prepare_streams();

bool is_terminal(std::FILE *stream);

// 0 for what is no terminal.
int columns_of_terminal(std::FILE *stream);
int lines_of_terminal(std::FILE *stream);

// Where nothing is kept of what is written.
extern const char *const NOWHERE;

// How many columns of a terminal characters take: two for wide ones, none for those that combine.
class character_widths {
public:
    character_widths();
    ~character_widths();
    character_widths(const character_widths &) = delete;
    character_widths &operator=(const character_widths &) = delete;
    size_t of(char32_t character) const;

private:
    void *locale_ = nullptr, *before_ = nullptr;
};

#endif
