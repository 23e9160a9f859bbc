#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Everything for Windows, by MinGW-w64 and under Wine: the unit tests, what the libraries export, the tool's own test, and the tool
# beside this machine's: the same bytes in every format; names in other scripts and longer than 260 characters; patterns, pages, children.
# 77 (skipped) without the compiler, Wine or GoogleTest's sources.
#
#   scripts/install-deps windows
#   windows_test.sh SOURCE-FOLDER [PARLEY-OF-THIS-MACHINE]
set -euo pipefail
cd "$1"
parley=$(realpath "${2:-build/release/tools/parley}")
compiler=x86_64-w64-mingw32
wine=$(command -v wine64 wine /usr/lib/wine/wine64 2>/dev/null | head -1)
[ -n "$wine" ] && command -v $compiler-g++-posix >/dev/null && [ -d /usr/src/googletest ] || exit 77
tmp=$(mktemp -d)
export WINEPREFIX=$PWD/build/windows/wine WINEDEBUG=-all LC_ALL=C.UTF-8 SOURCE_DATE_EPOCH=0
server=$(command -v wineserver64 wineserver /usr/lib/wine/wineserver64 2>/dev/null | head -1)
cleanup() { "$server" -k 2>/dev/null && "$server" -w; rm -rf "$tmp"; }
trap cleanup EXIT
mkdir -p "$WINEPREFIX"
# What serves Wine's programs stays between them, for who comes while it leaves fails; and it holds no output of theirs open.
"$server" -p || true # where it is there already
"$wine" cmd /c exit >/dev/null 2>&1 </dev/null

cmake --preset windows -DPARLEY_WERROR=ON >"$tmp/log"
cmake --build --preset windows -- --quiet >>"$tmp/log" || { tail -20 "$tmp/log"; exit 1; }
ctest --preset windows -j "$(nproc)" >"$tmp/log" || { grep -vE 'Start |Passed ' "$tmp/log"; exit 1; }
grep 'tests passed' "$tmp/log"

bin=$PWD/build/windows/bin
exports() { $compiler-objdump -p "$1" | awk '/Ordinal\/Name Pointer/ {on=1; next} on && NF==0 {exit} on {print $NF}' | sort; }
diff <(exports "$bin/libparley.dll") <(sort cmake/parley.symbols)
diff <(exports "$bin/libparley-diarization.dll") <(sort cmake/parley-diarization.symbols)
for file in "$bin"/parley.exe "$bin"/*.dll; do
    if $compiler-objdump -p "$file" | grep -E 'DLL Name: lib(gcc|stdc|winpthread)'; then exit 1; fi
done

failures=0
fails() { echo "windows_test: $*" >&2; failures=$((failures + 1)); }
there() { "$wine" "$bin/parley.exe" "$@"; }
printf '#!/bin/sh\nexec "%s" "%s/parley.exe" "$@"\n' "$wine" "$bin" >"$tmp/parley"
chmod +x "$tmp/parley"
test/cli/words_test.sh "$tmp/parley" "$PWD" || fails "test/cli/words_test.sh"
test/cli/parley_test.sh "$tmp/parley" "$PWD" "$PWD/build/windows/test-data/audio" || fails "test/cli"

# The same bytes; where documents name the file, that has a drive's letter there.
sample=examples/three-voices.wav
for format in $("$parley" --help-all | sed -n '/^Formats/,/^$/p' | awk '/^  [a-z]/ {print $1}'); do
    [ "$format" != png ] || continue # a library draws it
    "$parley" -f "$format" $sample >"$tmp/here"
    there -f "$format" $sample | sed 's,file:///Z:/,file:///,g' | cmp "$tmp/here" - || fails "$format: other bytes"
done

folder=$tmp/$(printf 'long%.0s' $(seq 40))/$(printf 'longer%.0s' $(seq 30))
name=会议-жду-ünï
mkdir -p "$folder"
cp $sample "$folder/$name.wav"
[ "${#folder}" -gt 300 ]
"$parley" -f rttm "$folder/$name.wav" >"$tmp/here"
mkdir "$tmp/папка"
cp $sample "$tmp/папка/$name.wav"
for what in "$folder/$name.wav" "$folder/*.wav" "$folder/会?-*" "$tmp/папка"; do
    there -f rttm "Z:$what" | cmp "$tmp/here" - || fails "$what: another result"
done
there -o "Z:$folder/ответ" -f rttm,html --audio copy "Z:$folder/$name.wav"
cmp "$tmp/here" "$folder/ответ/$name.rttm" || fails "another file"
grep -q "src=\"%E4%BC%9A[^\"/]*.wav\"" "$folder/ответ/$name.html" && cmp $sample "$folder/ответ/$name.wav" || fails "a page without its sound"
PARLEY_VOICES="Z:$folder/голоса.json" there voices add Анна "Z:$folder/$name.wav" --speaker 1 >/dev/null
grep -q Анна "$folder/голоса.json" || fails "no voice was kept"

# Stands for ffmpeg: the samples behind a header of 100 bytes, of a file or of standard input.
cat >"$tmp/ffmpeg.c" <<'C'
#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <wchar.h>
int wmain(int argc, wchar_t **argv) {
    FILE *from = stdin;
    static char block[1 << 16];
    _setmode(0, _O_BINARY);
    _setmode(1, _O_BINARY);
    for (int i = 1; i + 1 < argc; i++)
        if (wcscmp(argv[i], L"-i") == 0 && wcsncmp(argv[i + 1], L"file:", 5) == 0) from = _wfopen(argv[i + 1] + 5, L"rb");
    if (!from || fread(block, 1, 100, from) != 100) return 1;
    for (size_t n; (n = fread(block, 1, sizeof(block), from)) > 0;) fwrite(block, 1, n, stdout);
    return 0;
}
C
mkdir "$tmp/path"
$compiler-gcc-posix -municode "$tmp/ffmpeg.c" -o "$tmp/path/ffmpeg.exe"
export WINEPATH=Z:$tmp/path
{ printf '\x1A\x45\xDF\xA3%096d' 0; tail -c +45 $sample; } >"$tmp/$name x.bin"
there -q -f rttm "Z:$tmp/$name x.bin" | sed "s/ [^ ]*x / $name /" | cmp "$tmp/here" - || fails "a child process: another result"
there listen - -f rttm -o "Z:$tmp/live" <"$tmp/$name x.bin" >"$tmp/lines" || fails "listen"
sed "s/ live / $name /" "$tmp/live/live.rttm" | cmp "$tmp/here" - || fails "listen to what a child decodes: another result"
tail -1 "$tmp/lines" | grep -q '"final":true' || fails "listen: no last line"

# What is unpacked anywhere uses the model beside it.
cpack --config build/windows/CPackConfig.cmake -B "$tmp/pack" >/dev/null
(cd "$tmp/pack" && cmake -E tar xf parley-*.zip)
unpacked=$(echo "$tmp"/pack/parley-*-win64)
"$wine" "$unpacked/bin/parley.exe" -f rttm $sample >/dev/null || fails "the archive"
echo none >"$unpacked/share/parley/parley.zx"
! "$wine" "$unpacked/bin/parley.exe" -f rttm $sample >/dev/null 2>&1 || fails "the archive: not its own model"

[ $failures = 0 ]
echo "Windows: the tool gives what it gives here, names of ${#folder} characters and in other scripts included"
