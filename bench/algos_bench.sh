#!/usr/bin/env bash
# Times the whole-file algorithms against the usual command-line tools on the same files,
# page cache warm, and prints each pair with its ratio (tool time / library time; above 1
# means the library is faster).
#
#   bench/algos_bench.sh [workdir]      (default: a fresh directory under /tmp)
#
# Figures are the best of RUNS runs (default 3). Needs about 6 GiB of free disk space in workdir. Builds the library (Release) into
# build-algos-bench beside this directory.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
work=${1:-$(mktemp -d /tmp/algos-bench.XXXXXX)}
build=$root/build-algos-bench
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DFA_BUILD_TESTS=OFF \
    -DFA_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build" -j2 --target fileaccess >/dev/null
g++ -std=c++20 -O2 -I"$root/src" "$root/bench/algos_bench.cpp" "$build/libfileaccess.a" \
    -lpthread -o "$build/algos_bench"
bench=$build/algos_bench

# Wall seconds of a command.
timed() {
    local t0 t1
    t0=$(date +%s.%N)
    "$@" >/dev/null
    t1=$(date +%s.%N)
    echo "$t1 - $t0" | bc -l
}
warm() { cat "$@" >/dev/null; }
# Each figure is the best of $runs runs; before each run "$prep" is evaluated, dirty pages are
# written back and the inputs are read into the page cache, so no run pays for the
# write-back of an earlier one.
runs=${RUNS:-3}
settle() { eval "$prep"; sync; warm "${inputs[@]}"; }
min() { sort -g | head -1; }
# The library and the tool run by turns, so that both meet the machine in the same state
# (on a shared host its speed drifts by a third within minutes); each run is preceded by
# settle. Prints the best library time and the best tool time.
race() {  # key, library command, tool command (both evaluated)
    local key=$1 i libs=() tools=()
    for i in $(seq "$runs"); do
        settle
        libs+=("$(eval "$2" | libtime "$key")")
        settle
        tools+=("$(timed eval "$3")")
    done
    echo "$(printf '%s\n' "${libs[@]}" | min) $(printf '%s\n' "${tools[@]}" | min)"
}
report() {  # name, library seconds, tool name, tool seconds
    awk -v n="$1" -v l="$2" -v t="$3" -v p="$4" \
        'BEGIN { printf "%-34s library %7.3f s   %-22s %7.3f s   ratio %5.2f\n", n, l, t, p, p / l }'
}
libtime() { awk -v k="$1" '$1 == k { print $2 }'; }

echo "preparing files in $work"
head -c 1G /dev/urandom >"$work/big"
cp "$work/big" "$work/big2"
{ cat "$work/big"; printf x; } >"$work/big_plus1"
head -c 256M "$work/big" >"$work/quarter"
python3 - "$work/text" <<'EOF'
import random, sys
random.seed(7)
letters = "abcdefghijklmnopqrstuvwxyz ,.\n"
pool = ["".join(random.choice(letters) for _ in range(262)) + "NEEDLE" for _ in range(997)]
with open(sys.argv[1], "w") as f:
    for i in range(1_000_000):
        f.write(pool[i % 997])
EOF

# Split into 100 MiB parts and join them again; one run first checks the joined bytes.
inputs=("$work/big")
prep='rm -rf "$work/lib_parts" "$work/tool_parts" "$work/joined"; mkdir "$work/lib_parts" "$work/tool_parts"'
libSplit='"$bench" split-join "$work/big" "$work/lib_parts" "$work/joined"'
settle; eval "$libSplit" >/dev/null
cmp -s "$work/big" "$work/joined" || { echo "joined file differs"; exit 1; }
read -r lib tool < <(race split-join "$libSplit" \
    'cd "$work/tool_parts" && split -b 100M "$work/big" part && cat part* >"$work/joined"')
report "SplitFile+ReassembleFile 1 GiB" "$lib" "split -b 100M + cat" "$tool"
eval "$prep"
rm -rf "$work/lib_parts" "$work/tool_parts"

# Compare two equal files, then two of different sizes.
inputs=("$work/big" "$work/big2")
prep=:
read -r lib tool < <(race compare '"$bench" compare "$work/big" "$work/big2"' \
    'cmp "$work/big" "$work/big2"')
report "FileContentsEqual 1 GiB equal" "$lib" "cmp" "$tool"
# The floor under any comparison that reads through the page cache: reading both files.
read -r lib tool < <(race compare '"$bench" compare "$work/big" "$work/big2"' \
    'cat "$work/big" "$work/big2"')
report "FileContentsEqual 1 GiB equal" "$lib" "cat of both (floor)" "$tool"
read -r lib tool < <(race compare '"$bench" compare "$work/big" "$work/big_plus1"' \
    'cmp "$work/big" "$work/big_plus1" 2>/dev/null || true')
report "FileContentsEqual sizes differ" "$lib" "cmp" "$tool"

# Replace a 6-byte string about 1,000,000 times in 256 MiB, each run on a fresh copy; one
# run of each first checks that both write the same bytes.
inputs=("$work/text")
prep='cp "$work/text" "$work/text_copy"'
libReplace='"$bench" replace "$work/text_copy" NEEDLE PINPIN'
toolReplace='sed -i "s/NEEDLE/PINPIN/g" "$work/text_copy"'
settle; eval "$libReplace" >/dev/null; mv "$work/text_copy" "$work/text_lib"
settle; eval "$toolReplace"
cmp -s "$work/text_lib" "$work/text_copy" || { echo "replaced files differ"; exit 1; }
read -r lib tool < <(race replace "$libReplace" "$toolReplace")
report "ReplaceStrings 256 MiB" "$lib" "sed -i" "$tool"
rm -f "$work/text_copy" "$work/text_lib"

# Peak memory of split+join and of the comparison: 10 MiB against 1 GiB.
head -c 10M "$work/big" >"$work/small"
cp "$work/small" "$work/small2"
mkdir -p "$work/p_small" "$work/p_big"
rss_small=$("$bench" split-join "$work/small" "$work/p_small" "$work/j_small" | libtime rss)
rss_big=$("$bench" split-join "$work/big" "$work/p_big" "$work/j_big" | libtime rss)
echo "peak RSS split+join: 10 MiB file ${rss_small} KiB, 1 GiB file ${rss_big} KiB"
rss_small=$("$bench" compare "$work/small" "$work/small2" | libtime rss)
rss_big=$("$bench" compare "$work/big" "$work/j_big" | libtime rss)
echo "peak RSS compare:    10 MiB file ${rss_small} KiB, 1 GiB file ${rss_big} KiB"
rm -rf "$work/p_small" "$work/p_big" "$work/j_small" "$work/j_big" "$work/small" "$work/small2"
rm -f "$work/big2" "$work/big_plus1"

# Read 256 MiB as base64 and as hex.
inputs=("$work/quarter")
prep=:
read -r lib tool < <(race encode-base64 '"$bench" encode "$work/quarter" base64' \
    'base64 -w0 "$work/quarter"')
report "ReadBinaryToEncoded base64 256 MiB" "$lib" "base64 -w0" "$tool"
read -r lib tool < <(race encode-hexlower '"$bench" encode "$work/quarter" hexlower' \
    'xxd -p "$work/quarter"')
report "ReadBinaryToEncoded hex 256 MiB" "$lib" "xxd -p" "$tool"
