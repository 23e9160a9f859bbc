#!/usr/bin/env bash
# Makes the Debian package, installs it, uses it, removes it: CPACK BUILD_DIR SOURCE_DIR. Needs root and a machine where no
# parley is installed; otherwise 77 (skipped).
set -euo pipefail
cpack=$1 build=$2 source=$3
[ "$(id -u)" = 0 ] && command -v dpkg-shlibdeps >/dev/null && ! dpkg -s parley >/dev/null 2>&1 || exit 77
tmp=$(mktemp -d)
cleanup() { dpkg -P parley >/dev/null 2>&1 || true; rm -rf "$tmp"; }
trap cleanup EXIT
(cd "$tmp" && "$cpack" --config "$build/CPackConfig.cmake" -B "$tmp" >"$tmp/log" 2>&1) || { cat "$tmp/log"; exit 1; }
package=$(ls "$tmp"/parley_*.deb)
depends=$(dpkg -f "$package" Depends)
echo "$depends"
for library in libc6 libopus0 libvorbis0a libcairo2; do grep -q "$library" <<<"$depends"; done

dpkg -i "$package" >/dev/null
cd "$tmp"
cp "$source/examples/three-voices.wav" .
env -u PARLEY_MODEL /usr/bin/parley -f rttm,json -o out three-voices.wav
[ "$(cut -d' ' -f8 out/three-voices.rttm | sort -u | wc -l)" = 3 ]
dpkg-deb -x "$package" contents # some machines install no manuals
grep -q EXIT <<<"$(gunzip -cf contents/usr/share/man/man1/parley.1*)"
cc -std=c99 "$source/examples/c/diarize.c" $(pkg-config --cflags --libs parley) -o diarize
segments=$(./diarize "$(pkg-config --variable=model parley)" three-voices.wav)
grep -q 'speaker 3$' <<<"$segments"

files=$(dpkg -L parley)
dpkg -P parley >/dev/null
for file in $files; do
    case $file in */parley* | *zx_*) [ ! -f "$file" ] || { echo "$file is left behind"; exit 1; } ;; esac
done
