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

std::string write_json(const diarization &result, const parley_terminal &) {
    return dump_json(to_json(result), 1) + "\n";
}

std::string write_jsonl(const diarization &result, const parley_terminal &) {
    return dump_json(to_json(result), -1) + "\n";
}
