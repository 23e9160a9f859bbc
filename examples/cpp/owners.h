// SPDX-License-Identifier: Apache-2.0
// What the examples in C++ share: owners of the library's objects, and failures as exceptions.
#ifndef PARLEY_EXAMPLES_OWNERS_H
#define PARLEY_EXAMPLES_OWNERS_H

#include <parley.h>

#include <memory>
#include <stdexcept>

struct releaser {
    void operator()(parley_diarizer *diarizer) const { parley_close(diarizer); }
    void operator()(parley_result *result) const { parley_result_delete(result); }
    void operator()(parley_session *session) const { parley_session_delete(session); }
    void operator()(char *text) const { parley_free(text); }
};

template <class T>
using owned = std::unique_ptr<T, releaser>;

inline void check(parley_status status) {
    if (status != PARLEY_OK) throw std::runtime_error(parley_message());
}

// The model that is installed with the library, or $PARLEY_MODEL.
inline owned<parley_diarizer> open_model() {
    parley_diarizer *opened = nullptr;
    check(parley_open(nullptr, &opened));
    return owned<parley_diarizer>(opened);
}

#endif
