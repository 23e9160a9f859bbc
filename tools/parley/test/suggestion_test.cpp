// SPDX-License-Identifier: Apache-2.0
#include "suggestion.h"

#include <gtest/gtest.h>

namespace {

TEST(suggestion, is_the_nearest_word_within_two_letters) {
    const std::vector<std::string> known = {"diarize", "score", "table", "text", "add"};
    const struct {
        const char *word, *meant;
    } cases[] = {{"diarise", "diarize"},
                 {"diarze", "diarize"},
                 {"scores", "score"},
                 {"tabel", "table"},
                 {"ad", "add"},
                 {"txt", "text"},
                 {"a.wav", ""},
                 {"x", ""},
                 {"", ""},
                 {"meeting", ""}};
    for (const auto &[word, meant] : cases) {
        const std::string expected = *meant ? std::string(": did you mean ") + meant + "?" : "";
        EXPECT_EQ(parley::suggestion(word, known), expected) << word;
    }
}

}  // namespace
