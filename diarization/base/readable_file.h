// SPDX-License-Identifier: Apache-2.0
// What is wrong with a file before anything is read out of it.
#ifndef PARLEY_READABLE_FILE_H
#define PARLEY_READABLE_FILE_H

#include <string>

// Throws diarization_error: PARLEY_MISSING if there is no such file, PARLEY_UNREADABLE if it may not be
// opened, PARLEY_INVALID if it is a folder or empty. `subject` begins the sentence.
void check_is_readable(const std::string &path, const std::string &subject);

// The first four bytes, by which the kinds of files are told apart; zeros where there are fewer.
std::string kind_of_file(const std::string &path);

// Whether a file begins as texts do: without control characters.
bool is_text(const std::string &path);

#endif
