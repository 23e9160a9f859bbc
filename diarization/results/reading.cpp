// SPDX-License-Identifier: Apache-2.0
#include "reading.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "markup.h"
#include "media.h"
#include "rttm.h"
#include "system.h"
#include "transcript_parts.h"

namespace {

using json = nlohmann::ordered_json;

constexpr double LATEST = 1e9;  // seconds
constexpr const char *UNKNOWN =
    "holds no segments: JSON, RTTM, CSV, EAF, TextGrid, SRT, WebVTT and Audacity labels are known";

// What the formats tell, before speakers are numbered.
struct content {
    std::string recording, path;
    double duration = 0;
    std::vector<turn> turns;
};

void check_times(double start, double end) {
    if (!(start >= 0 && end >= start && end <= LATEST))
        throw std::runtime_error("a segment from " + std::to_string(start) + " to " + std::to_string(end) +
                                 " s makes no sense");
}

int number_of(const std::string &given, diarization *result) {
    const std::string name = given.empty() ? "somebody" : given;
    const auto found = std::find_if(result->speakers.begin(), result->speakers.end(),
                                    [&name](const speaker &s) { return s.name == name; });
    if (found == result->speakers.end()) {
        result->speakers.push_back({name, 0, {}, 0});
        return static_cast<int>(result->speakers.size()) - 1;
    }
    return static_cast<int>(found - result->speakers.begin());
}

// Sorts segments and counts what everybody says.
void finish(diarization *result) {
    std::stable_sort(result->segments.begin(), result->segments.end(),
                     [](const segment &a, const segment &b) { return a.start < b.start; });
    for (speaker &s : result->speakers) s.seconds = 0;
    for (const segment &s : result->segments) {
        check_times(s.start, s.end);
        result->duration = std::max(result->duration, s.end);
        result->speakers[static_cast<size_t>(s.speaker)].seconds += s.end - s.start;
    }
}

diarization result_of(content given) {
    std::stable_sort(given.turns.begin(), given.turns.end(),
                     [](const turn &a, const turn &b) { return a.start < b.start; });
    diarization result;
    result.recording = given.recording;
    result.path = given.path;
    result.duration = given.duration;
    for (const turn &t : given.turns) {
        result.segments.push_back({t.start, t.end, number_of(t.speaker, &result), 0, false, ""});
    }
    finish(&result);
    return result;
}

// ---- JSON

double number_in(const json &object, const char *name) {
    const json value = object.is_object() ? object.value(name, json()) : json();
    if (!value.is_number()) throw std::runtime_error(std::string("\"") + name + "\" is missing");
    return value.get<double>();
}

const json &list_in(const json &object, const char *name) {
    static const json NONE = json::array();
    const auto found = object.find(name);
    return found == object.end() || !found->is_array() ? NONE : *found;
}

void read_json_speakers(const json &object, diarization *result) {
    for (const json &entry : list_in(object, "speakers")) {
        speaker &named = result->speakers[static_cast<size_t>(number_of(text_in(entry, "name"), result))];
        if (entry.contains("similarity")) named.similarity = number_in(entry, "similarity");
        for (const json &value : list_in(entry, "embedding")) {
            if (!value.is_number()) throw std::runtime_error("an embedding holds what is no number");
            named.embedding.push_back(value.get<float>());
        }
        result->with_embeddings |= !named.embedding.empty();
    }
}

diarization read_json(const std::string &text) {
    const json object = parse_json(text);
    if (!object.is_object() || text_in(object, "schema") != "parley-diarization-1")
        throw std::runtime_error("is JSON, but no result of this program");
    diarization result;
    result.recording = text_in(object, "recording");
    result.path = text_in(object, "path");
    result.note = text_in(object, "note");
    result.model = text_in(object, "model");
    result.duration = number_in(object, "duration");
    check_times(0, result.duration);
    read_json_speakers(object, &result);
    for (const json &entry : list_in(object, "segments")) {
        segment s = {number_in(entry, "start"),
                     number_in(entry, "end"),
                     number_of(text_in(entry, "speaker"), &result),
                     0,
                     false,
                     text_in(entry, "comment")};
        if (entry.contains("confidence")) {
            s.confidence = number_in(entry, "confidence");
            result.with_confidence = true;
        }
        s.edited = entry.value("edited", json()) == true;
        s.is_overlap = entry.value("overlap", json()) == true;
        result.segments.push_back(s);
    }
    for (const json &entry : list_in(object, "words")) {
        result.words.push_back({number_in(entry, "start"), number_in(entry, "end"), text_in(entry, "text"),
                                text_in(entry, "speaker")});
        spoken_word &word = result.words.back();
        check_times(word.start, word.end);
        if (const json begins = entry.value("paragraph", json()); begins.is_boolean())
            word.begins_paragraph = begins.get<bool>();
        if (word.text.empty()) result.words.pop_back();
    }
    finish(&result);
    return result;
}

// ---- Tables

content read_rttm_turns(const std::string &text, const std::string &name) {
    std::istringstream stream(text);
    const rttm recordings = read_rttm(stream, name);
    if (recordings.size() > 1) throw std::runtime_error("holds several recordings");
    if (recordings.empty()) return {};
    return {recordings.begin()->first, "", 0, recordings.begin()->second};
}

std::optional<double> number_of_text(const std::string &text) {
    char *end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    return end != text.c_str() && *end == '\0' ? std::optional(number) : std::nullopt;
}

double seconds_in(const std::string &text) {
    const auto seconds = number_of_text(text);
    if (!seconds) throw std::runtime_error("\"" + text + "\" is no time");
    return *seconds;
}

// Rows of fields; quotes hold separators and line ends, and are doubled inside (RFC 4180).
std::vector<std::vector<std::string>> rows_of(const std::string &text, char separator) {
    std::vector<std::vector<std::string>> rows(1, {""});
    bool is_quoted = false;
    for (size_t i = 0; i < text.size(); i++) {
        std::string &field = rows.back().back();
        const char c = text[i];
        if (is_quoted && c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
            field += text[++i];
        } else if (c == '"' && (is_quoted || field.empty())) {
            is_quoted = !is_quoted;
        } else if (is_quoted) {
            field += c;
        } else if (c == separator) {
            rows.back().emplace_back();
        } else if (c == '\n') {
            rows.push_back({""});
        } else if (c != '\r') {
            field += c;
        }
    }
    std::erase_if(rows, [](const auto &row) { return row.size() == 1 && row[0].empty(); });
    return rows;
}

content read_csv(const std::string &text) {
    const auto rows = rows_of(text, ',');
    const auto column = [&rows](const char *name) {
        return static_cast<size_t>(std::find(rows[0].begin(), rows[0].end(), name) - rows[0].begin());
    };
    const size_t recording = column("recording"), start = column("start"), end = column("end"),
                 speaker = column("speaker"), most = std::max({start, end, speaker});
    if (most >= rows[0].size()) throw std::runtime_error("has no columns start, end and speaker");
    content result;
    for (size_t i = 1; i < rows.size(); i++) {
        if (rows[i].size() <= most)
            throw std::runtime_error("row " + std::to_string(i + 1) + " is cut short");
        if (recording < rows[i].size()) {
            if (i > 1 && rows[i][recording] != result.recording)
                throw std::runtime_error("holds several recordings");
            result.recording = rows[i][recording];
        }
        result.turns.push_back({seconds_in(rows[i][start]), seconds_in(rows[i][end]), rows[i][speaker]});
    }
    return result;
}

content read_audacity(const std::string &text) {
    content result;
    for (const auto &row : rows_of(text, '\t'))
        if (row.size() == 3 && row[0] != "\\")  // lines with a backslash are about frequencies
            result.turns.push_back({seconds_in(row[0]), seconds_in(row[1]), row[2]});
    return result;
}

// ---- Tiers

// The numbers and the quoted texts of a TextGrid, long or short, in their order: names of fields and what
// stands in brackets is for people.
std::vector<std::string> textgrid_values(const std::string &text) {
    std::vector<std::string> values;
    for (size_t i = 0; i < text.size();) {
        if (text[i] == '"') {
            std::string value;
            for (i++; i < text.size(); i++) {
                if (text[i] == '"' && text.compare(i, 2, "\"\"") != 0) break;
                if (text[i] == '"') i++;
                value += text[i];
            }
            i++;
            values.push_back("\"" + value);
        } else if (text[i] == '[') {
            i = std::min(text.find(']', i), text.size());
        } else if (text[i] == '-' || (text[i] >= '0' && text[i] <= '9')) {
            const size_t end = text.find_first_not_of("0123456789.-+eE", i);
            values.push_back(text.substr(i, end - i));
            i = std::min(end, text.size());
        } else {
            i++;
        }
    }
    return values;
}

content read_textgrid(const std::string &text) {
    const std::vector<std::string> values = textgrid_values(text);
    size_t at = 2;  // behind "ooTextFile" and "TextGrid"
    const auto next = [&]() -> const std::string & {
        if (at >= values.size()) throw std::runtime_error("is cut short");
        return values[at++];
    };
    const auto label = [&] { return next().substr(1); };
    content result;
    next();
    result.duration = seconds_in(next());
    next();  // how many tiers: as many as there are
    while (at < values.size()) {
        const std::string kind = label(), name = label();
        at += 2;
        const double count = seconds_in(next());
        for (double i = 0; i < count; i++) {
            const double start = seconds_in(next());
            const double end = kind == "IntervalTier" ? seconds_in(next()) : start;
            const std::string said = label();
            if (!said.empty() && end > start) result.turns.push_back({start, end, name});
        }
    }
    return result;
}

// The tags of an XML document with what stands between each and the next; comments and the like are left out.
struct xml_tag {
    std::string name;  // "TIER", "/TIER"
    std::map<std::string, std::string> attributes;
};

std::string unescape_xml(std::string text) {
    static constexpr std::pair<std::string_view, const char *> ENTITIES[] = {
        {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&amp;", "&"}};
    for (const auto &[entity, character] : ENTITIES)
        for (size_t at = 0; (at = text.find(entity, at)) != std::string::npos; at++)
            text.replace(at, entity.size(), character);
    return text;
}

std::vector<xml_tag> tags_of(const std::string &text) {
    std::vector<xml_tag> found;
    for (size_t at = 0; (at = text.find('<', at)) != std::string::npos;) {
        if (text.compare(at, 4, "<!--") == 0) {
            at = text.find("-->", at);
            continue;
        }
        const size_t end = text.find('>', at);
        if (end == std::string::npos) throw std::runtime_error("is cut short");
        size_t from = std::min(text.find_first_of(" \t\r\n/>", at + 2), end);
        xml_tag tag = {text.substr(at + 1, from - at - 1), {}};
        for (size_t equals; (equals = text.find('=', from)) < end;) {
            const size_t first = text.find_first_not_of(" \t\r\n", from);
            const size_t open = text.find_first_of("\"'", equals);
            const size_t close = open == std::string::npos ? open : text.find(text[open], open + 1);
            if (close == std::string::npos || close > end) break;  // a value with a > inside is cut there
            std::string name = text.substr(first, equals - first);
            name.erase(name.find_last_not_of(" \t\r\n") + 1);
            tag.attributes[name] = unescape_xml(text.substr(open + 1, close - open - 1));
            from = close + 1;
        }
        found.push_back(std::move(tag));
        at = end;
    }
    return found;
}

content read_eaf(const std::string &text) {
    content result;
    std::map<std::string, double> slots;
    std::string tier;
    for (const xml_tag &tag : tags_of(text)) {
        const auto value = [&tag](const char *name) {
            const auto found = tag.attributes.find(name);
            return found == tag.attributes.end() ? "" : found->second;
        };
        if (tag.name == "MEDIA_DESCRIPTOR") {
            result.path = path_of_url(value("RELATIVE_MEDIA_URL"));
        } else if (tag.name == "TIME_SLOT" && !value("TIME_VALUE").empty()) {
            slots[value("TIME_SLOT_ID")] = seconds_in(value("TIME_VALUE")) / 1000;
        } else if (tag.name == "TIER") {
            tier = value("TIER_ID");
        } else if (tag.name == "ALIGNABLE_ANNOTATION") {
            const auto start = slots.find(value("TIME_SLOT_REF1")), end = slots.find(value("TIME_SLOT_REF2"));
            if (start != slots.end() && end != slots.end())
                result.turns.push_back({start->second, end->second, tier});
        }
    }
    return result;
}

// ---- Captions

struct spoken_caption {
    std::string name, said;
    bool has_name;
};

// "<v Name>" or "Name: " in front of what is said.
spoken_caption take_apart(const caption_text &caption) {
    constexpr size_t LONGEST_NAME = 60;  // bytes; a colon may stand in what is said, too
    std::string said;
    for (const std::string &line : caption.lines) said += (said.empty() ? "" : " ") + without_tags(line);
    const std::string first = caption.lines.empty() ? "" : caption.lines.front();
    if (first.starts_with("<v")) {
        const size_t begin = first.find(' '), end = first.find('>');
        const std::string name = unescape_xml(begin < end ? first.substr(begin + 1, end - begin - 1) : "");
        said = unescape_xml(said);
        return {name, said == name ? "" : said, true};  // a result has the name as its text
    }
    const size_t colon = said.find(": ");
    if (colon == std::string::npos || colon > LONGEST_NAME) return {"", said, false};
    return {said.substr(0, colon), said.substr(colon + 2), true};
}

// Where no caption has a name in front, what they say is names.
diarization result_of_captions(const std::string &text) {
    content given;
    std::vector<spoken_word> words;
    const std::vector<caption_text> captions = captions_of(text);
    const bool have_names = std::any_of(captions.begin(), captions.end(),
                                        [](const caption_text &c) { return take_apart(c).has_name; });
    for (const caption_text &c : captions) {
        auto [name, said, has_name] = take_apart(c);
        if (!have_names) std::swap(name, said);
        given.turns.push_back({c.start, c.end, name});
        const std::vector<spoken_word> more = words_within(said, c.start, c.end, speakers_over_time({}, 0));
        for (spoken_word word : more) {
            word.speaker = name;
            words.push_back(std::move(word));
        }
    }
    diarization result = result_of(std::move(given));
    result.words = std::move(words);
    return result;
}

diarization recognize(const std::string &text, const std::string &name) {
    const std::string first = text.substr(0, text.find_first_of("\r\n"));
    std::istringstream fields(first);
    std::string field;
    fields >> field;
    if (field.starts_with("{") || field.starts_with("[")) return read_json(text);
    if (field.starts_with("<")) return result_of(read_eaf(text));
    if (first.starts_with("File type")) return result_of(read_textgrid(text));
    if (text.find("-->") != std::string::npos) return result_of_captions(text);
    if (first.find("start,end") != std::string::npos) return result_of(read_csv(text));
    if (first.find('\t') != std::string::npos && number_of_text(field)) return result_of(read_audacity(text));
    if (text.find("SPEAKER ") == std::string::npos) throw std::runtime_error(UNKNOWN);
    return result_of(read_rttm_turns(text, name));
}

}  // namespace

diarization read_result(const std::string &given, const std::string &name) {
    const std::string text = given.starts_with("\xEF\xBB\xBF") ? given.substr(3) : given;
    diarization result;
    try {
        result = recognize(text, name);
    } catch (const json::exception &error) {
        throw std::runtime_error(name + ": " + error.what());
    } catch (const std::runtime_error &error) {
        const std::string message = error.what();
        throw std::runtime_error(message.starts_with(name) ? message : name + ": " + message);
    }
    if (result.segments.empty() && result.duration == 0) throw std::runtime_error(name + ": " + UNKNOWN);
    if (result.recording.empty()) result.recording = stem_of(result.path.empty() ? name : result.path);
    return result;
}
