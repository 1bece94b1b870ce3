#!/usr/bin/env bash
# Builds and runs every test of the project, warnings being errors in every build:
#   1. the whole suite, GCC, Release (the README's build), static library;
#   2. the whole suite with AddressSanitizer and UndefinedBehaviorSanitizer, clang, shared
#      library (any finding fails);
#   3. the concurrency tests under ThreadSanitizer;
#   4. the whole suite cross-built for 64-bit ARM and run under qemu-user (FA_SKIP_ARM=1 skips
#      it; it needs g++-aarch64-linux-gnu, qemu-user and Debian's arm64 C library, which
#      .ci/run installs);
#   5. the shortcut-file fuzzer for a bounded time (FUZZ_SECONDS, default 60; 0 skips it).
# Stages 1 and 2 also check that every public member is documented (where Doxygen is
# installed) and that the installed package works, shared and static. Build trees go under
# build/ (JOBS sets the parallelism). Each stage's time is printed at the end.
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=${JOBS:-$(nproc 2>/dev/null || echo 2)}
fuzz_seconds=${FUZZ_SECONDS:-60}
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1}

times=""
stage_start=0
stage_name=""
step() {
    end_stage
    stage_name="$*"
    stage_start=$(date +%s)
    printf '\n==== %s\n' "$*"
}
end_stage() {
    [ -n "$stage_name" ] && times+=$(printf '  %-70s %4ds' "$stage_name" $(($(date +%s) - stage_start)))$'\n'
    stage_name=""
}

# A build tree is tied to its compiler: each stage keeps its own.
build_and_test() {  # dir, build type, ctest filter, targets ("" for all), extra cmake arguments...
    local dir=$1 type=$2 filter=$3 targets=$4
    shift 4
    cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE="$type" -DFA_WERROR=ON "$@" >/dev/null
    cmake --build "$dir" -j"$jobs" ${targets:+--target $targets}
    (cd "$dir" && ctest --output-on-failure -j"$jobs" ${filter:+-R "$filter"})
}

step "GCC, Release"
build_and_test build/test Release "" "" -DCMAKE_CXX_COMPILER="${FA_GCC:-g++}" -DFA_SANITIZE= \
    -DBUILD_SHARED_LIBS=OFF

step "AddressSanitizer + UndefinedBehaviorSanitizer, clang, shared library"
build_and_test build/asan-clang RelWithDebInfo "" "" -DCMAKE_CXX_COMPILER="${FA_CLANG:-clang++}" \
    -DFA_SANITIZE=address,undefined -DBUILD_SHARED_LIBS=ON

# Only the suites that share objects across threads; the rest gain nothing from a third build.
step "ThreadSanitizer (concurrency tests)"
build_and_test build/tsan RelWithDebInfo "Concurrency" \
    "foundation_base_frame_test fileaccess_concurrency_test" \
    -DFA_SANITIZE=thread -DFA_BUILD_TOOLS=OFF -DFA_TEST_PACKAGE=OFF

if [ "${FA_SKIP_ARM:-0}" = 1 ]; then
    printf '\n==== 64-bit ARM: skipped (FA_SKIP_ARM=1)\n'
else
    step "64-bit ARM, cross-built, under qemu-user"
    for tool in aarch64-linux-gnu-g++ qemu-aarch64; do
        command -v "$tool" >/dev/null || {
            echo "no $tool: install g++-aarch64-linux-gnu and qemu-user (.ci/run does), or set FA_SKIP_ARM=1" >&2
            exit 1
        }
    done
    build_and_test build/arm64 RelWithDebInfo "" "" \
        -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64-linux-gnu.cmake -DFA_SANITIZE=
fi

if [ "$fuzz_seconds" != 0 ] && [ -x scripts/fuzz.sh ]; then
    step "fuzzing the shortcut reader for ${fuzz_seconds}s"
    scripts/fuzz.sh "$fuzz_seconds"
fi
end_stage

printf '\n==== all test stages passed\n%s' "$times"
