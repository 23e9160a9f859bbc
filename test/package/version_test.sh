#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Another version of the product reads the model there is: the engine's version, which model files name, is one of its own.
#   version_test.sh SOURCE
set -euo pipefail
source=$1
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
git -C "$source" ls-files -z | (cd "$source" && xargs -0 cp --parents -t "$tmp" 2>/dev/null) || true
sed -i 's/^project(parley VERSION [0-9.]*/project(parley VERSION 1.7.3/' "$tmp/CMakeLists.txt"
cmake -S "$tmp" -B "$tmp/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DPARLEY_BUILD_TESTS=OFF >/dev/null
cmake --build "$tmp/build" --target parley_tool -- --quiet
[ "$("$tmp/build/tools/parley" --version)" = "parley 1.7.3" ]
"$tmp/build/tools/parley" -q -m "$source/models/parley.zx" -f rttm "$source/examples/three-voices.wav" | grep -q SPEAKER
echo "version 1.7.3 reads the model"
