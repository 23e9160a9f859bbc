// SPDX-License-Identifier: Apache-2.0
#include "voices.h"

#include <algorithm>
#include <cmath>

#include "assignment.h"
#include "errors.h"
#include "markup.h"

namespace {

using json = nlohmann::ordered_json;

constexpr const char *SCHEMA = "parley-voices-2";
constexpr const char *BARE_SCHEMA = "parley-voices-1";  // whose samples are vectors and nothing else
constexpr double SAME_SAMPLE = 0.99999;                 // cosine

[[noreturn]] void refuse(const std::string &what) {
    throw diarization_error(PARLEY_UNREADABLE, "the voices " + what);
}

double cosine(const std::vector<float> &a, const std::vector<float> &b) {
    double sum = 0, aa = 0, bb = 0;
    for (size_t i = 0; i < a.size(); i++) {
        sum += double{a[i]} * b[i];
        aa += double{a[i]} * a[i];
        bb += double{b[i]} * b[i];
    }
    return aa > 0 && bb > 0 ? sum / std::sqrt(aa * bb) : 0;
}

std::vector<float> read_vector(const json &values, size_t size) {
    if (!values.is_array() || values.empty() || (size > 0 && values.size() != size))
        refuse("hold a vector of another length");
    std::vector<float> vector;
    for (const json &value : values) {
        if (!value.is_number() || std::abs(value.get<double>()) > 1) refuse("hold a vector that is none");
        vector.push_back(value.get<float>());
    }
    return vector;
}

voice_sample read_sample(const json &value, size_t size) {
    if (!value.is_object()) refuse("are damaged");
    const json seconds = value.value("seconds", json()), source = value.value("source", json()),
               date = value.value("date", json());
    if (!seconds.is_number() || !source.is_string() || !date.is_string()) refuse("are damaged");
    return {read_vector(value.value("vector", json()), size), seconds.get<double>(), source, date};
}

void check_model(const voice_list &voices, const std::string &model) {
    if (voices.model == model || voices.people.empty()) return;
    throw diarization_error(PARLEY_INVALID, "the voices are of another model (" + voices.model +
                                                ", this one is " + model +
                                                "): add them again from their recordings");
}

}  // namespace

voice_list read_voices(const std::string &text) {
    voice_list voices;
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) return voices;
    const json value = json::parse(text, nullptr, false);
    const json schema = value.is_object() ? value.value("schema", json()) : json();
    if (schema != SCHEMA && schema != BARE_SCHEMA) refuse("are none: damaged, or another file");
    if (!value.contains("model") || !value["model"].is_string() || !value.contains("people") ||
        !value["people"].is_array())
        refuse("are damaged");
    voices.model = value["model"];
    size_t size = 0;
    for (const json &person : value["people"]) {
        if (!person.is_object() || !person.value("name", json()).is_string() ||
            !person.value("samples", json()).is_array())
            refuse("are damaged");
        voice v = {person["name"], {}};
        if (v.name.empty()) refuse("hold somebody without a name");
        for (const voice &other : voices.people)
            if (other.name == v.name) refuse("hold " + v.name + " twice");
        for (const json &sample : person["samples"]) {
            v.samples.push_back(schema == SCHEMA ? read_sample(sample, size)
                                                 : voice_sample{read_vector(sample, size), 0, "", ""});
            size = v.samples.back().vector.size();
        }
        voices.people.push_back(std::move(v));
    }
    return voices;
}

std::string write_voices(const voice_list &voices) {
    json value = {{"schema", SCHEMA}, {"model", voices.model}, {"people", json::array()}};
    for (const voice &v : voices.people) {
        json samples = json::array();
        for (const voice_sample &sample : v.samples) {
            json vector = json::array();
            for (const float x : sample.vector) vector.push_back(std::round(double{x} * 1e6) / 1e6);
            samples.push_back({{"seconds", std::round(sample.seconds * 10) / 10},
                               {"source", sample.source},
                               {"date", sample.date},
                               {"vector", std::move(vector)}});
        }
        value["people"].push_back({{"name", v.name}, {"samples", std::move(samples)}});
    }
    return pretty_json(value) + "\n";
}

void add_voice(voice_list *voices, const std::string &name, const std::string &model, voice_sample sample) {
    if (name.empty()) throw diarization_error(PARLEY_INVALID, "a voice needs a name");
    if (sample.seconds < SHORTEST_SAMPLE)
        throw diarization_error(PARLEY_INVALID, "that is too short to be remembered: " +
                                                    std::to_string(std::lround(10 * sample.seconds) / 10) +
                                                    " s of speech, of 3");
    check_model(*voices, model);
    voices->model = model;
    auto known = std::find_if(voices->people.begin(), voices->people.end(),
                              [&](const voice &v) { return v.name == name; });
    if (known == voices->people.end()) known = voices->people.insert(known, {name, {}});
    std::erase_if(known->samples, [&](const voice_sample &other) {
        return other.vector.size() == sample.vector.size() &&
               cosine(other.vector, sample.vector) > SAME_SAMPLE;
    });
    known->samples.push_back(std::move(sample));
}

void name_voices(diarization *result, const voice_list &voices, double threshold) {
    check_model(voices, result->model);
    if (voices.people.empty() || result->speakers.empty()) return;
    std::vector<std::vector<double>> near(result->speakers.size(), std::vector<double>(voices.people.size()));
    for (size_t s = 0; s < near.size(); s++) {
        for (size_t p = 0; p < voices.people.size(); p++) {
            double best = -1;
            for (const auto &sample : voices.people[p].samples) {
                if (sample.vector.size() != result->speakers[s].embedding.size())
                    refuse("hold vectors of another length");
                best = std::max(best, cosine(sample.vector, result->speakers[s].embedding));
            }
            near[s][p] = std::max(0.0, best - threshold);
        }
    }
    const std::vector<int> matched = best_assignment(near);
    std::vector<bool> is_named(near.size());
    for (size_t s = 0; s < near.size(); s++) {
        if (matched[s] < 0 || near[s][static_cast<size_t>(matched[s])] <= 0) continue;
        speaker &named = result->speakers[s];
        named.name = voices.people[static_cast<size_t>(matched[s])].name;
        named.similarity = near[s][static_cast<size_t>(matched[s])] + threshold;
        is_named[s] = true;
    }
    // Nobody else is called like a known person.
    for (size_t s = 0; s < near.size(); s++) {
        for (size_t other = 0; !is_named[s] && other < near.size(); other++)
            if (is_named[other] && result->speakers[other].name == result->speakers[s].name)
                result->speakers[s].name += " (another)";
    }
}
