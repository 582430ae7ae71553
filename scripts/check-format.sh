#!/usr/bin/env bash
# Fails when a C++ file is not formatted as the root .clang-format says, naming each one.
#
#   scripts/check-format.sh            every tracked *.cpp and *.h
#   scripts/check-format.sh FILE...    just these
#
# Fix a file with `clang-format -i FILE`. Debian 12's clang-format (14) is the reference:
# other versions place a few constructs differently.
set -euo pipefail

format=$(command -v clang-format-14 || command -v clang-format || true)
if [[ -z $format ]]; then
    echo "clang-format is missing (scripts/install-deps.sh installs it)" >&2
    exit 2
fi
if (($#)); then
    files=("$@")
else
    cd "$(dirname "$0")/.."
    mapfile -t files < <(git ls-files '*.cpp' '*.h')
fi
((${#files[@]})) || exit 0 # clang-format without files would format stdin

log=$(mktemp)
trap 'rm -f "$log"' EXIT
if "$format" --dry-run --Werror "${files[@]}" 2>"$log"; then
    exit 0
fi
violation='^\(.*\):[0-9]*:[0-9]*: error: code should be clang-formatted.*'
mapfile -t bad < <(sed -n "s/$violation/\\1/p" "$log" | sort -u)
if ((${#bad[@]} == 0)); then
    cat "$log" >&2 # clang-format failed for another reason: unreadable file, bad style file
    exit 2
fi
# The diagnostics run to thousands of lines on a file formatted by hand: show the start, then
# every file concerned.
head -n 40 "$log" >&2
echo "${#bad[@]} file(s) not formatted; fix each with: $format -i FILE" >&2
printf '  %s\n' "${bad[@]}" >&2
exit 1
