// SPDX-License-Identifier: Apache-2.0
// What the results in an output folder were made of, so that a run that goes on makes those anew whose
// recording, model or options are others by now: lines of a fingerprint and a result's name in a file of the
// folder.
#ifndef PARLEY_TOOL_RESULT_LOG_H
#define PARLEY_TOOL_RESULT_LOG_H

#include <cstdint>
#include <map>
#include <string>

namespace parley {

class result_log {
public:
    // Notes nothing.
    result_log() = default;

    // `settings`: all that results depend on beside the recording.
    result_log(const std::string &folder, const std::string &settings);

    // Whether a result was made of the recording as it is now, with these settings.
    bool is_current(const std::string &result, const std::string &recording) const;

    // Throws std::system_error.
    void add(const std::string &result, const std::string &recording) const;

private:
    uint64_t fingerprint(const std::string &recording) const;

    std::string path_;
    uint64_t settings_ = 0;
    std::map<std::string, uint64_t> made_of_;  // by result
};

}  // namespace parley

#endif
