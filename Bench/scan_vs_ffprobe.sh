#!/usr/bin/env bash
# `atomscan scan` over a folder of 10,000 small movies (copies of the corpus
# movies) against one `ffprobe -show_streams` per file, in one run; then the
# scan with one job and with two. Wall and CPU time come from hyperfine, the
# machine's load from /proc/loadavg before, between and after.
#   bash Bench/scan_vs_ffprobe.sh [FILES [PROBE_EVERY]]   (default 10000 1)
# With PROBE_EVERY n, ffprobe runs on every n-th file only and its times are
# scaled to all files (a run costs the same for each of these small movies:
# it is mostly the start of the process), which saves a shared machine an hour.
# ffmpeg and hyperfine are installed for this measurement only.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh ffmpeg hyperfine python3
files=${1:-10000}
every=${2:-1}

cmake --preset release >/dev/null
cmake --build --preset release -j 2 --target atomscan_tool
tool=$PWD/build/release/Tools/atomscan/atomscan
out=$PWD/build/release/scan-bench
work=$(mktemp -d "${TMPDIR:-/tmp}/atomscan-scan-bench-XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$out"

echo "=== $files movies in $work"
mapfile -t corpus < <(ls Tests/Data/corpus/*.mov)
for ((i = 0; i < files; i++)); do
  folder=$work/$((i / 100))
  [ -d "$folder" ] || mkdir "$folder"
  src=${corpus[i % ${#corpus[@]}]}
  cp "$src" "$folder/$i-$(basename "$src")"
done
du -sh "$work" | tee "$out/size.txt"

# Every file once, so that both read from the page cache.
cat "$work"/*/* > /dev/null
list=$out/list.txt
find "$work" -type f -name '*.mov' | sort > "$list"
probed=$out/probed.txt
awk -v n="$every" '(NR - 1) % n == 0' "$list" > "$probed"

load() { cut -d' ' -f1-3 /proc/loadavg; }
echo "load before: $(load)" | tee "$out/load.txt"
hyperfine --style basic --export-json "$out/scan.json" --warmup 1 --runs 5 \
  -n "scan -j1" "$tool scan --json -j 1 $work > /dev/null" \
  -n "scan -j2" "$tool scan --json -j 2 $work > /dev/null"
echo "load between: $(load)" | tee -a "$out/load.txt"
hyperfine --style basic --export-json "$out/ffprobe.json" --runs 1 \
  -n "ffprobe per file" "xargs -d '\n' -n 1 ffprobe -v error -show_streams < $probed > /dev/null"
echo "load after: $(load)" | tee -a "$out/load.txt"

python3 - "$out" "$files" "$(wc -l < "$probed")" <<'PY'
import json, sys
out, files, probed = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
rows = json.load(open(f"{out}/scan.json"))["results"]
probe = json.load(open(f"{out}/ffprobe.json"))["results"][0]
if probed != files:
    print(f"ffprobe ran on {probed} of the {files} files: {probe['mean']:.1f} s wall, "
          f"{probe['user'] + probe['system']:.1f} s CPU; scaled by {files / probed:g}")
for key in ("mean", "user", "system"):
    probe[key] *= files / probed
probe["stddev"] = 0
probe["command"] = "ffprobe per file" + ("" if probed == files else f" (scaled from {probed} files)")
rows.append(probe)
print(f"\n| Run ({files} movies) | wall s (mean ± sd) | CPU s (user + system) | files/s | ffprobe wall / this wall | ffprobe CPU / this CPU |")
print("|---|---|---|---|---|---|")
for r in rows:
    cpu = r["user"] + r["system"]
    print(f"| {r['command']} | {r['mean']:.3f} ± {r.get('stddev') or 0:.3f} | {cpu:.3f} | {files / r['mean']:.0f} | "
          f"{probe['mean'] / r['mean']:.0f}× | {(probe['user'] + probe['system']) / cpu:.0f}× |")
j1, j2 = rows[0], rows[1]
print(f"\n-j2 over -j1: {j1['mean'] / j2['mean']:.2f}× faster (wall)")
PY
