#!/bin/sh
# Runs every fuzz target of a fuzz build for a while, some at a time, each on a
# working copy of its committed corpus, fresh seeds and the example traces.
# Usage: fuzz/run_fuzzers.sh BUILD_DIR SECONDS JOBS
# Findings go to BUILD_DIR/fuzz/work/findings/<name>/, logs to BUILD_DIR/fuzz/work/<name>.log.
set -u

if [ "${1:-}" = "--one" ]; then
    fuzzer=$2; seconds=$3; work=$4
    name=$(basename "$fuzzer" _fuzzer)
    # A hang shows as a timeout; 2.5 GB is far above what any input of the corpus needs.
    "$fuzzer" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2560 -print_final_stats=1 \
        -artifact_prefix="$work/findings/$name/" "$work/corpus/$name" > "$work/$name.log" 2>&1
    status=$?
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/$name.log")
    last=$(grep -E '^#[0-9]+' "$work/$name.log" | tail -n 1)
    echo "$name: exit $status, ${runs:-?} runs; $last"
    exit $status
fi

build=$1; seconds=$2; jobs=$3
source=$(cd "$(dirname "$0")" && pwd)
work=$build/fuzz/work
rm -rf "$work/seeds" "$work/examples"
"$build/fuzz/korvane-fuzz-seeds" "$work/seeds" || exit 1
"$build/tools/korvane-jit-examples" "$work/examples" > /dev/null || exit 1
for fuzzer in "$build"/fuzz/*_fuzzer; do
    name=$(basename "$fuzzer" _fuzzer)
    mkdir -p "$work/corpus/$name" "$work/findings/$name"
    for dir in "$source/corpus/$name" "$work/seeds/$name"; do
        [ -d "$dir" ] && cp "$dir"/* "$work/corpus/$name"/
    done
done
find "$work/examples" -name '*.jit' -exec cp {} "$work/corpus/trace_file"/ \;
cp "$work/examples/samples.csv" "$work/corpus/sample_file"/

ls "$build"/fuzz/*_fuzzer | xargs -P "$jobs" -I{} "$0" --one {} "$seconds" "$work"
status=$?
[ $status -eq 0 ] || echo "fuzzing found something: see $work/findings" >&2
exit $status
