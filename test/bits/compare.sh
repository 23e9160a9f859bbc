#!/usr/bin/env bash
# The fingerprints of this build against those that every build gives: compare.sh BITS SOURCE-FOLDER
set -euo pipefail
cd "$2"
diff <("$1" test/data/vectors test/data/vectors/{small,medium,deep}.zx models/parley.zx) test/bits/expected.txt
