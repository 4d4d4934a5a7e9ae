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

# Each operation of ours with its same-work floor.
pairs = [("OpenAndFullTable", "Floor.OpenAndTable"), ("FullTable", "Floor.Table"),
         ("TemporalTable", "Floor.TemporalTable"), ("EditSampleCount", "Floor.EditSampleCount"),
         ("AudioRangeMap", "Floor.AudioRangeMap"), ("CaptionTable", "Floor.CaptionTable")]

print("## Warm runs: ours ÷ same-work floor\n")
print("| operation | movie | items | movie atom | ours CPU µs | floor CPU µs | **ours ÷ floor** | ours ÷ bare pass |")
print("|---|---|---:|---:|---:|---:|---:|---:|")
for ours, floor in pairs:
    for movie in movies:
        if (ours, movie) not in median or (floor, movie) not in median:
            continue
        o, f = median[(ours, movie)][0], median[(floor, movie)][0]
        bare = median.get(("Limit.ReadAndPass", movie))
        bare_ratio = f"{o / bare[0]:.2f}" if bare and ours == "OpenAndFullTable" else ""
        m = movies[movie]
        print(f"| {ours} | {movie} | {m['items']} | {m['moov']} | {o:.1f} | {f:.1f} | **{o / f:.2f}** | {bare_ratio} |")

print("\n## Warm runs: everything timed\n")
print("| operation | movie | CPU µs | wall µs | M items/s |")
print("|---|---|---:|---:|---:|")
for (op, movie), (cpu, real) in sorted(median.items(), key=lambda kv: (list(movies).index(kv[0][1]), kv[0][0])):
    print(f"| {op} | {movie} | {cpu:.1f} | {real:.1f} | {movies[movie]['items'] / cpu:.1f} |")

print("\n## Growth from 100k to 1M items (time ratio; items grow 10×)\n")
print("| operation | sizes | time ratio |")
print("|---|---|---:|")
for (op, movie) in sorted(median):
    if not movie.endswith("_100k"):
        continue
    big = movie[:-len("_100k")] + "_1m"
    if (op, big) in median:
        print(f"| {op} | {movie} → {big} | {median[(op, big)][0] / median[(op, movie)][0]:.1f} |")

print("\n## Against the peer, warm (open + full frame table; peer: open + index walk)\n")
print("| movie | ours µs | floor µs | ours ÷ floor | peer µs | ours ÷ peer |")
print("|---|---:|---:|---:|---:|---:|")
for line in open(os.path.join(out, "peer.txt")):
    path, med, _best, _entries = line.split()
    movie = os.path.basename(path)[:-4]
    if ("OpenAndFullTable", movie) not in median:
        continue
    ours = median[("OpenAndFullTable", movie)][0]
    floor = median[("Floor.OpenAndTable", movie)][0]
    peer = int(med) / 1000
    print(f"| {movie} | {ours:.0f} | {floor:.0f} | {ours / floor:.2f} | {peer:.0f} | {ours / peer:.3f} |")

print("\n## First runs, each in a fresh process (median of the rounds, CPU µs)\n")
cold = defaultdict(list)
for line in open(os.path.join(out, "cold.txt")):
    movie, op, ns = line.split()[:3]
    cold[(movie, op)].append(int(ns) / 1000)
print("| movie | bare pass | floor | ours | **ours ÷ floor** | peer | ours ÷ peer |")
print("|---|---:|---:|---:|---:|---:|---:|")
for movie in dict.fromkeys(m for m, _ in cold):
    limit, floor, ours, peer = (statistics.median(cold[(movie, op)]) for op in ("limit", "floor", "open-table", "peer"))
    print(f"| {movie} | {limit:.0f} | {floor:.0f} | {ours:.0f} | **{ours / floor:.2f}** | {peer:.0f} | {ours / peer:.2f} |")

print("\n## Peak memory (maximum resident set, kB; net is over the same program doing nothing)\n")
rss = {}
for line in open(os.path.join(out, "memory.txt")):
    movie, op, kb = line.split()
    rss[(movie, op)] = int(kb)
print("| movie | atom + table kB | budget (+10%) kB | floor net kB | ours net kB | ours ÷ budget | peer net kB |")
print("|---|---:|---:|---:|---:|---:|---:|")
for movie in dict.fromkeys(m for m, _ in rss):
    need = (movies[movie]["moov"] + movies[movie]["items"] * RECORD_BYTES) / 1024
    base = rss[(movie, "none")]
    ours = rss[(movie, "open-table")] - base
    floor = rss[(movie, "floor")] - base
    peer = rss[(movie, "peer")] - rss[(movie, "peer-none")]
    print(f"| {movie} | {need:.0f} | {need * 1.1:.0f} | {floor} | {ours} | {ours / (need * 1.1):.2f} | {peer} |")
