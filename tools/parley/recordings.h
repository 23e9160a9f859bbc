// SPDX-License-Identifier: Apache-2.0
// What the user named becomes a list of recordings.
#ifndef PARLEY_TOOL_RECORDINGS_H
#define PARLEY_TOOL_RECORDINGS_H

#include <string>
#include <vector>

namespace parley {

// What of folders is not in the list.
struct left_out {
    size_t count = 0;  // files whose names do not look like audio
    std::string example;
    std::vector<std::string> unreadable;  // folders, and why
};

struct recording_file {
    std::string path;
    std::string
        output;  // below the output folder: the path below the folder that was named, without extension
};

// Files as they are; folders with the audio files anywhere below them, known by extension; patterns with * ?
// [ ] that no file is named like; and the lines of manifests ("-" is standard input). A file
// that is named twice counts once. Two of one output name keep their extensions, and where that does not
// suffice the names of their folders stand in front. Throws std::runtime_error for a manifest that cannot be
// read and a pattern that matches nothing.
std::vector<recording_file> list_recordings(const std::vector<std::string> &arguments,
                                            const std::vector<std::string> &manifests, left_out *others);

// Throws std::runtime_error where two recordings would be written to the same files.
void check_outputs(const std::vector<recording_file> &recordings);

}  // namespace parley

#endif
