#!/bin/sh
# The main job: profiles the bundled Java workload with the JVM agent under
# perf, with call chains through JIT frames, and shows korvane-jit report's top
# table; the folded stacks and the pprof profile land beside the trace in
# OUTDIR. Where perf may not record, it says so and reports the example
# traces' samples instead.
#
# usage: profile-report.sh OUTDIR [ROUNDS]
# BUILD_DIR (default: build) is where the agent, workload and tool were built.
set -eu

[ $# -ge 1 ] || { echo "usage: $0 OUTDIR [ROUNDS]" >&2; exit 2; }
out=$1
build=${BUILD_DIR:-build}
tool=$build/tools/korvane-jit

BUILD_DIR=$build "$(dirname "$0")/../agents/jvm/profile-java.sh" -g "$out" "${2:-150}" > "$out.log" 2>&1 ||
  { cat "$out.log"; exit 1; }
if [ ! -f "$out/perf.data" ]; then
  head -n 1 "$out.log" | sed 's/;.*//'
  echo "reporting the samples of the example traces instead"
  examples=$build/examples
  rm -rf "$examples"
  "$build/tools/korvane-jit-examples" "$examples" > /dev/null
  "$tool" report "$examples/session-1" "$examples/session-2" --input "$examples/samples.csv" --top 10 \
    --folded "$examples/samples.folded" --pprof "$examples/samples.pb.gz"
  exit 0
fi

grep -v '^$' "$out.log" | tail -n 1
perf script -i "$out/perf.data" -F pid,tid,time,period,ip,sym,dso --ns 2> /dev/null |
  "$tool" report "$out/trace" --top 15 --folded "$out/java.folded" --pprof "$out/java.pb.gz"
echo
echo "folded stacks: $out/java.folded"
echo "pprof profile: $out/java.pb.gz"
