#!/usr/bin/env bash
# The folder job with one worker and with one per core, side by side in one run, on scans as
# scanners make them (bench/conversion/make_scans.cpp): a batch of G4 and JPEG pages, whose
# conversions are mostly copying and leave a core idle with one worker, and a batch of grey
# pages, whose compression already runs on both cores. Files per second for each, the ratio,
# and the peak memory.
#
#   bench/folder_job/workers.sh          (N=60 pages of each class, REPEAT=3 by default)
set -euo pipefail
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
N=${N:-60}
REPEAT=${REPEAT:-3}
"$HERE/../install-tools.sh" g++ libtiff-dev libjpeg-dev time
source "$HERE/../pagewright.sh"

WORK=$(mktemp -d /tmp/pw-workers-bench.XXXXXX)
trap 'rm -rf "$WORK"' EXIT
bench_build make_scans
mkdir -p "$WORK/all"
"$BUILT/bench/conversion/make_scans" "$WORK/all" "$N" "$N" "$N" >/dev/null
# Four folders a batch, as a scanned archive would lie.
batch() { # NAME PATTERN...
    local name=$1 i=0 file
    shift
    for file in "$@"; do
        mkdir -p "$WORK/$name/box$((i % 4))"
        mv "$file" "$WORK/$name/box$((i % 4))/"
        i=$((i + 1))
    done
}
batch g4_jpeg "$WORK"/all/bw_*.tif "$WORK"/all/colour_*.jpg
batch grey "$WORK"/all/grey_*.tif

printf '%-8s %-7s %8s %10s %10s\n' batch workers files "files/s" "peak MB"
for name in g4_jpeg grey; do
    files=$(find "$WORK/$name" -type f | wc -l)
    declare -A rate=()
    for workers in 1 "$(nproc)"; do
        best=0
        for ((r = 0; r < REPEAT; ++r)); do
            rm -rf "$WORK/out" "$WORK/xdg" && mkdir -p "$WORK/out"
            start=$(date +%s%N)
            XDG_DATA_HOME=$WORK/xdg /usr/bin/time -f '%M' -o "$WORK/rss" \
                "$PAGEWRIGHT" clone --jobs "$workers" "$WORK/$name" "$WORK/out" >/dev/null
            ns=$(($(date +%s%N) - start))
            this=$(python3 -c "print(f'{$files / ($ns / 1e9):.1f}')")
            best=$(python3 -c "print(max($best, $this))")
            peak=$(($(cat "$WORK/rss") / 1024))
        done
        rate[$workers]=$best
        printf '%-8s %-7s %8d %10s %10d\n' "$name" "$workers" "$files" "$best" "$peak"
    done
    python3 -c "print(f'$name: {${rate[$(nproc)]} / ${rate[1]}:.2f}x with $(nproc) workers')"
    unset rate
done
