#!/bin/sh
# Runs the bundled Java workload with the agent under perf and resolves its
# samples with korvane-jit. Leaves in OUTDIR: trace/ (the .jit trace),
# perf.data, perf.script (perf script text), samples.csv (the samples in the
# form of korvane-jit resolve), resolved.csv, and perf-PID.map (the JVM's own
# map of its code at exit). Where perf is not permitted it says so and shows
# the methods of the trace instead.
#
# usage: profile-java.sh [-g] OUTDIR [ROUNDS]   (-g: call graphs, for reports)
# BUILD_DIR (default: build) is where the agent, workload and tool were built.
set -eu

callGraph=""
if [ "${1:-}" = "-g" ]; then callGraph="-g"; shift; fi
[ $# -ge 1 ] || { echo "usage: $0 [-g] OUTDIR [ROUNDS]" >&2; exit 2; }
out=$1
rounds=${2:-150}
build=${BUILD_DIR:-build}
java=${JAVA:-/usr/lib/jvm/java-17-openjdk-amd64/bin/java}
agent=$build/agents/jvm/libkorvane_jvmagent.so
classes=$build/agents/jvm/workload
tool=$build/tools/korvane-jit
for needed in "$agent" "$classes/korvane/workload/Workload.class" "$tool"; do
  [ -e "$needed" ] || { echo "$0: $needed is missing; build first (make build)" >&2; exit 1; }
done

rm -rf "$out/trace" "$out"/perf-*.map "$out"/perf.data* "$out/perf.script" "$out/samples.csv" "$out/resolved.csv"
mkdir -p "$out"
# The JVM writes its own map of its code at exit (as jcmd PID Compiler.perfmap
# does while it runs), and keeps frame pointers for call graphs.
set -- "$java" -XX:+UnlockDiagnosticVMOptions -XX:+DumpPerfMapAtExit -XX:+PreserveFramePointer \
  "-agentpath:$agent=dir=$out/trace" -cp "$classes" korvane.workload.Workload "$rounds"

if ! perf record -q -e cpu-clock -o /dev/null -- true >/dev/null 2>&1; then
  echo "perf cannot record on this machine (perf_event_open refused, or no perf for this kernel);" \
    "showing the methods of the trace instead"
  "$@"
  "$tool" methods "$out/trace"
  exit 0
fi

perf record -q -e cpu-clock -k mono $callGraph -o "$out/perf.data" -- "$@"
pid=$(ls "$out"/trace/*.jit | sed 's/.*\.\([0-9][0-9]*\)\.jit$/\1/')
cp "/tmp/perf-$pid.map" "$out/perf-$pid.map"
perf script -i "$out/perf.data" --ns > "$out/perf.script" 2>/dev/null
host=$(ls "$out"/trace/*.jit | sed 's|.*/||; s/\.[0-9][0-9]*\.jit$//')
perf script -i "$out/perf.data" --ns -G -F pid,time,ip 2>/dev/null |
  awk -v host="$host" 'BEGIN { print "timestamp,ip,pid,host" }
    { time = $2; sub(":", "", time); split(time, part, ".");
      printf "%s%s,0x%s,%s,%s\n", part[1], part[2], $3, $1, host }' > "$out/samples.csv"
"$tool" resolve "$out/trace" --samples "$out/samples.csv" > "$out/resolved.csv"
echo "$(($(wc -l < "$out/samples.csv") - 1)) samples of process $pid resolved into $out/resolved.csv"
