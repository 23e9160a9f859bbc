#!/usr/bin/env bash
# What a release must carry: tables that are read-only once loaded, no memory that is written and executed, code that can
# be placed anywhere, guards on the stack: hardening_test.sh LIBRARY PROGRAM
set -euo pipefail
for file in "$@"; do
    need() { # WHAT PATTERN READELF-OPTION...
        local what=$1 pattern=$2
        shift 2
        readelf -W "$@" "$file" | grep -qE "$pattern" || { echo "$file: $what is missing"; exit 1; }
    }
    need "full RELRO" 'GNU_RELRO' -l
    need "binding at load time" 'BIND_NOW|FLAGS_1.*NOW' -d
    need "position independence" 'Type: +DYN' -h
    if readelf -W -l "$file" | grep -qE '(LOAD|GNU_STACK).* RWE '; then
        echo "$file: has memory that is both written and executed"
        exit 1
    fi
done
readelf -W --dyn-syms "$1" | grep -q '__stack_chk_fail' || { echo "$1: guards on the stack are missing"; exit 1; }
readelf -W --dyn-syms "$1" | grep -qE '__(v?sn?printf|memcpy|fread|printf)_chk' || { echo "$1: is not fortified"; exit 1; }
