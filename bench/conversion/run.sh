#!/usr/bin/env bash
# Conversion benchmark: pagewright-batch against img2pdf, tiff2pdf, ImageMagick and a plain
# copy of the input bytes, whole-process, on one generated batch of A4 300 dpi scans, in one run.
#
#   bench/conversion/run.sh
#
# Settings (environment):
#   N=100          files per class (bilevel G4 TIFF, grey LZW TIFF, colour JPEG)
#   MULTI_N=20     ten-page G4 TIFFs
#   IM_N=10        files per class for ImageMagick convert (seconds per file; see the report)
#   MERGE_N=100    pages in the merge
#   IM_MERGE_N=6   pages in ImageMagick's merge: it holds every page at 16 bits per sample;
#                  under Debian's resource policy 15 pages spill to disk (minutes) and 20 fail
#   REPEAT=3       runs of the quick measurements (median reported); slow peers run once
#   PAGEWRIGHT=    pagewright-batch to use (default: build-bench/src/app/pagewright-batch,
#                  brought up to date here)
#   WORK=          scratch folder (default: a new folder under /tmp, removed unless KEEP=1)
#
# Prints a Markdown report and leaves it, with the raw figures, in $WORK/report.md and
# $WORK/results.tsv. Runs as root (it installs the peer tools with apt-get).
set -euo pipefail

HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
N=${N:-100}
MULTI_N=${MULTI_N:-20}
IM_N=${IM_N:-10}
MERGE_N=${MERGE_N:-100}
IM_MERGE_N=${IM_MERGE_N:-6}
REPEAT=${REPEAT:-3}
KEEP=${KEEP:-0}

# ---- tools ---------------------------------------------------------------------------------
"$HERE/../install-tools.sh" img2pdf libtiff-tools imagemagick hyperfine time qpdf poppler-utils \
    g++ libtiff-dev libjpeg-dev python3

source "$HERE/../pagewright.sh"

WORK=${WORK:-$(mktemp -d /tmp/pw-conversion-bench.XXXXXX)}
mkdir -p "$WORK"/{in,log,out}
[[ $KEEP == 1 ]] || trap 'rm -rf "$WORK"' EXIT
# pagewright-batch keeps its failure log in the per-user data folder: a scratch one here.
export XDG_DATA_HOME=$WORK/xdg
RESULTS=$WORK/results.tsv
printf 'label\tfiles\tin_bytes\twall_s\tuser_s\tsys_s\tmaxrss_kb\tout_bytes\tpdfs\tqpdf_bad\tfailed\n' >"$RESULTS"

# ---- inputs --------------------------------------------------------------------------------
echo "== generating $N + $N + $N scans and $MULTI_N ten-page TIFFs" >&2
bench_build make_scans
"$BUILT/bench/conversion/make_scans" "$WORK/in" "$N" "$N" "$N" "$MULTI_N"
mapfile -t BW < <(ls "$WORK"/in/bw_*.tif)
mapfile -t GREY < <(ls "$WORK"/in/grey_*.tif)
mapfile -t COLOUR < <(ls "$WORK"/in/colour_*.jpg)
mapfile -t MULTI < <(ls "$WORK"/in/multi_*.tif 2>/dev/null)
ALL=("${BW[@]}" "${GREY[@]}" "${COLOUR[@]}" "${MULTI[@]}")
TIFFS=("${BW[@]}" "${GREY[@]}" "${MULTI[@]}")
IM_SET=("${BW[@]:0:IM_N}" "${GREY[@]:0:IM_N}" "${COLOUR[@]:0:IM_N}")
# The merge takes the classes in turn: bw, grey, colour, bw, ...
MERGE=()
for ((i = 0; ${#MERGE[@]} < MERGE_N; ++i)); do
    MERGE+=("${BW[i % N]}")
    if ((${#MERGE[@]} < MERGE_N)); then MERGE+=("${GREY[i % N]}"); fi
    if ((${#MERGE[@]} < MERGE_N)); then MERGE+=("${COLOUR[i % N]}"); fi
done
IM_MERGE=("${MERGE[@]:0:IM_MERGE_N}")

bytes_of() { stat -c %s "$@" | awk '{s += $1} END {print s + 0}'; }

# ---- measuring -----------------------------------------------------------------------------
# measure LABEL RUNS OUT FILES_COUNT IN_BYTES -- COMMAND...
# OUT is a folder (emptied before each run) or a .pdf file. Runs COMMAND RUNS times under
# /usr/bin/time -v and records the median wall time and CPU time and the largest peak RSS.
measure() {
    local label=$1 runs=$2 out=$3 files=$4 inbytes=$5
    shift 6
    local walls=() cpus=() users=() syss=() rss=0 failed=0 r
    echo "== $label ($runs run(s))" >&2
    for ((r = 0; r < runs; ++r)); do
        rm -rf "$out"
        [[ $out == *.pdf ]] || mkdir -p "$out"
        cat "${ALL[@]}" >/dev/null # inputs warm in the page cache for every tool alike
        local t0 t1 status=0
        t0=$(date +%s.%N)
        /usr/bin/time -v -o "$WORK/log/time.txt" "$@" >"$WORK/log/$label.out" \
            2>"$WORK/log/$label.err" || status=$?
        t1=$(date +%s.%N)
        local u s m
        u=$(awk -F': ' '/User time/ {print $2}' "$WORK/log/time.txt")
        s=$(awk -F': ' '/System time/ {print $2}' "$WORK/log/time.txt")
        m=$(awk -F': ' '/Maximum resident/ {print $2}' "$WORK/log/time.txt")
        walls+=("$(echo "$t1 - $t0" | bc -l)")
        users+=("$u")
        syss+=("$s")
        if ((m > rss)); then rss=$m; fi
        failed=$status
    done
    local mid=$((runs / 2)) order
    # The run with the median wall time gives the CPU figures.
    order=$(for i in "${!walls[@]}"; do echo "${walls[i]} $i"; done | sort -g | awk -v k=$mid 'NR == k + 1 {print $2}')
    local outbytes=0 pdfs=0 bad=0
    if [[ -d $out ]]; then
        outbytes=$(find "$out" -type f -printf '%s\n' | awk '{s += $1} END {print s + 0}')
        while IFS= read -r -d '' pdf; do
            pdfs=$((pdfs + 1))
            qpdf --check "$pdf" >/dev/null 2>&1 || bad=$((bad + 1))
        done < <(find "$out" -type f -name '*.pdf' -print0)
    elif [[ -f $out ]]; then
        outbytes=$(stat -c %s "$out")
        pdfs=1
        qpdf --check "$out" >/dev/null 2>&1 || bad=1
    fi
    printf '%s\t%d\t%d\t%.3f\t%.2f\t%.2f\t%d\t%d\t%d\t%d\t%d\n' "$label" "$files" "$inbytes" \
        "${walls[order]}" "${users[order]}" "${syss[order]}" "$rss" "$outbytes" "$pdfs" "$bad" \
        "$failed" >>"$RESULTS"
}

EACH=$HERE/each.sh
O=$WORK/out
nALL=${#ALL[@]} bALL=$(bytes_of "${ALL[@]}")
nT=${#TIFFS[@]} bT=$(bytes_of "${TIFFS[@]}")
nBW=${#BW[@]} bBW=$(bytes_of "${BW[@]}")
nG=${#GREY[@]} bG=$(bytes_of "${GREY[@]}")
nC=${#COLOUR[@]} bC=$(bytes_of "${COLOUR[@]}")
LOAD_START=$(cut -d' ' -f1-3 /proc/loadavg)
nIM=${#IM_SET[@]} bIM=$(bytes_of "${IM_SET[@]}")
nM=${#MERGE[@]} bM=$(bytes_of "${MERGE[@]}")
nIMM=${#IM_MERGE[@]} bIMM=$(bytes_of "${IM_MERGE[@]}")

# All classes.
measure pw_batch_all "$REPEAT" "$O/pw_batch" "$nALL" "$bALL" -- "$PAGEWRIGHT" convert -o "$O/pw_batch" "${ALL[@]}"
measure pw_each_all "$REPEAT" "$O/pw_each" "$nALL" "$bALL" -- "$EACH" pagewright "$O/pw_each" "${ALL[@]}"
measure img2pdf_each_all 1 "$O/img2pdf_each" "$nALL" "$bALL" -- "$EACH" img2pdf "$O/img2pdf_each" "${ALL[@]}"
measure cat_each_all "$REPEAT" "$O/cat_each" "$nALL" "$bALL" -- "$EACH" cat "$O/cat_each" "${ALL[@]}"
measure cp_all "$REPEAT" "$O/cp" "$nALL" "$bALL" -- cp -t "$O/cp" "${ALL[@]}"
# TIFFs only, against tiff2pdf.
measure pw_each_tiff "$REPEAT" "$O/pw_each_tiff" "$nT" "$bT" -- "$EACH" pagewright "$O/pw_each_tiff" "${TIFFS[@]}"
measure tiff2pdf_each_tiff "$REPEAT" "$O/tiff2pdf_each" "$nT" "$bT" -- "$EACH" tiff2pdf "$O/tiff2pdf_each" "${TIFFS[@]}"
# Per class: embedded pages (G4, JPEG) against copying their bytes; the grey class, which is
# decoded and re-encoded, one process only.
for cls in BW GREY COLOUR MULTI; do
    declare -n files=$cls
    n=${#files[@]} b=$(bytes_of "${files[@]}") l=${cls,,}
    measure "pw_batch_$l" "$REPEAT" "$O/pw_batch_$l" "$n" "$b" -- "$PAGEWRIGHT" convert -o "$O/pw_batch_$l" "${files[@]}"
    measure "cp_$l" "$REPEAT" "$O/cp_$l" "$n" "$b" -- cp -t "$O/cp_$l" "${files[@]}"
    if [[ $cls == BW || $cls == COLOUR ]]; then
        measure "pw_each_$l" "$REPEAT" "$O/pw_each_$l" "$n" "$b" -- "$EACH" pagewright "$O/pw_each_$l" "${files[@]}"
        measure "cat_each_$l" "$REPEAT" "$O/cat_each_$l" "$n" "$b" -- "$EACH" cat "$O/cat_each_$l" "${files[@]}"
    fi
    unset -n files
done
# ImageMagick on a subset (it takes seconds per bilevel page), with pagewright on the same subset.
measure magick_each_subset 1 "$O/magick_each" "$nIM" "$bIM" -- "$EACH" magick "$O/magick_each" "${IM_SET[@]}"
measure pw_each_subset "$REPEAT" "$O/pw_each_subset" "$nIM" "$bIM" -- "$EACH" pagewright "$O/pw_each_subset" "${IM_SET[@]}"
measure img2pdf_each_subset 1 "$O/img2pdf_each_subset" "$nIM" "$bIM" -- "$EACH" img2pdf "$O/img2pdf_each_subset" "${IM_SET[@]}"
# Merges.
measure pw_merge "$REPEAT" "$O/pw_merge.pdf" "$nM" "$bM" -- "$PAGEWRIGHT" merge -o "$O/pw_merge.pdf" "${MERGE[@]}"
measure img2pdf_merge 1 "$O/img2pdf_merge.pdf" "$nM" "$bM" -- img2pdf -o "$O/img2pdf_merge.pdf" "${MERGE[@]}"
measure pw_merge_subset "$REPEAT" "$O/pw_merge_subset.pdf" "$nIMM" "$bIMM" -- "$PAGEWRIGHT" merge -o "$O/pw_merge_subset.pdf" "${IM_MERGE[@]}"
# Debian's ImageMagick policy refuses the coder named PDF; EPDF (used per file) writes one page
# per file, so the merge writes through the PDFA name of the same writer.
measure magick_merge_subset 1 "$O/magick_merge.pdf" "$nIMM" "$bIMM" -- /usr/bin/convert "${IM_MERGE[@]}" "PDFA:$O/magick_merge.pdf"

# The encodings each tool chose, one file of each class.
{
    for tool in pw_each img2pdf_each tiff2pdf_each magick_each; do
        for stem in bw_0000 grey_0000 colour_0000; do
            f=$O/$tool/$stem.pdf
            [[ -f $f ]] || continue
            printf '%s\t%s\t%s\n' "$tool" "$stem" \
                "$(pdfimages -list "$f" 2>/dev/null | awk 'NR > 2 {printf "%s %s/%sbit %s; ", $10, $6, $8, $9}')"
        done
    done
} >"$WORK/encodings.tsv"
# Output bytes per class for the per-file runs.
for tool in pw_each img2pdf_each tiff2pdf_each; do
    for cls in bw grey colour multi; do
        b=$(find "$O/$tool" -name "${cls}_*.pdf" -printf '%s\n' | awk '{s += $1} END {print s + 0}')
        printf '%s\t%s\t%s\n' "$tool" "$cls" "$b"
    done
done >"$WORK/sizes.tsv"

# ---- report --------------------------------------------------------------------------------
MACHINE="$(nproc) cores, $(awk -F': ' '/model name/ {print $2; exit}' /proc/cpuinfo), $(awk '/MemTotal/ {printf "%.0f GB RAM", $2 / 1048576}' /proc/meminfo), $(uname -r)"
VERSIONS="img2pdf $(dpkg-query -W -f='${Version}' img2pdf), libtiff-tools $(dpkg-query -W -f='${Version}' libtiff-tools), imagemagick $(dpkg-query -W -f='${Version}' imagemagick), qpdf $(dpkg-query -W -f='${Version}' qpdf)"
python3 "$HERE/report.py" "$RESULTS" "$WORK/encodings.tsv" "$WORK/sizes.tsv" "$MACHINE" "$VERSIONS" "$N" \
    "$(git -C "$ROOT" rev-parse --short HEAD 2>/dev/null || echo unknown)" "$MULTI_N" \
    "$LOAD_START" "$(cut -d' ' -f1-3 /proc/loadavg)" "$SECONDS" | tee "$WORK/report.md"
[[ $KEEP == 1 ]] && echo "(kept $WORK)" >&2
exit 0
