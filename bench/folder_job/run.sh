#!/usr/bin/env bash
# The folder job at scale, on the program's code:
#  1. the scan of a generated tree of FILES files in FOLDERS folders (a fifth of them images)
#     into a job list, against `find` with the same seventeen patterns;
#  2. a job over JOB small images (grey pages of 200 x 150) in 100 folders, whole, and with a converter that writes
#     nothing, so that the job's bookkeeping (list, Clone.ini, log, folders) is told apart from
#     the conversions, with the time per file of the first and of the last thousand files;
#  peak memory of each run.
#
#   bench/folder_job/run.sh            (FILES=50000 FOLDERS=2000 JOB=10000 by default)
set -euo pipefail
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
FILES=${FILES:-50000}
FOLDERS=${FOLDERS:-2000}
JOB=${JOB:-10000}

"$HERE/../install-tools.sh" g++ python3 time

source "$HERE/../pagewright.sh"
bench_build folder_job_bench
BENCH=$BUILT/bench/folder_job/folder_job_bench

WORK=$(mktemp -d /tmp/pw-folder-job-bench.XXXXXX)
trap 'rm -rf "$WORK"' EXIT
export QT_QPA_PLATFORM=offscreen

echo "== generating $FILES files in $FOLDERS folders, and $JOB images" >&2
python3 - "$WORK" "$FILES" "$FOLDERS" "$JOB" <<'PY'
import os, struct, sys, zlib
work, files, folders, job = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4])
def png(w, h, seed):
    raw = b"".join(b"\0" + bytes((x * 7 + y * 3 + seed) % 256 for x in range(w)) for y in range(h))
    chunk = lambda t, d: struct.pack(">I", len(d)) + t + d + struct.pack(">I", zlib.crc32(t + d))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", w, h, 8, 0, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b""))
others = ["txt", "doc", "pdf", "xls"]
images = ["tif", "jpg", "png", "bmp"]
for i in range(files):
    folder = os.path.join(work, "tree", "d%02d" % (i % folders // 50), "e%04d" % (i % folders))
    os.makedirs(folder, exist_ok=True)
    ext = images[i % 4] if i % 5 == 0 else others[i % 4]
    open(os.path.join(folder, "f%06d.%s" % (i, ext)), "wb").close()
# Small scans: 50 distinct grey pages of 200 x 150, each used for many files.
pages = [png(200, 150, seed) for seed in range(50)]
for i in range(job):
    folder = os.path.join(work, "job", "g%03d" % (i % 100))
    os.makedirs(folder, exist_ok=True)
    open(os.path.join(folder, "p%05d.png" % i), "wb").write(pages[i % 50])
PY

# timed LABEL COMMAND...: wall seconds and peak memory, one line "LABEL wall S rss_kb K out".
timed() {
    local label=$1 out
    shift
    out=$(/usr/bin/time -f '%e %M' -o "$WORK/time.txt" "$@" 2>/dev/null | tr '\n' ' ')
    read -r wall rss <"$WORK/time.txt"
    echo "$label wall $wall rss_kb $rss $out"
}
PATTERNS=()
for p in tif tiff jpg jp2 gif png pcd psd tga bmp dcx emf wmf pcx ppm ico pnm; do
    PATTERNS+=(-iname "*.$p" -o)
done
unset 'PATTERNS[${#PATTERNS[@]}-1]'
cat /dev/null >"$WORK/results.txt"
for round in 1 2 3; do
    sync
    timed find find "$WORK/tree" -type f \( "${PATTERNS[@]}" \) -fprint /dev/null >>"$WORK/results.txt"
    timed scan "$BENCH" scan "$WORK/tree" "$WORK/list.xml" >>"$WORK/results.txt"
done
for kind in books real; do
    rm -rf "$WORK/out" "$WORK/store"
    mkdir -p "$WORK/out" "$WORK/store"
    timed "job_$kind" "$BENCH" job "$kind" "$WORK/job" "$WORK/out" "$WORK/store" \
        >>"$WORK/results.txt"
done
cat "$WORK/results.txt" >&2

MACHINE="$(nproc) cores, $(awk -F': ' '/model name/ {print $2; exit}' /proc/cpuinfo)"
python3 - "$WORK/results.txt" "$MACHINE" "$FILES" "$FOLDERS" "$JOB" \
    "$(git -C "$ROOT" rev-parse --short HEAD 2>/dev/null || echo unknown)" <<'PY'
import datetime, sys
path, machine, files, folders, job, commit = sys.argv[1:7]
runs = {}
for line in open(path):
    w = line.split()
    pairs = dict(zip(w[1::2], w[2::2]))
    runs.setdefault(w[0], []).append(pairs)
best = lambda k: min(runs[k], key=lambda r: float(r["wall"]))
f, s = best("find"), best("scan")
print(f"Run {datetime.datetime.now():%Y-%m-%d %H:%M}, commit {commit}; {machine}; fastest of "
      f"{len(runs['scan'])} runs for the scan.\n")
print("| Measurement | Wall s | Peak memory MB | Notes |\n|---|---:|---:|---|")
print(f"| `find` with the 17 patterns, {files} files in {folders} folders | {f['wall']} | "
      f"{int(f['rss_kb'])/1024:.1f} | |")
print(f"| the job's scan into clone.xml, same tree | {s['wall']} | {int(s['rss_kb'])/1024:.1f} | "
      f"{s['files']} files listed; {float(s['wall'])/float(f['wall']):.2f}x find |")
b, r = runs["job_books"][0], runs["job_real"][0]
for label, run in (("bookkeeping only (a converter that writes nothing)", b),
                   ("the whole job", r)):
    print(f"| {label}, {job} images | {run['wall']} | {int(run['rss_kb'])/1024:.1f} | "
          f"{run['files']} files; ms per file, first thousand {run['first_thousand_ms']}, "
          f"last thousand {run['last_thousand_ms']} |")
print(f"\nBookkeeping share of the whole job: {float(b['seconds'])/float(r['seconds'])*100:.1f} %.")
PY
