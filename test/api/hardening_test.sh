#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What a release must carry: tables that are read-only once loaded, no memory that is written and executed, code that can
# be placed anywhere, guards on the stack: hardening_test.sh LIBRARY PROGRAM
set -euo pipefail
fail() {
    echo "$*"
    exit 1
}
# FILE PATTERN READELF-OPTION...: whether readelf prints the pattern. Not through a pipe: a grep that has found its line
# leaves, and readelf may then fail at writing the rest.
shows() { grep -qE -e "$2" <<<"$(readelf -W "${@:3}" "$1")"; }

for file in "$@"; do
    shows "$file" 'GNU_RELRO' -l || fail "$file: full RELRO is missing"
    shows "$file" 'BIND_NOW|FLAGS_1.*NOW' -d || fail "$file: binding at load time is missing"
    shows "$file" 'Type: +DYN' -h || fail "$file: position independence is missing"
    ! shows "$file" '(LOAD|GNU_STACK).* RWE ' -l || fail "$file: has memory that is both written and executed"
done
shows "$1" '__stack_chk_fail' --dyn-syms || fail "$1: guards on the stack are missing"
shows "$1" '__(v?sn?printf|memcpy|fread|printf)_chk' --dyn-syms || fail "$1: is not fortified"
