#!/usr/bin/env bash
# Times the whole-file algorithms against the usual command-line tools on the same files,
# page cache warm, and prints each pair with its ratio (tool time / library time; above 1
# means the library is faster).
#
#   bench/algos_bench.sh [workdir]      (default: a fresh directory under /tmp)
#   SECTIONS="replace encode" ROUNDS=9 bench/algos_bench.sh      (a part, more rounds)
#
# Figures are the best of RUNS runs (default 3), or for the replacement and the encoded reads
# medians of ROUNDS rounds (default 7) with their spread and peak RSS. Needs about 8 GiB of
# free disk space in workdir. Builds the library (Release) into build-algos-bench beside this
# directory.
#
# The replacement runs in workdir, where the library waits for its new file to reach the device
# before renaming it over the old one (sed -i does not wait), so the ratio there follows the
# device's speed: the device's own time for 2 GiB (dd with fsync) is printed first. SHM_DIR=DIR
# repeats it in DIR (say /dev/shm, a memory file system); on a virtual machine that measures
# mostly what the host charges for fresh memory, which both sides' new files take there. The
# transparent-huge-page setting, which decides what fresh memory costs the encoded reads, is
# printed before them.
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
python3 - "$work/text_src" <<'EOF'
import random, sys
random.seed(7)
letters = "abcdefghijklmnopqrstuvwxyz ,.\n"
pool = ["".join(random.choice(letters) for _ in range(262)) + "NEEDLE" for _ in range(997)]
with open(sys.argv[1], "w") as f:
    for i in range(1_000_000):
        f.write(pool[i % 997])
EOF

# Rounds by turns of a library command and a tool command, after "$prep" and settle. Each is
# timed from outside to the nanosecond (the whole process, start-up included) and run under
# /usr/bin/time for the peak resident KiB of the process itself. Prints one line: the median,
# fastest and slowest time and the peak RSS of each side.
rounds5=${ROUNDS:-7}
wall_rss() {  # command: prints "seconds peak-KiB"
    local t0 t1 m
    t0=$(date +%s%N)
    m=$(/usr/bin/time -f "%M" bash -c "$1 >/dev/null" 2>&1 | tail -1)
    t1=$(date +%s%N)
    echo "$(echo "($t1 - $t0) / 1000000000" | bc -l) $m"
}
race_rss() {  # library command, tool command (both evaluated)
    local i lt=() lr=() tt=() tr=() t m
    for i in $(seq "$rounds5"); do
        settle
        read -r t m < <(wall_rss "$1")
        lt+=("$t"); lr+=("$m")
        settle
        read -r t m < <(wall_rss "$2")
        tt+=("$t"); tr+=("$m")
    done
    printf '%s\n' "${lt[@]}" | sort -g | awk '{ v[NR] = $1 } END { printf "%s %s %s ", v[int((NR + 1) / 2)], v[1], v[NR] }'
    printf '%s\n' "${lr[@]}" | sort -g | tail -1 | tr '\n' ' '
    printf '%s\n' "${tt[@]}" | sort -g | awk '{ v[NR] = $1 } END { printf "%s %s %s ", v[int((NR + 1) / 2)], v[1], v[NR] }'
    printf '%s\n' "${tr[@]}" | sort -g | tail -1
}
report_rss() {  # name, tool name, then race_rss's eight figures
    awk -v n="$1" -v t="$2" -v l="$3" -v l1="$4" -v l2="$5" -v lm="$6" -v p="$7" -v p1="$8" -v p2="$9" -v pm="${10}" \
        'BEGIN { printf "%-34s library %7.3f s (%.3f-%.3f, %6.1f MiB)   %-12s %7.3f s (%.3f-%.3f, %6.1f MiB)   ratio %5.2f\n", n, l, l1, l2, lm / 1024, t, p, p1, p2, pm / 1024, p / l }'
}

# SECTIONS picks what runs (default: all of "split compare replace encode").
wants() { [[ " ${SECTIONS:-split compare replace encode} " == *" $1 "* ]]; }

if wants split; then
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
fi

if wants compare; then
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
fi

# Replace a 6-byte string about 1,000,000 times in 256 MiB, and 8,000,000 times in 2 GiB,
# each run on a fresh copy in directory $1 (labelled $2); one run of each first checks that
# both write the same bytes.
replace_race() {  # directory, label
    local dir=$1 label=$2 text size
    cp "$work/text_src" "$dir/text"
    for text in text text2g; do
        [ "$text" = text2g ] && for i in 1 2 3 4 5 6 7 8; do cat "$work/text_src"; done >"$dir/text2g"
        inputs=("$dir/$text")
        prep="cp '$dir/$text' '$dir/text_copy'"
        libReplace="'$bench' replace '$dir/text_copy' NEEDLE PINPIN"
        toolReplace="sed -i 's/NEEDLE/PINPIN/g' '$dir/text_copy'"
        settle; bash -c "$libReplace" >/dev/null; mv "$dir/text_copy" "$dir/text_lib"
        settle; bash -c "$toolReplace"
        cmp -s "$dir/text_lib" "$dir/text_copy" || { echo "replaced files differ"; exit 1; }
        rm -f "$dir/text_lib"
        size=$([ "$text" = text ] && echo "256 MiB" || echo "2 GiB")
        report_rss "ReplaceStrings $size, $label" "sed -i" $(race_rss "$libReplace" "$toolReplace")
        rm -f "$dir/text_copy" "$dir/$text"
    done
}
if wants replace; then
    echo "device: 2 GiB written with fsync (dd conv=fsync): $(timed dd if=/dev/zero of="$work/dd" bs=16M count=128 conv=fsync status=none) s"
    rm -f "$work/dd"
    replace_race "$work" "disk"
    shm=${SHM_DIR:-}
    if [ -n "$shm" ] && [ -d "$shm" ]; then
        shm_work=$(mktemp -d "$shm/algos-bench.XXXXXX")
        trap 'rm -rf "$work" "$shm_work"' EXIT
        replace_race "$shm_work" "memory fs"
        rm -rf "$shm_work"
    fi
fi

if wants encode; then
    # Read 256 MiB as base64 and as hex.
    echo "transparent huge pages: $(cat /sys/kernel/mm/transparent_hugepage/enabled 2>/dev/null || echo unknown)," \
        "defrag: $(cat /sys/kernel/mm/transparent_hugepage/defrag 2>/dev/null || echo unknown)"
    inputs=("$work/quarter")
    prep=:
    report_rss "ReadBinaryToEncoded base64 256 MiB" "base64 -w0" \
        $(race_rss "'$bench' encode '$work/quarter' base64" "base64 -w0 '$work/quarter'")
    report_rss "ReadBinaryToEncoded hex 256 MiB" "xxd -p" \
        $(race_rss "'$bench' encode '$work/quarter' hex" "xxd -p '$work/quarter'")
fi
