#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What has a file of its own for its version has the project's there: VERSION
set -euo pipefail
cd "$(dirname "$0")/../.."
version=${1//./\\.}
status=0
while read -r file pattern; do
    grep -qE "$pattern" "$file" || { echo "$file is not of version $1" >&2; status=1; }
done <<FILES
bindings/wasm/package.json "version": "$version"
bindings/rust/parley-sys/Cargo.toml ^version = "$version"
bindings/rust/parley/Cargo.toml ^version = "$version"
bindings/rust/parley/Cargo.toml ^parley-sys = .*version = "$version"
bindings/java/pom.xml <version>$version</version>
include/parley/parley.h PARLEY_VERSION_MAJOR ${1%%.*}\$
FILES
exit $status
