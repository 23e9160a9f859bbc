// SPDX-License-Identifier: Apache-2.0
// Who is called otherwise in a later result than in an earlier one of the same recording.
#ifndef PARLEY_TOOL_RENAMING_H
#define PARLEY_TOOL_RENAMING_H

#include <map>
#include <string>
#include <vector>

namespace parley {

struct named_segment {
    double start, end;  // seconds
    std::string speaker;
};

// New names by old ones, of those that differ: names go together whose segments share most time, one with
// one.
std::map<std::string, std::string> renamed_speakers(const std::vector<named_segment> &before,
                                                    const std::vector<named_segment> &now);

}  // namespace parley

#endif
