#!/usr/bin/env bash
# Runs one tool once per input file, the way a user's script would, so that every figure
# includes one process start per file.
#
#   each.sh TOOL OUT_DIR FILE...      TOOL: pagewright | img2pdf | tiff2pdf | magick | cat
#
# PAGEWRIGHT names the pagewright-batch executable. The exit status counts failed files.
set -u
tool=$1 out=$2
shift 2
failed=0
for f in "$@"; do
    base=${f##*/}
    pdf=$out/${base%.*}.pdf
    case $tool in
    pagewright) "$PAGEWRIGHT" convert -o "$out" "$f" >/dev/null ;;
    img2pdf) img2pdf -o "$pdf" "$f" ;;
    # -z: Flate for what can't pass through (G4 strips pass through as they are).
    tiff2pdf) tiff2pdf -z -o "$pdf" "$f" ;;
    # Debian's ImageMagick policy refuses the coder named PDF; its EPDF name reaches the same
    # PDF writer, and only writes, so nothing is read through Ghostscript.
    magick) /usr/bin/convert "$f" "EPDF:$pdf" ;;
    cat) cat "$f" >"$out/$base" ;;
    *) echo "each.sh: unknown tool $tool" >&2; exit 2 ;;
    esac || failed=$((failed + 1))
done
exit $((failed > 125 ? 125 : failed))
