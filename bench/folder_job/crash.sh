#!/usr/bin/env bash
# The crash test at full size: `pagewright-batch clone` over 500 images (the image classes in
# turn, in twelve folders, damaged files among them), killed with SIGKILL at 20 random moments
# of its scan and conversions, its list checked after each kill, then resumed until it ends.
# The same script runs smaller in the tests.
#
#   bench/folder_job/crash.sh [IMAGES=500] [KILLS=20]
set -euo pipefail
HERE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
ROOT=$(cd "$HERE/../.." && pwd)
"$HERE/../install-tools.sh" g++ qpdf python3
source "$HERE/../pagewright.sh"
start=$(date +%s)
"$ROOT/tests/folder_job/clone_kill_test.sh" "$PAGEWRIGHT" "${1:-500}" "${2:-20}"
echo "passed: ${1:-500} images, ${2:-20} kills, $(($(date +%s) - start)) s"
