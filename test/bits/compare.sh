#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The fingerprints that a build's `bits` prints against those that every build gives:
#   compare.sh SOURCE-FOLDER [RUNNER...] BITS
set -euo pipefail
cd "$1"
diff <("${@:2}" test/data/vectors examples/three-voices.wav test/data/vectors/{small,medium,deep}.zx models/parley.zx | tr -d '\r') test/bits/expected.txt
