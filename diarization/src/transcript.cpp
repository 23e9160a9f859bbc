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

std::optional<std::pair<double, double>> numbers_of(const json &object, const char *first, const char *last,
                                                    double unit) {
    if (!object.is_object() || !object.contains(first) || !object.contains(last)) return std::nullopt;
    const json &start = object[first], &end = object[last];
    if (!start.is_number() || !end.is_number()) return std::nullopt;
    return std::pair(unit * start.get<double>(), unit * end.get<double>());
}

// Seconds as "start" and "end", or milliseconds as "offsets": {"from", "to"}.
std::optional<std::pair<double, double>> times_of(const json &object) {
    if (object.is_object() && object.contains("offsets"))
        return numbers_of(object["offsets"], "from", "to", 0.001);
    return numbers_of(object, "start", "end", 1);
}

// Words without times (numbers, often) go with the one before, or else the one behind.
void give_neighbours_speaker(json *words) {
    const auto has_speaker = [](const json &word) { return word.is_object() && word.contains("speaker"); };
    const auto take = [&](auto first, auto last) {
        for (const json *before = nullptr; first != last; ++first) {
            if (has_speaker(*first)) {
                before = &(*first)["speaker"];
            } else if (before && first->is_object()) {
                const json speaker = *before;
                (*first)["speaker"] = speaker;
                before = &(*first)["speaker"];
            }
        }
    };
    take(words->begin(), words->end());
    take(words->rbegin(), words->rend());
}

// Returns how many speakers were asked for.
int assign_json(json *value, const std::vector<turn> &turns, double reach) {
    int num_timed = 0;
    for (json &inner : *value)
        if (inner.is_structured()) num_timed += assign_json(&inner, turns, reach);
    if (value->is_object() && value->contains("words") && (*value)["words"].is_array())
        give_neighbours_speaker(&(*value)["words"]);
    const auto times = times_of(*value);
    if (!times) return num_timed;
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
    return num_timed + 1;
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

// Whisper's table: start and end in milliseconds, text. A column more.
std::string assign_table(const std::string &text, const std::vector<turn> &turns, double reach) {
    return rewrite_lines(text, [&](const std::string &line, int number) {
        if (number == 1) return line + "\tspeaker";
        if (line.empty()) return line;
        char *end_of_start = nullptr, *end_of_end = nullptr;
        const double start = std::strtod(line.c_str(), &end_of_start);
        const double end = std::strtod(end_of_start, &end_of_end);
        if (end_of_start == line.c_str() || end_of_end == end_of_start || *end_of_end != '\t')
            throw std::runtime_error("line " + std::to_string(number) +
                                     " is none of a table of times and text");
        return line + "\t" + speaker_at(turns, start / 1000, end / 1000, reach);
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
        if (assign_json(&value, turns, reach) == 0) {
            throw std::runtime_error(
                "JSON without times: what Whisper, whisper.cpp, faster-whisper, WhisperX and Vosk write has "
                "\"start\" and \"end\", or \"offsets\"");
        }
        return dump_json(value, 1) + "\n";
    }
    if (text.compare(begin, 14, "start\tend\ttext") == 0)
        return assign_table(text.substr(begin), turns, reach);
    if (text.compare(begin, 6, "WEBVTT") == 0) return assign_captions(text, turns, reach, true);
    if (text.find("-->") != std::string::npos) return assign_captions(text, turns, reach, false);
    return assign_ctm(text, turns, reach);
}
