// SPDX-License-Identifier: Apache-2.0
// What commands read and write beside recordings: results of earlier runs, transcripts, pages with sound.
#ifndef PARLEY_TOOL_DOCUMENTS_H
#define PARLEY_TOOL_DOCUMENTS_H

#include <cstdio>
#include <string>

#include "library.h"

namespace parley {

// Whether a file is called like a result, not like a recording.
bool is_result_file(const std::string &path);

// A result that was written earlier. Throws parley_error.
result_ptr read_result_file(const std::string &path);

// The recording that such a result names, if it is still there: as it was named, or beside the result's file;
// "" otherwise.
std::string recording_of(const parley_result *result, const std::string &result_file);

// Where a document at `page` (on standard output: "") finds the sound of a recording. `how`: auto, embed,
// link, copy or none.
void link_audio(const std::string &how, const std::string &recording, const std::string &page,
                parley_result *result);

bool is_page(const parley_format &format);
bool refers_to_audio(const parley_format &format);
bool is_for_terminals(const parley_format &format);

// The format of a transcript by its name, or by the name of the file that it goes to; null for neither.
const parley_format *find_transcript_format(const std::string &name, const std::string &output);

// Throws CLI::ValidationError where a format that is nothing for a terminal would go to one: `output` is "".
void check_terminal(const parley_format &format, const std::string &output, std::FILE *out);

// Writes a text to a file, or to standard output where `output` is "".
void put_document(const std::string &text, const std::string &output, std::FILE *out);

}  // namespace parley

#endif
