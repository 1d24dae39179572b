#!/usr/bin/env bash
# The main job on Linux: installs what is missing, builds the front end,
# and translates the sample business deck on the simulated host through the
# stand-in service, leaving the translated deck and its reports in
# build/sample/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
jobs=$(nproc 2>/dev/null || echo 2)
cmake --preset native >/dev/null
cmake --build build/native --target qb-translate -j"$jobs" >/dev/null
mkdir -p build/sample
build/native/cli/qb-translate --to de \
  -o build/sample/business.de.json \
  --html build/sample/business.de.html \
  samples/business.json
