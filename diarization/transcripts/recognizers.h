// SPDX-License-Identifier: Apache-2.0
// Speech recognizers, programs of others that are found in the path: how each is called and what it gives.
#ifndef PARLEY_RECOGNIZERS_H
#define PARLEY_RECOGNIZERS_H

#include <span>
#include <string>
#include <vector>

#include "parley.h"

struct recognizer {
    std::string name;
    // The program and its arguments. {audio} becomes the name of a WAV file (16 kHz, mono, 16 bits), {out} a
    // name without extension for what it writes, {folder} the folder of both.
    std::vector<std::string> command;
    std::string output;         // the file that holds the words, likewise; "": its standard output does
    double longest = 300;       // seconds: recordings are given in pieces of about that length
    bool takes_a_core = false;  // or all there are, so that one piece goes after the other
    std::string remedy;         // what to do where it is not installed
};

// Those that are known without a file.
std::span<const parley_recognizer> known_recognizers();

// A recognizer by its name, out of the user's own file (recognizers.json in the folder of settings) or known
// here, or else by a command that has {audio} in it. Throws diarization_error for anything else.
recognizer find_recognizer(const std::string &given);

// The command for one piece: {audio}, {out} and {folder} filled in.
std::vector<std::string> filled_command(const recognizer &used, const std::vector<std::string> &arguments,
                                        const std::string &folder);

// The file in which the words are then: the one that is named, or with an extension that the program gave it.
// "" if there is none.
std::string written_output(const recognizer &used, const std::string &folder);

#endif
