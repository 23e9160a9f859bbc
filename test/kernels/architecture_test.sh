#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Code for one kind of processor stays in the folders made for it, in the source and in what the linker sees:
#   architecture_test.sh NM OBJECT...        the engine's objects
# Outside of x86/, arm/ and wasm/ nothing includes intrinsics or asks a compiler for a processor. And an object from
# such a folder defines no weak function (an inline one that was not inlined): the linker might take it for all.
set -euo pipefail
nm=$1
shift
status=0
architecture='(^|/)(x86|arm|wasm)/'

pattern='#include <([a-z0-9]*mmintrin|[a-z0-9]*intrin|arm_[a-z0-9]+|wasm_simd128)\.h>|target_clones|(attribute|pragma).*target *\('
if grep -rnE --include='*.h' --include='*.c' --include='*.cpp' "$pattern" src diarization tools bench fuzz bindings training test |
    grep -vE '^src/[a-z]+/src/(x86|arm|wasm)/'; then
    echo "these belong into a folder for a processor" >&2
    status=1
fi

num_objects=0
for object in "$@"; do
    [[ $object =~ $architecture ]] || continue
    num_objects=$((num_objects + 1))
    if "$nm" -C "$object" | grep -E '^[0-9a-f]+ [Ww] '; then
        echo "$object defines these for every file" >&2
        status=1
    fi
done
echo "$num_objects objects for processors"
exit $status
