// SPDX-License-Identifier: Apache-2.0
// The wall between the library's C++ and its C interfaces: what is thrown becomes a status and a message.
#ifndef PARLEY_GUARDED_H
#define PARLEY_GUARDED_H

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "errors.h"

// Keeps what parley_message and parley_details tell this thread, which takes no memory. Returns `status`.
parley_status keep_failure(parley_status status, const char *message,
                           const std::vector<std::string> &details = {});

template <class Work>
parley_status guarded(Work work) {
    try {
        work();
        return PARLEY_OK;
    } catch (const diarization_error &error) {
        return keep_failure(error.status, error.what(), error.details);
    } catch (const std::bad_alloc &) {
        return keep_failure(PARLEY_OUT_OF_MEMORY, "there is not enough memory");
    } catch (const std::length_error &) {
        return keep_failure(PARLEY_OUT_OF_MEMORY, "there is not enough memory");
    } catch (const std::exception &error) {
        return keep_failure(PARLEY_FAILED, error.what());
    }
}

inline void require(bool holds, const char *message) {
    if (!holds) throw diarization_error(PARLEY_INVALID, message);
}

#endif
