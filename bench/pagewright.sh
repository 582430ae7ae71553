# Sourced by the benchmarks that run pagewright-batch: unless PAGEWRIGHT names one already, builds
# the release program in build-bench/ at the repository root ($ROOT) and exports its path.
if [[ -z ${PAGEWRIGHT:-} ]]; then
    echo "== building pagewright-batch" >&2
    cmake -S "$ROOT" -B "$ROOT/build-bench" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DPAGEWRIGHT_TESTS=OFF >/dev/null
    cmake --build "$ROOT/build-bench" --target pagewright-batch >/dev/null
    PAGEWRIGHT=$ROOT/build-bench/src/app/pagewright-batch
fi
export PAGEWRIGHT
