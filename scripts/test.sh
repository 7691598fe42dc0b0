#!/usr/bin/env bash
# The whole test suite: installs the packages, then configures, builds and
# tests both presets (default, then asan+ubsan).
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/setup.sh

jobs=$(nproc)
for preset in default asan; do
  echo "== preset $preset =="
  cmake --preset "$preset"
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
