#!/usr/bin/env bash
# A folder job survives kill -9: `pagewright-batch clone` is killed at random moments of its
# scan and of its conversions, its list must parse after every kill, and `resume` then takes
# it up until it ends. At the end every image has exactly one sound PDF with the objects of
# an uninterrupted run's (but for dates and identifier), every damaged image is "Error", no
# temporary file is left in the output tree, and the job reads FINISHED. Kills fall into the scan only while no job is unfinished:
# a new job's scan killed while an older job stands unfinished would leave its partial list to
# be taken up under the older job's name, which is how the job's files work.
# With PW_FULL_DISK=1 the output lies on a small disk of its own that is filled up at the
# middle kill and freed at three quarters: the files that met the full disk must be converted by
# the resumes, not end "Error". With PW_PRELOAD=LIB the program runs with LIB preloaded (the
# test's stand-in for a file system without unnamed files). With PW_OCR=LANG the job is started
# with --ocr LANG, and the resumes must keep making searchable PDFs from the job's own state.
# Usage: clone_kill_test.sh PAGEWRIGHT_BATCH IMAGES KILLS [CORPUS_DIR]; exit 77 without corpus
# (or, with PW_FULL_DISK, where no disk can be mounted).
set -euo pipefail
batch=$1 images=$2 kills=$3
corpus=${4:-$(dirname "$0")/../../../shared/corpus}
[[ -d $corpus/scans ]] || exit 77
work=$(mktemp -d)
trap 'mountpoint -q "$work/out" && umount -l "$work/out"; rm -rf "$work"' EXIT

# A tree of folders three deep, the image classes in turn, a few damaged files among them.
good=("$corpus"/scans/g4/*.tif "$corpus"/scans/grey/*.tif "$corpus"/scans/jpeg/*.jpg
    "$corpus"/formats/png/*.png)
bad=("$corpus"/damaged/made/trunc50__pport_g4.tif "$corpus"/damaged/made/zero.jpg)
for ((i = 0; i < images; ++i)); do
    folder=$work/src/f$((i % 4))/g$((i % 3))
    mkdir -p "$folder"
    if ((i % 17 == 5)); then
        src=${bad[i % ${#bad[@]}]}
        cp "$src" "$folder/damaged_$i.${src##*.}"
    else
        src=${good[i % ${#good[@]}]}
        cp "$src" "$folder/image_$i.${src##*.}"
    fi
done

# job STORE COMMAND...: a pagewright-batch run with its own storage folder. In a subshell of
# its own the program takes the subshell's place, so that a kill reaches the program itself.
job() {
    local store=$1
    shift
    XDG_DATA_HOME=$store LD_PRELOAD=${PW_PRELOAD:-} exec "$batch" "$@"
}
state() { grep -a "^$2=" "$1/Pagewright/Pagewright 3.1/Clone/Clone.ini" 2>/dev/null | cut -d= -f2- | tr -d '\r'; }
list() { echo "$1/Pagewright/Pagewright 3.1/Clone/clone.xml"; }

ocr=(${PW_OCR:+--ocr "$PW_OCR"})
mkdir -p "$work/ref_out" "$work/out"
# The uninterrupted run: the reference, and how long a run takes.
start=$(date +%s%N)
(job "$work/ref" clone "${ocr[@]}" "$work/src" "$work/ref_out") >"$work/ref.log" || true
span=$((($(date +%s%N) - start) / 1000000))
if [[ ${PW_FULL_DISK:-} == 1 ]]; then
    kilobytes=$(($(du -sk "$work/ref_out" | cut -f1) * 3 + 2048))
    mount -t tmpfs -o "size=${kilobytes}k" tmpfs "$work/out" 2>/dev/null || exit 77
fi
fill() { dd if=/dev/zero of="$work/out/.filling" bs=64k 2>/dev/null || true; }

moments=()
for ((k = 0; k < kills; ++k)); do
    if [[ ${PW_FULL_DISK:-} == 1 ]]; then
        ((k == kills / 2)) && fill && moments+=("(disk full)")
        ((k == kills * 3 / 4)) && rm -f "$work/out/.filling" && moments+=("(disk freed)")
    fi
    if [[ $(state "$work/run" STATUS) == "NOT FINISHED" && -f $(list "$work/run") ]]; then
        command=(resume)
    else
        command=(clone "${ocr[@]}" --new "$work/src" "$work/out")
    fi
    job "$work/run" "${command[@]}" >>"$work/run.log" 2>&1 &
    pid=$!
    # A new job is killed early, mostly in its scan; a resumed one goes about a share of the
    # whole, so that the kills spread over the job.
    [[ ${command[0]} == clone ]] && ms=$((RANDOM % 150)) || ms=$((RANDOM % (2 * span / kills + 1)))
    sleep "$((ms / 1000)).$(printf '%03d' $((ms % 1000)))"
    kill -9 "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
    moments+=("${command[0]}@${ms}ms")
    if [[ -f $(list "$work/run") ]]; then
        python3 -c 'import sys, xml.dom.minidom; xml.dom.minidom.parse(sys.argv[1])' \
            "$(list "$work/run")" || { echo "the list does not parse after kill $k" && exit 1; }
    fi
done
echo "kills: ${moments[*]}"

rm -f "$work/out/.filling"
for ((round = 0; round < 20; ++round)); do
    [[ $(state "$work/run" STATUS) == FINISHED && ! -f $(list "$work/run") ]] && break
    if [[ $(state "$work/run" STATUS) == "NOT FINISHED" && -f $(list "$work/run") ]]; then
        (job "$work/run" resume) >>"$work/run.log" 2>&1 || true
    else
        (job "$work/run" clone "${ocr[@]}" --new "$work/src" "$work/out") >>"$work/run.log" 2>&1 || true
    fi
done
[[ $(state "$work/run" STATUS) == FINISHED ]] || { echo "the job did not finish" && exit 1; }

# A PDF's objects without what differs from run to run (its dates and its identifier).
content() { qpdf --qdf --static-id "$1" - | grep -av 'CreationDate\|ModDate\|/ID' | md5sum; }

failed=0
while IFS= read -r -d '' image; do
    relative=${image#"$work/src/"}
    pdf=$work/out/src/${relative%.*}.pdf
    if [[ $relative == */damaged_* ]]; then
        grep -aq "$image.....Error" "$work/run.log" || { echo "not Error: $relative" && failed=1; }
        continue
    fi
    if ! qpdf --check "$pdf" >/dev/null 2>&1; then
        echo "no sound PDF for $relative" && failed=1 && continue
    fi
    if [[ $(content "$pdf") != $(content "$work/ref_out/src/${relative%.*}.pdf") ]]; then
        echo "differs from the uninterrupted run: $relative"
        diff <(qpdf --qdf --static-id "$pdf" - | grep -av 'CreationDate\|ModDate\|/ID') \
            <(qpdf --qdf --static-id "$work/ref_out/src/${relative%.*}.pdf" - |
                grep -av 'CreationDate\|ModDate\|/ID') | head -c 1500
        failed=1
    fi
    # The TIFF scans are pages of text (the others include a photograph and the sample PNGs).
    if [[ -n ${PW_OCR:-} && $relative == *.tif && -z $(pdftotext "$pdf" - | tr -d '[:space:]') ]]; then
        echo "no text in the PDF of $relative" && failed=1
    fi
done < <(find "$work/src" -type f -print0)
leftovers=$(find "$work/out" -mindepth 1 \( -name '.*' -o -type f ! -name '*.pdf' \) | wc -l)
[[ $leftovers == 0 ]] || { echo "temporary files left in the output tree" && failed=1; }
good=$(find "$work/src" -type f ! -name 'damaged_*' | wc -l)
made=$(find "$work/out" -type f -name '*.pdf' | wc -l)
[[ $made == "$good" ]] || { echo "$made PDFs for $good good images" && failed=1; }
exit $failed
