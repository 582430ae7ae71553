#!/usr/bin/env bash
# Searchable PDFs: pagewright-batch convert --ocr, and pagewright-batch ocr on the PDFs that
# pagewright-batch writes without text, against ocrmypdf on those same PDFs (the usual "OCR
# afterwards"), with the same tesseract and language, on scans of pages of real text whose
# words are known.
#
#   bench/ocr/run.sh
#
# The scans: each page of the text PDFs in the corpus rendered at 300 dpi in grey, turned a
# little (0.3 to 0.8 degrees, alternately either way) and given the sensor's Gaussian noise;
# pages alternate between 8-bit grey LZW TIFF and bilevel CCITT G4 TIFF. The PDF's own text of
# that page is the ground truth.
#
# Settings (environment):
#   PAGES=18      scans made (the corpus's text PDFs hold 18 pages)
#   JOBS=2        ocrmypdf --jobs, and the cores either tool may use
#   PAGEWRIGHT=   pagewright-batch to use (default: build-bench/src/app/pagewright-batch)
#   WORK=         scratch folder (default: a new folder under /tmp, removed unless KEEP=1)
#
# Prints a Markdown report, left with the raw figures in $WORK/report.md and
# $WORK/results.tsv. Runs as root (it installs the peer tools with apt-get).
set -euo pipefail

HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
PAGES=${PAGES:-18}
JOBS=${JOBS:-2}
KEEP=${KEEP:-0}
CORPUS=${CORPUS:-$ROOT/../shared/corpus}
SOURCES=("$CORPUS/pdfs/pdfjs__tracemonkey.pdf" "$CORPUS/pdfs/pypdf__pdflatex-4-pages.pdf")

"$HERE/../install-tools.sh" ocrmypdf tesseract-ocr-eng imagemagick poppler-utils time \
    python3 qpdf
source "$HERE/../pagewright.sh"

WORK=${WORK:-$(mktemp -d /tmp/pw-ocr-bench.XXXXXX)}
mkdir -p "$WORK"/{in,truth,plain,ours,after,theirs,log}
[[ $KEEP == 1 ]] || trap 'rm -rf "$WORK"' EXIT
export XDG_DATA_HOME=$WORK/xdg
RESULTS=$WORK/results.tsv
printf 'label\tpages\twall_s\tuser_s\tmaxrss_kb\tout_bytes\n' >"$RESULTS"

# ---- inputs --------------------------------------------------------------------------------
echo "== rendering $PAGES scans" >&2
n=0
for src in "${SOURCES[@]}"; do
    count=$(pdfinfo "$src" | awk '/^Pages:/ {print $2}')
    for ((p = 1; p <= count && n < PAGES; ++p, ++n)); do
        name=$(printf 'scan_%03d' "$n")
        pdftotext -f "$p" -l "$p" "$src" "$WORK/truth/$name.txt"
        pdftoppm -r 300 -gray -f "$p" -l "$p" -singlefile "$src" "$WORK/in/$name"
        angle=$(awk -v n="$n" 'BEGIN { printf "%.2f", (0.3 + (n % 6) * 0.1) * (n % 2 ? -1 : 1) }')
        shaped=(-background white -rotate "$angle" -gravity center -extent 2550x3300 +repage
            -attenuate 0.25 +noise Gaussian -density 300 -units PixelsPerInch)
        if ((n % 2)); then
            convert "$WORK/in/$name.pgm" "${shaped[@]}" -threshold 55% -type bilevel \
                -compress Group4 "$WORK/in/$name.tif"
        else
            convert "$WORK/in/$name.pgm" "${shaped[@]}" -depth 8 -compress LZW \
                "$WORK/in/$name.tif"
        fi
        rm "$WORK/in/$name.pgm"
    done
done
mapfile -t SCANS < <(ls "$WORK"/in/*.tif)

# measure LABEL PAGES COMMAND...: wall, user and peak memory of one whole-process run.
measure() {
    local label=$1 pages=$2
    shift 2
    /usr/bin/time -f '%e %U %M' -o "$WORK/log/$label.time" "$@" >"$WORK/log/$label.out" 2>&1 ||
        { echo "$label failed:" >&2 && tail -5 "$WORK/log/$label.out" >&2 && exit 1; }
    read -r wall user rss <"$WORK/log/$label.time"
    local dir=$WORK/${label%%-*}
    printf '%s\t%s\t%s\t%s\t%s\t%s\n' "$label" "$pages" "$wall" "$user" "$rss" \
        "$(du -cb "$dir"/*.pdf | tail -1 | cut -f1)" >>"$RESULTS"
}

echo "== pagewright-batch without text, then with --ocr eng" >&2
measure plain "$PAGES" "$PAGEWRIGHT" convert --replace --jobs "$JOBS" -o "$WORK/plain" \
    "${SCANS[@]}"
measure ours "$PAGES" "$PAGEWRIGHT" convert --replace --jobs "$JOBS" --ocr eng -o "$WORK/ours" \
    "${SCANS[@]}"

echo "== pagewright-batch ocr on copies of the PDFs without text" >&2
cp "$WORK"/plain/*.pdf "$WORK/after/"
measure after "$PAGES" "$PAGEWRIGHT" ocr "$WORK"/after/*.pdf

echo "== ocrmypdf on the PDFs without text" >&2
theirs() {
    for pdf in "$WORK"/plain/*.pdf; do
        ocrmypdf -q -l eng --jobs "$JOBS" "$pdf" "$WORK/theirs/$(basename "$pdf")"
    done
}
export -f theirs
export WORK JOBS
measure theirs "$PAGES" bash -c theirs

# ---- checks --------------------------------------------------------------------------------
# Every page image of ours, made with text or given it afterwards, is the one written without
# text, byte for byte.
same=0 same_after=0
for pdf in "$WORK"/plain/*.pdf; do
    name=$(basename "$pdf" .pdf)
    mkdir -p "$WORK/img/$name"/{plain,ours,after}
    for label in plain ours after; do
        pdfimages -all "$WORK/$label/$name.pdf" "$WORK/img/$name/$label/i"
    done
    diff -r "$WORK/img/$name/plain" "$WORK/img/$name/ours" >/dev/null && same=$((same + 1))
    diff -r "$WORK/img/$name/plain" "$WORK/img/$name/after" >/dev/null &&
        same_after=$((same_after + 1))
done
for label in ours after theirs; do
    for pdf in "$WORK/$label"/*.pdf; do
        pdftotext "$pdf" "$WORK/$label/$(basename "$pdf" .pdf).txt"
    done
done

python3 "$HERE/report.py" "$WORK" "$same" "$same_after" "$PAGES" "$JOBS" | tee "$WORK/report.md"
