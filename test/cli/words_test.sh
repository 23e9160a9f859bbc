#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Words with names, and results that were written earlier, as users call the tool: PARLEY SOURCE_DIR [without]: without the recognizer of Debian's
set -uo pipefail
parley=$1 source=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
unset PARLEY_MODEL
# shellcheck source=test/cli/support.sh
. "$source/test/cli/support.sh"
sample=$source/examples/three-voices.wav reference=$source/examples/three-voices.rttm
export XDG_CONFIG_HOME=$tmp/settings

printf 'WEBVTT\n\n00:01.000 --> 00:02.000\nHello\n' >"$tmp/words.vtt"
expect 0 '^<v Ann>Hello$' '' assign --words "$tmp/words.vtt" --names Ann "$sample"
expect 0 '^<v [a-z]+>Hello$' '' assign --words "$tmp/words.vtt" "$reference"
expect 0 '^Ann \(0:01\): Hello$' '' assign -f text --words "$tmp/words.vtt" --names Ann "$sample"
expect 0 '<audio' '' assign -f html --words "$tmp/words.vtt" "$reference"
expect 0 '^three-voices 1 [a-z]+ 1.000 2.000 Hello$' '' assign -f stm --words "$tmp/words.vtt" "$reference"
printf '[{"word": "Hello", "start": 500, "end": 1200}, {"word": "there", "start": 68000, "end": 68500}]' >"$tmp/milliseconds.json"
for format in "" "-f text" "-f html"; do # shellcheck disable=SC2086
    expect 1 '' '0 of 2 words lie in the recording.*milliseconds' assign $format --words "$tmp/milliseconds.json" "$sample"
done
printf '%0200000d' 0 | tr 0 '[' >"$tmp/deep.json"
expect 1 '' 'nested too deeply' assign --words "$tmp/deep.json" "$reference"
expect 1 '' 'README.md: line 1 is none of a CTM' assign --words "$source/README.md" "$reference"


# Results that were written earlier become any other format, as if it had been written at once.
"$parley" -q --names Ann,Bob,Cem -f json,jsonl,rttm,csv,eaf,textgrid,srt,vtt,audacity -o "$tmp/formats" "$sample" || failures=$((failures + 1))
for format in "$tmp"/formats/*; do
    "$parley" convert -f audacity "$format" | cmp - "$tmp/formats/three-voices.labels.txt" || { echo "convert: $format"; failures=$((failures + 1)); }
done
cp "$sample" "$tmp/talk.wav"
(cd "$tmp" && "$parley" -q --names Ann,Bob,Cem -o talk.json talk.wav && sed -i 's/"speaker": "Ann"/"speaker": "Zoe", "comment": "who?"/' talk.json &&
    "$parley" convert talk.json -o talk.html && "$parley" convert talk.json -o again.json)
grep -q '"speaker":"Zoe","edited"\|"speaker":"Zoe","comment":"who?"' "$tmp/talk.html" && grep -q 'data:audio/wav;base64' "$tmp/talk.html" &&
    grep -q '"comment": "who?"' "$tmp/again.json" || { echo "convert: the page"; failures=$((failures + 1)); }
expect 2 '' 'docx takes words, and there are none' convert "$tmp/talk.json" -o "$tmp/talk.docx"
expect 2 '' 'unknown format xyz' convert "$tmp/talk.json" -f xyz
expect 1 '' 'is JSON, but no result' convert "$tmp/milliseconds.json"
expect 1 '' 'ends after 68.9 s, before' convert <(echo 'SPEAKER talk 1 400 2 <NA> <NA> Ann <NA> <NA>') -f html --recording "$sample"

# Recognizers: any command, the user's own, and the one that Debian has.
cat >"$tmp/recognizer" <<'RECOGNIZER'
words='{"words": [{"word": "Hello", "start": 0.5, "end": 0.9}, {"word": "there.", "start": 1, "end": 1.4}]}'
[ $(($(wc -c <"$1"))) -gt 44 ] || exit 9
case ${2:-} in
broken) echo "no luck today" >&2 && exit 3 ;;
garbled) echo "hello there" ;;
silent) ;;
slow) sleep 60 ;;
*.out) echo "$words" >"$2" ;;
*) echo "$words" ;;
esac
RECOGNIZER
with="sh $tmp/recognizer {audio}"
expect 0 '^speaker 1 \(0:00\): Hello there\.$' '' transcribe --with "$with" "$sample"
expect 0 '^Ann \(0:00\): Hello there\.$' '' transcribe --names Ann --with "$with {out}.out" "$sample"
expect 0 '"word": "Hello"' '' transcribe -f json --with "$with" "$sample"
[ "$("$parley" transcribe --by-turn -f ctm --with "$with" "$sample" | grep -c Hello)" = 10 ] || failures=$((failures + 1))
"$parley" transcribe --with "$with" "$sample" -o "$tmp/talk.docx" --result "$tmp/talk.json" && "$parley" transcribe --with "$with" \
    "$sample" -o "$tmp/words.json" && grep -q 'word/document.xml' "$tmp/talk.docx" || failures=$((failures + 1))
while IFS='|' read -r pattern arguments; do
    eval "expect 1 '' \"\$pattern\" transcribe $arguments"
done <<'FAILURES'
exit status 3: no luck today|--with "$with broken" "$sample"
what it gives cannot be read: line 1 is none of a CTM|--with "$with garbled" "$sample"
heard no words in 1:08|--with "$with silent" "$sample"
it wrote no words|--with "$with silent {out}" "$sample"
it took longer than 1 s|--time-limit 1 --with "$with slow" "$sample"
no-such-program is not installed; install it|--with "no-such-program {audio}" "$sample"
there is no recognizer pocketsphynx, but pocketsphinx, |--with pocketsphynx "$sample"
there is no such file|--with "$with" nowhere.wav
FAILURES
mkdir -p "$tmp/settings/parley" "$tmp/between"
echo '{"mine": {"command": "sh '"$tmp/recognizer"' {audio}", "remedy": "none"}}' >"$tmp/settings/parley/recognizers.json"
expect 0 'Hello there' '' transcribe --with mine "$sample"
echo '{"mine": {"command": "sh"}}' >"$tmp/settings/parley/recognizers.json"
expect 1 '' 'recognizers.json: "command" of mine has no .audio' transcribe --with mine "$sample"
rm "$tmp/settings/parley/recognizers.json"
# An interruption ends the recognizer, too, and takes along what lies between.
SECONDS=0
TMPDIR=$tmp/between timeout -s INT -k 10 1 "$parley" transcribe --with "$with slow" "$sample" >"$tmp/out" 2>"$tmp/err"
grep -q 'cancelled' "$tmp/err" && [ $SECONDS -le 5 ] && [ -z "$(ls "$tmp/between")" ] ||
    { echo "transcribe: an interruption"; cat "$tmp/err"; failures=$((failures + 1)); }
# A real one, which takes longer than all else here; once is enough.
if [ -z "${3:-}" ] && command -v pocketsphinx_continuous >/dev/null; then
    expect 0 'Ann \(0:00\): good morning everybody thank you for coming' '' transcribe --names Ann,Bob,Cem "$sample"
    expect 1 '' 'exit status 1: .*acoustic model' transcribe "$sample" -- -hmm /nowhere
fi

[ "$failures" = 0 ]
