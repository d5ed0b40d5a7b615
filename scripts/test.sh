#!/bin/sh
# Builds the library three times and runs the tests in each build: a plain
# build (warnings as errors), an AddressSanitizer + UndefinedBehaviorSanitizer
# build, and a ThreadSanitizer build. Then a clang build fuzzes every parser
# briefly, starting from its corpus (tests/fuzz).
set -eu
cd "$(dirname "$0")/.."
./scripts/setup-deps.sh

JOBS=$(nproc)
run_build() {
    dir=$1; shift
    echo "=== $dir ==="
    cmake -S . -B "$dir" -G Ninja -DVYX_WERROR=ON "$@" >/dev/null
    cmake --build "$dir" -j "$JOBS"
    ctest --test-dir "$dir" -j "$JOBS" --output-on-failure --timeout 300
}

run_build build-test -DCMAKE_BUILD_TYPE=RelWithDebInfo
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    run_build build-asan -DCMAKE_BUILD_TYPE=Debug -DVYX_SANITIZE=address,undefined -DVYX_BUILD_EXAMPLES=OFF
TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$(pwd)/tests/tsan.supp" \
    run_build build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVYX_SANITIZE=thread -DVYX_BUILD_EXAMPLES=OFF
echo "=== build-fuzz ==="
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DVYX_WERROR=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DVYX_FUZZ=ON -DVYX_SANITIZE=address,undefined -DVYX_BUILD_CLI=OFF -DVYX_BUILD_EXAMPLES=OFF \
    -DVYX_BUILD_PYTHON=OFF >/dev/null
cmake --build build-fuzz -j "$JOBS" --target vyx_fuzz_targets
ctest --test-dir build-fuzz -j "$JOBS" -L fuzz --output-on-failure
echo "All test builds passed."
