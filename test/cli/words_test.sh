#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Words with names, and results that were written earlier, as users call the tool: PARLEY SOURCE_DIR
set -uo pipefail
parley=$1 source=$2
# shellcheck source=test/cli/support.sh
. "$source/test/cli/support.sh"
reference=$source/examples/three-voices.rttm

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
echo 'SPEAKER talk 1 400 2 <NA> <NA> Ann <NA> <NA>' >"$tmp/late.rttm"
expect 1 '' 'ends after 68.9 s, before' convert "$tmp/late.rttm" -f html --recording "$sample"

[ "$failures" = 0 ]
