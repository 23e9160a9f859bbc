// SPDX-License-Identifier: Apache-2.0
// The one place where options are declared: what programs offer, take as text and document.

#include "options.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "errors.h"

namespace {

using setter = void (*)(parley_options *, const parley_option &, const char *value);

struct entry {
    parley_option option;
    setter set;
};

[[noreturn]] void refuse(const parley_option &option, const char *value, const std::string &wanted) {
    throw diarization_error(PARLEY_INVALID,
                            std::string(option.name) + " takes " + wanted + ", not \"" + value + "\"");
}

double number(const parley_option &option, const char *value) {
    char *end = nullptr;
    const double result = std::strtod(value, &end);
    if (end == value || *end != '\0' || !(result >= option.minimum && result <= option.maximum)) {
        refuse(option, value,
               "a number from " + std::to_string(std::lround(option.minimum)) + " to " +
                   std::to_string(std::lround(option.maximum)));
    }
    return result;
}

int32_t whole(const parley_option &option, const char *value) {
    const double result = number(option, value);
    if (result != std::floor(result)) refuse(option, value, "a whole number");
    return static_cast<int32_t>(result);
}

int32_t flag(const parley_option &option, const char *value) {
    if (std::strcmp(value, "0") != 0 && std::strcmp(value, "1") != 0) refuse(option, value, "0 or 1");
    return value[0] - '0';
}

void set_thresholds(parley_options *o, const parley_option &option, const char *value) {
    std::string text = value;
    std::vector<double> values;
    for (size_t at = 0; at <= text.size();) {
        const size_t comma = std::min(text.find(',', at), text.size());
        values.push_back(number(option, text.substr(at, comma - at).c_str()));
        at = comma + 1;
    }
    if (values.size() != 4) refuse(option, value, "four numbers");
    std::copy(values.begin(), values.end(), o->thresholds);
}

// The number of the word.
int32_t word(const parley_option &option, const char *value, std::initializer_list<std::string_view> words) {
    const auto *found = std::find(words.begin(), words.end(), value);
    if (found != words.end()) return static_cast<int32_t>(found - words.begin());
    std::string wanted;
    for (const std::string_view &w : words)
        wanted.append(wanted.empty() ? "" : &w + 1 == words.end() ? " or " : ", ").append(w);
    refuse(option, value, wanted);
}

using O = parley_option;

constexpr entry ENTRIES[] = {
    {{"speakers", "N", "exact number of speakers", 1, 1000},
     [](parley_options *o, const O &x, const char *v) { o->min_speakers = o->max_speakers = whole(x, v); }},
    {{"min-speakers", "N", "minimum number of speakers", 1, 1000},
     [](parley_options *o, const O &x, const char *v) { o->min_speakers = whole(x, v); }},
    {{"max-speakers", "N", "maximum number of speakers", 1, 1000},
     [](parley_options *o, const O &x, const char *v) { o->max_speakers = whole(x, v); }},
    {{"threshold", "O,P,S,B", "thresholds: offline (merging), prune, segment, background", 0, 1},
     set_thresholds},
    {{"sensitivity", "S", "how much is taken for speech: 0 little, 1 much (0.5)", 0, 1},
     [](parley_options *o, const O &x, const char *v) { o->sensitivity = number(x, v); }},
    {{"channels", "HOW", "mix them (default), split (each is a speaker), loudest", 0, 0},
     [](parley_options *o, const O &x, const char *v) {
         o->channels = word(x, v, {"mix", "split", "loudest"});
     }},
    {{"no-refine", nullptr, "leave out resegmentation", 0, 0},
     [](parley_options *o, const O &x, const char *v) { o->refine = !flag(x, v); }},
    {{"merge-gap", "SECONDS", "join a speaker's segments that are this close", 0, 3600},
     [](parley_options *o, const O &x, const char *v) { o->merge_gap = number(x, v); }},
    {{"min-duration", "SECONDS", "drop shorter segments", 0, 3600},
     [](parley_options *o, const O &x, const char *v) { o->min_duration = number(x, v); }},
    {{"pad", "SECONDS", "lengthen segments on both sides where there is room", 0, 3600},
     [](parley_options *o, const O &x, const char *v) { o->pad = number(x, v); }},
    {{"speaker-prefix", "TEXT", "text before the number of a speaker", 0, 0},
     [](parley_options *o, const O &, const char *v) { o->speaker_prefix = v; }},
    {{"names", "A,B,...", "names of the speakers in the order they are heard", 0, 0},
     [](parley_options *o, const O &, const char *v) { o->names = v; }},
    {{"confidence", nullptr, "write the probability that each speaker is right", 0, 0},
     [](parley_options *o, const O &x, const char *v) { o->confidence = flag(x, v); }},
    {{"embeddings", nullptr, "write speakers' embeddings (JSON)", 0, 0},
     [](parley_options *o, const O &x, const char *v) { o->embeddings = flag(x, v); }},
    {{"overlap", nullptr, "add the second speaker where two speak at once", 0, 0},
     [](parley_options *o, const O &x, const char *v) { o->overlap = flag(x, v); }},
    {{"max-duration", "SECONDS", "refuse longer recordings", 0, 1e9},
     [](parley_options *o, const O &x, const char *v) { o->max_duration = number(x, v); }},
    {{"via-ffmpeg", "WHEN", "when ffmpeg reads: auto (what nothing else can), never, always", 0, 0},
     [](parley_options *o, const O &x, const char *v) {
         o->via_ffmpeg = word(x, v, {"auto", "never", "always"});
     }},
    {{"jobs", "N", "number of threads; 0 (the tool's): one per core", 0, PARLEY_MAX_JOBS},
     [](parley_options *o, const O &x, const char *v) { o->jobs = whole(x, v); }},
};

// Which only programs have a use for: parley_options_set knows them, the table of options does not.
constexpr entry PROGRAM_ENTRIES[] = {
    {{"keep-embeddings", nullptr, "keep what parley_recluster takes", 0, 0},
     [](parley_options *o, const O &x, const char *v) { o->keep_embeddings = flag(x, v); }},
};

}  // namespace

parley_options default_options() {
    parley_options options{};
    options.size = sizeof(options);
    for (double &t : options.thresholds) t = -1;
    options.refine = 1;
    options.sensitivity = 0.5;
    options.jobs = 1;
    options.speaker_prefix = "speaker ";
    return options;
}

const parley_option *option_at(int32_t index) {
    return index >= 0 && index < static_cast<int32_t>(std::size(ENTRIES)) ? &ENTRIES[index].option : nullptr;
}

void set_option(parley_options *options, const char *name, const char *value) {
    for (const std::span<const entry> entries : {std::span<const entry>(ENTRIES), {PROGRAM_ENTRIES}}) {
        for (const entry &e : entries) {
            if (std::string_view(e.option.name) != name) continue;
            e.set(options, e.option, value);
            return;
        }
    }
    throw diarization_error(PARLEY_INVALID, std::string("there is no option ") + name);
}
