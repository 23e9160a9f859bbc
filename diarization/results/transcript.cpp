#include "transcript.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "formats.h"
#include "markup.h"
#include "writing.h"

namespace {

using json = nlohmann::ordered_json;

constexpr int DEEPEST = 64;                  // of JSON; transcripts need four or five levels
constexpr long LARGEST_NUMBER = 1000000000;  // of a caption

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

// ---- Where the speaker changes

constexpr double SHORTEST_RUN =
    0.5;  // seconds: what is shorter, and a single word, belongs to its neighbours

// A run of words of one speaker: [first, last).
struct run_of_words {
    size_t first, last;
    std::string speaker;
};

std::vector<run_of_words> runs_of(const std::vector<spoken_word> &words) {
    std::vector<run_of_words> runs;
    for (size_t i = 0; i < words.size(); i++) {
        if (runs.empty() || runs.back().speaker != words[i].speaker) runs.push_back({i, i, words[i].speaker});
        runs.back().last = i + 1;
    }
    const auto is_short = [&](const run_of_words &r) {
        return r.last - r.first == 1 && words[r.first].end - words[r.first].start < SHORTEST_RUN;
    };
    for (size_t i = 0; runs.size() > 1 && i < runs.size();) {
        const bool joins = is_short(runs[i]) || (i > 0 && runs[i - 1].speaker == runs[i].speaker);
        if (!joins) {
            i++;
        } else if (i == 0) {
            runs[1].first = 0;
            runs.erase(runs.begin());
        } else {
            runs[i - 1].last = runs[i].last;
            runs.erase(runs.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    return runs;
}

// The words of a text without times of their own: they share the text's by their length.
std::vector<spoken_word> words_within(const std::string &text, double start, double end,
                                      const speakers_over_time &speakers) {
    std::istringstream stream(text);
    std::vector<spoken_word> words;
    double length = 0;
    for (std::string word; stream >> word;) {
        length += static_cast<double>(word.size() + 1);
        words.push_back({0, 0, word, ""});
    }
    double at = start;
    for (spoken_word &word : words) {
        word.start = at;
        at += (end - start) * static_cast<double>(word.text.size() + 1) / length;
        word.end = at;
        word.speaker = speakers.at(word.start, word.end);
    }
    return words;
}

std::string joined(const std::vector<spoken_word> &words, size_t first, size_t last) {
    std::string text;
    for (size_t i = first; i < last; i++) text += (i > first ? " " : "") + words[i].text;
    return text;
}

// ---- JSON

std::string text_of(const json &object) {
    for (const char *name : {"word", "text", "punctuated_word"})
        if (object.is_object() && object.contains(name) && object[name].is_string()) return object[name];
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
std::vector<json> split_segment(const json &segment, const speakers_over_time &speakers) {
    const auto times = times_of(segment);
    if (!times || !segment.contains("text") || !segment["text"].is_string() || segment.contains("offsets"))
        return {segment};
    const bool has_words =
        segment.contains("words") && segment["words"].is_array() && !segment["words"].empty();
    std::vector<spoken_word> words;
    if (has_words) {
        for (const json &word : segment["words"]) {
            const auto span = times_of(word);
            const double before = words.empty() ? times->first : words.back().end;
            const json speaker = word.is_object() ? word.value("speaker", json()) : json();
            words.push_back({span ? span->first : before, span ? span->second : before, text_of(word),
                             speaker.is_string() ? speaker.get<std::string>() : ""});
        }
    } else {
        words = words_within(segment["text"], times->first, times->second, speakers);
    }
    const std::vector<run_of_words> runs = runs_of(words);
    if (runs.size() < 2) return {segment};
    std::vector<json> parts;
    for (const run_of_words &run : runs) {
        json part = segment;
        part.erase("tokens");  // of the whole
        part["start"] = run.first == 0 ? times->first : words[run.first].start;
        part["end"] = run.last == words.size() ? times->second : words[run.last - 1].end;
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
int assign_json(json *value, const speakers_over_time &speakers) {
    int num_timed = 0;
    for (json &inner : *value)
        if (inner.is_structured()) num_timed += assign_json(&inner, speakers);
    if (value->is_array()) {
        json parts = json::array();
        for (const json &inner : *value)
            for (json &part : split_segment(inner, speakers)) parts.push_back(std::move(part));
        *value = std::move(parts);
        return num_timed;
    }
    if (value->contains("words") && (*value)["words"].is_array()) give_neighbours_speaker(&(*value)["words"]);
    const auto times = times_of(*value);
    if (!times) return num_timed;
    std::string speaker = speakers.at(times->first, times->second);
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

json parse_json(const std::string &text) {
    try {
        return json::parse(text, [](int depth, json::parse_event_t, json &) {
            if (depth > DEEPEST) throw std::runtime_error("JSON nested too deeply");
            return true;
        });
    } catch (const json::exception &error) {
        throw std::runtime_error(error.what());
    }
}

// All that has text and times, the innermost.
void collect_words(const json &value, const speakers_over_time &speakers, std::vector<spoken_word> *words) {
    const size_t before = words->size();
    for (const json &inner : value)
        if (inner.is_structured()) collect_words(inner, speakers, words);
    const auto times = times_of(value);
    if (!times || words->size() > before) return;
    const std::vector<spoken_word> own = words_within(text_of(value), times->first, times->second, speakers);
    words->insert(words->end(), own.begin(), own.end());
}

// ---- Captions and tables

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

// A caption with the lines in front of it (its number, notes, blanks), as they stand in the file.
struct caption {
    std::vector<std::string> before;
    std::string time_line;
    caption_line times{};
    std::vector<std::string> text;
    bool has_times = false;
};

std::vector<caption> read_captions(const std::string &text) {
    std::vector<caption> captions(1);
    rewrite_lines(text, [&](const std::string &line, int) {
        const auto times = parse_caption_line(line);
        if (captions.back().has_times && (line.empty() || times)) captions.emplace_back();
        caption &last = captions.back();
        if (times) {
            last.time_line = line;
            last.times = *times;
            last.has_times = true;
        } else {
            (last.has_times ? last.text : last.before).push_back(line);
        }
        return line;
    });
    return captions;
}

std::string without_tags(const std::string &line) {
    std::string text;
    bool in_tag = false;
    for (const char c : line) {
        if (c == '<') in_tag = true;
        if (!in_tag) text += c;
        if (c == '>') in_tag = false;
    }
    return text;
}

std::vector<spoken_word> words_of(const caption &c, const speakers_over_time &speakers) {
    std::string text;
    for (const std::string &line : c.text) text += without_tags(line) + " ";
    return words_within(text, c.times.start, c.times.end, speakers);
}

std::string with_speaker(const std::string &speaker, const std::string &text, bool vtt) {
    if (speaker.empty()) return text;
    return vtt ? "<v " + escape_xml(speaker) + ">" + text : speaker + ": " + text;
}

std::string assign_captions(const std::string &text, const speakers_over_time &speakers, bool vtt) {
    const std::string end = text.find("\r\n") == std::string::npos ? "\n" : "\r\n";
    std::string result;
    const auto put = [&](const std::string &line) { result += line + end; };
    long added = 0;
    for (const caption &c : read_captions(text)) {
        std::vector<std::string> before = c.before;
        char *rest = nullptr;
        const long number = before.empty() ? 0 : std::strtol(before.back().c_str(), &rest, 10);
        const bool is_numbered =
            !vtt && number > 0 && number < LARGEST_NUMBER && *rest == '\0' && c.has_times;
        if (is_numbered) before.back() = std::to_string(number + added);
        for (const std::string &line : before) put(line);
        if (!c.has_times) continue;
        const bool has_voice = !c.text.empty() && c.text.front().starts_with("<v");
        const std::vector<spoken_word> words = has_voice ? std::vector<spoken_word>() : words_of(c, speakers);
        const std::vector<run_of_words> runs = runs_of(words);
        if (runs.size() < 2) {
            put(c.time_line);
            for (size_t i = 0; i < c.text.size(); i++) {
                const bool is_first = i == 0 && !has_voice;
                put(is_first ? with_speaker(speakers.at(c.times.start, c.times.end), c.text[i], vtt)
                             : c.text[i]);
            }
            continue;
        }
        const size_t settings = c.time_line.find(' ', c.time_line.find("--> ") + 4);
        for (size_t r = 0; r < runs.size(); r++) {
            const double from = r == 0 ? c.times.start : words[runs[r].first].start;
            const double to = r + 1 == runs.size() ? c.times.end : words[runs[r].last - 1].end;
            if (r > 0) {
                put("");
                if (is_numbered) put(std::to_string(number + ++added));
            }
            put(caption_time(from, vtt ? '.' : ',') + " --> " + caption_time(to, vtt ? '.' : ',') +
                (settings == std::string::npos ? "" : c.time_line.substr(settings)));
            put(with_speaker(runs[r].speaker, joined(words, runs[r].first, runs[r].last), vtt));
        }
    }
    if (!text.ends_with('\n') && result.size() >= end.size()) result.resize(result.size() - end.size());
    return result;
}

struct table_row {
    double start, end;  // seconds
    std::string text;
};

table_row parse_table_row(const std::string &line, int number) {
    char *end_of_start = nullptr, *end_of_end = nullptr;
    const double start = std::strtod(line.c_str(), &end_of_start);
    const double end = std::strtod(end_of_start, &end_of_end);
    if (end_of_start == line.c_str() || end_of_end == end_of_start || *end_of_end != '\t')
        throw std::runtime_error("line " + std::to_string(number) + " is none of a table of times and text");
    return {start / 1000, end / 1000, end_of_end + 1};
}

// Whisper's table: start and end in milliseconds, text. A column more.
std::string assign_table(const std::string &text, const speakers_over_time &speakers) {
    return rewrite_lines(text, [&](const std::string &line, int number) -> std::string {
        if (number == 1) return line + "\tspeaker";
        if (line.empty()) return line;
        const table_row row = parse_table_row(line, number);
        const std::vector<spoken_word> words = words_within(row.text, row.start, row.end, speakers);
        const std::vector<run_of_words> runs = runs_of(words);
        if (runs.size() < 2) return line + "\t" + speakers.at(row.start, row.end);
        std::string rows;
        for (const run_of_words &run : runs) {
            const auto milliseconds = [](double seconds) {
                return std::to_string(std::llround(1000 * seconds));
            };
            rows += (rows.empty() ? "" : "\n") + milliseconds(words[run.first].start) + "\t" +
                    milliseconds(words[run.last - 1].end) + "\t" + joined(words, run.first, run.last) + "\t" +
                    run.speaker;
        }
        return rows;
    });
}

struct ctm_line {
    std::vector<std::string> fields;
    double start = 0, end = 0;
};

// Nothing for a comment or an empty line.
std::optional<ctm_line> parse_ctm_line(const std::string &line, int number) {
    ctm_line result;
    std::istringstream stream(line);
    std::vector<std::string> &fields = result.fields;
    for (std::string field; stream >> field;) fields.push_back(field);
    if (fields.empty() || line.starts_with(";;")) return std::nullopt;
    char *end_of_start = nullptr, *end_of_duration = nullptr;
    result.start = fields.size() < 5 ? -1 : std::strtod(fields[2].c_str(), &end_of_start);
    const double duration = fields.size() < 5 ? -1 : std::strtod(fields[3].c_str(), &end_of_duration);
    result.end = result.start + duration;
    if (fields.size() < 5 || *end_of_start || *end_of_duration || !(result.start >= 0) || !(duration >= 0))
        throw std::runtime_error("line " + std::to_string(number) + " is none of a CTM file");
    return result;
}

std::string assign_ctm(const std::string &text, const speakers_over_time &speakers) {
    return rewrite_lines(text, [&](const std::string &line, int number) {
        auto parsed = parse_ctm_line(line, number);
        if (!parsed) return line;
        std::vector<std::string> &fields = parsed->fields;
        fields.resize(std::min<size_t>(fields.size(), 7));
        if (fields.size() < 6) fields.push_back("NA");
        if (fields.size() < 7) fields.push_back("lex");
        const std::string speaker = speakers.at(parsed->start, parsed->end);
        fields.push_back(speaker.empty() ? "unknown" : field(speaker));
        std::string line_with_speaker;
        for (const std::string &f : fields) line_with_speaker += (line_with_speaker.empty() ? "" : " ") + f;
        return line_with_speaker;
    });
}

// ---- Which of them it is

enum class kind { objects, table, vtt, srt, ctm };

struct transcript {
    kind is;
    std::string text;  // without a byte order mark
};

transcript recognize(const std::string &given) {
    std::string text = given.starts_with("\xEF\xBB\xBF") ? given.substr(3) : given;
    const size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string::npos) throw std::runtime_error("the transcript is empty");
    if (text[begin] == '{' || text[begin] == '[') return {kind::objects, std::move(text)};
    if (text.compare(begin, 14, "start\tend\ttext") == 0) return {kind::table, text.substr(begin)};
    if (text.compare(begin, 6, "WEBVTT") == 0) return {kind::vtt, std::move(text)};
    const bool is_srt = text.find("-->") != std::string::npos;
    return {is_srt ? kind::srt : kind::ctm, std::move(text)};
}

[[noreturn]] void refuse_without_times() {
    throw std::runtime_error(
        "no words with times: what Whisper, whisper.cpp, faster-whisper, WhisperX and Vosk write as JSON has "
        "\"start\" and \"end\", or \"offsets\"; TSV, WebVTT, SRT and CTM are known, too");
}

// ---- For reading

// Words that are read together: of one speaker, without a long pause.
struct paragraph {
    size_t first, last;  // [first, last)
};

template <class Ends>
std::vector<paragraph> paragraphs_of(const std::vector<spoken_word> &words, Ends ends) {
    std::vector<paragraph> result;
    for (size_t i = 0; i < words.size(); i++) {
        if (result.empty() || words[i].speaker != words[i - 1].speaker || ends(result.back(), i))
            result.push_back({i, i});
        result.back().last = i + 1;
    }
    return result;
}

std::string shown_name(const spoken_word &word) {
    return word.speaker.empty() ? "somebody" : word.speaker;
}

std::string write_paragraphs(const std::vector<spoken_word> &words, bool markdown) {
    constexpr double PAUSE = 5;
    std::string text;
    for (const paragraph &p : paragraphs_of(
             words, [&](const paragraph &, size_t i) { return words[i].start - words[i - 1].end > PAUSE; })) {
        const std::string clock = clock_time(words[p.first].start), name = shown_name(words[p.first]);
        const std::string time = clock.substr(0, clock.size() - 4);
        text += (text.empty() ? "" : "\n") +
                (markdown ? "**" + name + "** " + time + "  \n" : name + " (" + time + "): ") +
                joined(words, p.first, p.last) + "\n";
    }
    return text;
}

std::string write_captions(const std::vector<spoken_word> &words, bool vtt) {
    constexpr size_t LONGEST = 84;  // characters: two lines
    constexpr double PAUSE = 1.5, LONGEST_TIME = 7;
    const auto paragraphs = paragraphs_of(words, [&](const paragraph &p, size_t i) {
        return words[i].start - words[i - 1].end > PAUSE ||
               words[i].end - words[p.first].start > LONGEST_TIME ||
               joined(words, p.first, i + 1).size() > LONGEST;
    });
    std::string text = vtt ? "WEBVTT\n" : "";
    int number = 0;
    for (const paragraph &p : paragraphs) {
        const char decimal = vtt ? '.' : ',';
        const std::string spoken = joined(words, p.first, p.last);
        text += (vtt ? "\n" : std::to_string(++number) + "\n") + caption_time(words[p.first].start, decimal) +
                " --> " + caption_time(words[p.last - 1].end, decimal) + "\n" +
                with_speaker(words[p.first].speaker, vtt ? escape_xml(spoken) : spoken, vtt) +
                (vtt ? "\n" : "\n\n");
    }
    return text;
}

std::string write_words_json(const std::vector<spoken_word> &words) {
    json result = {{"schema", "parley-transcript-1"}, {"segments", json::array()}};
    const auto rounded = [](double seconds) { return std::round(seconds * 1000) / 1000; };
    for (const paragraph &p : paragraphs_of(words, [](const paragraph &, size_t) { return false; })) {
        json segment = {
            {"start", rounded(words[p.first].start)},
            {"end", rounded(words[p.last - 1].end)},
            {"speaker", words[p.first].speaker.empty() ? json(nullptr) : json(words[p.first].speaker)},
            {"text", joined(words, p.first, p.last)},
            {"words", json::array()}};
        for (size_t i = p.first; i < p.last; i++)
            segment["words"].push_back({{"start", rounded(words[i].start)},
                                        {"end", rounded(words[i].end)},
                                        {"word", words[i].text}});
        result["segments"].push_back(std::move(segment));
    }
    return pretty_json(result) + "\n";
}

}  // namespace

speakers_over_time::speakers_over_time(std::vector<turn> turns, double reach)
    : turns_(std::move(turns)), reach_(reach) {
    std::stable_sort(turns_.begin(), turns_.end(),
                     [](const turn &a, const turn &b) { return a.start < b.start; });
    double latest = 0;
    for (const turn &t : turns_) latest_.push_back(latest = std::max(latest, t.end));
}

std::string speakers_over_time::at(double start, double end) const {
    std::map<std::string, double> spoken;
    const turn *nearest = nullptr;
    double distance = reach_;
    // What ends before and what begins behind is out of reach.
    auto i = static_cast<size_t>(std::lower_bound(latest_.begin(), latest_.end(), start - reach_) -
                                 latest_.begin());
    for (; i < turns_.size() && turns_[i].start <= end + reach_; i++) {
        const turn &t = turns_[i];
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

std::string assign_speakers(const std::string &given, const speakers_over_time &speakers) {
    const auto [is, text] = recognize(given);
    switch (is) {
        case kind::objects: {
            json value = parse_json(text);
            if (assign_json(&value, speakers) == 0) refuse_without_times();
            return pretty_json(value) + "\n";
        }
        case kind::table:
            return assign_table(text, speakers);
        case kind::ctm:
            return assign_ctm(text, speakers);
        default:
            return assign_captions(text, speakers, is == kind::vtt);
    }
}

std::vector<spoken_word> read_words(const std::string &given, const speakers_over_time &speakers) {
    const auto [is, text] = recognize(given);
    std::vector<spoken_word> words;
    const auto add = [&words](const std::vector<spoken_word> &more) {
        words.insert(words.end(), more.begin(), more.end());
    };
    if (is == kind::objects) {
        collect_words(parse_json(text), speakers, &words);
    } else if (is == kind::vtt || is == kind::srt) {
        for (const caption &c : read_captions(text)) add(words_of(c, speakers));
    } else {
        rewrite_lines(text, [&, is = is](const std::string &line, int number) {
            if (is == kind::table && number > 1 && !line.empty()) {
                const table_row row = parse_table_row(line, number);
                add(words_within(row.text, row.start, row.end, speakers));
            } else if (const auto parsed = is == kind::ctm ? parse_ctm_line(line, number) : std::nullopt) {
                add(words_within(parsed->fields[4], parsed->start, parsed->end, speakers));
            }
            return line;
        });
    }
    if (words.empty()) refuse_without_times();
    std::stable_sort(words.begin(), words.end(),
                     [](const spoken_word &a, const spoken_word &b) { return a.start < b.start; });
    return words;
}

std::string write_words(const std::vector<spoken_word> &words, std::string_view format) {
    if (format == "text" || format == "markdown") return write_paragraphs(words, format == "markdown");
    if (format == "srt" || format == "vtt") return write_captions(words, format == "vtt");
    if (format == "json") return write_words_json(words);
    throw std::runtime_error("a transcript is written as text, markdown, srt, vtt, json or html, not as " +
                             std::string(format));
}
