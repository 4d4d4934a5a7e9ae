#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: the normal suite, the
# suite under AddressSanitizer and UndefinedBehaviorSanitizer, and the
# tests that start threads and the scan's workers under ThreadSanitizer, then a short run of each fuzz target
# over its seed corpus.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
jobs=$(nproc)

for preset in default asan tsan; do
  echo "=== $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs" --timeout 600
done

echo "=== fuzz (smoke)"
bash scripts/fuzz.sh "${ATOMSCAN_FUZZ_SECONDS:-45}"
echo "All suites passed."
