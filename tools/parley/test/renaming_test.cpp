// SPDX-License-Identifier: Apache-2.0
#include "renaming.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using parley::renamed_speakers;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(renaming, names_go_with_most_of_the_time) {
    EXPECT_THAT(renamed_speakers({{0, 5, "a"}, {5, 9, "b"}}, {{0, 5, "a"}, {5, 9, "b"}}), IsEmpty());
    EXPECT_THAT(renamed_speakers({{0, 5, "a"}, {5, 9, "b"}}, {{0, 5, "b"}, {5, 9, "a"}}),
                ElementsAre(Pair("a", "b"), Pair("b", "a")));
    // b becomes a of whom a has more: b has no name any more.
    EXPECT_THAT(renamed_speakers({{0, 5, "a"}, {5, 9, "b"}}, {{0, 9, "a"}}), IsEmpty());
    // Who is new is not renamed, and takes no name along.
    EXPECT_THAT(renamed_speakers({{0, 4, "a"}, {6, 9, "b"}}, {{0, 4, "a"}, {4, 6, "b"}, {6, 9, "c"}}),
                ElementsAre(Pair("b", "c")));
    EXPECT_THAT(renamed_speakers({}, {{0, 4, "a"}}), IsEmpty());
}

}  // namespace
