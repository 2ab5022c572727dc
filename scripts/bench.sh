#!/bin/sh
# Builds the benchmarks in out/bench (Release), runs them and prints a table of ratios against
# the floors measured in the same run. Not part of CI. Takes a few minutes on two cores.
#
#     scripts/bench.sh            # everything
#     QUICK=1 scripts/bench.sh    # one repetition each, for a smoke run
#
# Results stay in out/bench/results: Google Benchmark JSON, the programs' own "# key: value"
# figures (allocations, stacks, resident size), the allocation traces and the callgrind counts.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/out/bench"
results="$build/results"

. "$root/scripts/lib/packages.sh"
ensure_packages libbenchmark-dev valgrind binutils

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZOK_BUILD_BENCH=ON \
    -DZOK_BUILD_TESTS=OFF -DZOK_BUILD_TOOLS=OFF -DZOK_CHECK_ANDROID_HEADERS=OFF >/dev/null
ninja -C "$build" round_trip_bench flood_bench codec_bench codec_callgrind
mkdir -p "$results"

reps=5
min_time=0.4
if [ "${QUICK:-0}" = 1 ]; then
    reps=1
    min_time=0.1
fi
# Repetitions in random order, so that a noisy neighbour on a shared machine hits the entity and
# its floor alike; the table uses the medians.
run() {
    name=$1
    shift
    "$build/bench/$1" --benchmark_repetitions=$reps --benchmark_enable_random_interleaving=true \
        --benchmark_min_time=$min_time --benchmark_out="$results/$name.json" \
        --benchmark_out_format=json --benchmark_report_aggregates_only=true \
        --trace-allocations >"$results/$name.txt"
}
run round_trip round_trip_bench
run flood flood_bench
"$build/bench/codec_bench" --benchmark_repetitions=$reps \
    --benchmark_enable_random_interleaving=true --benchmark_min_time=$min_time \
    --benchmark_out="$results/codec.json" --benchmark_out_format=json \
    --benchmark_report_aggregates_only=true >"$results/codec.txt"

# Instruction counts: only bench_run_ops is collected, so building the input is not counted.
: >"$results/callgrind.txt"
for op in "datacall 20" "u8to16-short 1000" "u8to16-4k 50" "u16to8-short 1000" "u16to8-4k 50"; do
    set -- $op
    for log in log nolog; do
        [ "$1" = datacall ] || [ "$log" = nolog ] || continue
        out="$results/callgrind.$1.$log.out"
        valgrind --tool=callgrind --toggle-collect=bench_run_ops --callgrind-out-file="$out" \
            "$build/bench/codec_callgrind" "$1" "$2" "$log" >/dev/null 2>&1
        total=$(sed -n 's/^totals: *\([0-9]*\).*/\1/p' "$out")
        printf '  %-14s %-6s %12d instructions/op\n' "$1" "$log" $((total / $2)) \
            >>"$results/callgrind.txt"
    done
done

python3 "$root/bench/summarize.py" "$results"
