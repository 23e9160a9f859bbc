#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# A dynamic library exports the listed functions and nothing else: NM LIBRARY LIST
set -euo pipefail
diff <(sort "$3") <("$1" -D --defined-only --format=posix "$2" | awk '$2 == "T" { sub("@.*", "", $1); print $1 }' | sort)
