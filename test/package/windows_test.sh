#!/usr/bin/env bash
# The engine for Windows by MinGW-w64, under Wine: what the library exports, the C interface, recordings whose names are in other scripts
# and longer than 260 characters; every form of the hot functions and the bits of the engine are scripts/same-bits' affair. Formats are those
# without a library of their own: WAV, FLAC, MP3. 77 (skipped) without the compiler or Wine.
#
#   apt-get install g++-mingw-w64-x86-64-posix wine64
#   windows_test.sh SOURCE-FOLDER
set -euo pipefail
cd "$1"
compiler=x86_64-w64-mingw32
wine=$(command -v wine64 wine /usr/lib/wine/wine64 2>/dev/null | head -1)
[ -n "$wine" ] && command -v $compiler-g++-posix >/dev/null || exit 77
tmp=$(mktemp -d)
export WINEPREFIX=$tmp/wine WINEDEBUG=-all LC_ALL=C.UTF-8
cleanup() { /usr/lib/wine/wineserver64 -k 2>/dev/null || true; rm -rf "$tmp"; }
trap cleanup EXIT

build=build/windows
cmake --preset minimal -B $build -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_CXX_COMPILER=$compiler-g++-posix -DCMAKE_C_COMPILER=$compiler-gcc-posix \
    -DCMAKE_BUILD_TYPE=Release -DPARLEY_WITH_FLAC=ON -DPARLEY_WITH_MP3=ON -DPARLEY_WERROR=ON -DPARLEY_BUILD_TOOLS=OFF -DPARLEY_BUILD_DIARIZATION=OFF \
    -DPARLEY_BUILD_TESTS=OFF >"$tmp/log"
cmake --build $build --target parley -- --quiet >>"$tmp/log" || { tail -20 "$tmp/log"; exit 1; }
diff <($compiler-objdump -p $build/libparley.dll | awk '/Ordinal\/Name Pointer/ {on=1; next} on && NF==0 {exit} on {print $NF}' | sort) <(sort cmake/parley.symbols)
if $compiler-objdump -p $build/libparley.dll | grep -E 'DLL Name: lib(gcc|stdc|winpthread)'; then exit 1; fi

for program in test/api/api_test.c examples/c/diarize.c; do
    $compiler-gcc-posix -std=gnu99 $program -I$build/include/parley $build/libparley.dll -o "$tmp/$(basename $program .c).exe"
done
cp $build/libparley.dll "$tmp"
"$wine" "$tmp/api_test.exe" models/parley.zx
folder=$tmp/$(printf 'long%.0s' $(seq 40))/$(printf 'longer%.0s' $(seq 30))
mkdir -p "$folder"
name=$folder/会议-жду-ünï.wav
cp examples/three-voices.wav "$name"
[ "${#name}" -gt 300 ]
cat >"$tmp/list.c" <<'C'
#include <stdio.h>
#include <zx_parley.h>
int main(int argc, char **argv) {
    zx_parley_t *engine = NULL;
    zx_parley_segment_t *segments = NULL;
    int32_t count = 0;
    char name[2000]; /* UTF-8, which the command line is not */
    FILE *list = fopen(argv[argc - 1], "rb");
    name[fread(name, 1, sizeof(name) - 1, list)] = 0;
    if (zx_parley_init(argv[1], &engine) || zx_parley_process_file(engine, name, &count, &segments)) return 1;
    for (int32_t i = 0; i < count; i++) printf("%.3f %.3f %u\n", segments[i].start_sec, segments[i].end_sec, segments[i].speaker_tag);
    return 0;
}
C
$compiler-gcc-posix -std=gnu99 "$tmp/list.c" -I$build/include/parley $build/libparley.dll -o "$tmp/list.exe"
printf 'Z:%s' "$name" >"$tmp/name"
"$wine" "$tmp/list.exe" models/parley.zx "$tmp/name" | tr -d '\r' | grep -E '^[0-9]' >"$tmp/found"
[ "$(cut -d' ' -f3 "$tmp/found" | sort -u | wc -l)" = 3 ]
echo "the engine for Windows: $(wc -l <"$tmp/found") segments of a recording with a name of ${#name} characters"
