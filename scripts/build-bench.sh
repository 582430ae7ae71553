#!/usr/bin/env bash
# Builds every benchmark as its run.sh does, with warnings as errors, and runs none:
# bench/scan and bench/dialogs (with the program's libraries), bench/flex_grid and
# bench/conversion's input generator, into build-bench-scan/, build-bench-dialogs/,
# build-bench-flexgrid/ and build-bench-conversion/.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
jobs=$(nproc)

cmake -S bench/scan -B build-bench-scan -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DPAGEWRIGHT_WERROR=ON >/dev/null
cmake --build build-bench-scan --parallel "$jobs" --target scan_bench export_bench
cmake -S bench/dialogs -B build-bench-dialogs -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DPAGEWRIGHT_WERROR=ON >/dev/null
cmake --build build-bench-dialogs --parallel "$jobs" --target dialog_bench
cmake -S bench/folder_job -B build-bench-folder-job -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DPAGEWRIGHT_WERROR=ON >/dev/null
cmake --build build-bench-folder-job --parallel "$jobs" --target folder_job_bench
cmake -S bench/flex_grid -B build-bench-flexgrid -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build-bench-flexgrid --parallel "$jobs"
# run.sh compiles the generator by hand, without -Werror; the same command with it.
mkdir -p build-bench-conversion
g++ -O2 -std=c++20 -Wall -Wextra -Werror -o build-bench-conversion/make_scans \
    bench/conversion/make_scans.cpp -ltiff -ljpeg
