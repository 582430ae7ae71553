#!/usr/bin/env bash
# Where the output of a one-file command may go: standard output through a pipe (the same
# document as a file), a device, a link (the file it names is replaced and the link stays); a
# folder is refused. And render never follows a link planted in its output folder into a file
# that is not its own. Usage: output_targets_test.sh PAGEWRIGHT_BATCH CORPUS_DIR; exit 77
# (skipped) without corpus.
source "$(dirname "$0")/script_sandbox.sh"
cd "$work" || exit 1

pdf=$corpus/pdfs/pypdf__pdflatex-4-pages.pdf
tif=$corpus/scans/multi/multi_g4_01.tif
# Device nodes of our own where we may make them: a run as root of a faulty build must not
# replace the system's. "full" fails every write.
null=/dev/null full=/dev/full
if ((EUID == 0)); then
    null=$work/null full=$work/full
    # A folder on a file system mounted without devices holds nodes that cannot be opened.
    mknod -m 666 "$null" c 1 3 && mknod -m 666 "$full" c 1 7 && { echo >"$null"; } 2>/dev/null ||
        exit 77
fi
pages_pdf() { qpdf --check "$1" >/dev/null 2>&1 && qpdf --show-npages "$1"; }
pages_tif() { tiffinfo "$1" 2>/dev/null | grep -c 'TIFF Directory'; }

# command, kind of output, inputs
cases=(
    "merge pdf $corpus/scans/g4/scan_g4_084.tif $corpus/scans/jpeg/scan_col_010.jpg"
    "join pdf $pdf $pdf:2-3"
    "tiff-join tif $tif $tif"
)
for line in "${cases[@]}"; do
    read -r command kind inputs <<<"$line"
    read -ra inputs <<<"$inputs"
    "$batch" "$command" -o "file.$kind" "${inputs[@]}" || fail "$command into a file"
    want=$("pages_$kind" "file.$kind")
    [[ -n $want && $want -gt 0 ]] || fail "$command: the file is not whole"

    "$batch" "$command" -o - "${inputs[@]}" | cat >"piped.$kind"
    [[ ${PIPESTATUS[0]} == 0 ]] || fail "$command -o - failed"
    [[ $("pages_$kind" "piped.$kind") == "$want" ]] || fail "$command -o -: not the same document"
    [[ $kind == pdf ]] || cmp -s "file.$kind" "piped.$kind" || fail "$command -o -: other bytes"

    "$batch" "$command" -o "$null" "${inputs[@]}" || fail "$command into a device"
    [[ -c $null ]] || fail "$command replaced a device"
    "$batch" "$command" -o "$full" "${inputs[@]}" 2>"said.txt" && fail "$command into a full device"
    grep -q 'No space left' said.txt || fail "$command into a full device said: $(cat said.txt)"
    [[ -c $full ]] || fail "$command replaced a device"

    mkdir -p "real" && cp "piped.$kind" "real/named.$kind" && ln -sf "real/named.$kind" "link.$kind"
    "$batch" "$command" -o "link.$kind" "${inputs[-1]}" || fail "$command through a link"
    [[ -L link.$kind && $(readlink "link.$kind") == "real/named.$kind" ]] ||
        fail "$command replaced the link itself"
    got=$("pages_$kind" "real/named.$kind")
    [[ -n $got && $got != "$want" ]] || fail "$command through a link: the file it names is unchanged"

    mkdir -p "folder.$kind"
    "$batch" "$command" -o "folder.$kind" "${inputs[@]}" 2>"said.txt"
    status=$?
    [[ $status == 1 ]] || fail "$command into a folder ended with $status, not 1"
    grep -q 'Is a folder' said.txt || fail "$command into a folder said: $(cat said.txt)"
    [[ -z $(ls -A "folder.$kind") ]] || fail "$command wrote into the folder"
done

# The hidden names a page writer might take, for the process numbers that come next, all lead
# to a file of someone else's.
echo "not yours" >foreign
mkdir -p pages/doc
cp "$pdf" doc.pdf
true &
next=$!
for ((pid = next; pid < next + 200; ++pid)); do
    for page in 1 2 3 4; do
        ln -s ../../foreign "pages/doc/.doc-$page.png.$pid.part"
    done
done
"$batch" render -o pages doc.pdf || fail "render beside planted links"
[[ $(cat foreign) == "not yours" ]] || fail "render wrote through a planted link"
[[ -z $(find pages -name '.*' ! -type l) ]] || fail "render left a hidden file"
for page in 1 2 3 4; do
    [[ -f pages/doc/doc-$page.png && ! -L pages/doc/doc-$page.png ]] || fail "page $page not written"
done

((failures == 0))
