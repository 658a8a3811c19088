#!/usr/bin/env bash
# Builds KPPDF twice (Release; Debug with AddressSanitizer and UndefinedBehaviorSanitizer) and runs
# the whole test suite in both.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc 2>/dev/null || echo 2)
run() {
    local dir=$1
    shift
    cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
    cmake --build "$dir" -j "$jobs"
    (cd "$dir" && ctest --output-on-failure -j "$jobs")
}
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
run build/asan -DCMAKE_BUILD_TYPE=Debug -DKPPDF_SANITIZE=ON -DKPPDF_BUILD_BENCH=OFF
run build/release -DCMAKE_BUILD_TYPE=Release
