#!/usr/bin/env bash
# Installs what is needed, builds, and plays zslsim's built-in scenario.
# Extra arguments go to zslsim (e.g. a scenario file, --timeline run.svg).
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target zslsim rova_czrova_zslselector >/dev/null
exec ./build/default/tools/zslsim/zslsim "$@"
