// SPDX-License-Identifier: Apache-2.0
// What somebody meant who mistyped a word.
#ifndef PARLEY_TOOL_SUGGESTION_H
#define PARLEY_TOOL_SUGGESTION_H

#include <string>
#include <vector>

namespace parley {

// ": did you mean ...?" with the known word that is at most two letters away (inserted, left out or changed);
// "" if there is none.
std::string suggestion(const std::string &word, const std::vector<std::string> &known);

}  // namespace parley

#endif
