#!/usr/bin/env bash
# Fuzzes the shortcut-file reader and checker with libFuzzer.
#
#   scripts/fuzz.sh [SECONDS]      default 60
#
# Configures a clang build under build/fuzz (BUILD_DIR overrides), builds the fuzzer, seeds a
# working corpus in fuzz/corpus-run from the real shortcut files in tests/data/lnk and runs
# for SECONDS seconds. The corpus is kept between runs, so later runs start from what earlier
# ones found. Any finding (crash, sanitizer report, leak) stops the run, leaves the input as
# build/fuzz/crash-* (or leak-*, timeout-*) and makes the script fail.
# Extra libFuzzer options can be given in FUZZ_ARGS, e.g. FUZZ_ARGS="-jobs=2 -workers=2".
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
build_dir=${BUILD_DIR:-build/fuzz}
corpus=fuzz/corpus-run
jobs=${JOBS:-$(nproc 2>/dev/null || echo 2)}

CC=${CC:-clang} CXX=${CXX:-clang++} cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DFA_BUILD_FUZZ=ON -DFA_BUILD_TESTS=OFF -DFA_BUILD_TOOLS=OFF -DFA_SANITIZE= >/dev/null
cmake --build "$build_dir" -j"$jobs" --target shortcut_fuzz

mkdir -p "$corpus"
cp -n tests/data/lnk/*.lnk "$corpus"/

# The target writes each input to a scratch file; a RAM-backed directory makes that cheap.
if [ -z "${FUZZ_TMPDIR:-}" ] && [ -d /dev/shm ] && [ -w /dev/shm ]; then FUZZ_TMPDIR=/dev/shm; fi
export TMPDIR=${FUZZ_TMPDIR:-${TMPDIR:-/tmp}}
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
# -max_len covers the largest seed (68,608 bytes) and files just above the checker's
# 100,000-byte limit. -timeout flags any single input that takes more than 10 s.
# shellcheck disable=SC2086
"$build_dir/fuzz/shortcut_fuzz" -max_total_time="$seconds" -max_len=110000 -timeout=10 \
    -print_final_stats=1 -artifact_prefix="$build_dir/" ${FUZZ_ARGS:-} "$corpus"
