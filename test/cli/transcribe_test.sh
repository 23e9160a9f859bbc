#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Speech recognizers as child processes, as users call the tool: PARLEY SOURCE_DIR [without]: without the recognizer of Debian's
set -uo pipefail
parley=$1 source=$2
# shellcheck source=test/cli/support.sh
. "$source/test/cli/support.sh"
export XDG_CONFIG_HOME=$tmp/settings
"$parley" -q -f json -o "$tmp/talk.json" "$sample" || exit 1

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
