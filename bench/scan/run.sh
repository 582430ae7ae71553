#!/usr/bin/env bash
# Folder search benchmark: the real FolderScan (scan_bench) on a tree of 50,000 files in 2,000
# folders, Pages hidden and shown, against find stating every hit; plus the resident memory of
# a 200,000-row catalogue grid (scan_bench fill, and bench/flex_grid).
#
#   bench/scan/run.sh
#
# Settings (environment):
#   TREE=      folder to search (default: generated under $WORK, 50000 files, 2000 folders)
#   RUNS=5     hyperfine runs per command (after one warm-up run)
#   ROWS=200000  rows for the grid memory figures
#   WORK=      scratch folder (default: a new folder under /tmp, removed unless KEEP=1)
# Builds into build-bench/ at the repository root.
set -euo pipefail

HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
RUNS=${RUNS:-5}
ROWS=${ROWS:-200000}
KEEP=${KEEP:-0}

"$HERE/../install-tools.sh" hyperfine time python3 findutils

source "$HERE/../pagewright.sh"
bench_build scan_bench flex_grid_bench
SCAN=$BUILT/bench/scan/scan_bench
FLEX=$BUILT/bench/flex_grid/flex_grid_bench

WORK=${WORK:-$(mktemp -d /tmp/pw-scan-bench.XXXXXX)}
mkdir -p "$WORK"
[[ $KEEP == 1 ]] || trap 'rm -rf "$WORK"' EXIT
export QT_QPA_PLATFORM=offscreen
export XDG_RUNTIME_DIR=$WORK/runtime
mkdir -p -m 700 "$XDG_RUNTIME_DIR"
if [[ -z ${TREE:-} ]]; then
    TREE=$WORK/tree
    echo "== making $TREE" >&2
    "$SCAN" make "$TREE" 50000 2000 >"$WORK/make.txt"
fi
TREE=$(cd "$TREE" && pwd)

# The search's patterns (*.tif;*.tiff;*.jpg;*.png;*.pdf), each hit stated once.
FIND_PRINTF="find '$TREE' -type f \( -iname '*.tif' -o -iname '*.tiff' -o -iname '*.jpg' -o -iname '*.png' -o -iname '*.pdf' \) -printf '%s %T@ %C@\n'"
FIND_STAT="find '$TREE' -type f \( -iname '*.tif' -o -iname '*.tiff' -o -iname '*.jpg' -o -iname '*.png' -o -iname '*.pdf' \) -exec stat -c '%s %Y %Z' {} +"
hits=$(eval "$FIND_PRINTF" | wc -l)
files=$(find "$TREE" -type f | wc -l)
folders=$(find "$TREE" -mindepth 1 -type d | wc -l)

echo "== hyperfine" >&2
hyperfine --warmup 1 --runs "$RUNS" --style none --export-json "$WORK/hyperfine.json" \
    -n find_printf "$FIND_PRINTF >/dev/null" \
    -n find_exec_stat "$FIND_STAT >/dev/null" \
    -n scan_pages_off "'$SCAN' scan '$TREE' off >/dev/null" \
    -n scan_pages_on "'$SCAN' scan '$TREE' on >/dev/null" >&2

echo "== peak memory" >&2
timed() { # NAME COMMAND...: program output in NAME.out, /usr/bin/time -v in NAME.time
    local name=$1
    shift
    /usr/bin/time -v -o "$WORK/$name.time" "$@" >"$WORK/$name.out" 2>"$WORK/$name.err"
}
timed find_printf bash -c "$FIND_PRINTF >/dev/null"
timed scan_off "$SCAN" scan "$TREE" off
timed scan_on "$SCAN" scan "$TREE" on
timed fill "$SCAN" fill "$ROWS"
timed flex_grid "$FLEX" "$ROWS"

MACHINE="$(nproc) cores, $(awk -F': ' '/model name/ {print $2; exit}' /proc/cpuinfo), $(awk '/MemTotal/ {printf "%.0f GB RAM", $2 / 1048576}' /proc/meminfo), $(uname -r), $(findmnt -no FSTYPE --target "$TREE") file system"
python3 - "$WORK" "$MACHINE" "$files" "$folders" "$hits" "$ROWS" \
    "$(git -C "$ROOT" rev-parse --short HEAD 2>/dev/null || echo unknown)" "$(cut -d' ' -f1-3 /proc/loadavg)" <<'EOF' | tee "$WORK/report.md"
import datetime, json, sys
work, machine, files, folders, hits, rows, commit, load = sys.argv[1:9]
runs = {r["command"]: r for r in json.load(open(f"{work}/hyperfine.json"))["results"]}
def rss_mb(name):
    for line in open(f"{work}/{name}.time"):
        if "Maximum resident" in line:
            return int(line.split(":")[1]) / 1024
def fields(name):
    words = open(f"{work}/{name}.out").read().split()
    return dict(zip(words[::2], words[1::2]))
print(f"Run {datetime.datetime.now():%Y-%m-%d %H:%M}, commit {commit}; {machine}; "
      f"load average at the end {load}.")
print(f"Tree: {files} files in {folders} folders, {hits} hits for *.tif;*.tiff;*.jpg;*.png;*.pdf; "
      "warm page cache; hyperfine mean of the runs after one warm-up.")
print()
print("| Command | Mean s | +- s | Min s | Hits/rows per s | vs find -printf | Peak RSS MiB |")
print("|---|---:|---:|---:|---:|---:|---:|")
base = runs["find_printf"]["mean"]
rssname = {"find_printf": "find_printf", "scan_pages_off": "scan_off", "scan_pages_on": "scan_on"}
for name, r in runs.items():
    rss = f"{rss_mb(rssname[name]):.1f}" if name in rssname else ""
    print(f"| `{name}` | {r['mean']:.3f} | {r['stddev']:.3f} | {r['min']:.3f} | "
          f"{int(hits) / r['mean']:.0f} | {r['mean'] / base:.1f}x | {rss} |")
print()
print("Inside the process (scan_bench's own timer around cmdSearch_Click, without start-up):")
print()
print("| Pages | Rows | Seconds | Rows/s | vs find -printf | TIFF pages | PDF pages | RSS before MiB | RSS after MiB |")
print("|---|---:|---:|---:|---:|---:|---:|---:|---:|")
for name in ("scan_off", "scan_on"):
    f = fields(name)
    print(f"| {f['pages']} | {f['rows']} | {float(f['seconds']):.3f} | {f['rows_per_s']} | "
          f"{float(f['seconds']) / base:.1f}x | {f['tiff_pages']} | {f['pdf_pages']} | "
          f"{int(f['rss_before_kb']) / 1024:.1f} | {int(f['rss_kb']) / 1024:.1f} |")
print()
f = fields("fill")
print(f"Grid memory: {f['rows']} catalogue-shaped rows into a hidden FlexGrid (scan_bench fill) in "
      f"{float(f['seconds']):.2f} s; resident {int(f['rss_kb']) / 1024:.1f} MiB "
      f"({int(f['grid_kb']) / 1024:.1f} MiB for the rows, {f['bytes_per_row']} bytes per row); "
      f"peak RSS {rss_mb('fill'):.1f} MiB.")
print()
print(f"bench/flex_grid ({rows} rows; fill, show, five sorts, moves, check-all, save, load into "
      f"a second grid, removals), peak RSS {rss_mb('flex_grid'):.1f} MiB:")
print()
print("```")
print(open(f"{work}/flex_grid.out").read().rstrip())
print("```")
print()
off = runs["scan_pages_off"]["mean"] / base
fill_rss = rss_mb("fill")
print("| Target | Measured | Goal | Verdict |")
print("|---|---|---|---|")
print(f"| Search, Pages hidden, vs find -printf (whole process) | {off:.1f}x | <= 3x | "
      f"{'met' if off <= 3 else '**not met**'} |")
print(f"| {rows} rows in the grid, resident | {fill_rss:.0f} MiB (whole process peak) | < 300 MB | "
      f"{'met' if fill_rss < 300 else '**not met**'} |")
EOF
