// Words for reading: paragraphs, captions, JSON.
#include <cmath>
#include <stdexcept>

#include "formats.h"
#include "markup.h"
#include "transcript_parts.h"
#include "writing.h"

namespace {

using json = nlohmann::ordered_json;

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

std::string write_words(const std::vector<spoken_word> &words, std::string_view format) {
    if (format == "text" || format == "markdown") return write_paragraphs(words, format == "markdown");
    if (format == "srt" || format == "vtt") return write_captions(words, format == "vtt");
    if (format == "json") return write_words_json(words);
    throw std::runtime_error("a transcript is written as text, markdown, srt, vtt, json or html, not as " +
                             std::string(format));
}
