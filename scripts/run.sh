#!/usr/bin/env bash
# Builds the library and its programs in Release and runs the main job: fatool on a generated
# file of records (scanned, split, joined, compared, rewritten).
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=${JOBS:-$(nproc 2>/dev/null || echo 2)}
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DFA_BUILD_TESTS=OFF >/dev/null
cmake --build build/release -j"$jobs"
tools/demo.sh build/release
