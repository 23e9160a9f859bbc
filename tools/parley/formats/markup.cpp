// Captions, annotation tools and JSON.

#include "markup.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "formats.h"

namespace {

std::string caption_time(double seconds, char decimal) {
    const auto milliseconds = static_cast<long long>(std::llround(seconds * 1000));
    char text[64];
    std::snprintf(text, sizeof(text), "%02lld:%02lld:%02lld%c%03lld", milliseconds / 3600000,
                  milliseconds / 60000 % 60, milliseconds / 1000 % 60, decimal, milliseconds % 1000);
    return text;
}

std::string number(double value) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.3f", value);
    return text;
}

std::string one_line(std::string text) {
    std::ranges::replace_if(
        text, [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text;
}

double rounded(double value, double steps) {
    return std::round(value * steps) / steps;
}

// A tier must be gapless in Praat: what lies between a speaker's segments are intervals without text.
struct interval {
    double start;
    double end;
    std::string text;
};

std::vector<interval> fill(const diarization &result, size_t speaker) {
    std::vector<interval> tier;
    double at = 0;
    for (const segment &s : result.segments) {
        if (static_cast<size_t>(s.speaker) != speaker) continue;
        if (s.start > at) tier.push_back({at, s.start, ""});
        tier.push_back({s.start, s.end, result.speakers[speaker].name});
        at = s.end;
    }
    if (at < result.duration) tier.push_back({at, result.duration, ""});
    return tier;
}

}  // namespace

std::string escape_xml(const std::string &text) {
    std::string result;
    for (char c : text) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            default:
                if (static_cast<unsigned char>(c) >= 0x20 || c == '\t' || c == '\n') result += c;
        }
    }
    return result;
}

nlohmann::ordered_json to_json(const diarization &result) {
    nlohmann::ordered_json json;
    json["schema"] = "parley-diarization-1";
    json["recording"] = result.recording;
    json["path"] = result.path;
    json["duration"] = rounded(result.duration, 1000);
    json["speakers"] = nlohmann::ordered_json::array();
    for (const speaker &s : result.speakers) {
        nlohmann::ordered_json entry = {{"name", s.name}, {"seconds", rounded(s.seconds, 1000)}};
        if (result.with_embeddings) {
            entry["embedding"] = nlohmann::ordered_json::array();
            for (float v : s.embedding) entry["embedding"].push_back(rounded(double{v}, 1e6));
        }
        json["speakers"].push_back(std::move(entry));
    }
    json["segments"] = nlohmann::ordered_json::array();
    for (const segment &s : result.segments) {
        nlohmann::ordered_json entry = {{"start", rounded(s.start, 1000)},
                                        {"end", rounded(s.end, 1000)},
                                        {"speaker", result.speakers[static_cast<size_t>(s.speaker)].name}};
        if (result.with_confidence) entry["confidence"] = rounded(s.confidence, 1000);
        json["segments"].push_back(std::move(entry));
    }
    if (!result.note.empty()) json["note"] = result.note;
    return json;
}

std::string dump_json(const nlohmann::ordered_json &json, int indent) {
    // Names of files need not be UTF-8; what is not becomes a replacement character.
    return json.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string write_json(const diarization &result, const terminal &) {
    return dump_json(to_json(result), 1) + "\n";
}

std::string write_webvtt(const diarization &result, const terminal &) {
    std::string text = "WEBVTT\n";
    for (const segment &s : result.segments) {
        const std::string name = escape_xml(one_line(result.speakers[static_cast<size_t>(s.speaker)].name));
        text += "\n" + caption_time(s.start, '.') + " --> " + caption_time(s.end, '.') + "\n<v " + name +
                ">" + name + "\n";
    }
    return text;
}

std::string write_srt(const diarization &result, const terminal &) {
    std::string text;
    int index = 0;
    for (const segment &s : result.segments) {
        text += std::to_string(++index) + "\n" + caption_time(s.start, ',') + " --> " +
                caption_time(s.end, ',') + "\n" +
                one_line(result.speakers[static_cast<size_t>(s.speaker)].name) + "\n\n";
    }
    return text;
}

std::string write_textgrid(const diarization &result, const terminal &) {
    const auto quoted = [](const std::string &text) {
        std::string doubled;
        for (char c : text) doubled += c == '"' ? "\"\"" : std::string(1, c);
        return "\"" + doubled + "\"";
    };
    const std::string duration = number(result.duration);
    std::string text =
        "File type = \"ooTextFile\"\nObject class = \"TextGrid\"\n\nxmin = 0\nxmax = " + duration +
        "\ntiers? <exists>\nsize = " + std::to_string(result.speakers.size()) + "\nitem []:\n";
    for (size_t k = 0; k < result.speakers.size(); k++) {
        const std::vector<interval> tier = fill(result, k);
        text += "    item [" + std::to_string(k + 1) +
                "]:\n        class = \"IntervalTier\"\n        name = " + quoted(result.speakers[k].name) +
                "\n        xmin = 0\n        xmax = " + duration +
                "\n        intervals: size = " + std::to_string(tier.size()) + "\n";
        for (size_t i = 0; i < tier.size(); i++) {
            text += "        intervals [" + std::to_string(i + 1) +
                    "]:\n            xmin = " + number(tier[i].start) +
                    "\n            xmax = " + number(tier[i].end) +
                    "\n            text = " + quoted(tier[i].text) + "\n";
        }
    }
    return text;
}

std::string write_eaf(const diarization &result, const terminal &) {
    const auto milliseconds = [](double seconds) { return std::to_string(std::llround(seconds * 1000)); };
    // Slots must come in order of time; annotation n begins at slot 2 n and ends at slot 2 n + 1.
    std::vector<std::pair<double, size_t>> times;
    for (size_t n = 0; n < result.segments.size(); n++) {
        times.emplace_back(result.segments[n].start, 2 * n);
        times.emplace_back(result.segments[n].end, 2 * n + 1);
    }
    std::ranges::stable_sort(times, {}, &std::pair<double, size_t>::first);
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
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<ANNOTATION_DOCUMENT AUTHOR=\"parley\" DATE=\"1970-01-01T00:00:00+00:00\" FORMAT=\"3.0\" "
           "VERSION=\"3.0\">\n"
           "    <HEADER MEDIA_FILE=\"\" TIME_UNITS=\"milliseconds\">\n"
           "        <MEDIA_DESCRIPTOR MEDIA_URL=\"" +
           escape_xml(result.path) +
           "\" MIME_TYPE=\"audio/*\"/>\n"
           "    </HEADER>\n    <TIME_ORDER>\n" +
           slots + "    </TIME_ORDER>\n" + tiers +
           "    <LINGUISTIC_TYPE GRAPHIC_REFERENCES=\"false\" LINGUISTIC_TYPE_ID=\"default-lt\" "
           "TIME_ALIGNABLE=\"true\"/>\n"
           "</ANNOTATION_DOCUMENT>\n";
}
