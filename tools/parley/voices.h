// SPDX-License-Identifier: Apache-2.0
// The file of voices that the tool keeps.
#ifndef PARLEY_TOOL_VOICES_H
#define PARLEY_TOOL_VOICES_H

#include <string>

#include "library.h"

namespace parley {

// $PARLEY_VOICES, or voices.json in the user's configuration folder.
std::string own_voices_file();

// "" if the file is not there. Throws std::runtime_error.
std::string read_voices_file(const std::string &path);

// The file that is given, or where none is the one that $PARLEY_VOICES names, if it is there.
std::string read_voices(const std::string &given);

// Gives known people their names; nothing for an empty text.
void name_known(parley_result *result, const std::string &voices, double threshold);

}  // namespace parley

#endif
