// Files of the tool's own: texts, results that are there whole or not at all, standard input as a file.
#ifndef PARLEY_TOOL_FILES_H
#define PARLEY_TOOL_FILES_H

#include <cstdint>
#include <string>

namespace parley {

// A whole file, or standard input for "-". Throws std::runtime_error.
std::string read_text(const std::string &path);

// False, with errno, if not all of it could be written.
bool write_all(int file, const char *data, size_t size);

// A file that goes with its last descriptor, whatever happens. Throws std::system_error.
int open_nameless_file();

// Writes a file so that it is there whole or not at all. Throws std::system_error.
void write_atomically(const std::string &path, const std::string &content);

// Whether a path can be read only once, from its beginning to its end: standard input ("-"), a pipe.
bool is_stream(const std::string &path);

// The rest of a stream as a file that has no name any more, so that nothing stays behind whatever happens.
// Throws std::system_error, and std::runtime_error for one of more than `most` bytes.
class spooled_stream {
public:
    spooled_stream(const std::string &path, uint64_t most);
    ~spooled_stream();
    spooled_stream(const spooled_stream &) = delete;
    spooled_stream &operator=(const spooled_stream &) = delete;
    const std::string &path() const { return path_; }

private:
    int file_;
    std::string path_;
};

}  // namespace parley

#endif
