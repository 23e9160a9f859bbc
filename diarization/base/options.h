// SPDX-License-Identifier: Apache-2.0
// The options of a run (parley.h) by name; failures are diarization_error.
#ifndef PARLEY_OPTIONS_H
#define PARLEY_OPTIONS_H

#include "parley.h"

parley_options default_options();
const parley_option *option_at(int32_t index);
void set_option(parley_options *options, const char *name, const char *value);

#endif
