#!/usr/bin/env bash
# The command line as its neighbours' users expect it, over the real program: --version,
# --help and each command's --help, "--opt=value", "--" before a file named like an option,
# the exit statuses, and every complaint starting with the program's name.
# Usage: command_line_test.sh PAGEWRIGHT_BATCH
set -uo pipefail
batch=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_DATA_HOME=$work/store HOME=$work/home
cd "$work"
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }

printf 'P6\n8 8\n255\n' >dot.ppm && head -c 192 /dev/zero >>dot.ppm
"$batch" merge -o doc.pdf dot.ppm dot.ppm || fail "cannot make the sample PDF"
cp doc.pdf ./-x.pdf
echo "not a PDF" >junk.pdf

[[ $("$batch" --version) == "pagewright-batch "* ]] || fail "--version"
"$batch" 2>usage && fail "no arguments is no usage error"
[[ $(cat usage) == "$("$batch" --help)" ]] || fail "no arguments differ from --help"
for command in convert merge pages clone resume render split extract join info rotate \
    tiff-join tiff-split tiff-extract tiff-delete tiff-append image-to-tiff rename-by-pages; do
    help=$("$batch" "$command" --help) || fail "$command --help exits $?"
    [[ $help == "Usage:"*"pagewright-batch $command "* ]] || fail "$command --help: $help"
    [[ $help == *"Exit status"* ]] || fail "$command --help lists no exit status"
done

# COMMAND...|expected status|what stderr starts with ("" for nothing on stderr)
cases=(
    "extract --range=2 -o out doc.pdf|0|"
    "info --title=Hello doc.pdf|0|"
    "info -- -x.pdf|0|"
    "info -x.pdf|2|pagewright-batch: Unknown option -x.pdf"
    "split --bogus -o out doc.pdf|2|pagewright-batch: Unknown option --bogus."
    "extract --range|2|pagewright-batch: "
    "frobnicate|2|pagewright-batch: Unknown command"
    "convert --jobs=2 --page-size=A5 -o=out dot.ppm|0|"
    "merge -o|2|pagewright-batch: Option -o needs a value."
    "info junk.pdf|1|pagewright-batch: junk.pdf: "
    "join -o j.pdf doc.pdf junk.pdf|1|pagewright-batch: "
    "render -o out missing.pdf|1|pagewright-batch: missing.pdf: "
    "convert -o out missing.png|1|pagewright-batch: "
    "tiff-split --page 1 -o out junk.pdf|1|pagewright-batch: junk.pdf: "
    "rename-by-pages --prefix junk.pdf|1|pagewright-batch: junk.pdf: "
    "clone . nowhere|2|pagewright-batch: "
)
for row in "${cases[@]}"; do
    IFS='|' read -r line status start <<<"$row"
    read -ra args <<<"$line"
    "$batch" "${args[@]}" >/dev/null 2>err
    got=$?
    [[ $got == "$status" ]] || fail "$line: exit $got, not $status ($(head -1 err))"
    if [[ -z $start ]]; then
        [[ ! -s err ]] || fail "$line: $(head -1 err)"
    else
        [[ $(head -1 err) == "$start"* ]] || fail "$line: stderr '$(head -1 err)'"
    fi
done
[[ -f out/doc/doc-2.pdf ]] || fail "--range=2 took no page 2"

# --quiet keeps stdout empty, --verbose names each file done; only a terminal gets the
# progress line, and it is gone before the next line.
[[ -z $("$batch" info --quiet doc.pdf) ]] || fail "--quiet printed results"
[[ $("$batch" -v convert --replace -o out dot.ppm) == "dot.ppm -> out/dot.pdf" ]] ||
    fail "--verbose did not name the file done"
cp dot.ppm dot2.ppm
if command -v script >/dev/null; then
    shown=$(script -qec "'$batch' convert --replace -o out dot.ppm dot2.ppm" /dev/null)
    [[ $shown == *"2 of 2 files"* ]] || fail "no progress line on a terminal: $shown"
    shown=$(script -qec "'$batch' convert -o out dot.ppm missing.ppm" /dev/null)
    [[ $shown == *$'\r\e[Kpagewright-batch: missing.ppm: '* ]] ||
        fail "a complaint shares the progress line: $shown"
fi
[[ $("$batch" info doc.pdf) == *"Title: Hello"* ]] || fail "--title=Hello was not set"
((failures == 0))
