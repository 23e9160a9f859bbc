#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The tool as users call it: PARLEY SOURCE_DIR AUDIO_DIR, where the last holds the files of test/data/audio
set -uo pipefail
parley=$1 source=$2 audio=$3
# shellcheck source=test/cli/support.sh
. "$source/test/cli/support.sh"

expect 0 '^ +[0-9]+\.[0-9]{3} +[0-9]+\.[0-9]{3}  speaker [1-9]' '' "$sample"
cp "$tmp/out" "$tmp/one"
if grep -vqE '^ +[0-9]+\.[0-9]{3} +[0-9]+\.[0-9]{3}  speaker [1-9][0-9]*$' "$tmp/one"; then
    echo "something but segments on standard output"
    failures=$((failures + 1))
fi
cp "$sample" "$tmp/second.wav"
expect 0 'three-voices.wav'$'\t'' +[0-9]' '' "$sample" "$tmp/second.wav" "$sample" # a file named twice is done once
[ "$(wc -l <"$tmp/out")" = $((2 * $(wc -l <"$tmp/one"))) ] || failures=$((failures + 1))

expect 0 'Usage: parley' '' --help
[ "$(wc -l <"$tmp/out")" -le 40 ] && [ "$(wc -L <"$tmp/out")" -le 80 ] || { echo "--help is no screen"; failures=$((failures + 1)); }
expect 0 'via-ffmpeg' '' listen --help-all
expect 0 '^parley 1\.0\.0$' '' --version

# What people do wrong: the words say what is wrong and what helps; what the engine calls it shows with -v alone.
head -c 1000 "$sample" >"$tmp/cut.wav"
head -c 600 "$sample" >"$tmp/tiny.wav"
printf 'A\001\002B%0100d' 7 >"$tmp/noise.mp3"
touch "$tmp/nothing.wav"
mkdir -p "$tmp/empty" "$tmp/twice/a" "$tmp/twice/b" "$tmp/with-notes"
cp "$sample" "$tmp/with-notes"
touch "$tmp/with-notes/notes.txt"
cp "$sample" "$tmp/twice/a/x.wav"
cp "$sample" "$tmp/twice/b/x.wav"
printf '%s\n' "$tmp/twice/a/x.wav" '# a comment' "$tmp/twice/b/x.wav" >"$tmp/list"
expect 0 '' '' -q -o "$tmp/out-twice" --manifest "$tmp/list" # folders tell them apart
[ "$(cd "$tmp/out-twice" && find . -type f | sort | tr '\n' ' ')" = "./a/x.wav.txt ./b/x.wav.txt " ] || failures=$((failures + 1))
while IFS='|' read -r status pattern arguments; do
    eval "expect $status '' \"\$pattern\" $arguments"
done <<'MISTAKES'
2|no audio file|
2|not expected: --modle|--modle x "$sample"
2|--model: 1 required FILE missing|--model
1|the model nowhere.zx: there is no such file|--model nowhere.zx "$sample"
1|README.md is no model of this version|--model="$source/README.md" "$sample"
1|nowhere.wav: there is no such file|nowhere.wav
1|--version: there is no such file|-- --version
1|README.md: is text, not audio|"$source/README.md"
1|noise.mp3: holds no audio that can be read here.*ffmpeg -i|"$tmp/noise.mp3"
1|nothing.wav: is empty|"$tmp/nothing.wav"
1|the model .*: is a folder, not a file|--model "$tmp" "$sample"
1|cut.wav: cannot be read, or ends before its audio does|"$tmp/cut.wav"
1|failed to init with status|-v "$tmp/noise.mp3"
1|no recordings in what was named|"$tmp/empty"
1|is a folder, not a list|--manifest "$tmp/empty"
2|several recordings cannot be one html|-f html "$sample" "$tmp/second.wav"
2|speakers takes a number from 1 to 1000, not "two"|-n two "$sample"
2|speakers takes a number from 1 to 1000, not "0"|-n 0 "$sample"
2|the name Ann is given twice|--names Ann,Bob,Ann "$sample"
2|a name is empty|--names Ann,,Bob "$sample"
2|--speakers goes without --min-speakers and --max-speakers|-n 2 --max-speakers 3 "$sample"
2|min-speakers is above max-speakers|--min-speakers 4 --max-speakers 3 "$sample"
2|four numbers|--threshold 0.1,0.2 "$sample"
2|several formats need --output-dir|--format rttm,json "$sample"
2|--resume needs|--resume "$sample"
2|--keep and --again go without --channels split|--keep "$tmp/kept" --channels split "$sample"
2|--again takes recordings that are files|--again "$tmp/kept" -
1|second.wav: nothing was kept of it: there is no .*second.embeddings|--again "$tmp/kept" "$tmp/second.wav"
2|unknown format tabel: did you mean table|-f tabel "$sample"
2|diarise is no file and no command: did you mean diarize|diarise
2|did you mean add|voices ad Ann
2|is the name of one file|-o "$tmp/x.rttm" "$sample" "$tmp/second.wav"
2|the channels are the speakers|--channels split -n 2 "$sample"
MISTAKES
if "$parley" "$tmp/noise.mp3" 2>&1 | grep -q 'zx_'; then
    echo "internal names without -v"
    failures=$((failures + 1))
fi
expect 1 'speaker 1' 'nowhere.wav: there is no such file' nowhere.wav "$sample" # the other files are still diarized

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
printf 'SPEAKER other 1 0 1 <NA> <NA> a <NA> <NA>\n' >"$tmp/other.rttm"
expect 1 '' 'no recording is in both: the reference is about three-voices, the hypothesis about other' score "$reference" "$tmp/other.rttm"
printf 'SPEAKER broken\n' >"$tmp/broken.rttm"
printf '\xef\xbb\xbfSPEAKER three-voices 1 0 1 <NA> <NA> a <NA> <NA>\n' >"$tmp/mark.rttm"
expect 0 'total +0\.00 ' '' score "$tmp/mark.rttm" "$tmp/mark.rttm" # behind a byte order mark
expect 0 'no speech in the reference' '' score /dev/null "$reference"
expect 1 '' 'README.md:1: cannot be read' score "$source/README.md" "$reference"
printf 'SPEAKER x 1 0 1e308 <NA> <NA> a <NA> <NA>\n' >"$tmp/late.rttm"
expect 1 '' 'late.rttm:1: cannot be read' score "$tmp/late.rttm" "$reference"
expect 1 '' 'broken.rttm:1: cannot be read' score "$reference" "$tmp/broken.rttm"
expect 2 '' 'FILE' score "$reference"
expect 2 '' 'collar' score --collar=x "$reference" "$reference"
expect 0 'Usage: parley score' '' score -h

# What users ask for beyond who spoke when
expect 0 '^ +[0-9.]+ +[0-9.]+  Ann$' '' --names Ann,Bob "$sample"
speakers() { "$parley" "$@" "$sample" | awk '{print $NF}' | sort -u | wc -l; }
for n in 1 2 3; do
    [ "$(speakers -n $n)" = $n ] || { echo "-n $n: $(speakers -n $n) speakers"; failures=$((failures + 1)); }
done
[ "$(speakers --min-speakers 3 --max-speakers 5)" = 3 ] || failures=$((failures + 1))
[ "$(speakers --threshold 0,0,0,1)" = 0 ] || failures=$((failures + 1)) # everything is background
spoken() { "$parley" "$@" "$sample" | awk '{sum += 1000 * ($2 - $1)} END {printf "%d", sum}'; }
[ "$(spoken --sensitivity 0)" -lt "$(spoken)" ] && [ "$(spoken)" -lt "$(spoken --sensitivity 1)" ] ||
    { echo "sensitivity: $(spoken --sensitivity 0) $(spoken) $(spoken --sensitivity 1) ms"; failures=$((failures + 1)); }
expect 0 '"note": "only [0-9]+ speakers can be told apart"' '' -n 40 --format json "$sample"
"$parley" - <"$sample" >"$tmp/from_stdin"
cmp "$tmp/one" "$tmp/from_stdin" || failures=$((failures + 1))
expect 1 '' 'standard input: is text, not audio' - <"$source/README.md"
if [ -z "${WINEPREFIX:-}" ]; then # where there is no /dev/fd
    "$parley" <(cat "$sample") >"$tmp/from_pipe"
    cmp "$tmp/one" "$tmp/from_pipe" || failures=$((failures + 1))
fi
# Several results in one stream: an object a line, one header.
"$parley" -f json "$sample" "$tmp/second.wav" | python3 -c 'import json, sys; exit(len([json.loads(l) for l in sys.stdin]) != 2)' ||
    { echo "not JSON lines"; failures=$((failures + 1)); }
[ "$("$parley" -f csv "$sample" "$tmp/second.wav" | grep -c ^recording)" = 1 ] || failures=$((failures + 1))

all_readers=
! command -v ffmpeg >/dev/null || [[ $("$parley" --channels split "$sample" 2>&1) == *'left out'* ]] || all_readers=1

# What the own readers refuse: others read it, or there is what is there, and a note says so; of HE-AAC the times are right.
# A recording device that hears a file, and silence behind it.
mkdir -p "$tmp/home"
tail -c +45 "$sample" >"$tmp/heard.raw"
printf 'pcm.recorded { type file; slave.pcm null; file /dev/null; infile "%s"; format raw }\n' "$tmp/heard.raw" >"$tmp/home/.asoundrc"
if HOME=$tmp/home "$parley" listen --device list 2>"$tmp/err" | grep -q recorded; then
    [ ! -s "$tmp/err" ] || { echo "listen --device list complains"; failures=$((failures + 1)); }
    HOME=$tmp/home timeout -s INT 3 "$parley" listen --device RECORDED >"$tmp/lines" 2>"$tmp/err"
    grep -q '"start":0.8' "$tmp/lines" && tail -1 "$tmp/lines" | grep -q '"final":true' || { echo "listen: not what is recorded"; failures=$((failures + 1)); }
    HOME=$tmp/home expect 1 '' 'no recording device of-nobody' listen --device of-nobody
fi
expect 2 '' 'not both' listen --device x -
if [ "$all_readers" ]; then
    while IFS='|' read -r file seconds note; do
        "$parley" -f json "$audio/$file" >"$tmp/out" 2>"$tmp/err" && [ ! -s "$tmp/err" ] &&
            python3 -c 'import json, re, sys
result = json.load(open(sys.argv[1]))
sys.exit(abs(result["duration"] - float(sys.argv[2])) > 0.2 or not re.search(sys.argv[3], result.get("note", "")))' \
                "$tmp/out" "$seconds" "$note" && continue
        echo "$file: not $seconds s and $note"
        failures=$((failures + 1))
    done <<'FILES'
wav_s16_mono_16000.wav|2.0|^$
wav_aiff_mono_16000.aiff|2.0|read by libsndfile
flac_unknown_total_16000.flac|2.0|read by libsndfile
bad_wav_data_size_huge.wav|2.0|damaged or cut short: the first 2.0 s
bad_flac_truncated_half.flac|0.8|damaged or cut short
mkv_opus_mono.mkv|2.0|read by ffmpeg
adts_mpeg4_fff1_16000.aac|2.1|read by ffmpeg
wav_s16_mono_11025.wav|2.0|read by ffmpeg
bad_mp4_truncated_in_last_sample.mp4|2.0|read by ffmpeg.*damaged
m4a_heaac_stereo_44100.m4a|2.1|HE-AAC
m4a_heaacv2_stereo_44100.m4a|2.1|HE-AAC
3gp_amr_mode0.3gp|2.0|read by ffmpeg, since the own reader finds another length
FILES
    expect 1 '' 'holds no audio' --via-ffmpeg never "$audio/mkv_opus_mono.mkv"
    expect 0 'speaker 1' 'parley: .*mkv: read by ffmpeg' "$audio/mkv_opus_mono.mkv"
    expect 0 'speaker 1' '' -q "$audio/mkv_opus_mono.mkv"
    expect 0 'speaker 1' 'parley: -: read by ffmpeg' - <"$audio/mkv_opus_mono.mkv"
    expect 0 '"duration": 2' '' -f json --via-ffmpeg always "$audio/wav_s16_mono_16000.wav"
fi
expect 1 '' 'is longer than the 10.0 s allowed' --max-duration 10 "$sample"
expect 1 '' 'standard input: is more than the 65536 bytes allowed' --max-input 64K - <"$sample"
expect 0 'speaker 1' 'left out: 1 file that by name is no audio, as .*notes.txt' "$tmp/with-notes"

# Two channels that cancel each other, one that is silent, and files joined from others of another rate.
if [ "$all_readers" ]; then
    make() { ffmpeg -nostdin -v error -y -i "$sample" "$@"; }
    make -af 'aeval=val(0)|-val(0):c=stereo' "$tmp/opposite.wav"
    make -af 'aeval=val(0)|0:c=stereo' "$tmp/half.flac"
    expect 0 '' 'cancel each other.*--channels loudest' "$tmp/opposite.wav"
    expect 0 'speaker 1' 'one of the two channels is silent' "$tmp/half.flac"
    for file in opposite.wav half.flac; do
        expect 0 'speaker 1' '' --channels loudest "$tmp/$file"
        cmp "$tmp/one" "$tmp/out" || { echo "$file: not as its loudest channel"; failures=$((failures + 1)); }
        expect 1 '' 'is longer than the 10.0 s' --max-duration 10 --channels loudest "$tmp/$file"
    done
    for kind in mp3 ogg; do
        make -ar 16000 "$tmp/first.$kind"
        make -ar 32000 -ac 2 "$tmp/second.$kind"
        cat "$tmp/first.$kind" "$tmp/first.$kind" >"$tmp/same.$kind"
        cat "$tmp/first.$kind" "$tmp/second.$kind" >"$tmp/joined.$kind"
        expect 0 '"duration": 13[0-9]' '' -f json "$tmp/same.$kind"
        matches 'joined' "$tmp/out" && { echo "$kind: joined of the same"; failures=$((failures + 1)); }
        expect 0 '"duration": 13[0-9]' '' -f json "$tmp/joined.$kind"
        expect 0 'joined from recordings of different rates' '' -f json "$tmp/joined.$kind"
        expect 1 '' 'is joined from .*ffmpeg -i' --via-ffmpeg never "$tmp/joined.$kind"
    done
fi

# A speaker per channel: the first half of the sample on one, the second on the other, each leaking into the other.
if [ "$all_readers" ]; then
    first='lt(t\,34)' second='gte(t\,34)'
    ffmpeg -nostdin -v error -i "$sample" -af \
        "aeval=val(0)*($first+0.05*$second)|val(0)*($second+0.05*$first):c=stereo,aresample=44100" "$tmp/two.flac"
    "$parley" --channels split -f rttm "$tmp/two.flac" >"$tmp/two.rttm"
    awk '{wrong += ($8 == "speaker_1") != ($4 < 34) ? $5 : 0; all += $5} END {exit !(all > 50 && wrong < 1.5)}' "$tmp/two.rttm" ||
        { echo "channels are mixed up"; failures=$((failures + 1)); }
fi

# Voices of two recordings: the second is the first, its speakers in another order of appearance
"$parley" --format json --embeddings "$sample" >"$tmp/a.json"
"$parley" --format json --embeddings --names C,A,B "$sample" >"$tmp/b.json"
expect 0 '^speaker 2'$'	''A'$'	''1\.000$' '' match "$tmp/a.json" "$tmp/b.json"
expect 1 '' 'is not what' match "$tmp/a.json" "$reference"
sed 's/"model": "[0-9a-f]*"/"model": "0123456789abcdef"/' "$tmp/a.json" >"$tmp/other-model.json"
expect 1 '' 'of different models cannot' match "$tmp/a.json" "$tmp/other-model.json"
export PARLEY_VOICES=$tmp/config/voices.json
expect 0 '^Ann: [0-9.]+ s of' '' voices add Ann "$sample" --speaker 2
expect 0 '^Ann: [0-9.]+ s of' '' voices add Ann "$sample" --speaker 2 # the same sample
expect 0 '^Bob: (3\.[3-9]|4\.[01]) s of' '' voices add Bob "$sample" --from 0 --to 4.9 # what is said there
expect 1 '' 'too short to be remembered: 1' voices add Bob "$sample" --from 0 --to 2.5
expect 0 '^Ann'$'\t''[0-9.]+ s'$'\t''20[0-9-]{8}'$'\t''three-voices$' '' voices list
[ "$(grep -c Ann "$tmp/out")" = 1 ] || failures=$((failures + 1))
expect 0 'Ann$' '' "$sample" # by $PARLEY_VOICES
expect 0 'Ann$' '' --voices "$PARLEY_VOICES" "$sample"
sed 's/Bob/speaker 1/; s/Ann/speaker 2/' "$tmp/out" | cmp - "$tmp/one" || { echo "voices: others than they were"; failures=$((failures + 1)); }
expect 0 '"similarity": (1.0|0.99)' '' -f json --voices "$PARLEY_VOICES" "$sample"
expect 1 '' 'holds 3 speakers; say which' voices add Cem "$sample"
expect 1 '' 'there are 3 speakers' voices add Cem "$sample" --speaker 4
expect 1 '' 'there is no voice of Cem' voices remove Cem
expect 0 '' '' voices remove Bob
sed 's/"model": "./"model": "x/' "$PARLEY_VOICES" >"$tmp/other.json"
expect 1 '' 'of another model .*add them again' --voices "$tmp/other.json" "$sample"
expect 1 '' 'the voices are none: damaged' --voices "$source/README.md" "$sample"
expect 1 '' 'nowhere.json: cannot be opened' --voices nowhere.json "$sample"
expect 0 '' '' voices forget --all
[ ! -e "$PARLEY_VOICES" ] || failures=$((failures + 1))
unset PARLEY_VOICES

# While it is recorded: lines of what changes, and in the end the files of the whole.
"$parley" listen - -f rttm -o "$tmp/live" <"$sample" >"$tmp/lines" || failures=$((failures + 1))
sed 's/ live / three-voices /' "$tmp/live/live.rttm" | cmp - "$tmp/hypothesis.rttm" || { echo "listen: another result"; failures=$((failures + 1)); }
grep -q '"final":true' "$tmp/lines" || failures=$((failures + 1))
tail -c +45 "$sample" | "$parley" listen - | grep -q '"added":\[{"id":1,"start":0.8' || { echo "listen: raw samples"; failures=$((failures + 1)); }
if [ "$all_readers" ]; then
    for kind in flac opus wav; do # compressed, compressed, and of 24 bits, at another rate: in the end as the file
        [ $kind = wav ] && make -ar 44100 -ac 2 -c:a pcm_s24le "$tmp/stream.$kind" || make "$tmp/stream.$kind"
        "$parley" listen - -f rttm -o "$tmp/live" <"$tmp/stream.$kind" >"$tmp/lines" || failures=$((failures + 1))
        "$parley" -f rttm "$tmp/stream.$kind" | sed 's/ stream / live /' | cmp - "$tmp/live/live.rttm" ||
            { echo "listen: $kind: another result"; failures=$((failures + 1)); }
        [ "$(grep -c added "$tmp/lines")" -ge 1 ] || failures=$((failures + 1))
    done
    # An interruption ends what would never end, with the result so far.
    make "$tmp/stream.mp3"
    while cat "$tmp/stream.mp3"; do :; done 2>/dev/null | timeout --foreground -s INT -k 10 1 "$parley" listen - >"$tmp/lines" || true
    tail -1 "$tmp/lines" | grep -q '"final":true' || { echo "listen: no result after an interruption"; failures=$((failures + 1)); }
fi
expect 1 '' 'shorter than 32 ms' listen - </dev/null
expect 2 '' 'go together' listen -f json - </dev/null

# Many files: the good ones come out, the bad ones are named, and a second run only does what is missing
mkdir -p "$tmp/in/deep"
for i in $(seq 8); do cp "$sample" "$tmp/in/deep/$i.wav"; done
head -c 1000 "$sample" >"$tmp/in/short.wav" # a header that promises more
printf 'no audio' >"$tmp/in/bad.mp3"
expect 1 '' '2 of 10 recordings failed' --resume -j 3 -f rttm,json -o "$tmp/outputs" "$tmp/in"
[ "$(wc -l <"$tmp/err")" = 3 ] || { cat "$tmp/err"; failures=$((failures + 1)); } # a line for each, and the sum
results() { find "$tmp/outputs" -type f ! -name .parley "$@" | wc -l; }
[ "$(results -name '*.rttm')" = 8 ] && [ "$(results)" = 16 ] ||
    { echo "wrong outputs"; failures=$((failures + 1)); }
for i in $(seq 8); do
    sed "s/^SPEAKER [0-9]* /SPEAKER three-voices /" "$tmp/outputs/deep/$i.rttm" | cmp - "$tmp/hypothesis.rttm" || failures=$((failures + 1))
done
# What is missing is made again, and so is what would be another result by now.
resumed() { # NUMBER ARGUMENT...: so many files are new
    local number=$1
    shift
    touch "$tmp/before"
    expect 1 '' '2 of 10' --resume -f rttm,json -o "$tmp/outputs" "$@" "$tmp/in"
    [ "$(results -newer "$tmp/before")" = "$number" ] || { echo "resumed $(results -newer "$tmp/before")"; failures=$((failures + 1)); }
}
resumed 0
rm "$tmp/outputs/deep/7.json"
resumed 2
touch -d 2001-01-01 "$tmp/in/deep/3.wav"
resumed 2
resumed 16 --pad 0.1
resumed 0 --pad 0.1 -j 1
resumed 16 --pad 0.1 --keep "$tmp/resumed" # results are there, embeddings are not
resumed 0 --pad 0.1 --keep "$tmp/resumed"

# What was kept of a recording finds its speakers again, as the recording itself does; not once that has changed.
again=("$tmp/in/deep/1.wav" "$tmp/second.wav")
expect 0 '' '' -q --keep "$tmp/kept" -f json -o "$tmp/first" "${again[@]}"
for options in "-n 2" "--sensitivity 0.8 --confidence" "--no-refine"; do
    # shellcheck disable=SC2086
    expect 0 '' '' -q --again "$tmp/kept" -f json,html -o "$tmp/again" $options "${again[@]}"
    # shellcheck disable=SC2086
    expect 0 '' '' -q -f json,html -o "$tmp/anew" $options "${again[@]}"
    diff -r "$tmp/again" "$tmp/anew" >/dev/null || { echo "--again $options: another result"; failures=$((failures + 1)); }
done
touch "${again[0]}"
expect 1 'speaker 1' '1.wav: has changed since .*1.embeddings was kept' --again "$tmp/kept" "${again[@]}"
(cd "$tmp" && "$parley" -q -o new.rttm "$sample") && cmp "$tmp/new.rttm" "$tmp/hypothesis.rttm" || failures=$((failures + 1))
# A run that is killed leaves whole files under their names
"$parley" -f html -o "$tmp/killed" "$tmp/in/deep" &
sleep 0.3
kill -9 $!
wait $! 2>/dev/null
rm -f "$tmp"/killed/.parley-*.part
"$parley" -f html -o "$tmp/killed" "$tmp/in/deep" & # one that is asked to end takes along what is not whole
sleep 0.3
kill -TERM $!
wait $! 2>/dev/null
[ -z "$(find "$tmp/killed" -name '*.part')" ] || { echo "parts are left"; failures=$((failures + 1)); }
for page in "$tmp"/killed/*.html; do
    [ ! -e "$page" ] || tail -c 8 "$page" | grep -q '</html>' || { echo "$page is half"; failures=$((failures + 1)); }
done

PARLEY_MODEL=nowhere.zx expect 1 '' 'nowhere.zx' "$sample"
PARLEY_MODEL=nowhere.zx expect 0 'speaker 1' '' --model "$source/models/parley.zx" "$sample"
"$parley" "$sample" >/dev/full 2>"$tmp/err" && failures=$((failures + 1))

[ "$failures" = 0 ]
