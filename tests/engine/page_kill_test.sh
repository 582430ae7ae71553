#!/usr/bin/env bash
# A killed join, split, render or tiff-join leaves no stray file: each is killed (SIGKILL) when it
# has read and written a sixth, two sixths ... five sixths of what a whole run does, and then the
# output folder holds only whole outputs and nothing hidden. With PW_PRELOAD naming a library
# that refuses unnamed files, the hidden stand-ins a kill leaves are for the next run into the
# folder to remove: it runs before the check.
# Usage: page_kill_test.sh PAGEWRIGHT_BATCH CORPUS_DIR; exit 77 (skipped) without corpus.
source "$(dirname "$0")/script_sandbox.sh"

pdf=$corpus/pdfs/pdfjs__tracemonkey.pdf
tif=$corpus/scans/multi/multi_g4_01.tif
# Bytes the process $1 has read and written so far; empty once it is gone.
io_of() { awk '/^[rw]char:/ { n += $2 } END { if (NR) print n }' "/proc/$1/io" 2>/dev/null; }

# The program as the process started in the background (env becomes it).
launch=("$batch")
[[ -z ${PW_PRELOAD:-} ]] || launch=(env "LD_PRELOAD=$PW_PRELOAD" "$batch")

# Every file below $1 is whole, and none is hidden.
check() {
    local file
    while IFS= read -r -d '' file; do
        case ${file##*/} in
        .*) echo "hidden file left: $file" && return 1 ;;
        *.pdf) qpdf --check "$file" >/dev/null 2>&1 || { echo "cut PDF: $file" && return 1; } ;;
        *.tif) tiffinfo -D "$file" >/dev/null 2>&1 || { echo "cut TIFF: $file" && return 1; } ;;
        *.png) [[ $(tail -c 8 "$file" | od -An -c | tr -d ' ') == IEND* ]] ||
            { echo "cut PNG: $file" && return 1; } ;;
        *) echo "unexpected file: $file" && return 1 ;;
        esac
    done < <(find "$1" -mindepth 1 -type f -print0)
}

# The output argument of each command; OUT stands for its folder.
cases=(
    "join -o OUT/joined.pdf $pdf $pdf $pdf"
    "split -o OUT $pdf"
    "render --resolution 100 -o OUT $pdf"
    "tiff-join -o OUT/joined.tif $tif $tif $tif $tif $tif $tif"
)
for line in "${cases[@]}"; do
    read -ra args <<<"$line"
    name=${args[0]}
    # A whole run tells how much a run reads and writes; its last figure before the end will do.
    out=$work/$name-whole
    mkdir -p "$out"
    "${launch[@]}" "${args[@]//OUT/$out}" >/dev/null 2>&1 &
    pid=$! total=0
    while n=$(io_of $pid) && [[ -n $n ]]; do
        total=$n
        sleep 0.01
    done
    wait $pid || fail "$name: the whole run failed"
    check "$out" || fail "$name: the whole run"
    for sixth in 1 2 3 4 5; do
        out=$work/$name-killed$sixth
        mkdir -p "$out"
        "${launch[@]}" "${args[@]//OUT/$out}" >/dev/null 2>&1 &
        pid=$!
        while n=$(io_of $pid) && [[ -n $n ]] && ((n < total * sixth / 6)); do
            sleep 0.01
        done
        kill -KILL $pid 2>/dev/null
        wait $pid 2>/dev/null
        [[ -z ${PW_PRELOAD:-} ]] || "${launch[@]}" "${args[@]//OUT/$out}" >/dev/null 2>&1 ||
            fail "$name: the run after a kill"
        check "$out" || fail "$name killed after $sixth sixths of its work"
    done
done
((failures == 0))
