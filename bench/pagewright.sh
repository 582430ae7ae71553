# Sourced by the benchmarks ($ROOT is the repository root). bench_build TARGET... builds the
# benchmarks' programs and pagewright-batch in one release tree, build-bench/, and sets BUILT
# to it. Unless PAGEWRIGHT names one already, PAGEWRIGHT is exported as the release
# pagewright-batch built there.
bench_build() {
    echo "== building $*" >&2
    cmake -S "$ROOT" -B "$ROOT/build-bench" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DPAGEWRIGHT_TESTS=OFF -DPAGEWRIGHT_BENCH=ON >/dev/null
    cmake --build "$ROOT/build-bench" --target "$@" >/dev/null
    BUILT=$ROOT/build-bench
}
if [[ -z ${PAGEWRIGHT:-} ]]; then
    bench_build pagewright-batch
    PAGEWRIGHT=$ROOT/build-bench/src/app/pagewright-batch
fi
export PAGEWRIGHT
