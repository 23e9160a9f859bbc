// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>

#include "formats.h"
#include "markup.h"

namespace {

double rounded(double value, double steps) {
    return std::round(value * steps) / steps;
}

}  // namespace

nlohmann::ordered_json to_json(const diarization &result) {
    nlohmann::ordered_json json;
    json["schema"] = "parley-diarization-1";
    json["recording"] = result.recording;
    json["path"] = result.path;
    json["duration"] = rounded(result.duration, 1000);
    if (result.with_embeddings && !result.model.empty()) json["model"] = result.model;
    json["speakers"] = nlohmann::ordered_json::array();
    for (const speaker &s : result.speakers) {
        nlohmann::ordered_json entry = {{"name", s.name}, {"seconds", rounded(s.seconds, 1000)}};
        if (s.similarity > 0) entry["similarity"] = rounded(s.similarity, 1000);
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
        if (s.is_overlap) entry["overlap"] = true;
        if (s.edited) entry["edited"] = true;
        if (!s.comment.empty()) entry["comment"] = s.comment;
        json["segments"].push_back(std::move(entry));
    }
    for (const spoken_word &w : result.words) {
        nlohmann::ordered_json entry = {{"start", rounded(w.start, 1000)},
                                        {"end", rounded(w.end, 1000)},
                                        {"text", w.text},
                                        {"speaker", w.speaker}};
        if (w.begins_paragraph) entry["paragraph"] = *w.begins_paragraph;
        json["words"].push_back(std::move(entry));
    }
    if (!result.note.empty()) json["note"] = result.note;
    return json;
}

std::string dump_json(const nlohmann::ordered_json &json) {
    // Names of files need not be UTF-8; what is not becomes a replacement character.
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string pretty_json(const nlohmann::ordered_json &json, const std::string &indent) {
    const auto is_plain = [](const auto &inner) { return !inner.is_structured(); };
    if (!json.is_structured() || json.empty()) return dump_json(json);
    const bool is_list = json.is_array();
    const bool in_a_line = is_list && std::all_of(json.begin(), json.end(), is_plain);  // a vector
    const std::string inner = indent + " ", between = in_a_line ? ", " : ",\n" + inner;
    std::string text;
    for (const auto &[key, value] : json.items()) {
        text += (text.empty() ? "" : between) + (is_list ? "" : dump_json(key) + ": ") +
                pretty_json(value, inner);
    }
    if (in_a_line) return "[" + text + "]";
    return (is_list ? "[\n" : "{\n") + inner + text + "\n" + indent + (is_list ? "]" : "}");
}

std::string write_json(const diarization &result, const parley_terminal &) {
    return pretty_json(to_json(result)) + "\n";
}

std::string write_jsonl(const diarization &result, const parley_terminal &) {
    return dump_json(to_json(result)) + "\n";
}
