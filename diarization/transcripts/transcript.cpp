// SPDX-License-Identifier: Apache-2.0
#include "transcript.h"

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

#include "markup.h"
#include "transcript_parts.h"
#include "writing.h"

namespace {

constexpr double SHORTEST_RUN = 0.5;  // seconds

enum class kind { objects, table, vtt, srt, ctm, sphinx };

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
    if (text.find("\n<s> ") != std::string::npos || text.compare(begin, 4, "<s> ") == 0)
        return {kind::sphinx, std::move(text)};
    const bool is_srt = text.find("-->") != std::string::npos;
    return {is_srt ? kind::srt : kind::ctm, std::move(text)};
}

}  // namespace

std::string with_speaker(const std::string &speaker, const std::string &text, bool vtt) {
    if (speaker.empty()) return text;
    return vtt ? "<v " + escape_xml(speaker) + ">" + text : speaker + ": " + text;
}

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

void refuse_without_times() {
    throw std::runtime_error(
        "no words with times: what Whisper, whisper.cpp, faster-whisper, WhisperX and Vosk write as JSON has "
        "\"start\" and \"end\", or \"offsets\"; TSV, WebVTT, SRT and CTM are known, too");
}

speakers_over_time::speakers_over_time(std::vector<turn> turns, double reach, voice_function voice)
    : turns_(std::move(turns)), reach_(reach), voice_(std::move(voice)) {
    std::stable_sort(turns_.begin(), turns_.end(),
                     [](const turn &a, const turn &b) { return a.start < b.start; });
    double latest = 0;
    for (const turn &t : turns_) latest_.push_back(latest = std::max(latest, t.end));
}

template <class F>
void speakers_over_time::for_each_near(double start, double end, F f) const {
    // What ends before and what begins behind is out of reach.
    auto i = static_cast<size_t>(std::lower_bound(latest_.begin(), latest_.end(), start - reach_) -
                                 latest_.begin());
    for (; i < turns_.size() && turns_[i].start <= end + reach_; i++) f(turns_[i]);
}

std::string speakers_over_time::at(double start, double end) const {
    std::map<std::string, double> spoken;
    const turn *nearest = nullptr;
    double distance = reach_;
    for_each_near(start, end, [&](const turn &t) {
        const double shared = std::min(end, t.end) - std::max(start, t.start);
        if (shared > 0) spoken[t.speaker] += shared;
        const double away = std::max({0.0, t.start - end, start - t.end});
        if (away <= distance && (!nearest || away < distance)) {
            distance = away;
            nearest = &t;
        }
    });
    const auto longest = std::max_element(spoken.begin(), spoken.end(),
                                          [](const auto &a, const auto &b) { return a.second < b.second; });
    if (longest != spoken.end()) return longest->first;
    if (!nearest) return "";
    const std::string heard = voice_ ? voice_(start, end) : "";
    return heard.empty() ? nearest->speaker : heard;
}

bool speakers_over_time::is_shared(double start, double end) const {
    std::set<std::string> found;
    for_each_near(start, end, [&](const turn &t) {
        if (t.start < end && t.end > start) found.insert(t.speaker);
    });
    return found.size() > 1;
}

void keep_sentences_together(const speakers_over_time &speakers, std::vector<spoken_word> *words) {
    constexpr std::string_view ENDS = ".?!";
    const auto ends_sentence = [&](size_t i) {
        const std::string &text = (*words)[i].text;
        return !text.empty() && ENDS.find(text.back()) != std::string_view::npos;
    };
    for (size_t i = 0; i < words->size(); i++) {
        spoken_word &word = (*words)[i];
        if (!speakers.is_shared(word.start, word.end)) continue;
        const bool is_last = ends_sentence(i), is_first = i > 0 && ends_sentence(i - 1);
        if (is_last && !is_first && i > 0) word.speaker = (*words)[i - 1].speaker;
        if (is_first && !is_last && i + 1 < words->size()) word.speaker = (*words)[i + 1].speaker;
    }
}

void check_words_lie_within(const std::vector<spoken_word> &words, double seconds) {
    const auto lies_within = [](double limit) {
        return [limit](const spoken_word &word) { return word.start < limit; };
    };
    const auto inside = std::count_if(words.begin(), words.end(), lies_within(seconds));
    if (2 * inside >= static_cast<std::ptrdiff_t>(words.size())) return;
    const bool are_milliseconds = std::all_of(words.begin(), words.end(), lies_within(1000 * seconds));
    throw std::runtime_error(
        line("%d of %d words lie in the recording, which ends at %.1f s; ", static_cast<int>(inside),
             static_cast<int>(words.size()), seconds) +
        (are_milliseconds ? "are these milliseconds?" : "is this another recording's transcript?"));
}

std::string assign_speakers(const std::string &given, const speakers_over_time &speakers) {
    const auto [is, text] = recognize(given);
    switch (is) {
        case kind::objects:
            return assign_json(text, speakers);
        case kind::table:
            return assign_table(text, speakers);
        case kind::ctm:
            return assign_ctm(text, speakers);
        case kind::sphinx:
            return assign_sphinx(text, speakers);
        default:
            return assign_captions(text, speakers, is == kind::vtt);
    }
}

std::vector<spoken_word> find_words(const std::string &given, const speakers_over_time &speakers) {
    const auto [is, text] = recognize(given);
    std::vector<spoken_word> words = is == kind::objects  ? read_json_words(text, speakers)
                                     : is == kind::table  ? read_table_words(text, speakers)
                                     : is == kind::ctm    ? read_ctm_words(text, speakers)
                                     : is == kind::sphinx ? read_sphinx_words(text, speakers)
                                                          : read_caption_words(text, speakers);
    std::stable_sort(words.begin(), words.end(),
                     [](const spoken_word &a, const spoken_word &b) { return a.start < b.start; });
    return words;
}

std::vector<spoken_word> read_words(const std::string &given, const speakers_over_time &speakers) {
    std::vector<spoken_word> words = find_words(given, speakers);
    if (words.empty()) refuse_without_times();
    return words;
}
