// SPDX-License-Identifier: Apache-2.0
// What the files of the C interface (parley.h) share: the objects behind its handles, options and progress as
// the library takes them, texts that are handed out.
#ifndef PARLEY_INTERFACE_H
#define PARLEY_INTERFACE_H

#include <algorithm>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "diarizer.h"
#include "errors.h"
#include "guarded.h"
#include "rttm.h"

struct parley_diarizer {
    explicit parley_diarizer(const std::string &model_path) : inner(model_path) {}
    diarizer inner;
};

struct parley_result {
    diarization inner;
};

// Records that tell their size are longer in later versions than here, and shorter in earlier ones.
inline constexpr size_t LARGEST_RECORD = 4096;  // bytes; what says more was never filled

// Writes into a caller's record of `size` bytes, as many fields as it has.
template <class Record>
void put_record(const Record &values, size_t size, Record *record) {
    std::memcpy(static_cast<void *>(record), &values, std::min(size, sizeof(values)));
    record->size = size;
}

// The same of a new one; what it has beyond is zero.
template <class Record>
void fill_record(const Record &defaults, size_t size, Record *record) {
    if (!record || size < sizeof(defaults.size) || size > LARGEST_RECORD) return;
    std::memset(static_cast<void *>(record), 0, size);
    put_record(defaults, size, record);
}

// A caller's record as far as it goes, and defaults for the rest; null: defaults alone.
template <class Record>
Record known_record(Record defaults, const Record *given) {
    if (!given) return defaults;
    const size_t own = defaults.size;
    require(given->size >= sizeof(own) && given->size <= LARGEST_RECORD,
            "a record was not filled by its _init");
    std::memcpy(static_cast<void *>(&defaults), given, std::min(own, given->size));
    defaults.size = own;
    return defaults;
}

parley_options known_options(const parley_options *given);

// A share that never falls, for a caller who may want to stop.
progress_function rising(parley_progress progress, void *context);

// A copy that parley_free releases, with a zero behind it.
char *copied(const std::string &text);
void hand_out(const std::string &written, char **text, size_t *size);

// An empty one for none.
const diarization &of(const parley_result *result);

std::vector<turn> turns_of(const parley_turn *turns, int32_t count);

// What is wrong with a text that a caller gave.
template <class Work>
void as_invalid(Work work) {
    try {
        work();
    } catch (const diarization_error &) {
        throw;
    } catch (const std::runtime_error &error) {
        throw diarization_error(PARLEY_INVALID, error.what());
    }
}

// Null beyond the end.
template <class Entry>
const Entry *entry_at(std::span<const Entry> table, int32_t index) {
    return index >= 0 && index < static_cast<int32_t>(table.size()) ? &table[static_cast<size_t>(index)]
                                                                    : nullptr;
}

template <class Format>
const parley_format *shown_at(std::span<const Format> formats, int32_t index) {
    const Format *found = entry_at(formats, index);
    return found ? &found->shown : nullptr;
}

#endif
