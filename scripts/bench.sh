#!/usr/bin/env bash
# Builds the benchmarks (`bench` preset) and runs them all: a check that each
# same-work floor writes what the library writes, warm runs of every operation
# beside its floor and the bare limit, cold runs in fresh processes, the peer
# demuxer's open and index walk, and peak memory. Results go to
# build/bench/results/, and the report (Markdown) to build/bench/results/report.md.
#   bash scripts/bench.sh [repetitions]     (default 3)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh libbenchmark-dev libavformat-dev time python3
reps=${1:-3}

cmake --preset bench >/dev/null
cmake --build --preset bench -j 2
bin=build/bench/Bench
out=build/bench/results
movies=$out/movies
rm -rf "$out"
mkdir -p "$out"

echo "=== generating the movies"
"$bin/atomscan_bench" generate "$movies" | tee "$out/movies.txt"

echo "=== the floors write the same records as the library"
"$bin/atomscan_bench" check "$movies" | tee "$out/check.txt"

echo "=== warm runs ($reps repetitions)"
ATOMSCAN_BENCH_DIR=$movies "$bin/atomscan_bench" --benchmark_min_time=0.1 --benchmark_min_warmup_time=0.2 --benchmark_repetitions="$reps" \
  --benchmark_enable_random_interleaving=true \
  --benchmark_out="$out/warm.json" --benchmark_out_format=json --benchmark_report_aggregates_only=true

echo "=== peer, warm (same files, $reps runs each)"
"$bin/peer_index_walk" "$reps" "$movies"/frames_*.mov "$movies"/chunked_*.mov "$movies"/vardur_*.mov "$movies"/stco_*.mov "$movies"/moovlast_*.mov | tee "$out/peer.txt"

echo "=== cold runs, each in a fresh process, taken in turn"
: > "$out/cold.txt"
for round in $(seq "$reps"); do
  for movie in frames_100k frames_1m chunked_1m vardur_1m stco_1m moovlast_1m; do
    for op in limit floor open-table; do
      echo "$movie $op $("$bin/atomscan_bench" first "$op" "$movie" "$movies")" >> "$out/cold.txt"
    done
    echo "$movie peer $("$bin/peer_index_walk" 1 "$movies/$movie.mov" | awk '{print $2, $4}')" >> "$out/cold.txt"
  done
done

echo "=== peak memory"
: > "$out/memory.txt"
rss() { /usr/bin/time -v "$@" 2>&1 >/dev/null | awk -F: '/Maximum resident/ {gsub(/ /, "", $2); print $2}'; }
for movie in frames_100k frames_1m chunked_1m; do
  for op in none limit floor open-table; do
    echo "$movie $op $(rss "$bin/atomscan_bench" first "$op" "$movie" "$movies")" >> "$out/memory.txt"
  done
  echo "$movie peer-none $(rss "$bin/peer_index_walk" 0 "$movies/$movie.mov")" >> "$out/memory.txt"
  echo "$movie peer $(rss "$bin/peer_index_walk" 1 "$movies/$movie.mov")" >> "$out/memory.txt"
done
cat "$out/memory.txt"

python3 Bench/report.py "$out" > "$out/report.md"
cat "$out/report.md"
