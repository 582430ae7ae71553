#!/usr/bin/env bash
# Installs what is missing, builds a release and starts Pagewright. Arguments go to the
# program: one string of paths joined by "|" preselects those files.
set -euo pipefail
cd "$(dirname "$0")"
./scripts/install-deps.sh
cmake -S . -B build-release -G Ninja -DCMAKE_BUILD_TYPE=Release -DPAGEWRIGHT_TESTS=OFF >/dev/null
cmake --build build-release --parallel "$(nproc)" --target pagewright pagewright-batch
exec ./build-release/src/app/pagewright "$@"
