// SPDX-License-Identifier: Apache-2.0
// Words as subtitles, within the limits that broadcasters keep: lines of 42 characters, two of them, as long
// on the screen as reading takes.
#include <algorithm>
#include <string_view>

#include "markup.h"
#include "transcript_parts.h"
#include "writing.h"

namespace {

constexpr size_t LINE = 42;                               // characters
constexpr double CHARACTERS_A_SECOND = 17;                // that people read
constexpr double SHORTEST = 1, LONGEST = 7, PAUSE = 1.5;  // seconds

struct subtitle {
    size_t first, middle, last;  // words [first, middle) and [middle, last), a line each
    double end;
};

class subtitle_maker {
public:
    subtitle_maker(const std::vector<spoken_word> &words, bool vtt) : words_(words), is_vtt_(vtt) {
        for (const spoken_word &w : words) columns_.push_back(columns_of(w.text));
    }

    std::vector<subtitle> make() const {
        std::vector<subtitle> subtitles;
        for (size_t first = 0; first < words_.size(); first = subtitles.back().last) {
            subtitle s = in_two_lines(first, best_end(first, latest_end(first))).of;
            s.end = words_[first].end;
            for (size_t i = first; i < s.last; i++) s.end = std::max(s.end, words_[i].end);
            subtitles.push_back(s);
        }
        // As long as reading takes, if the next one does not come.
        for (size_t i = 0; i < subtitles.size(); i++) {
            subtitle &s = subtitles[i];
            const double start = words_[s.first].start;
            const auto length = static_cast<double>(width(s.first, s.last) + width_of_name(s.first));
            const double wanted = start + std::clamp(length / CHARACTERS_A_SECOND, SHORTEST, LONGEST);
            const double next = i + 1 < subtitles.size() ? words_[subtitles[i + 1].first].start : wanted;
            s.end = std::max(s.end, std::min(wanted, next));
        }
        return subtitles;
    }

private:
    struct lines {
        subtitle of;
        size_t longest;  // characters
    };

    // "Name: " stands in front in SubRip; WebVTT has a tag, which is not shown.
    size_t width_of_name(size_t word) const {
        const std::string &name = words_[word].speaker;
        return is_vtt_ || name.empty() ? 0 : columns_of(name) + 2;
    }

    size_t width(size_t first, size_t last) const {
        size_t sum = last > first ? last - first - 1 : 0;
        for (size_t i = first; i < last; i++) sum += columns_[i];
        return sum;
    }

    // In one line if that fits, or else in two that are as equally long as they can be.
    lines in_two_lines(size_t first, size_t last) const {
        const size_t name = width_of_name(first);
        lines best = {{first, last, last, 0}, name + width(first, last)};
        for (size_t middle = first + 1; best.longest > LINE && middle < last; middle++) {
            const size_t longest = std::max(name + width(first, middle), width(middle, last));
            if (middle > first + 1 && longest > best.longest) break;
            if (longest < best.longest) best = {{first, middle, last, 0}, longest};
        }
        return best;
    }

    // Where a subtitle from `first` on ends at the latest: before another speaker, a pause, and what does not
    // fit.
    size_t latest_end(size_t first) const {
        size_t i = first + 1;
        while (i < words_.size() && words_[i].speaker == words_[first].speaker &&
               words_[i].start - words_[i - 1].end <= PAUSE &&
               words_[i].end - words_[first].start <= LONGEST && in_two_lines(first, i + 1).longest <= LINE)
            i++;
        return i;
    }

    // Rather than at the last word that fits it ends with a sentence or a clause, if half of it stays.
    size_t best_end(size_t first, size_t latest) const {
        if (latest == words_.size() || words_[latest].speaker != words_[first].speaker) return latest;
        for (const std::string_view marks : {".?!", ",;:"})
            for (size_t i = latest; i > first + (latest - first) / 2; i--)
                if (marks.find(words_[i - 1].text.back()) != std::string_view::npos) return i;
        return latest;
    }

    const std::vector<spoken_word> &words_;
    bool is_vtt_;
    std::vector<size_t> columns_;
};

std::string write_subtitles(const std::vector<spoken_word> &words, bool vtt) {
    std::string text = vtt ? "WEBVTT\n" : "";
    int number = 0;
    const char decimal = vtt ? '.' : ',';
    for (const subtitle &s : subtitle_maker(words, vtt).make()) {
        std::string lines = joined(words, s.first, s.middle);
        if (s.middle < s.last) lines += "\n" + joined(words, s.middle, s.last);
        text += (vtt ? "\n" : std::to_string(++number) + "\n") + caption_time(words[s.first].start, decimal) +
                " --> " + caption_time(s.end, decimal) + "\n" +
                with_speaker(words[s.first].speaker, vtt ? escape_xml(lines) : lines, vtt) +
                (vtt ? "\n" : "\n\n");
    }
    return text;
}

}  // namespace

std::string write_srt_words(const std::vector<spoken_word> &words, const std::string &) {
    return write_subtitles(words, false);
}

std::string write_vtt_words(const std::vector<spoken_word> &words, const std::string &) {
    return write_subtitles(words, true);
}
