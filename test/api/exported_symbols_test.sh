#!/usr/bin/env bash
# The dynamic library exports the listed functions and nothing else: NM LIBRARY LIST
set -euo pipefail
diff <(sort "$3") <("$1" -D --defined-only --format=posix "$2" | cut -d' ' -f1 | sort)
