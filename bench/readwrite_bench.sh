#!/usr/bin/env bash
# Times FileRead and FileRead+FileWrite on a 1 GiB file against dd bs=1M on the same file in
# the same run, page cache warm (see readwrite_bench.cpp for what is timed).
#
#   bench/readwrite_bench.sh [workdir] [MiB]    (defaults: /tmp, 1024)
#
# Needs about 2 GiB of free disk space in workdir; the files are removed afterwards. Builds
# the library (RelWithDebInfo, -O2) into build-readwrite-bench beside this directory.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build-readwrite-bench
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFA_BUILD_TESTS=OFF \
    -DFA_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build" -j2 --target fileaccess >/dev/null
g++ -std=c++20 -O2 -I"$root/src" "$root/bench/readwrite_bench.cpp" "$build/libfileaccess.a" \
    -lpthread -o "$build/readwrite_bench"
"$build/readwrite_bench" "${1:-/tmp}" "${2:-1024}"
