#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test headless.
set -euo pipefail
cd "$(dirname "$0")"
./scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPAGEWRIGHT_WERROR=ON >/dev/null
cmake --build build --parallel "$(nproc)"
export QT_QPA_PLATFORM=offscreen
ctest --test-dir build --output-on-failure --timeout 300 --parallel "$(nproc)" "$@"
