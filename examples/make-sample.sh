#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes three-voices.wav and three-voices.rttm: three synthetic voices taking turns, about a minute.
#
# Needs Debian's packages flite (voices slt, rms and awb, free of restrictions) and sox. Run from any folder:
#
#   examples/make-sample.sh [FOLDER]      default: the folder of this script
set -euo pipefail
out=${1:-$(dirname "$0")}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# voice | pause before the turn in seconds | text
turns=(
    "slt|0.8|Good morning, everybody. Thank you for coming. We have half an hour, and three questions to settle before lunch."
    "rms|0.5|Good morning. I have brought the numbers from last week, and most of them look better than we expected."
    "awb|0.4|That is good to hear. Before we go through them, could you say where they come from, and how many people took part?"
    "rms|0.6|Of course. We asked two hundred visitors on Tuesday and on Thursday, and about half of them left an answer."
    "slt|0.3|So there are a hundred answers. Is that enough to draw a conclusion, or should we ask again next month?"
    "awb|0.7|In my experience a hundred is enough to see a trend, but not enough to compare one group of visitors with another."
    "rms|0.4|I agree with that. The trend is clear. People stay longer, and they come back more often than a year ago."
    "slt|0.9|Very well. Then let us write down the trend today, and plan a second round of questions for the spring."
    "awb|0.5|I can prepare that round. Give me two weeks, and I will send you a draft that we can discuss together."
    "slt|0.4|Perfect. That settles the first question. The second one is the budget, and that will take us a little longer."
)

: >"$tmp/rttm"
parts=()
position=0 # in samples at 16 kHz
number=0
for turn in "${turns[@]}"; do
    IFS='|' read -r voice pause text <<<"$turn"
    number=$((number + 1))
    flite -voice "$voice" -t "$text" -o "$tmp/raw.wav"
    # Without the silence that a synthesiser leaves at both ends, at one level, on a faint bed of noise (dither).
    sox -R "$tmp/raw.wav" -r 16000 -c 1 -b 16 "$tmp/turn.wav" silence 1 0.01 0.5% reverse silence 1 0.01 0.5% reverse \
        gain -n -6
    sox -n -r 16000 -c 1 -b 16 "$tmp/pause$number.wav" trim 0 "$pause"
    mv "$tmp/turn.wav" "$tmp/turn$number.wav"
    parts+=("$tmp/pause$number.wav" "$tmp/turn$number.wav")
    position=$((position + $(soxi -s "$tmp/pause$number.wav")))
    length=$(soxi -s "$tmp/turn$number.wav")
    awk -v start="$position" -v samples="$length" -v voice="$voice" 'BEGIN {
        printf "SPEAKER three-voices 1 %.3f %.3f <NA> <NA> %s <NA> <NA>\n", start / 16000, samples / 16000, voice }' \
        >>"$tmp/rttm"
    position=$((position + length))
done
sox -R "${parts[@]}" "$tmp/speech.wav" pad 0 0.8
sox -R -n -r 16000 -c 1 -b 16 "$tmp/noise.wav" synth "$(soxi -D "$tmp/speech.wav")" pinknoise vol 0.004
sox -R -m -v 1 "$tmp/speech.wav" -v 1 "$tmp/noise.wav" "$out/three-voices.wav"
mv "$tmp/rttm" "$out/three-voices.rttm"
echo "$out/three-voices.wav: $(soxi -D "$out/three-voices.wav") s, ${#turns[@]} turns"
