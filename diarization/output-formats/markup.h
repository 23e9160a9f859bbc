// SPDX-License-Identifier: Apache-2.0
// What the formats in XML and JSON share.
#ifndef PARLEY_FORMATS_MARKUP_H
#define PARLEY_FORMATS_MARKUP_H

#include <nlohmann/json.hpp>
#include <string>

#include "result.h"

// Text for elements and attributes; control characters, which XML cannot hold, are dropped.
std::string escape_xml(const std::string &text);

nlohmann::ordered_json to_json(const diarization &result);
// In one line.
std::string dump_json(const nlohmann::ordered_json &json);

// Throws std::runtime_error for what is no JSON, or nested more deeply than anything here is.
nlohmann::ordered_json parse_json(const std::string &text);

// What a text of that name holds in an object; "" where there is none.
std::string text_in(const nlohmann::ordered_json &object, const char *name);

// A line a value, but for lists of numbers and words, which take one together.
std::string pretty_json(const nlohmann::ordered_json &json, const std::string &indent = "");

#endif
