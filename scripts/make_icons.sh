#!/usr/bin/env bash
# Draws the program's icon at the sizes desktops ask for, from resources/pagewright.svg, into
# resources/icons/ (compiled into the program and installed). Run after changing the SVG;
# needs rsvg-convert (librsvg2-bin).
set -euo pipefail
cd "$(dirname "$0")/../resources"
for size in 16 22 24 32 48 64 128 256; do
    rsvg-convert -w "$size" -h "$size" pagewright.svg -o "icons/pagewright-$size.png"
done
