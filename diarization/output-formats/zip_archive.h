// SPDX-License-Identifier: Apache-2.0
// ZIP archives of files that are stored as they are: documents of office programs are such archives.
#ifndef PARLEY_ZIP_ARCHIVE_H
#define PARLEY_ZIP_ARCHIVE_H

#include <string>
#include <utility>
#include <vector>

// The bytes of an archive of files, names and contents, in this order. The same files give the same bytes.
std::string zip_archive(const std::vector<std::pair<std::string, std::string>> &files);

#endif
