#!/usr/bin/env bash
# Builds the benchmarks in Release and runs every one of them against its peer on generated
# data, in one run, then prints one table: the library's time, the peer's time and the ratio.
#
#   bench/run_all.sh [workdir]     (default: a fresh directory under $TMPDIR or /tmp)
#
# Sizes: SIZE_MIB (default 512) for the copy/read benchmarks. The record scans use the sizes
# scan_bench itself defaults to: files of SCAN_MIB (default 256) mebibytes of records and block
# reads over SCAN_BLOCK_MIB (default 1024); they take about two minutes of the run on 2 cores,
# and smaller sizes measure other files. REPS (default 3) repetitions of the Google Benchmark
# programs. Raw output of each benchmark is kept in build/bench/logs/.
#
# How a benchmark contributes rows. The simplest way, for any new bench/X_bench.cpp or
# bench/X_bench.sh: print lines
#     ROW <name> <ours_seconds> <peer_name> <peer_seconds> [<how measured>]
# with underscores for blanks inside a name. Beside that the runner reads
#   - Google Benchmark programs (sources with BENCHMARK(...)): the median of REPS repetitions
#     of each case, compared with the program's peer case (a name containing Memcpy, Malloc,
#     Peer, Floor, Grep, Dd or Xmllint; the peer whose name shares the most with it);
#   - lines "<name> library <s> s <peer> <s> s ratio <r>" (algos_bench.sh);
#   - the reports of fs_bench and readwrite_bench, which it runs itself at SIZE_MIB.
# A bench/X_bench.sh is run in place of a program of the same name.
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/bench
logs=$build/logs
work=${1:-$(mktemp -d "${TMPDIR:-/tmp}/fa-bench.XXXXXX")}
size=${SIZE_MIB:-512}
reps=${REPS:-3}
rows=$build/rows.txt
start=$(date +%s)
mkdir -p "$work" "$logs"
: >"$rows"
[ -n "${1:-}" ] || trap 'rm -rf "$work"' EXIT

say() { printf '== %s [%ds]\n' "$*" $(($(date +%s) - start)) >&2; }

say "building (Release, benchmarks on)"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DFA_BUILD_BENCH=ON \
    -DFA_BUILD_TESTS=OFF -DFA_BUILD_TOOLS=ON >/dev/null || exit 1
cmake --build "$build" -j"${JOBS:-2}" >"$logs/build.txt" 2>&1 || {
    tail -n 30 "$logs/build.txt"
    exit 1
}

# Lines "ROW name ours peer peer_s [how]" as they are.
rows_from_generic() { awk '$1 == "ROW" && NF >= 5 { print }'; }

# algos_bench.sh: "<name> library X s   <peer> Y s   ratio R" (names may hold blanks).
rows_from_report() {
    sed -nE 's/^(.+[^ ]) +library +([0-9.]+) s +(.+[^ ]) +([0-9.]+) s +ratio.*/\1|\2|\3|\4/p' |
        awk -F'|' '{ gsub(/ /, "_", $1); gsub(/ /, "_", $3); print "ROW", $1, $2, $3, $4, "1_run" }'
}

# fs_bench: "<name> best X s (...) median Y s ratio to cp R"; cp is the peer.
rows_from_fs() {
    awk -v mib="$size" '$2 == "best" {
        for (i = 1; i <= NF; i++) if ($i == "median") med[$1] = $(i + 1)
        order[++n] = $1
    } END {
        for (i = 1; i <= n; i++) if (order[i] != "cp")
            print "ROW", order[i] "_copy_" mib "_MiB", med[order[i]], "cp", med["cp"], "median"
    }'
}

# readwrite_bench: "<what> dd X s (..) ours Y s (..) ratio R".
rows_from_readwrite() {
    awk -v mib="$size" '$2 == "dd" && $7 == "ours" {
        name = ($1 == "read") ? "FileRead_1_MiB_counts" : ($1 == "write") ? "FileWrite_1_MiB_counts" : "FileRead+FileWrite_1_MiB_counts"
        print "ROW", name "_" mib "_MiB", $8, "dd_bs=1M", $3, "best_of_3"
    }'
}

# Google Benchmark console output (aggregates only): the median of each case against its peer
# case. (The CSV reporter refuses programs whose cases set different counters.)
rows_from_gbench() {
    awk '
    function isPeer(n) { return n ~ /Memcpy|Malloc|Peer|Floor|Grep|_Dd|Xmllint/ }
    function unit(u) { return u == "ns" ? 1e-9 : u == "us" ? 1e-6 : u == "ms" ? 1e-3 : 1 }
    function shared(a, b,   i) { for (i = 1; i <= length(a) && substr(a, i, 1) == substr(b, i, 1); i++); return i }
    # BM_X/1024/min_time:1.000/real_time_median -> BM_X/1024
    function short(n,   k, parts, out, i) {
        sub(/_median$/, "", n); k = split(n, parts, "/"); out = parts[1]
        for (i = 2; i <= k; i++) if (parts[i] !~ /:|^real_time$|^manual_time$/) out = out "/" parts[i]
        return out
    }
    $1 ~ /_median$/ && NF >= 3 { name = short($1); secs[name] = $2 * unit($3); order[++n] = name }
    END {
        for (i = 1; i <= n; i++) {
            a = order[i]; if (isPeer(a)) continue
            best = ""; bestLen = 0
            for (j = 1; j <= n; j++) if (isPeer(order[j]) && shared(a, order[j]) > bestLen) {
                best = order[j]; bestLen = shared(a, order[j])
            }
            if (best != "") print "ROW", a, secs[a], best, secs[best], "median_of_" reps
            else print "ROW", a, secs[a], "-", "0", "median_of_" reps
        }
    }' reps="$reps"
}

run_bench() {  # name, adapter, command...
    local name=$1 adapter=$2
    shift 2
    say "running $name"
    timeout "${BENCH_TIMEOUT:-420}" "$@" >"$logs/$name.txt" 2>"$logs/$name.err"
    local rc=$?
    [ $rc -eq 0 ] || echo "   $name exited with $rc (see $logs/$name.err)" >&2
    { $adapter <"$logs/$name.txt"; rows_from_generic <"$logs/$name.txt"; } | sort -u >>"$rows"
}

bindir=$build/bench
for src in "$root"/bench/*_bench.cpp "$root"/bench/*_bench.sh; do
    [ -e "$src" ] || continue
    base=$(basename "$src")
    name=${base%.*}
    case "$base" in
        fs_bench.cpp) run_bench "$name" rows_from_fs "$bindir/$name" "$size" 3 "$work" ;;
        readwrite_bench.cpp) run_bench "$name" rows_from_readwrite "$bindir/$name" "$work" "$size" ;;
        readwrite_bench.sh) ;;  # a wrapper that builds and runs the program above
        scan_bench.cpp)
            run_bench "$name" true "$bindir/$name" "$work" "${SCAN_MIB:-256}" "${SCAN_BLOCK_MIB:-1024}"
            ;;
        *.sh) run_bench "$name" rows_from_report bash "$src" "$work/$name" ;;
        *.cpp)
            [ -e "$root/bench/$name.sh" ] && continue  # its script drives it
            if grep -q 'BENCHMARK(' "$src"; then
                run_bench "$name" rows_from_gbench "$bindir/$name" --benchmark_format=console --benchmark_color=false \
                    --benchmark_repetitions="$reps" --benchmark_report_aggregates_only=true
            else
                run_bench "$name" rows_from_report "$bindir/$name"
            fi
            ;;
    esac
done

echo
echo "Benchmarks against their peers, $(date -u +%Y-%m-%dT%H:%MZ), $(nproc) cores."
echo "ratio = peer time / our time: above 1 means the library is faster."
awk '{
    ours = $3 + 0; peer = $5 + 0
    ratio = (ours > 0 && peer > 0) ? sprintf("%.2f", peer / ours) : "-"
    printf "%-56s %9.4f s   %-26s %9.4f s   %6s   %s\n", $2, ours, $4, peer, ratio, ($6 == "" ? "" : $6)
}' "$rows" | tr '_' ' ' | sed '1i\
benchmark                                                  ours                 peer                             peer       ratio    measured'
echo
echo "whole suite: $(($(date +%s) - start)) s; raw output in $logs"
