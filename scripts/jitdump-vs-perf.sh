#!/bin/sh
# Profiles a Node.js program with perf and names its samples in JIT code twice: through
# korvane-jit (import-jitdump + resolve) and through perf (inject -j + script). Prints how often
# the two roads agree on the function and how long each took, over RUNS runs (default 5).
# Usage: scripts/jitdump-vs-perf.sh [BUILD_DIR]   (needs perf_event_open, e.g. as root)
set -eu

build=$(cd "${1:-build}" && pwd)
runs=${RUNS:-5}
tool="$build/tools/korvane-jit"
work=$(mktemp -d "${TMPDIR:-/tmp}/jitdump-vs-perf.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

# Thousands of small functions, each called often enough to be compiled, then two hot ones.
cat > app.js <<'EOF'
const functions = [];
for (let i = 0; i < 5000; i++)
  functions.push(new Function('x', `let s = ${i}; for (let j = 0; j < x; j++) s = (s * 31 + j) | 0; return s;`));
function fib(n) { return n < 2 ? n : fib(n - 1) + fib(n - 2); }
class Shape { constructor(w) { this.w = w; } area() { return this.w * this.w; } }
function walk(k) { let s = 0; for (let i = 0; i < k; i++) s += new Shape(i).area() % 7; return s; }
let total = 0;
for (let round = 0; round < 40; round++)
  for (const f of functions) total += f(20);
const end = Date.now() + 1500;
while (Date.now() < end) total += fib(20) + walk(2000);
console.log(total !== 0);
EOF

perf record -q -e cpu-clock -k mono -o perf.data node --perf-prof app.js > /dev/null
dump=$(ls jit-*.dump)
# Runs a command with its output to $1 and prints its wall clock and CPU time (task-clock,
# all its threads, user and kernel) in nanoseconds, both as perf stat measures them from the
# command's start to its end: perf's own start takes a dozen milliseconds, as long as all of
# korvane-jit's work, and is no part of either road.
timed() {
    output=$1
    shift
    LC_ALL=C perf stat -e task-clock -o stat.txt -- "$@" > "$output"
    awk '/task-clock/ { cpu = $1 * 1e6 } / seconds time elapsed/ { wall = $1 * 1e9 }
         END { printf "%.0f %.0f\n", wall, cpu }' stat.txt
}

# The samples as CSV (timestamp in nanoseconds) for our road.
perf script -i perf.data -F pid,time,ip --ns 2> /dev/null |
    awk 'BEGIN { print "timestamp,ip,pid,host" }
         { t = $2; sub(/:$/, "", t); sub(/\./, "", t); sub(/^0+/, "", t); print t ",0x" $3 "," $1 ",profiled" }' \
    > samples.csv

# Both roads in turn, run after run, so that both meet the same load on the machine. All files
# were written just before and are read from the page cache on every run.
: > times.txt
for run in $(seq "$runs"); do
    inject=$(timed /dev/null perf inject -j -i perf.data -o perf.jit.data)
    import=$(timed import.txt "$tool" import-jitdump "$dump" -o traces --host profiled --force)
    resolve=$(timed resolved.csv "$tool" resolve traces --samples samples.csv)
    echo "$inject $import $resolve" >> times.txt
done
perf script -i perf.jit.data -F pid,time,ip,sym,dso --ns 2> /dev/null > perf-names.txt

echo "node --perf-prof: $(cat import.txt)"
awk '
    # The name korvane-jit gives what perf calls n: a Node.js "JS:*fn file:line:column" is the
    # function fn, and dots between name parts read "::".
    function ours(n,    rest, blank, i, count, parts, out) {
        if (substr(n, 1, 3) == "JS:") {
            rest = substr(n, 4)
            if (rest ~ /^[~^+*]/)
                rest = substr(rest, 2)
            blank = 0
            for (i = length(rest); i > 0; --i)
                if (substr(rest, i, 1) == " ") { blank = i; break }
            if (blank > 0 && substr(rest, blank + 1) ~ /.:[0-9]+:[0-9]+$/)
                n = blank == 1 ? "<anonymous>" : substr(rest, 1, blank - 1)
        }
        count = split(n, parts, ".")
        out = ""
        for (i = 1; i <= count; ++i)
            if (parts[i] != "")
                out = out (out == "" ? "" : "::") parts[i]
        return out
    }
    # Splits a CSV line with quoted fields into f; returns the count.
    function csv(line, f,    n, i, c, quoted, field) {
        n = 0; field = ""; quoted = 0
        for (i = 1; i <= length(line); ++i) {
            c = substr(line, i, 1)
            if (quoted && c == "\"" && substr(line, i + 1, 1) == "\"") { field = field c; ++i }
            else if (c == "\"") quoted = !quoted
            else if (c == "," && !quoted) { f[++n] = field; field = "" }
            else field = field c
        }
        f[++n] = field
        return n
    }
    FILENAME == "resolved.csv" {
        if (FNR == 1 || csv($0, f) < 9 || (f[8] != "" && f[8] != "0"))
            next
        key = f[1] "," f[2]
        korvane[key] = f[5] == "jit" ? f[9] : ""
        next
    }
    {
        t = $2; sub(/:$/, "", t); sub(/\./, "", t); sub(/^0+/, "", t)
        key = t ",0x" $3
        open = 0
        for (i = length($0); i > 0; --i)
            if (substr($0, i, 2) == " (") { open = i; break }
        dso = substr($0, open + 2, length($0) - open - 2)
        head = $1 " " $2 " " $3 " "
        start = index($0, $3) + length($3) + 1
        name = substr($0, start, open - start)
        if (dso !~ /jitted-[0-9]+-[0-9]+\.so$/) {
            if (korvane[key] != "") ++oursOnly
            next
        }
        ++jit
        if (korvane[key] == ours(name)) { ++agree; next }
        if (shown++ < 5) print "  differs: perf \"" name "\", korvane-jit \"" korvane[key] "\""
    }
    END {
        printf "samples in JIT code (perf): %d; same function from korvane-jit: %d (%.2f %%); JIT samples only korvane-jit saw: %d\n",
               jit, agree, jit ? 100 * agree / jit : 0, oursOnly
    }' resolved.csv perf-names.txt

# One line per run, then the median and range of the ratios; wall clock is what a user waits,
# CPU time what the machine's other jobs leave out.
awk '
    function ratio(a, b) { return b > 0 ? a / b : 0 }
    function sorted(v, n,    i, j, t) {
        for (i = 2; i <= n; ++i)
            for (j = i; j > 1 && v[j - 1] > v[j]; --j) { t = v[j]; v[j] = v[j - 1]; v[j - 1] = t }
    }
    {
        ++n
        wall[n] = ratio($1, $3 + $5); cpu[n] = ratio($2, $4 + $6)
        printf "run %d: perf inject -j %.3f s (CPU %.3f s); korvane-jit import-jitdump %.3f s (CPU %.3f s) + resolve %.3f s (CPU %.3f s); ratio %.1fx (CPU %.1fx)\n",
               n, $1 / 1e9, $2 / 1e9, $3 / 1e9, $4 / 1e9, $5 / 1e9, $6 / 1e9, wall[n], cpu[n]
    }
    END {
        sorted(wall, n); sorted(cpu, n)
        printf "%d runs, files in the page cache: ratio median %.1fx (%.1f-%.1fx) by wall clock, %.1fx (%.1f-%.1fx) by CPU time (goal 100x)\n",
               n, wall[int((n + 1) / 2)], wall[1], wall[n], cpu[int((n + 1) / 2)], cpu[1], cpu[n]
    }' times.txt
