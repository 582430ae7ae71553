#!/usr/bin/env bash
# Every command that writes, run on a small disk filled to many levels of free space: it either
# succeeds with a complete output, or fails (non-zero, saying why) leaving the file that was
# there as it was and no part file. Never a cut file with exit 0.
# Usage: full_disk_sweep.sh PAGEWRIGHT_BATCH [CORPUS_DIR]; exit 77 without corpus or mount.
set -uo pipefail
batch=$1
corpus=${2:-$(dirname "$0")/../../../shared/corpus}
[[ -d $corpus/scans ]] || exit 77
work=$(mktemp -d)
disk=$work/disk
mkdir -p "$disk" "$work/in" "$work/store"
trap 'mountpoint -q "$disk" && umount -l "$disk"; rm -rf "$work"' EXIT
export XDG_DATA_HOME=$work/store
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

cp "$corpus"/scans/g4/*.tif "$corpus"/scans/jpeg/*.jpg "$corpus"/scans/grey/*.tif "$work/in/"
cp "$corpus"/scans/multi/multi_g4_01.tif "$work/in/multi.tif"
"$batch" merge -o "$work/in/doc.pdf" "$work"/in/*.jpg "$work"/in/scan_g4_*.tif >/dev/null ||
    { echo "cannot make the sample PDF" && exit 1; }
pages=$(qpdf --show-npages "$work/in/doc.pdf")
mount -t tmpfs -o size=64m tmpfs "$disk" 2>/dev/null || exit 77

pdf_ok() { qpdf --check "$1" >/dev/null 2>&1; }
tiff_ok() { tiffinfo "$1" >/dev/null 2>&1; }
# The free space of the disk brought down to $1 bytes.
leave() {
    rm -f "$disk/.filling"
    local spare=$(($(stat -f -c '%a*%S' "$disk") - $1))
    ((spare > 0)) && head -c "$spare" /dev/zero >"$disk/.filling" 2>/dev/null
    sync
}
no_parts() { [[ -z $(find "$disk" -mindepth 1 -name '.*' ! -name .filling) ]] || fail "$1: part file left"; }

# case NAME CHECK COMMAND...: CHECK is a function told the exit status; the disk holds the
# files that `prepare_NAME` puts there.
sweep() {
    local name=$1 check=$2
    shift 2
    local size
    rm -rf "${disk:?}"/* && "prepare_$name" && "$@" >/dev/null 2>&1
    size=$(du -sb "$disk" | cut -f1)
    for ((level = 0; level <= 20; ++level)); do
        rm -rf "${disk:?}"/* "$disk"/.[!.]* 2>/dev/null
        "prepare_$name"
        leave $((size * level / 16))
        "$@" >"$work/out.txt" 2>&1
        local status=$?
        rm -f "$disk/.filling"
        ((status == 0)) || grep -q . "$work/out.txt" || fail "$name at level $level: failed without a word"
        "$check" "$status" || fail "$name at level $level (exit $status): $(head -c 300 "$work/out.txt")"
        no_parts "$name at level $level"
    done
}

prepare_info() { cp "$work/in/doc.pdf" "$disk/doc.pdf"; }
check_info() {
    if (($1 == 0)); then pdf_ok "$disk/doc.pdf" && pdfinfo "$disk/doc.pdf" | grep -q 'Title: *Sweep'
    else cmp -s "$disk/doc.pdf" "$work/in/doc.pdf"; fi
}
sweep info check_info "$batch" info --title Sweep "$disk/doc.pdf"

prepare_join_existing() { cp "$work/in/doc.pdf" "$disk/old.pdf"; }
check_join_existing() {
    if (($1 == 0)); then pdf_ok "$disk/old.pdf" && [[ $(qpdf --show-npages "$disk/old.pdf") == $((pages * 2)) ]]
    else cmp -s "$disk/old.pdf" "$work/in/doc.pdf"; fi
}
sweep join_existing check_join_existing "$batch" join -o "$disk/old.pdf" "$work/in/doc.pdf" "$work/in/doc.pdf"

prepare_join_new() { :; }
new_pdf_or_none() { # STATUS FILE
    if (($1 == 0)); then pdf_ok "$2"; else [[ ! -e $2 ]]; fi
}
check_join_new() { new_pdf_or_none "$1" "$disk/new.pdf"; }
sweep join_new check_join_new "$batch" join -o "$disk/new.pdf" "$work/in/doc.pdf"

check_merge() { new_pdf_or_none "$1" "$disk/m.pdf"; }
prepare_merge() { :; }
sweep merge check_merge "$batch" merge -o "$disk/m.pdf" "$work"/in/*.jpg "$work/in/multi.tif"

prepare_convert() { :; }
check_convert() {
    local pdf
    for pdf in "$disk"/out/*.pdf; do [[ -e $pdf ]] || continue; pdf_ok "$pdf" || return 1; done
    (($1 != 0)) || [[ $(ls "$disk"/out/*.pdf | wc -l) == 5 ]]
}
sweep convert check_convert "$batch" convert -o "$disk/out" "$work"/in/*.jpg "$work"/in/scan_*.tif

prepare_split() { :; }
check_split() {
    local pdf count=0
    while IFS= read -r -d '' pdf; do pdf_ok "$pdf" || return 1; count=$((count + 1)); done \
        < <(find "$disk" -name '*.pdf' -print0)
    (($1 != 0)) || ((count == pages))
}
sweep split check_split "$batch" split -o "$disk/out" "$work/in/doc.pdf"

prepare_render() { :; }
check_render() {
    local png count=0
    while IFS= read -r -d '' png; do
        python3 -c 'import sys,zlib
d=open(sys.argv[1],"rb").read()
assert d[:8]==b"\x89PNG\r\n\x1a\n" and d.endswith(b"IEND\xaeB`\x82")' "$png" || return 1
        count=$((count + 1))
    done < <(find "$disk" -name '*.png' -print0)
    (($1 != 0)) || ((count == pages))
}
sweep render check_render "$batch" render --resolution 30 -o "$disk/out" "$work/in/doc.pdf"

prepare_tiff_join() { :; }
check_tiff_join() { if (($1 == 0)); then tiff_ok "$disk/t.tif"; else [[ ! -e $disk/t.tif ]]; fi; }
sweep tiff_join check_tiff_join "$batch" tiff-join -o "$disk/t.tif" "$work/in/multi.tif" "$work"/in/scan_g4_*.tif

prepare_tiff_delete() { cp "$work/in/multi.tif" "$disk/m.tif"; }
check_tiff_delete() {
    if (($1 == 0)); then tiff_ok "$disk/m.tif"; else cmp -s "$disk/m.tif" "$work/in/multi.tif"; fi
}
sweep tiff_delete check_tiff_delete "$batch" tiff-delete --page 1 "$disk/m.tif"

prepare_tiff_append() { cp "$work/in/multi.tif" "$disk/m.tif"; }
sweep tiff_append check_tiff_delete "$batch" tiff-append "$disk/m.tif" "$work"/in/scan_g4_*.tif

((failures == 0)) || { echo "$failures failures"; exit 1; }
