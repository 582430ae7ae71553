#!/usr/bin/env bash
# Builds every benchmark's program, with warnings as errors, and runs none. They are built in
# the test tree (build/, as ./test.sh configures it), so the program's libraries, compiled
# there already, are not compiled again; the benchmarks' own scripts build a release tree.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPAGEWRIGHT_WERROR=ON \
    -DPAGEWRIGHT_BENCH=ON >/dev/null
cmake --build build --parallel "$(nproc)" --target benchmarks
