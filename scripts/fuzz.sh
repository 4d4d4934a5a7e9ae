#!/usr/bin/env bash
# Builds the fuzz targets and runs each over its corpus for SECONDS (default 60).
# Usage: bash scripts/fuzz.sh [SECONDS] [JOBS]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
jobs=${2:-1}
bash scripts/setup.sh libclang-rt-14-dev
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"

out=build/fuzz
rm -rf "$out/seeds" && mkdir -p "$out/seeds"
"$out/Fuzz/fuzz_seeds" "$out/seeds"
status=0
for target in open fix find; do
  corpus="$out/corpus-$target"
  mkdir -p "$corpus" "$out/artifacts-$target"
  echo "=== fuzz_$target for ${seconds}s"
  if ! "$out/Fuzz/fuzz_$target" "$corpus" "$out/seeds" \
      -dict=Fuzz/atomscan.dict -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -max_len=262144 $( [ "$jobs" -gt 1 ] && echo "-fork=$jobs" ) -print_final_stats=1 \
      -artifact_prefix="$out/artifacts-$target/" > "$out/fuzz-$target.log" 2>&1; then
    echo "fuzz_$target found a problem:"; tail -40 "$out/fuzz-$target.log"; status=1
  else
    grep -E "stat::number_of_executed_units|cov:" "$out/fuzz-$target.log" | tail -2 || true
  fi
done
exit $status
