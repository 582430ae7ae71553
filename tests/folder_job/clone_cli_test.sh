#!/usr/bin/env bash
# The folder job from the command line as users start it: from a shell in some folder, with
# relative folders, and sometimes twice at once. A second job beside a running one refuses at
# once and names the running process; relative folders are made absolute before the job starts,
# so a resume from another folder writes into the same tree.
# Usage: clone_cli_test.sh PAGEWRIGHT_BATCH
set -euo pipefail
batch=$1
work=$(mktemp -d)
trap 'kill -9 $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT
export XDG_DATA_HOME=$work/store
clone_folder="$XDG_DATA_HOME/Pagewright/Pagewright 3.1/Clone"
fail() { echo "$*" >&2; exit 1; }
wait_for() { for ((i = 0; i < 6000; ++i)); do eval "$1" && return 0; sleep 0.01; done; fail "never: $1"; }

# Images made by the program itself: a PDF page rendered to PNG by pdftoppm would need more
# tools; a tiny PPM is an image every reader takes.
mkdir -p "$work/shell/tree/a" "$work/shell/out" "$work/elsewhere"
for ((i = 0; i < 300; ++i)); do
    printf 'P6\n256 256\n255\n' >"$work/shell/tree/a/img_$i.ppm"
    head -c $((256 * 256 * 3)) /dev/urandom >>"$work/shell/tree/a/img_$i.ppm"
done
cp "$work/shell/tree/a/img_0.ppm" "$work/shell/tree/top.ppm"

# Relative folders with a trailing separator, from the shell's folder; stopped by a kill once
# the first PDF is there, then resumed from another folder.
cd "$work/shell"
"$batch" clone tree/ out >/dev/null 2>&1 &
first=$!
wait_for '[[ -n $(find "$work/shell/out" -name "*.pdf" -print -quit) ]]'
# Held where it is, still holding the job, so that the second start surely meets it.
kill -STOP "$first"

# A second job, and a resume, beside the running one: refused at once, naming it.
set +e
second=$("$batch" clone --new tree out2 2>&1)
status=$?
resumed=$("$batch" resume 2>&1)
resume_status=$?
set -e
[[ $status == 2 && $second == *"a folder job is running in process $first"* ]] ||
    fail "second clone: $status $second"
[[ $resume_status == 2 && $resumed == *"process $first"* ]] || fail "resume beside: $resumed"
[[ ! -e $work/shell/out2 ]] || fail "the refused job wrote"

kill -9 "$first"
wait "$first" 2>/dev/null || true
cd "$work/elsewhere"
"$batch" resume >/dev/null || fail "resume from elsewhere failed"
made=$(find "$work/shell/out/tree" -name '*.pdf' | wc -l)
[[ $made == 301 ]] || fail "$made PDFs in the tree, not 301"
[[ -f $work/shell/out/tree/top.pdf && -f $work/shell/out/tree/a/img_299.pdf ]] ||
    fail "PDFs not where the tree puts them"
[[ -z $(find "$work/elsewhere" "$work/shell/out" -mindepth 1 -not -path "$work/shell/out/tree*") ]] ||
    fail "written outside the tree"
grep -q '^STATUS=FINISHED' "$clone_folder/Clone.ini" || fail "not FINISHED"

# An interrupt stops after the files in hand, keeps the job and says so with 130; a job that
# cannot start (no output folder) is a refusal, 2, not a quiet success.
"$batch" clone --new --jobs 1 "$work/shell/tree" "$work/shell/out3" >/dev/null 2>"$work/refused" &&
    fail "a clone into a missing folder succeeded"
grep -q "^pagewright-batch: Specified output path is not valid." "$work/refused" ||
    fail "refusal: $(cat "$work/refused")"
mkdir "$work/shell/out3"
"$batch" clone --new --jobs 1 "$work/shell/tree" "$work/shell/out3" >/dev/null 2>"$work/stopped" &
run=$!
wait_for '[[ -n $(find "$work/shell/out3" -name "*.pdf" -print -quit) ]]'
kill -INT "$run"
set +e
wait "$run"
status=$?
set -e
[[ $status == 130 ]] || fail "interrupted clone ended with $status: $(cat "$work/stopped")"
grep -q "interrupted; the job is kept" "$work/stopped" || fail "no word of the kept job"
"$batch" resume >/dev/null || fail "resume after the interrupt failed"
[[ $(find "$work/shell/out3" -name '*.pdf' | wc -l) == 301 ]] || fail "the resume did not finish"

# The page options shape the job's pages; a wrong one stops a resume before it starts.
mkdir -p "$work/sized/in" "$work/sized/out"
cp "$work/shell/tree/top.ppm" "$work/sized/in/"
"$batch" clone --new --page-size A4 "$work/sized/in" "$work/sized/out" >/dev/null || fail "A4 clone"
[[ $(pdfinfo "$work/sized/out/in/top.pdf") == *"(A4)"* ]] || fail "not A4"
[[ $("$batch" resume --fit sideways 2>&1) == *"Option --fit needs"* ]] || fail "resume --fit"
