#!/bin/sh
# Runs the POF checker's worker-thread tests under ThreadSanitizer.
#
#   tests/run_tsan.sh [build directory]     (default: build-tsan beside this tree's sources)
#
# Configures a separate build with PGMDQ_SANITIZE_THREAD=ON, builds only what the thread tests
# need and runs them; a data race or lock-order problem fails the run. The normal build and its
# CTest run are not touched.
set -e
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${1:-$source_dir/build-tsan}

cmake -S "$source_dir" -B "$build_dir" -DPGMDQ_SANITIZE_THREAD=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build "$build_dir" -j2 --target test_pof_threads test_pof_compare

export QT_QPA_PLATFORM=offscreen
export PGMDQ_BUILD_DIR="$build_dir"
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$source_dir/tests/tsan.supp ${TSAN_OPTIONS:-}"
"$build_dir/bin/test_pof_threads"
cmake --build "$build_dir" -j2 --target pgm_sof2img pgm_cb_emulator pgm_release_maker
"$build_dir/bin/test_pof_compare"
echo "ThreadSanitizer: no reports"
