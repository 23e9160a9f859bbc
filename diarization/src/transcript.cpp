#include "transcript.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "markup.h"

namespace {

constexpr int DEEPEST = 64;  // of JSON; transcripts need four or five levels

using json = nlohmann::ordered_json;

std::optional<std::pair<double, double>> times_of(const json &object) {
    if (!object.is_object() || !object.contains("start") || !object.contains("end")) return std::nullopt;
    const json &start = object["start"], &end = object["end"];
    if (!start.is_number() || !end.is_number()) return std::nullopt;
    return std::pair(start.get<double>(), end.get<double>());
}

void assign_json(json *value, const std::vector<turn> &turns, double reach) {
    for (json &inner : *value)
        if (inner.is_structured()) assign_json(&inner, turns, reach);
    const auto times = times_of(*value);
    if (!times) return;
    std::string speaker = speaker_at(turns, times->first, times->second, reach);
    if (value->contains("words") && (*value)["words"].is_array()) {
        std::map<std::string, double> spoken;
        for (const json &word : (*value)["words"]) {
            const auto span = times_of(word);
            if (span && word.contains("speaker") && word["speaker"].is_string())
                spoken[word["speaker"].get<std::string>()] += span->second - span->first;
        }
        const auto most = std::max_element(spoken.begin(), spoken.end(),
                                           [](const auto &a, const auto &b) { return a.second < b.second; });
        if (most != spoken.end()) speaker = most->first;
    }
    (*value)["speaker"] = speaker.empty() ? json(nullptr) : json(speaker);
}

// "1:02:03.450", "02:03.450", "01:02:03,450"; nothing else.
std::optional<double> parse_caption_time(const std::string &text) {
    double seconds = 0;
    int fields = 0;
    std::string field;
    for (size_t i = 0; i <= text.size(); i++) {
        if (i < text.size() && text[i] != ':') {
            field += text[i] == ',' ? '.' : text[i];
            continue;
        }
        char *end = nullptr;
        const double value = std::strtod(field.c_str(), &end);
        if (field.empty() || *end != '\0' || !std::isfinite(value) || value < 0) return std::nullopt;
        seconds = 60 * seconds + value;
        field.clear();
        fields++;
    }
    if (fields < 2 || fields > 3) return std::nullopt;
    return seconds;
}

struct caption_line {
    double start, end;
};

std::optional<caption_line> parse_caption_line(const std::string &line) {
    std::istringstream fields(line);
    std::string start, arrow, end;
    if (!(fields >> start >> arrow >> end) || arrow != "-->") return std::nullopt;
    const auto from = parse_caption_time(start), to = parse_caption_time(end);
    if (!from || !to) return std::nullopt;
    return caption_line{*from, *to};
}

// Goes through the lines with their ends; `change` may put something before or behind.
template <class Change>
std::string rewrite_lines(const std::string &text, Change change) {
    std::string result;
    size_t at = 0;
    for (int number = 1; at < text.size(); number++) {
        const size_t newline = text.find('\n', at);
        std::string line = text.substr(at, newline == std::string::npos ? newline : newline - at);
        std::string end = newline == std::string::npos ? "" : "\n";
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
            end = "\r" + end;
        }
        result += change(line, number) + end;
        at = newline == std::string::npos ? text.size() : newline + 1;
    }
    return result;
}

std::string assign_captions(const std::string &text, const std::vector<turn> &turns, double reach, bool vtt) {
    std::optional<caption_line> pending;
    return rewrite_lines(text, [&](const std::string &line, int) {
        if (const auto times = parse_caption_line(line)) {
            pending = times;
        } else if (pending && !line.empty()) {
            const std::string speaker = speaker_at(turns, pending->start, pending->end, reach);
            pending.reset();
            const bool has_voice = vtt && line.starts_with("<v");
            if (!speaker.empty() && !has_voice)
                return vtt ? "<v " + escape_xml(speaker) + ">" + line : speaker + ": " + line;
        }
        return line;
    });
}

std::string assign_ctm(const std::string &text, const std::vector<turn> &turns, double reach) {
    return rewrite_lines(text, [&](const std::string &line, int number) {
        std::istringstream stream(line);
        std::vector<std::string> fields;
        for (std::string field; stream >> field;) fields.push_back(field);
        if (fields.empty() || line.starts_with(";;")) return line;
        char *end_of_start = nullptr, *end_of_duration = nullptr;
        const double start = fields.size() < 5 ? -1 : std::strtod(fields[2].c_str(), &end_of_start);
        const double duration = fields.size() < 5 ? -1 : std::strtod(fields[3].c_str(), &end_of_duration);
        if (fields.size() < 5 || *end_of_start || *end_of_duration || !(start >= 0) || !(duration >= 0))
            throw std::runtime_error("line " + std::to_string(number) + " is none of a CTM file");
        fields.resize(std::min<size_t>(fields.size(), 7));
        if (fields.size() < 6) fields.push_back("NA");
        if (fields.size() < 7) fields.push_back("lex");
        std::string speaker = speaker_at(turns, start, start + duration, reach);
        std::replace_if(
            speaker.begin(), speaker.end(), [](unsigned char c) { return std::isspace(c); }, '_');
        fields.push_back(speaker.empty() ? "unknown" : speaker);
        std::string joined;
        for (const std::string &field : fields) joined += (joined.empty() ? "" : " ") + field;
        return joined;
    });
}

}  // namespace

std::string speaker_at(const std::vector<turn> &turns, double start, double end, double reach) {
    std::map<std::string, double> spoken;
    const turn *nearest = nullptr;
    double distance = reach;
    for (const turn &t : turns) {
        const double shared = std::min(end, t.end) - std::max(start, t.start);
        if (shared > 0) spoken[t.speaker] += shared;
        const double away = std::max({0.0, t.start - end, start - t.end});
        if (away <= distance && (!nearest || away < distance)) {
            distance = away;
            nearest = &t;
        }
    }
    const auto most = std::max_element(spoken.begin(), spoken.end(),
                                       [](const auto &a, const auto &b) { return a.second < b.second; });
    if (most != spoken.end()) return most->first;
    return nearest ? nearest->speaker : "";
}

std::string assign_speakers(const std::string &text, const std::vector<turn> &turns, double reach) {
    const size_t mark = text.starts_with("\xEF\xBB\xBF") ? 3 : 0;
    const size_t begin = text.find_first_not_of(" \t\r\n", mark);
    if (begin == std::string::npos) throw std::runtime_error("the transcript is empty");
    if (text[begin] == '{' || text[begin] == '[') {
        json value;
        try {
            value = json::parse(text.begin() + static_cast<std::ptrdiff_t>(mark), text.end(),
                                [](int depth, json::parse_event_t, json &) {
                                    if (depth > DEEPEST) throw std::runtime_error("JSON nested too deeply");
                                    return true;
                                });
        } catch (const json::exception &error) {
            throw std::runtime_error(error.what());
        }
        assign_json(&value, turns, reach);
        return dump_json(value, 1) + "\n";
    }
    if (text.compare(begin, 6, "WEBVTT") == 0) return assign_captions(text, turns, reach, true);
    if (text.find("-->") != std::string::npos) return assign_captions(text, turns, reach, false);
    return assign_ctm(text, turns, reach);
}
