#!/usr/bin/env python3
"""Turns the results of scripts/bench.sh into the Markdown tables of docs/performance.md."""
import json
import os
import platform
import statistics
import sys
from collections import defaultdict

RECORD_BYTES = 24  # sizeof(QT::VideoSampleRecord)

out = sys.argv[1]
movies = {}
for line in open(os.path.join(out, "movies.txt")):
    parts = line.split()
    movies[parts[0]] = {"items": int(parts[1]), "moov": int(parts[5])}

warm = json.load(open(os.path.join(out, "warm.json")))
median = {}
for b in warm["benchmarks"]:
    if b.get("aggregate_name") == "median":
        op, movie = b["run_name"].split("/")[:2]
        median[(op, movie)] = (b["cpu_time"], b["real_time"])  # microseconds: CPU, wall

ctx = warm["context"]
print("## Machine\n")
print(f"- {platform.node()}: {ctx['num_cpus']} cores at {ctx['mhz_per_cpu']} MHz, "
      f"{platform.system()} {platform.release()}, load average at start {ctx.get('load_avg', [])}")
print(f"- {warm['context']['date']}; medians of the repetitions; times are CPU time of the process "
      "(user + system, so page faults and the kernel's copy count), wall time beside it\n")

print("## Warm runs\n")
print("| operation | movie | items | movie atom | CPU µs | wall µs | M items/s | MB/s of atom | × read | × read+pass |")
print("|---|---|---:|---:|---:|---:|---:|---:|---:|---:|")
order = ["Limit.Read", "Limit.ReadAndPass", "Open", "OpenAndFullTable", "FullTable.Edits", "FullTable.NoEdits",
         "EditSampleCount", "TemporalTable", "AudioRangeMap", "CaptionTable", "GetBounds"]
for movie in movies:
    for op in order:
        if (op, movie) not in median:
            continue
        cpu, real = median[(op, movie)]
        m = movies[movie]
        read = median[("Limit.Read", movie)][0]
        limit = median[("Limit.ReadAndPass", movie)][0]
        print(f"| {op} | {movie} | {m['items']} | {m['moov']} | {cpu:.1f} | {real:.1f} | "
              f"{m['items'] / cpu:.1f} | {m['moov'] / cpu:.0f} | {cpu / read:.2f} | {cpu / limit:.2f} |")

print("\n## Growth (time at the larger size over time at the smaller; items grow 10×)\n")
print("| operation | sizes | time ratio |")
print("|---|---|---:|")
series = defaultdict(list)
for (op, movie) in median:
    kind = movie.rsplit("_", 1)[0]
    if "chunked" in movie:
        continue
    series[(op, kind)].append((movies[movie]["items"], movie))
for (op, kind), items in sorted(series.items()):
    items.sort()
    for (n1, a), (n2, b) in zip(items, items[1:]):
        print(f"| {op} | {a} → {b} | {median[(op, b)][0] / median[(op, a)][0]:.1f} |")

print("\n## Against the peer, warm (open + full frame table; peer: open + index walk)\n")
print("| movie | ours µs | limit µs | ours × limit | peer µs | peer ÷ ours |")
print("|---|---:|---:|---:|---:|---:|")
for line in open(os.path.join(out, "peer.txt")):
    path, med, _best, _entries = line.split()
    movie = os.path.basename(path)[:-4]
    if ("OpenAndFullTable", movie) not in median:
        continue
    ours = median[("OpenAndFullTable", movie)][0]
    limit = median[("Limit.ReadAndPass", movie)][0]
    peer = int(med) / 1000
    print(f"| {movie} | {ours:.0f} | {limit:.0f} | {ours / limit:.2f} | {peer:.0f} | {peer / ours:.1f} |")

print("\n## First runs, each in a fresh process (median of the rounds)\n")
cold = defaultdict(list)
for line in open(os.path.join(out, "cold.txt")):
    movie, op, ns = line.split()[:3]
    cold[(movie, op)].append(int(ns) / 1000)
print("| movie | limit µs | ours µs | ours × limit | peer µs | peer ÷ ours |")
print("|---|---:|---:|---:|---:|---:|")
for movie in ["video_100k", "video_1m"]:
    limit = statistics.median(cold[(movie, "limit")])
    ours = statistics.median(cold[(movie, "open-table")])
    peer = statistics.median(cold[(movie, "peer")])
    print(f"| {movie} | {limit:.0f} | {ours:.0f} | {ours / limit:.2f} | {peer:.0f} | {peer / ours:.1f} |")

print("\n## Peak memory (maximum resident set, kB; net is over the same program doing nothing)\n")
rss = {}
for line in open(os.path.join(out, "memory.txt")):
    movie, op, kb = line.split()
    rss[(movie, op)] = int(kb)
print("| movie | atom + table kB | budget (+10%) kB | limit net kB | ours net kB | ours ÷ budget | peer net kB |")
print("|---|---:|---:|---:|---:|---:|---:|")
for movie in ["video_100k", "video_1m"]:
    need = (movies[movie]["moov"] + movies[movie]["items"] * RECORD_BYTES) / 1024
    base = rss[(movie, "none")]
    ours = rss[(movie, "open-table")] - base
    limit = rss[(movie, "limit")] - base
    peer = rss[(movie, "peer")] - rss[(movie, "peer-none")]
    print(f"| {movie} | {need:.0f} | {need * 1.1:.0f} | {limit} | {ours} | {ours / (need * 1.1):.2f} | {peer} |")
