// SPDX-License-Identifier: Apache-2.0
#include "markup.h"

#include <stdexcept>

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

nlohmann::ordered_json parse_json(const std::string &text) {
    constexpr int DEEPEST = 64;
    using json = nlohmann::ordered_json;
    try {
        return json::parse(text, [](int depth, json::parse_event_t, json &) {
            if (depth > DEEPEST) throw std::runtime_error("JSON nested too deeply");
            return true;
        });
    } catch (const json::exception &error) {
        throw std::runtime_error(error.what());
    }
}

std::string text_in(const nlohmann::ordered_json &object, const char *name) {
    using json = nlohmann::ordered_json;
    const json value = object.is_object() ? object.value(name, json()) : json();
    return value.is_string() ? value.get<std::string>() : "";
}
