// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "formats.h"
#include "markup.h"
#include "media.h"
#include "writing.h"

namespace {

// 2026-11-22T10:15:00+00:00; of SOURCE_DATE_EPOCH where that is set, so that files can be made again.
std::string today() {
    const char *given = std::getenv("SOURCE_DATE_EPOCH");
    using namespace std::chrono;
    const sys_seconds now =
        given ? sys_seconds(seconds(std::strtoll(given, nullptr, 10))) : floor<seconds>(system_clock::now());
    const sys_days midnight = floor<days>(now);
    const year_month_day day(midnight);
    const hh_mm_ss time(now - midnight);
    return line("%04d-%02u-%02uT%02d:%02d:%02d+00:00", static_cast<int>(day.year()),
                static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()),
                static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count()));
}

}  // namespace

std::string write_eaf(const diarization &result, const parley_terminal &) {
    const auto milliseconds = [](double seconds) { return std::to_string(std::llround(seconds * 1000)); };
    // Slots must come in order of time; annotation n begins at slot 2 n and ends at slot 2 n + 1.
    std::vector<std::pair<double, size_t>> times;
    for (size_t n = 0; n < result.segments.size(); n++) {
        times.emplace_back(result.segments[n].start, 2 * n);
        times.emplace_back(result.segments[n].end, 2 * n + 1);
    }
    std::stable_sort(times.begin(), times.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    std::string slots, tiers;
    for (const auto &[seconds, slot] : times) {
        slots += "        <TIME_SLOT TIME_SLOT_ID=\"ts" + std::to_string(slot) + "\" TIME_VALUE=\"" +
                 milliseconds(seconds) + "\"/>\n";
    }
    for (size_t k = 0; k < result.speakers.size(); k++) {
        const std::string name = escape_xml(result.speakers[k].name);
        tiers += "    <TIER LINGUISTIC_TYPE_REF=\"default-lt\" PARTICIPANT=\"" + name + "\" TIER_ID=\"" +
                 name + "\">\n";
        for (size_t n = 0; n < result.segments.size(); n++) {
            if (static_cast<size_t>(result.segments[n].speaker) != k) continue;
            tiers += "        <ANNOTATION>\n            <ALIGNABLE_ANNOTATION ANNOTATION_ID=\"a" +
                     std::to_string(n) + "\" TIME_SLOT_REF1=\"ts" + std::to_string(2 * n) +
                     "\" TIME_SLOT_REF2=\"ts" + std::to_string(2 * n + 1) +
                     "\">\n                <ANNOTATION_VALUE>" + name +
                     "</ANNOTATION_VALUE>\n            </ALIGNABLE_ANNOTATION>\n        </ANNOTATION>\n";
        }
        tiers += "    </TIER>\n";
    }
    const media about = media_of(result);
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<ANNOTATION_DOCUMENT AUTHOR=\"parley\" DATE=\"" +
           today() +
           "\" FORMAT=\"3.0\" VERSION=\"3.0\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
           "xsi:noNamespaceSchemaLocation=\"http://www.mpi.nl/tools/elan/EAFv3.0.xsd\">\n"
           "    <HEADER MEDIA_FILE=\"\" TIME_UNITS=\"milliseconds\">\n"
           "        <MEDIA_DESCRIPTOR MEDIA_URL=\"" +
           about.url + "\" MIME_TYPE=\"" + about.type + "\" RELATIVE_MEDIA_URL=\"" + about.beside +
           "\"/>\n"
           "    </HEADER>\n    <TIME_ORDER>\n" +
           slots + "    </TIME_ORDER>\n" + tiers +
           "    <LINGUISTIC_TYPE GRAPHIC_REFERENCES=\"false\" LINGUISTIC_TYPE_ID=\"default-lt\" "
           "TIME_ALIGNABLE=\"true\"/>\n"
           "</ANNOTATION_DOCUMENT>\n";
}
