#!/usr/bin/env bash
# Builds and runs every test of the project:
#   1. the whole suite in a normal build;
#   2. the whole suite again with AddressSanitizer and UndefinedBehaviorSanitizer (any finding fails);
#   3. the concurrency tests under ThreadSanitizer;
#   4. the shortcut-file fuzzer for a bounded time (FUZZ_SECONDS, default 60; 0 skips it).
# Build trees go under build/ (JOBS sets the parallelism).
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=${JOBS:-$(nproc 2>/dev/null || echo 2)}
fuzz_seconds=${FUZZ_SECONDS:-60}
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1}

step() { printf '\n==== %s\n' "$*"; }

build_and_test() {  # dir, ctest filter, targets ("" for all), extra cmake arguments...
    local dir=$1 filter=$2 targets=$3
    shift 3
    cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
    cmake --build "$dir" -j"$jobs" ${targets:+--target $targets}
    (cd "$dir" && ctest --output-on-failure -j"$jobs" ${filter:+-R "$filter"})
}

step "normal build"
build_and_test build/test "" "" -DFA_SANITIZE=

step "AddressSanitizer + UndefinedBehaviorSanitizer"
build_and_test build/asan "" "" -DFA_SANITIZE=address,undefined

# Only the suites that share objects across threads; the rest gain nothing from a third build.
step "ThreadSanitizer (concurrency tests)"
build_and_test build/tsan "Concurrency" "foundation_base_frame_test fileaccess_concurrency_test" \
    -DFA_SANITIZE=thread -DFA_BUILD_TOOLS=OFF -DFA_TEST_PACKAGE=OFF

if [ "$fuzz_seconds" != 0 ] && [ -x scripts/fuzz.sh ]; then
    step "fuzzing the shortcut reader for ${fuzz_seconds}s"
    scripts/fuzz.sh "$fuzz_seconds"
fi

step "all test stages passed"
