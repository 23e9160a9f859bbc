#!/usr/bin/env bash
# The tool as users call it: PARLEY SOURCE_DIR
set -uo pipefail
parley=$1 source=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
unset PARLEY_MODEL
failures=0
sample=$source/examples/three-voices.wav

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

expect 0 '^ +[0-9]+\.[0-9]{3} +[0-9]+\.[0-9]{3}  speaker [1-9]' '' "$sample"
cp "$tmp/out" "$tmp/one"
if grep -vqE '^ +[0-9]+\.[0-9]{3} +[0-9]+\.[0-9]{3}  speaker [1-9][0-9]*$' "$tmp/one"; then
    echo "something but segments on standard output"
    failures=$((failures + 1))
fi
expect 0 'three-voices.wav'$'\t'' +[0-9]' '' "$sample" "$sample"
[ "$(wc -l <"$tmp/out")" = $((2 * $(wc -l <"$tmp/one"))) ] || failures=$((failures + 1))

expect 0 'usage: parley' '' --help
expect 0 '^parley 1\.0\.0$' '' --version
expect 2 '' 'no audio file'
expect 2 '' 'unknown or incomplete option --modle' --modle x "$sample"
expect 2 '' 'unknown or incomplete option --model' --model
expect 1 '' 'nowhere.zx: IO_ERROR' --model nowhere.zx "$sample"
expect 1 '' 'Failed to open file `nowhere.zx`' --model=nowhere.zx "$sample"
expect 1 '' '`zx_audio_file` failed to init with status `IO_ERROR`' nowhere.wav
expect 1 'speaker 1' 'nowhere.wav: IO_ERROR' nowhere.wav "$sample" # the other files are still diarized
expect 1 '' 'INVALID_ARGUMENT' "$source/README.md"
expect 1 '' 'IO_ERROR' -- --version

expect 2 '' 'unknown format mp3' --format mp3 "$sample"

expect 0 '^SPEAKER three-voices 1 0\.800 [0-9.]+ <NA> <NA> speaker_1 <NA> <NA>$' '' --format rttm "$sample"
cp "$tmp/out" "$tmp/hypothesis.rttm"
reference=$source/examples/three-voices.rttm
# A broken model or pipeline does not get the sample of three clear voices nearly right.
expect 0 'total +[0-9]\.[0-9]+ ' '' score --collar 0.25 "$reference" "$tmp/hypothesis.rttm"
expect 0 'speakers counted right in 1 of 1' '' score --each "$reference" "$tmp/hypothesis.rttm"
expect 0 'total +0\.00 ' '' score "$reference" "$reference"
expect 0 'collar 0\.00 s to either side, overlaps left out' '' score --skip-overlap --collar 0 "$reference" "$reference"
printf 'three-voices 1 0 10\n' >"$tmp/part.uem"
expect 0 'parts that the UEM lists' '' score --uem "$tmp/part.uem" "$reference" "$tmp/hypothesis.rttm"
expect 1 '' 'nowhere.rttm: cannot be opened' score "$reference" nowhere.rttm
printf 'SPEAKER broken\n' >"$tmp/broken.rttm"
expect 1 '' 'broken.rttm:1: cannot be read' score "$reference" "$tmp/broken.rttm"
expect 2 '' 'a reference and a hypothesis' score "$reference"
expect 2 '' 'collar takes a number' score --collar x "$reference" "$reference"
expect 0 'usage: parley score' '' score --help

PARLEY_MODEL=nowhere.zx expect 1 '' 'nowhere.zx' "$sample"
PARLEY_MODEL=nowhere.zx expect 0 'speaker 1' '' --model "$source/models/parley.zx" "$sample"
"$parley" "$sample" >/dev/full 2>"$tmp/err" && failures=$((failures + 1))

[ "$failures" = 0 ]
