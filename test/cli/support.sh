# SPDX-License-Identifier: Apache-2.0
# What the tests of the tool share: $parley is run, on $sample of the folder $source, $tmp is theirs, $failures counts.
# shellcheck shell=bash
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
unset PARLEY_MODEL
sample=$source/examples/three-voices.wav
failures=0

# expect STATUS OUTPUT_PATTERN ERROR_PATTERN ARGUMENT...   patterns are extended regular expressions; '' means nothing
expect() {
    local status=$1 out=$2 err=$3
    shift 3
    "$parley" "$@" >"$tmp/out" 2>"$tmp/err"
    local got=$?
    [ "$got" = "$status" ] && matches "$out" "$tmp/out" && matches "$err" "$tmp/err" && return
    echo "parley $*: status $got, wanted $status; output:"
    head -5 "$tmp/out" "$tmp/err"
    failures=$((failures + 1))
}
matches() {
    if [ -z "$1" ]; then [ ! -s "$2" ]; else grep -qE -- "$1" "$2"; fi
}
