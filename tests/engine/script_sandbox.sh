# Sourced by the scripts that run the real program: takes PAGEWRIGHT_BATCH and CORPUS_DIR from
# the arguments, skips (77) without the corpus, and gives the run a folder of its own, removed
# at the end, with the program's home inside it. fail() counts a failure and says what.
set -uo pipefail
batch=$1 corpus=$2
[[ -d $corpus/scans && -d $corpus/pdfs ]] || exit 77
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export HOME=$work/home XDG_DATA_HOME=$work/home/.local/share
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
