#!/usr/bin/env bash
# Page commands benchmark: pagewright-batch against the command-line tools a user would pick
# instead, whole-process, on the same files in one run, on PDFs as users get them:
#
#   shared   1,008 pages: a real 14-page paper given 72 times to qpdf --empty --pages, not
#            rewritten again: every copy of a page shares the paper's fonts and resources
#   merged   1,008 pages: 72 copies of the paper as separate files, joined the same way
#   book     1,000 pages of a scanned book, one G4 image a page (our own merge of 300 dpi scans)
#   huge     30,240 pages: the merged file 30 times over, again by qpdf --empty --pages
#
#   extract  one page from the middle          against qpdf --empty --pages F N -- out.pdf
#   split    every page (merged, book)         against qpdf --split-pages
#   join     one page; the merged file whole   against qpdf --empty --pages ... --
#   info     page count and information        against qpdf --show-npages (pdfinfo shown too)
#   render   20 pages at 150 dpi PNG           against pdftoppm -r 150 -png -f -l
#   tiff-join 100 ten-page A4 G4 TIFFs into one against tiffcp
# Peak memory of the same commands on the three sizes shows whether it stays flat.
#
# Settings (environment):
#   REPEAT=3       runs of each measurement (median wall time reported, largest peak RSS)
#   PAGEWRIGHT=    pagewright-batch to use (default: build-bench/src/app/pagewright-batch,
#                  brought up to date here)
#   WORK=          scratch folder (default: a new folder under /tmp, removed unless KEEP=1)
#   CORPUS=        the sample corpus (default: ../shared/corpus beside the checkout)
#
# Prints a Markdown table. Runs as root (it installs the peer tools with apt-get).
set -euo pipefail

HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
REPEAT=${REPEAT:-3}
KEEP=${KEEP:-0}
CORPUS=${CORPUS:-$ROOT/../shared/corpus}/pdfs

"$HERE/../install-tools.sh" libtiff-tools time qpdf poppler-utils g++ libtiff-dev libjpeg-dev

source "$HERE/../pagewright.sh"

WORK=${WORK:-$(mktemp -d /tmp/pw-pages-bench.XXXXXX)}
mkdir -p "$WORK"/{in,out,log}
[[ $KEEP == 1 ]] || trap 'rm -rf "$WORK"' EXIT
export XDG_DATA_HOME=$WORK/xdg

# ---- inputs --------------------------------------------------------------------------------
IN=$WORK/in
PAPER=$CORPUS/pdfjs__tracemonkey.pdf
if [[ ! -s $IN/shared.pdf ]]; then
    paper=()
    for ((i = 0; i < 72; ++i)); do paper+=("$PAPER"); done
    qpdf --empty --pages "${paper[@]}" -- "$IN/shared.pdf"
fi
if [[ ! -s $IN/book.pdf ]]; then # a kept WORK folder keeps its inputs for the next run
echo "== making the inputs" >&2
# Copies of the paper as separate files, as a user's folder of papers would hold them: qpdf
# opens each as a source of its own and keeps each copy's shared resources shared.
copies=()
for ((i = 0; i < 72; ++i)); do
    cp "$PAPER" "$IN/paper_$i.pdf"
    copies+=("$IN/paper_$i.pdf")
done
qpdf --empty --pages "${copies[@]}" -- "$IN/merged.pdf"
rm -f "${copies[@]}"
huge=()
for ((i = 0; i < 30; ++i)); do huge+=("$IN/merged.pdf"); done
qpdf --empty --pages "${huge[@]}" -- "$IN/huge.pdf"
bench_build make_scans
mkdir -p "$IN/scans"
"$BUILT/bench/conversion/make_scans" "$IN/scans" 0 0 0 100 >/dev/null
mapfile -t TIFFS < <(ls "$IN"/scans/multi_*.tif)
"$PAGEWRIGHT" merge -o "$IN/book.pdf" "${TIFFS[@]}" >/dev/null
fi
mapfile -t TIFFS < <(ls "$IN"/scans/multi_*.tif)
for f in shared merged book huge; do
    echo "   $f.pdf: $(qpdf --show-npages "$IN/$f.pdf") pages, $(($(stat -c %s "$IN/$f.pdf") / 1048576)) MB" >&2
done
cat "$IN"/*.pdf "$IN"/scans/* >/dev/null

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
PW=$PAGEWRIGHT
for f in shared merged book huge; do
    F=$IN/$f.pdf
    n=$(qpdf --show-npages "$F")
    mid=$((n / 2))
    measure "$f: extract page $mid: pagewright-batch" -- "$PW" extract --range "$mid" -o "$O" "$F"
    measure "$f: extract page $mid: qpdf" -- qpdf --empty --pages "$F" "$mid" -- "$O/x.pdf"
    measure "$f: join page $mid: pagewright-batch" -- "$PW" join -o "$O/j.pdf" "$F:$mid"
    measure "$f: join page $mid: qpdf" -- qpdf --empty --pages "$F" "$mid" -- "$O/j.pdf"
    measure "$f: info: pagewright-batch" -- "$PW" info "$F"
    measure "$f: info: qpdf --show-npages" -- qpdf --show-npages "$F"
    measure "$f: info: pdfinfo" -- pdfinfo "$F"
    measure "$f: render 20 pages: pagewright-batch" -- "$PW" render --range "$mid-$((mid + 19))" \
        -o "$O" "$F"
    [[ $OUTPUT_PAGES == 20 ]] || { echo "render wrote $OUTPUT_PAGES files" >&2; exit 1; }
    measure "$f: render 20 pages: pdftoppm" -- pdftoppm -r 150 -png -f "$mid" -l "$((mid + 19))" \
        "$F" "$O/p"
    [[ $f == huge ]] && continue
    measure "$f: split $n pages: pagewright-batch" -- "$PW" split -o "$O" "$F"
    [[ $OUTPUT_PAGES == "$n" ]] || { echo "split wrote $OUTPUT_PAGES files" >&2; exit 1; }
    measure "$f: split $n pages: qpdf --split-pages" -- qpdf --split-pages "$F" "$O/p.pdf"
done
measure "join merged + book whole: pagewright-batch" -- "$PW" join -o "$O/j.pdf" \
    "$IN/merged.pdf" "$IN/book.pdf"
measure "join merged + book whole: qpdf" -- qpdf --empty --pages "$IN/merged.pdf" \
    "$IN/book.pdf" -- "$O/j.pdf"
measure "tiff-join 100 TIFFs: pagewright-batch tiff-join" -- "$PW" tiff-join \
    -o "$O/j.tif" "${TIFFS[@]}"
tiffinfo "$O/j.tif" 2>/dev/null | grep -c '^TIFF Directory' | grep -qx 1000 ||
    { echo "tiff-join did not write 1,000 pages" >&2; exit 1; }
measure "tiff-join 100 TIFFs: tiffcp" -- tiffcp "${TIFFS[@]}" "$O/j.tif"

echo
echo "| Command | Wall s | CPU s | Peak RSS MB |"
echo "|---|---:|---:|---:|"
for row in "${ROWS[@]}"; do
    IFS='|' read -r label wall cpu mem <<<"$row"
    echo "| $label | $wall | $cpu | $mem |"
done
echo
echo "Host: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | xargs), load $(cut -d' ' -f1-3 /proc/loadavg), $(date -u +%F)"
