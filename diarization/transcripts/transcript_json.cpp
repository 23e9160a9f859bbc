// SPDX-License-Identifier: Apache-2.0
// Transcripts in JSON, as speech recognizers and services write them.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "markup.h"
#include "transcript_parts.h"

namespace {

using json = nlohmann::ordered_json;

std::optional<std::pair<double, double>> numbers_of(const json &object, const char *first, const char *last,
                                                    double unit) {
    if (!object.is_object() || !object.contains(first) || !object.contains(last)) return std::nullopt;
    const json &start = object[first], &end = object[last];
    if (!start.is_number() || !end.is_number()) return std::nullopt;
    return std::pair(unit * start.get<double>(), unit * end.get<double>());
}

using time_span = std::pair<double, double>;

// Seconds as a number or a text, "12.5" or "12.5s".
std::optional<double> seconds_of(const json &value) {
    if (value.is_number()) return value.get<double>();
    if (!value.is_string()) return std::nullopt;
    const std::string text = value;
    char *end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    const bool is_whole = end != text.c_str() && (*end == '\0' || (*end == 's' && end[1] == '\0'));
    return is_whole && std::isfinite(seconds) ? std::optional(seconds) : std::nullopt;
}

// When something is spoken, in seconds, by whichever names its recognizer has for it; `unit` is that of
// "start" and "end".
std::optional<time_span> span_of(const json &object, double unit) {
    if (!object.is_object()) return std::nullopt;
    if (object.contains("offsets")) return numbers_of(object["offsets"], "from", "to", 0.001);
    static constexpr struct {
        const char *start, *end;
    } NAMES[] = {{"start", "end"},
                 {"start_time", "end_time"},
                 {"startTime", "endTime"},
                 {"startOffset", "endOffset"},
                 {"ts", "end_ts"}};
    for (const auto &[first, last] : NAMES) {
        if (!object.contains(first) || !object.contains(last)) continue;
        const auto start = seconds_of(object[first]), end = seconds_of(object[last]);
        if (start && end) return time_span(unit * *start, unit * *end);
    }
    for (const auto &[first, length] :
         {std::pair("offsetInTicks", "durationInTicks"), std::pair("Offset", "Duration")}) {
        constexpr double TICK = 1e-7;
        if (!object.contains(first) || !object.contains(length)) continue;
        const auto start = seconds_of(object[first]), duration = seconds_of(object[length]);
        if (start && duration) return time_span(TICK * *start, TICK * (*start + *duration));
    }
    return std::nullopt;
}

// What is spoken; "" for none.
std::string spoken_text(const json &object) {
    if (!object.is_object()) return "";
    for (const char *name : {"punctuated_word", "word", "Word", "text", "value", "content"})
        if (object.contains(name) && object[name].is_string()) return object[name];
    if (object.contains("alternatives") && object["alternatives"].is_array() &&
        !object["alternatives"].empty())
        return spoken_text(object["alternatives"][0]);
    return "";
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

// What a segment is split into where the speaker changes: itself if that is nowhere, or if it has no text.
// Its "start" and "end" are of this unit, in seconds.
std::vector<json> split_segment(const json &segment, double unit, const speakers_over_time &speakers) {
    const auto times = numbers_of(segment, "start", "end", unit);
    if (!times || !segment.contains("text") || !segment["text"].is_string() || segment.contains("offsets"))
        return {segment};
    const bool has_words =
        segment.contains("words") && segment["words"].is_array() && !segment["words"].empty();
    std::vector<spoken_word> words;
    if (has_words) {
        for (const json &word : segment["words"]) {
            const auto span = span_of(word, unit);
            const double before = words.empty() ? times->first : words.back().end;
            const json speaker = word.is_object() ? word.value("speaker", json()) : json();
            words.push_back({span ? span->first : before, span ? span->second : before, spoken_text(word),
                             speaker.is_string() ? speaker.get<std::string>() : ""});
        }
    } else {
        words = words_within(segment["text"], times->first, times->second, speakers);
    }
    const std::vector<run_of_words> runs = runs_of(words);
    if (runs.size() < 2) return {segment};
    const auto in_unit = [unit](double seconds) {
        return unit == 1 ? json(seconds) : json(std::llround(seconds / unit));
    };
    std::vector<json> parts;
    for (const run_of_words &run : runs) {
        json part = segment;
        part.erase("tokens");  // of the whole
        if (run.first > 0) part["start"] = in_unit(words[run.first].start);
        if (run.last < words.size()) part["end"] = in_unit(words[run.last - 1].end);
        std::string text;
        if (has_words) {
            part["words"] = json::array();
            for (size_t i = run.first; i < run.last; i++) {
                part["words"].push_back(segment["words"][i]);
                const bool is_apart = text.empty() || words[i].text.starts_with(' ');
                text += (is_apart ? "" : " ") + words[i].text;
            }
        } else {
            text = joined(words, run.first, run.last);
        }
        part["text"] = text;
        part["speaker"] = run.speaker.empty() ? json(nullptr) : json(run.speaker);
        parts.push_back(std::move(part));
    }
    return parts;
}

// Returns how many speakers were asked for.
int assign_to(json *value, double unit, const speakers_over_time &speakers) {
    int num_timed = 0;
    for (json &inner : *value)
        if (inner.is_structured()) num_timed += assign_to(&inner, unit, speakers);
    if (value->is_array()) {
        json parts = json::array();
        for (const json &inner : *value)
            for (json &part : split_segment(inner, unit, speakers)) parts.push_back(std::move(part));
        *value = std::move(parts);
        return num_timed;
    }
    if (value->contains("words") && (*value)["words"].is_array()) give_neighbours_speaker(&(*value)["words"]);
    const auto times = span_of(*value, unit);
    if (!times) return num_timed;
    std::string speaker = speakers.at(times->first, times->second);
    if (value->contains("words") && (*value)["words"].is_array()) {
        std::map<std::string, double> spoken;
        for (const json &word : (*value)["words"]) {
            const auto span = span_of(word, unit);
            if (span && word.contains("speaker") && word["speaker"].is_string())
                spoken[word["speaker"].get<std::string>()] += span->second - span->first;
        }
        const auto longest = std::max_element(
            spoken.begin(), spoken.end(), [](const auto &a, const auto &b) { return a.second < b.second; });
        if (longest != spoken.end()) speaker = longest->first;
    }
    (*value)["speaker"] = speaker.empty() ? json(nullptr) : json(speaker);
    return num_timed + 1;
}

// ---- Words

bool is_list(const json &object, const char *name) {
    return object.is_object() && object.contains(name) && object[name].is_array() && !object[name].empty();
}

bool is_punctuation(const json &object) {
    const json type = object.is_object() ? object.value("type", json()) : json();
    return type == "punctuation" || type == "punct";
}

// The lists of which one has all words of an object; the others, such as "word_segments", repeat them.
const char *list_of_words(const json &object) {
    const bool has_segments = is_list(object, "segments");
    if (has_segments && (is_list(object["segments"][0], "words") || !is_list(object, "words")))
        return "segments";
    for (const char *name : {"words", "Words", "tokens", "elements"})
        if (is_list(object, name)) return name;
    for (const char *name : {"monologues", "items", "recognizedPhrases"})
        if (is_list(object, name)) return name;
    return nullptr;
}

// Of whisper.cpp: words, parts of words and marks.
bool is_token(const json &object) {
    return object.is_object() && object.contains("id") && object.contains("offsets") && object.contains("p");
}

class word_collector {
public:
    word_collector(const speakers_over_time &speakers, double unit) : speakers_(speakers), unit_(unit) {}

    void collect(const json &value) {
        if (value.is_array()) return collect_list(value, std::nullopt);
        const auto span = span_of(value, unit_);
        if (const char *name = list_of_words(value)) {
            const size_t before = words_.size();
            collect_list(value[name], span);
            if (words_.size() > before) return;
        }
        if (span && !spoken_text(value).empty()) return add(spoken_text(value), *span);
        for (const auto &[name, inner] : value.items()) {
            const bool is_choice = name == "alternatives" || name == "nBest" || name == "NBest";
            if (is_choice && inner.is_array() && !inner.empty())
                collect(inner[0]);  // the best one
            else if (inner.is_structured())
                collect(inner);
        }
    }

    std::vector<spoken_word> take() { return std::move(words_); }

private:
    // Words without times (numbers, often) stand in the gap between their neighbours; `outer` is the list's
    // time.
    void collect_list(const json &list, const std::optional<time_span> &outer) {
        std::vector<std::string> waiting;
        double end = outer ? outer->first : 0;  // of the word before
        bool is_timed = outer.has_value();
        const auto put_waiting = [&](double next) {
            if (!waiting.empty() && is_timed) add_within_gap(waiting, end, next);
            waiting.clear();
        };
        for (const json &inner : list) {
            if (!inner.is_structured()) continue;
            const std::string text = spoken_text(inner);
            const bool is_word = !text.empty() && !list_of_words(inner);
            if (is_word && (is_punctuation(inner) || is_part_of_word(inner, text))) {
                lengthen_last(text, span_of(inner, unit_));
                continue;
            }
            if (is_token(inner) && text.starts_with("[_")) continue;  // a mark, not a word
            const auto span = span_of(inner, unit_);
            if (is_word && !span) {
                waiting.push_back(text);
                continue;
            }
            if (span) {
                if (!is_timed) end = span->first;  // words in front of the first one that has times
                is_timed = true;
                put_waiting(span->first);
                end = span->second;
            }
            collect(inner);
        }
        put_waiting(outer ? std::max(end, outer->second) : end);
    }

    // Tokens without a blank in front go on with a word.
    bool is_part_of_word(const json &object, const std::string &text) const {
        return is_token(object) && !text.starts_with(' ') && !text.starts_with("[_") && !words_.empty();
    }

    void lengthen_last(const std::string &text, const std::optional<time_span> &span) {
        if (words_.empty()) return;
        words_.back().text += text.find_first_not_of(' ') == std::string::npos ? "" : text;
        if (span) words_.back().end = std::max(words_.back().end, span->second);
    }

    void add_within_gap(const std::vector<std::string> &texts, double start, double end) {
        std::string joined;
        for (const std::string &text : texts) joined += text + " ";
        add(joined, {start, std::max(start, end)});
    }

    void add(const std::string &text, const time_span &span) {
        const std::vector<spoken_word> more = words_within(text, span.first, span.second, speakers_);
        words_.insert(words_.end(), more.begin(), more.end());
    }

    const speakers_over_time &speakers_;
    double unit_;
    std::vector<spoken_word> words_;
};

// Services that count in milliseconds tell the recording's length in seconds.
double unit_of(const json &value) {
    const bool is_in_milliseconds =
        value.is_object() && value.contains("audio_duration") && is_list(value, "words");
    return is_in_milliseconds ? 0.001 : 1;
}

}  // namespace

std::string assign_json(const std::string &text, const speakers_over_time &speakers) {
    json value = parse_json(text);
    if (assign_to(&value, unit_of(value), speakers) == 0) refuse_without_times();
    return pretty_json(value) + "\n";
}

std::vector<spoken_word> read_json_words(const std::string &text, const speakers_over_time &speakers) {
    const json value = parse_json(text);
    word_collector words(speakers, unit_of(value));
    words.collect(value);
    return words.take();
}
