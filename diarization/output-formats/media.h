// SPDX-License-Identifier: Apache-2.0
// A recording's file as documents refer to it.
#ifndef PARLEY_FORMATS_MEDIA_H
#define PARLEY_FORMATS_MEDIA_H

#include <nlohmann/json.hpp>
#include <string>

#include "result.h"

// By the first bytes, "audio/mpeg"; "application/octet-stream" for what is not known or not there.
std::string media_type(const std::string &file);

// Every character but letters, digits and -._~/ as %XX.
std::string url_of_path(const std::string &path);

// The way back, of a URL without a scheme; "" for one that has one.
std::string path_of_url(const std::string &url);

struct media {
    std::string url;     // file:///... where the file is there, its encoded path otherwise
    std::string beside;  // relative to the document: where the sound is linked, else a copy in its own folder
    std::string type;
};

media media_of(const diarization &result);

#endif
