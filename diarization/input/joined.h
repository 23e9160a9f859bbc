// SPDX-License-Identifier: Apache-2.0
// Files that were put together from several: one MP3 or Ogg stream behind another, of another rate or number
// of channels. Decoders that set themselves up by the beginning give noise or wrong times from there on.
#ifndef PARLEY_JOINED_H
#define PARLEY_JOINED_H

#include <string>

// Whether the rate or the number of channels of an MP3 file, or those that the headers of an Ogg file's
// streams name, change on the way. False for other formats and for files that cannot be read. Reads headers
// alone.
bool changes_on_the_way(const std::string &path);

#endif
