#!/bin/bash
# The cost of the agent on the bundled Java workload: the whole JVM run with
# and without it, alternating, RUNS times each; medians of wall time and of
# CPU time (user and system, all threads).
# usage: overhead-java.sh [RUNS] [ROUNDS]; BUILD_DIR as for profile-java.sh.
set -eu
runs=${1:-9}
rounds=${2:-150}
build=${BUILD_DIR:-build}
java=${JAVA:-/usr/lib/jvm/java-17-openjdk-amd64/bin/java}
classes=$build/agents/jvm/workload
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Appends "wall cpu" in milliseconds of one run of the command to the file.
timed() {
  local file=$1
  shift
  local TIMEFORMAT='%R %U %S'
  { time "$@" >/dev/null; } 2>&1 | awk '{ printf "%d %d\n", 1000 * $1, 1000 * ($2 + $3) }' >> "$file"
}

median() { sort -n | awk '{ value[NR] = $1 } END { print value[int((NR + 1) / 2)] }'; }

for ((i = 0; i < runs; ++i)); do
  timed "$work/without" "$java" -cp "$classes" korvane.workload.Workload "$rounds"
  rm -rf "$work/trace"
  timed "$work/with" "$java" "-agentpath:$build/agents/jvm/libkorvane_jvmagent.so=dir=$work/trace" \
    -cp "$classes" korvane.workload.Workload "$rounds"
done
for column in 1 2; do
  without=$(cut -d' ' -f$column "$work/without" | median)
  with=$(cut -d' ' -f$column "$work/with" | median)
  echo "$([ $column = 1 ] && echo wall || echo CPU) time, median of $runs runs of $rounds rounds:" \
    "without agent $without ms, with agent $with ms," \
    "overhead $(awk -v a="$with" -v b="$without" 'BEGIN { printf "%.1f", 100 * (a - b) / b }') % (goal < 5 %)"
done
echo "trace of the last run: $(cat "$work"/trace/*.jit | wc -c) bytes"
