#!/usr/bin/env bash
# A killed conversion leaves only whole PDFs: `pagewright-batch convert` is killed (SIGKILL) at
# ten random moments of a batch of sample images and damaged files, and after each kill every
# file in the output folder must be a PDF that qpdf finds sound, with no temporary file beside
# it. Usage: batch_kill_test.sh PAGEWRIGHT_BATCH CORPUS_DIR; exit 77 (skipped) without corpus.
set -euo pipefail
batch=$1 corpus=$2
[[ -d $corpus ]] || exit 77
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The program logs its failures below the home folder.
export HOME=$work/home XDG_DATA_HOME=$work/home/.local/share

# Failures come before the long grey scan, so that a kill meets documents they abandoned.
inputs=("$corpus"/formats/tif/pil__hopper_lzw.tif "$corpus"/formats/jpg/pil__hopper.jpg
    "$corpus"/formats/png/irs__basn6a16.png "$corpus"/damaged/made/*
    "$corpus"/scans/grey/scan_grey_050.tif "$corpus"/scans/multi/multi_g4_01.tif
    "$corpus"/damaged/real/*)

# Every file in the folder $1 is a sound PDF and none is hidden.
check() {
    local file
    for file in "$1"/* "$1"/.[!.]*; do
        [[ -e $file ]] || continue
        case ${file##*/} in
        .*) echo "temporary file left: $file" && return 1 ;;
        *.pdf) qpdf --check "$file" >/dev/null || { echo "not a sound PDF: $file" && return 1; } ;;
        *) echo "unexpected file: $file" && return 1 ;;
        esac
    done
}

# A run to its end tells how long a run takes; the kills fall within that span.
start=$(date +%s%N)
status=0
"$batch" convert -o "$work/whole" "${inputs[@]}" >/dev/null 2>&1 || status=$?
span=$((($(date +%s%N) - start) / 1000000))
[[ $status == 1 ]] || { echo "the whole run ended with $status, not 1 for the damaged files" && exit 1; }
check "$work/whole"

for run in {1..10}; do
    out=$work/killed$run
    "$batch" convert -o "$out" "${inputs[@]}" >/dev/null 2>&1 &
    at=$((RANDOM * 32768 + RANDOM))
    at=$((at % span))
    sleep "$((at / 1000)).$(printf %03d $((at % 1000)))"
    kill -KILL $! 2>/dev/null || true
    { wait $! || true; } 2>/dev/null
    check "$out" || { echo "after a kill at $at of $span ms" && exit 1; }
done
