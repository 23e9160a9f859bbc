// SPDX-License-Identifier: Apache-2.0
// Captions: WebVTT and SubRip.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <sstream>

#include "markup.h"
#include "transcript_parts.h"
#include "writing.h"

namespace {

constexpr long LARGEST_NUMBER = 1000000000;  // of a caption

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

std::vector<spoken_word> words_of(const caption &c, const speakers_over_time &speakers) {
    std::string text;
    for (const std::string &line : c.text) text += without_tags(line) + " ";
    return words_within(text, c.times.start, c.times.end, speakers);
}

// Words of a line with times in tags, "<00:00:01.500>", each up to the next; before the first tag from
// `start` on.
std::vector<spoken_word> timed_words(const std::string &line, const caption_line &times,
                                     const speakers_over_time &speakers) {
    std::vector<spoken_word> words;
    std::string text;
    double start = times.start;
    const auto put = [&](double end) {
        const std::vector<spoken_word> more = words_within(text, start, std::max(start, end), speakers);
        words.insert(words.end(), more.begin(), more.end());
        text.clear();
        start = end;
    };
    for (size_t at = 0; at < line.size();) {
        const size_t close = line[at] == '<' ? line.find('>', at) : std::string::npos;
        if (close == std::string::npos) {
            text += line[at++];
            continue;
        }
        if (const auto time = parse_caption_time(line.substr(at + 1, close - at - 1))) put(*time);
        at = close + 1;
    }
    put(times.end);
    return words;
}

bool has_word_times(const std::string &line) {
    for (size_t at = line.find('<'); at != std::string::npos; at = line.find('<', at + 1)) {
        const size_t close = line.find('>', at);
        if (close != std::string::npos && parse_caption_time(line.substr(at + 1, close - at - 1)))
            return true;
    }
    return false;
}

// Captions that roll up, as automatic ones with word times do, show every line again below the next.
std::vector<spoken_word> rolling_words(const std::vector<caption> &captions,
                                       const speakers_over_time &speakers) {
    std::vector<spoken_word> words;
    std::string last;
    for (const caption &c : captions) {
        for (const std::string &line : c.text) {
            const std::string text = without_tags(line);
            if (text.find_first_not_of(' ') == std::string::npos || text == last) continue;
            const std::vector<spoken_word> more = timed_words(line, c.times, speakers);
            words.insert(words.end(), more.begin(), more.end());
            last = text;
        }
    }
    return words;
}

}  // namespace

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

std::vector<caption_text> captions_of(const std::string &text) {
    std::vector<caption_text> found;
    for (const caption &c : read_captions(text)) {
        if (!c.has_times) continue;
        found.push_back({c.times.start, c.times.end, c.text});
        while (!found.back().lines.empty() && found.back().lines.back().empty())
            found.back().lines.pop_back();
    }
    return found;
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

std::vector<spoken_word> read_caption_words(const std::string &text, const speakers_over_time &speakers) {
    const std::vector<caption> captions = read_captions(text);
    const auto is_timed = [](const caption &c) {
        return std::any_of(c.text.begin(), c.text.end(), has_word_times);
    };
    if (std::any_of(captions.begin(), captions.end(), is_timed)) return rolling_words(captions, speakers);
    std::vector<spoken_word> words;
    for (const caption &c : captions) {
        const std::vector<spoken_word> more = words_of(c, speakers);
        words.insert(words.end(), more.begin(), more.end());
    }
    return words;
}
