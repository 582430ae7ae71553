#!/usr/bin/env bash
# Page commands benchmark: pagewright-batch against the command-line tools a user would pick
# instead, whole-process, on the same files in one run.
#
#   bench/pages/run.sh
#
#   render     PDF pages to PNG at 150 dpi       against pdftoppm -r 150 -png
#   split      a 1,000-page PDF into pages       against qpdf --split-pages
#   join       100 PDFs of 10 pages into one     against qpdf --empty --pages ... --
#   tiff-join  100 ten-page A4 G4 TIFFs into one against tiffcp
# and, for memory flat in the page count, the same split of 250 pages and join of 25 TIFFs.
#
# Settings (environment):
#   REPEAT=3       runs of each measurement (median wall time reported, largest peak RSS)
#   PAGEWRIGHT=    pagewright-batch to use (default: build-bench/src/app/pagewright-batch,
#                  brought up to date here)
#   WORK=          scratch folder (default: a new folder under /tmp, removed unless KEEP=1)
#
# Prints a Markdown table. Runs as root (it installs the peer tools with apt-get).
set -euo pipefail

HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
REPEAT=${REPEAT:-3}
KEEP=${KEEP:-0}
CORPUS=$ROOT/../shared/corpus/pdfs

"$HERE/../install-tools.sh" libtiff-tools time qpdf poppler-utils g++ libtiff-dev libjpeg-dev

source "$HERE/../pagewright.sh"

WORK=${WORK:-$(mktemp -d /tmp/pw-pages-bench.XXXXXX)}
mkdir -p "$WORK"/{in,out,log}
[[ $KEEP == 1 ]] || trap 'rm -rf "$WORK"' EXIT
export XDG_DATA_HOME=$WORK/xdg

# ---- inputs --------------------------------------------------------------------------------
echo "== making the inputs" >&2
IN=$WORK/in
RENDER=("$CORPUS/pdfjs__tracemonkey.pdf" "$CORPUS/pypdf__pdflatex-4-pages.pdf")
# 1,000 pages of real text and figures: the 14-page paper over and over.
repeats=()
for ((i = 0; i < 72; ++i)); do repeats+=("$CORPUS/pdfjs__tracemonkey.pdf"); done
qpdf --empty --pages "${repeats[@]}" -- "$IN/all.pdf"
qpdf --empty --pages "$IN/all.pdf" 1-1000 -- "$IN/big.pdf"
qpdf --empty --pages "$IN/all.pdf" 1-250 -- "$IN/quarter.pdf"
JOIN=()
for ((i = 0; i < 100; ++i)); do
    first=$((i * 10 + 1))
    qpdf --empty --pages "$IN/big.pdf" "$first-$((first + 9))" -- "$IN/part_$i.pdf"
    JOIN+=("$IN/part_$i.pdf")
done
g++ -O2 -std=c++20 -o "$WORK/make_scans" "$ROOT/bench/conversion/make_scans.cpp" -ltiff -ljpeg
mkdir -p "$IN/scans"
"$WORK/make_scans" "$IN/scans" 0 0 0 100 >/dev/null
mapfile -t TIFFS < <(ls "$IN"/scans/multi_*.tif)
cat "$IN"/*.pdf "$IN"/scans/* "${RENDER[@]}" >/dev/null

# ---- measuring -----------------------------------------------------------------------------
# measure LABEL -- COMMAND...: median wall time, its run's CPU time, the largest peak RSS.
ROWS=()
measure() {
    local label=$1 walls=() cpus=() rss=0 r
    shift 2
    echo "== $label" >&2
    for ((r = 0; r < REPEAT; ++r)); do
        rm -rf "$WORK/out" && mkdir -p "$WORK/out"
        /usr/bin/time -f '%e %U %S %M' -o "$WORK/log/time" "$@" >"$WORK/log/out" 2>&1 ||
            { echo "$label failed:" >&2; cat "$WORK/log/out" >&2; exit 1; }
        read -r wall user sys mem <"$WORK/log/time"
        walls+=("$wall")
        cpus+=("$(echo "$user + $sys" | bc -l)")
        ((mem > rss)) && rss=$mem
    done
    local mid
    mid=$(for i in "${!walls[@]}"; do echo "${walls[i]} $i"; done | sort -g |
        awk -v k=$((REPEAT / 2)) 'NR == k + 1 {print $2}')
    ROWS+=("$(printf '%s|%.2f|%.2f|%d' "$label" "${walls[mid]}" "${cpus[mid]}" $((rss / 1024)))")
    OUTPUT_PAGES=$(find "$WORK/out" -type f | wc -l)
}

O=$WORK/out
measure "render: pagewright-batch render" -- "$PAGEWRIGHT" render -o "$O" "${RENDER[@]}"
measure "render: pdftoppm -r 150 -png" -- bash -c \
    'for f in "$@"; do pdftoppm -r 150 -png "$f" "$0/$(basename "$f" .pdf)"; done' "$O" \
    "${RENDER[@]}"
measure "split 1,000 pages: pagewright-batch split" -- "$PAGEWRIGHT" split -o "$O" "$IN/big.pdf"
[[ $OUTPUT_PAGES == 1000 ]] || { echo "split wrote $OUTPUT_PAGES files" >&2; exit 1; }
measure "split 1,000 pages: qpdf --split-pages" -- qpdf --split-pages "$IN/big.pdf" "$O/p.pdf"
measure "split 250 pages: pagewright-batch split" -- "$PAGEWRIGHT" split -o "$O" \
    "$IN/quarter.pdf"
measure "join 100 PDFs: pagewright-batch join" -- "$PAGEWRIGHT" join -o "$O/j.pdf" "${JOIN[@]}"
measure "join 100 PDFs: qpdf --empty --pages" -- qpdf --empty --pages "${JOIN[@]}" -- "$O/j.pdf"
measure "tiff-join 100 TIFFs: pagewright-batch tiff-join" -- "$PAGEWRIGHT" tiff-join \
    -o "$O/j.tif" "${TIFFS[@]}"
tiffinfo "$O/j.tif" 2>/dev/null | grep -c '^TIFF Directory' | grep -qx 1000 ||
    { echo "tiff-join did not write 1,000 pages" >&2; exit 1; }
measure "tiff-join 100 TIFFs: tiffcp" -- tiffcp "${TIFFS[@]}" "$O/j.tif"
measure "tiff-join 25 TIFFs: pagewright-batch tiff-join" -- "$PAGEWRIGHT" tiff-join \
    -o "$O/j.tif" "${TIFFS[@]:0:25}"

echo
echo "| Command | Wall s | CPU s | Peak RSS MB |"
echo "|---|---:|---:|---:|"
for row in "${ROWS[@]}"; do
    IFS='|' read -r label wall cpu mem <<<"$row"
    echo "| $label | $wall | $cpu | $mem |"
done
echo
echo "Host: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | xargs), load $(cut -d' ' -f1-3 /proc/loadavg), $(date -u +%F)"
