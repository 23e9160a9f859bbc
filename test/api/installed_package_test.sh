#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs a build into a temporary prefix and uses it as others would: CMAKE BUILD_DIR SOURCE_DIR
set -euo pipefail
cmake=$1 build=$2 source=$3
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
"$cmake" --install "$build" --prefix "$tmp/usr" >/dev/null

cat >"$tmp/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(consumer C)
find_package(parley 1.0 REQUIRED)
add_executable(consumer "${API_TEST}")
target_link_libraries(consumer PRIVATE parley::parley)
enable_testing()
add_test(NAME consumer COMMAND consumer "${PARLEY_MODEL}")
CMAKE
"$cmake" -S "$tmp" -B "$tmp/build" -DCMAKE_PREFIX_PATH="$tmp/usr" -DAPI_TEST="$source/test/api/api_test.c" >/dev/null
"$cmake" --build "$tmp/build" >/dev/null
"$tmp/build/consumer" "$tmp/usr/share/parley/parley.zx"

# The examples, as their folder builds them.
"$cmake" -S "$source/examples" -B "$tmp/examples" -DCMAKE_PREFIX_PATH="$tmp/usr" >/dev/null
"$cmake" --build "$tmp/examples" >/dev/null
segments=$("$tmp/examples/diarize" "$source/examples/three-voices.wav")
grep -q 'speaker 3$' <<<"$segments"
ln -s usr/lib "$tmp/lib" # as where /lib is a link
libraries=$(dirname "$(find "$tmp/usr" -name libparley-diarization.so.1)")
[ "$(LD_LIBRARY_PATH=$tmp/${libraries#"$tmp/usr/"} "$tmp/examples/diarize" "$source/examples/three-voices.wav" 2>/dev/null)" = "$segments" ]
shares=$(tail -c +45 "$source/examples/three-voices.wav" | "$tmp/examples/talk_time")
grep -q '^speaker 3: ' <<<"$shares"
tail -c +45 "$source/examples/three-voices.wav" | "$tmp/examples/live" | tail -1 | grep -qx '3 speakers'
"$tmp/examples/voices" "$source"/examples/three-voices.{wav,wav} | grep -q '^person 3: .*similarity 1$'
printf '1\n00:00:01,000 --> 00:00:02,000\nHello\n' >"$tmp/words.srt"
"$tmp/examples/words" "$source/examples/three-voices.wav" "$tmp/words.srt" | grep -qx 'speaker 1 (0:01): Hello'
"$tmp/examples/engine" "$tmp/usr/share/parley/parley.zx" "$source/examples/three-voices.wav" | grep -q 'speaker 3$'

pc=$(dirname "$(find "$tmp/usr" -name parley.pc)")
flags=$(PKG_CONFIG_PATH=$pc pkg-config --cflags --libs parley)
# shellcheck disable=SC2086
cc -std=c99 "$source/test/api/api_test.c" $flags -o "$tmp/with_pkg_config"
LD_LIBRARY_PATH=$(dirname "$pc") "$tmp/with_pkg_config" "$(PKG_CONFIG_PATH=$pc pkg-config --variable=model parley)"

# Parts by name, and those that are not there.
mkdir "$tmp/parts"
cat >"$tmp/parts/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(parts C CXX)
find_package(parley 1.0 REQUIRED COMPONENTS library diarization static tool)
find_package(parley 1.0 QUIET COMPONENTS nonsense)
if(parley_FOUND)
  message(FATAL_ERROR "a part that does not exist was found")
endif()
add_executable(engine "${EXAMPLES}/engine.c")
target_link_libraries(engine PRIVATE parley::static)
add_executable(diarization_test "${DIARIZATION_TEST}")
target_link_libraries(diarization_test PRIVATE parley::diarization_static)
set_target_properties(engine diarization_test PROPERTIES LINKER_LANGUAGE CXX)
add_custom_target(version ALL COMMAND parley::tool --version)
CMAKE
"$cmake" -S "$tmp/parts" -B "$tmp/parts/build" -DCMAKE_PREFIX_PATH="$tmp/usr" -DEXAMPLES="$source/examples/c" \
    -DDIARIZATION_TEST="$source/test/api/diarization_test.c" >/dev/null
"$cmake" --build "$tmp/parts/build" >/dev/null
if ldd "$tmp/parts/build/engine" "$tmp/parts/build/diarization_test" | grep libparley; then exit 1; fi
segments=$("$tmp/parts/build/engine" "$tmp/usr/share/parley/parley.zx" "$source/examples/three-voices.wav")
grep -q 'speaker 3$' <<<"$segments"
"$tmp/parts/build/diarization_test" "$tmp/usr/share/parley/parley.zx" "$source/examples/three-voices.wav" >/dev/null
# By pkg-config, where the archives are all there is. (That of libsndfile names libraries that Debian does not install with it.)
mkdir "$tmp/static"
cp -r "$tmp/usr/." "$tmp/static"
find "$tmp/static" -name 'libparley*.so*' -delete
static_pc=$(dirname "$(find "$tmp/static" -name parley.pc)")
# shellcheck disable=SC2046
cc -std=c99 "$source/test/api/api_test.c" $(PKG_CONFIG_PATH=$static_pc pkg-config --cflags --static --libs parley) -o "$tmp/with_archives"
"$tmp/with_archives" "$tmp/usr/share/parley/parley.zx" >/dev/null
grep -q '^Requires.private: parley .*sndfile' "$static_pc/parley-diarization.pc"

# The archive to unpack anywhere.
"${cmake%cmake}cpack" --config "$build/CPackConfig.cmake" -B "$tmp/archive" >/dev/null
held=$(tar -tzf "$tmp"/archive/parley-*.tar.gz)
grep -q '/share/parley/parley.zx$' <<<"$held"
grep -q '/NOTICES$' <<<"$held"
for terms in /usr/share/doc/{libcli11,nlohmann-json3}-dev/copyright; do # of what is compiled in
    [ ! -e "$terms" ] || grep -qF "$(sed -n 3p "$terms")" "$(find "$tmp/usr" -name NOTICES)"
done

# What is not built is not installed by half, and says what to do; who sets no build type gets a fast one.
alone=(-DPARLEY_BUILD_TESTS=OFF -DPARLEY_WITH_{FLAC,MP3,OPUS,VORBIS,AAC,AMR}=OFF)
"$cmake" -S "$source" -B "$tmp/half" "${alone[@]}" -DPARLEY_BUILD_DIARIZATION=OFF >/dev/null
grep -q '^CMAKE_BUILD_TYPE:STRING=Release' "$tmp/half/CMakeCache.txt"
if "$cmake" --install "$tmp/half" --prefix "$tmp/nothing" >"$tmp/output" 2>&1; then exit 1; fi
tr -s ' \n' ' ' <"$tmp/output" | grep -q 'is not built yet: cmake --build'
[ ! -e "$tmp/nothing" ]

# As a part of another project, which uses one of the same libraries, it adds a library and nothing else.
mkdir "$tmp/outer"
printf 'cmake_minimum_required(VERSION 3.25)\nproject(outer C CXX)\nfind_package(nlohmann_json)\nadd_subdirectory("%s" parley)\n' "$source" >"$tmp/outer/CMakeLists.txt"
"$cmake" -S "$tmp/outer" -B "$tmp/outer/build" "${alone[@]:1}" >/dev/null
"$cmake" -S "$tmp/outer" -B "$tmp/outer/diarization_test" "${alone[@]:1}" -DPARLEY_BUILD_{DIARIZATION,TOOLS}=ON -DPARLEY_WITH_{CAIRO,SNDFILE}=OFF >/dev/null
"$cmake" --install "$tmp/outer/build" --prefix "$tmp/outer/installed" >/dev/null
[ ! -e "$tmp/outer/installed" ] && [ ! -e "$tmp/outer/build/CPackConfig.cmake" ]
[ "$(cd "$tmp/outer/build" && "${cmake%cmake}ctest" -N | tail -1)" = 'Total Tests: 0' ]

# The installed tool finds the installed model, not the one of the source tree.
cmp "$source/models/parley.zx" "$tmp/usr/share/parley/parley.zx"
[ -e "$tmp/usr/bin/parley" ] || exit 0 # built without it
printf 'broken' >"$tmp/usr/share/parley/parley.zx"
if env -u PARLEY_MODEL "$tmp/usr/bin/parley" "$source/README.md" 2>"$tmp/errors"; then exit 1; fi
grep -q "usr/share/parley/parley.zx is no model" "$tmp/errors"
