#!/usr/bin/env bash
# Builds the headless tests with AddressSanitizer and UndefinedBehaviorSanitizer in build-asan/
# and runs those labelled unit or corpus there (the corpus cases skip themselves without
# ../shared/corpus); any sanitizer report fails its test. Arguments go to ctest, e.g.
# scripts/test-sanitized.sh -R Settings.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh

# Exported before the build too: gtest_discover_tests runs every test executable as soon as
# it is linked, to list its cases.
ASAN_OPTIONS=detect_leaks=1:detect_stack_use_after_return=1
export ASAN_OPTIONS=$ASAN_OPTIONS:check_initialization_order=1:strict_init_order=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export LSAN_OPTIONS=suppressions=$PWD/scripts/lsan.supp:print_suppressions=0
export QT_QPA_PLATFORM=offscreen

# -O1 keeps the instrumented tests quick without the inlining that blurs the reports.
# Warnings are the plain build's business: instrumentation changes what GCC's flow analysis
# sees, and with it the warnings.
cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_FLAGS_DEBUG="-O1 -g" \
    -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" -DPAGEWRIGHT_SANITIZE=ON -DPAGEWRIGHT_WERROR=OFF >/dev/null
cmake --build build-asan --parallel "$(nproc)" --target pw_headless_tests
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ctest --test-dir build-asan -L '^(unit|corpus)$' --output-on-failure --timeout 600 \
    --parallel "$(nproc)" "$@" 2>&1 | tee "$log"; then
    exit 0
fi
# LeakSanitizer's own thread tracer now and then crashes as a process exits ("Tracer caught
# signal 11"), after the test has passed: a fault of the tool under load, not of the program.
# When every failure shows it, the failed tests run once more; any other failure stands.
failed=$(grep -oP '\d+(?= tests failed out of)' "$log" || echo 0)
crashed=$(grep -c 'LeakSanitizer has encountered a fatal error' "$log" || true)
if ((failed == 0 || crashed < failed)); then
    exit 1
fi
echo "== $failed failed only in LeakSanitizer's tracer; running them once more" >&2
ctest --test-dir build-asan --rerun-failed --output-on-failure --timeout 600
