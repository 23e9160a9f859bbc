#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Every exported function is called in a source: SOURCE LIST...
set -euo pipefail
source=$1
shift
cat "$@" | while read -r function; do
    grep -q "\b$function(" "$source" || { echo "$source: nothing calls $function"; exit 1; }
done
