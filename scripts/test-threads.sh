#!/usr/bin/env bash
# Builds what runs on several threads with ThreadSanitizer in build-tsan/ and runs the paths
# that use them: a large TIFF page decoded strip by strip on several threads, the PDF writer's
# deflate on every core, the windows' library on its worker thread (and both image-to-PDF
# libraries called from several threads at once), the text recognisers' pool, and the real
# pagewright-batch converting and cloning a folder with several workers. Any report fails
# the run. Arguments go to ctest, e.g. scripts/test-threads.sh --repeat until-fail:5.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh

# Exported before the build too: gtest_discover_tests runs every test executable as soon as
# it is linked, to list its cases.
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/scripts/tsan.supp"
export QT_QPA_PLATFORM=offscreen

# -O1 as in the other sanitizer build: quick enough, and reports that name the right lines.
cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_FLAGS_DEBUG="-O1 -g" \
    -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" -DPAGEWRIGHT_SANITIZE_THREAD=ON -DPAGEWRIGHT_WERROR=OFF \
    >/dev/null
cmake --build build-tsan --parallel "$(nproc)" --target test_image_to_pdf test_engine \
    test_folder_job pagewright-batch pw_magick_reader pw_metafile_player pw_pdf_reading

# Each case in a process of its own: the cases that start programs through QProcess would
# otherwise leave ThreadSanitizer's bookkeeping unsound for the cases after them (Qt starts a
# child with a raw clone() that the sanitizer never sees, and the child runs the sanitizer's
# hooks before it executes the program).
ctest --test-dir build-tsan --output-on-failure --timeout 600 --parallel "$(nproc)" \
    -R '^(ParallelDeflate|LargePages|ImageToPdfLibraries)\.|^BatchJob\.SeveralWorkers|^FolderJobTest\.AResumeReadsTheJobsOwnOcrLanguage' \
    "$@"

# The program as users run it: a convert and a folder job, each with several workers.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_DATA_HOME=$work/store
mkdir -p "$work/tree/0" "$work/tree/1" "$work/convert" "$work/clone"
for ((i = 0; i < 24; ++i)); do
    folder=$work/tree/$((i % 2))
    { printf 'P6\n300 200\n255\n' && head -c $((300 * 200 * 3)) /dev/urandom; } \
        >"$folder/img_$i.ppm"
done
batch=build-tsan/src/app/pagewright-batch
"$batch" convert --jobs 4 -o "$work/convert" "$work"/tree/0/*.ppm >/dev/null
"$batch" clone --new --jobs 4 "$work/tree" "$work/clone" >/dev/null
made=$(find "$work/convert" "$work/clone" -name '*.pdf' | wc -l)
[[ $made == 36 ]] || { echo "the program made $made PDFs, not 36" >&2 && exit 1; }
