// Many files at once: what the user named becomes a list of recordings, and workers go through it.
#ifndef PARLEY_TOOLS_BATCH_H
#define PARLEY_TOOLS_BATCH_H

#include <functional>
#include <string>
#include <vector>

struct recording_file {
    std::string path;
    std::string
        output;  // below the output folder: the path below the folder that was named, without extension
};

// Files as they are; folders with the audio files anywhere below them, known by extension; patterns with * ?
// [ ] that no file is named like; and the lines of manifests ("-" is standard input). Two files of one output
// name keep their extensions. Throws std::runtime_error for a folder or manifest that cannot be read and a
// pattern that matches nothing.
std::vector<recording_file> list_recordings(const std::vector<std::string> &arguments,
                                            const std::vector<std::string> &manifests);

// Runs work(worker, item) for every item of 0 .. count - 1, on `workers` threads, each item once.
void run_workers(int workers, size_t count, const std::function<void(int worker, size_t item)> &work);

#endif
