// SPDX-License-Identifier: Apache-2.0
#include "renaming.h"

#include <algorithm>
#include <utility>

namespace parley {

std::map<std::string, std::string> renamed_speakers(const std::vector<named_segment> &before,
                                                    const std::vector<named_segment> &now) {
    std::map<std::pair<std::string, std::string>, double> shared;
    for (const named_segment &a : before)
        for (const named_segment &b : now)
            if (const double common = std::min(a.end, b.end) - std::max(a.start, b.start); common > 0)
                shared[{a.speaker, b.speaker}] += common;
    std::map<std::string, std::string> result;
    while (!shared.empty()) {
        const auto by_time = [](const auto &a, const auto &b) { return a.second < b.second; };
        const auto [old_name, new_name] = std::ranges::max_element(shared, by_time)->first;
        if (old_name != new_name) result[old_name] = new_name;
        std::erase_if(shared, [&](const auto &pair) {
            return pair.first.first == old_name || pair.first.second == new_name;
        });
    }
    return result;
}

}  // namespace parley
