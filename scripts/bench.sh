#!/usr/bin/env bash
# Every benchmark in one table: builds what they need natively (never the
# tests), runs each and prints the figures beside what they are measured
# against. Not part of the test command: the figures depend on the machine.
#   BENCH_DECK     the deck of the paced full-deck run (samples/business.json)
#   BENCH_SLIDE    the slide of the current-slide runs (2)
#   BENCH_LATENCY  the service latencies of those runs, ms ("250 1000")
#   QB_DLL_ROOT    the tree whose build/win32 and build/win64 hold the DLLs (.)
set -euo pipefail
cd "$(dirname "$0")/.."
deck=${BENCH_DECK:-samples/business.json}
slide=${BENCH_SLIDE:-2}
latencies=${BENCH_LATENCY:-250 1000}
jobs=$(nproc 2>/dev/null || echo 2)
cmake --preset native >/dev/null
cmake --build build/native -j"$jobs" \
  --target qb-translate qb_run_bench qb_host_calls_bench qb_pptx_bench >/dev/null
bin=build/native
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A full-deck run walks the slides at the paced rate while its worker is at
# work; the in-process service answers at once.
$bin/cli/qb-translate -q -o "$work/full.json" --report "$work/full.report.json" "$deck"
# The current slide, against a service that answers each request late.
for ms in $latencies; do
  $bin/cli/qb-translate -q --scope slide --slide "$slide" --latency "$ms" \
    -o "$work/slide-$ms.json" --report "$work/slide-$ms.report.json" "$deck"
done
$bin/bench/qb_host_calls_bench --tsv >"$work/host_calls.tsv"
$bin/bench/qb_run_bench --benchmark_format=json \
  --benchmark_filter='EngineRun|BatchJson|RunMemory' >"$work/run_bench.json" 2>/dev/null
$bin/bench/qb_pptx_bench --benchmark_format=json >"$work/pptx_bench.json" 2>/dev/null

python3 - "$work" "$deck" "$latencies" <<'PY'
import json, os, sys

work, deck, latencies = sys.argv[1], sys.argv[2], sys.argv[3].split()
rows = []

def row(what, measured, against):
    rows.append((what, measured, against))

full = json.load(open(os.path.join(work, "full.report.json")))
floor = 2400 * full["slidesWritten"]
row("paced full deck, instant service (%s, %d slides)" % (os.path.basename(deck), full["slidesWritten"]),
    "%d ms (%.0f ms a slide)" % (full["elapsedMs"], full["elapsedMs"] / max(1, full["slidesWritten"])),
    "floor %d ms at 2.4 s a slide while the worker runs; it ended first" % floor
    if full["elapsedMs"] < floor else "floor %d ms (2.4 s a slide)" % floor)
for ms in latencies:
    r = json.load(open(os.path.join(work, "slide-%s.report.json" % ms)))
    trips = r["serviceRequests"]["translate"] + r["serviceRequests"]["resolve"]
    row("current slide, %d units, service latency %s ms" % (r["units"], ms),
        "%d ms" % r["elapsedMs"],
        "%d round trips x %s ms = %d ms" % (trips, ms, trips * int(ms)))

calls = dict(l.rstrip("\n").split("\t") for l in open(os.path.join(work, "host_calls.tsv")))
row("host calls per paragraph, whole run (%s units)" % calls["units"], calls["run_per_paragraph"],
    "collect %s + write %s a paragraph, fit %s a shape" % (
        calls["collection_per_paragraph"], calls["writeback_per_paragraph"], calls["fit_per_shape"]))

bench = {b["name"]: b for b in json.load(open(os.path.join(work, "run_bench.json")))["benchmarks"]}
def ns(b):
    scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}[b["time_unit"]]
    return b["cpu_time"] * scale
engine = bench["EngineRun"]
row("engine CPU per unit (collect, worker, write, fit)",
    "%.1f us" % (ns(engine) / engine["units"] / 1e3),
    "%d units on the simulated host" % engine["units"])
write, read = bench["BatchJsonWrite"], bench["BatchJsonRead"]
row("JSON per 20-unit batch (request out, answer in)",
    "%.1f us" % ((ns(write) + ns(read)) / 1e3),
    "write %.1f us, read %.1f us" % (ns(write) / 1e3, ns(read) / 1e3))
memory = [b for n, b in bench.items() if n.startswith("RunMemory")][0]
row("memory per unit (a run's lists, translated)", "%.0f bytes" % memory["bytes_per_unit"], "heap in use")

pptx = {b["name"]: b for b in json.load(open(os.path.join(work, "pptx_bench.json")))["benchmarks"]}
whole, opened = pptx["PptxTranslate"], pptx["PptxOpen"]
row(".pptx open + translate + save, instant service (%d slides, %d units)" % (whole["slides"], whole["units"]),
    "%.0f slides/s" % (whole["slides"] / (ns(whole) / 1e9)),
    "CPU %.0f ms a deck, of which open %.0f ms; unpaced" % (ns(whole) / 1e6, ns(opened) / 1e6))

for name, path in (("PptAddin-x86.dll", "build/win32/ppt-addin/PptAddin-x86.dll"),
                   ("PptAddin-x64.dll", "build/win64/ppt-addin/PptAddin-x64.dll")):
    path = os.path.join(os.environ.get("QB_DLL_ROOT", "."), path)
    size = "{:,} bytes".format(os.path.getsize(path)) if os.path.exists(path) else "not built"
    row("size of " + name, size, path if os.path.exists(path) else "")

w = [max(len(r[i]) for r in rows + [("what", "measured", "against")]) for i in range(3)]
line = "%-*s  %*s  %s"
print(line % (w[0], "what", w[1], "measured", "against"))
print(line % (w[0], "-" * w[0], w[1], "-" * w[1], "-" * w[2]))
for r in rows:
    print(line % (w[0], r[0], w[1], r[1], r[2]))
PY
