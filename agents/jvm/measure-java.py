#!/usr/bin/env python3
"""Measures a run of profile-java.sh: the share of samples in compiled Java
code that resolve to a method, and how well the trace agrees with the JVM's
own map of its code (perf-PID.map, as jcmd PID Compiler.perfmap writes it).

usage: measure-java.py OUTDIR [KORVANE_JIT]"""
import bisect
import csv
import glob
import re
import subprocess
import sys

JAVA_MODULE = "[Compiled Java code]"
# The JVM gives all its method handle intrinsics (linkTo*, invokeBasic) one
# method id, so JVMTI names them all after one of them; they are counted apart.
SHARED_ID = re.compile(r"^java\.lang\.invoke\.MethodHandle\.(linkTo\w+|invokeBasic)\(")
PRIMITIVES = {"byte", "char", "double", "float", "int", "long", "short", "boolean", "void"}


def trace_methods(tool, trace_dir):
    """(name, module, start, end, loaded, unloaded) of every region the tool lists."""
    text = subprocess.run([tool, "methods", trace_dir], check=True, capture_output=True, text=True).stdout
    regions, name, module = [], None, None
    region = re.compile(r"address \[0x([0-9a-f]+), 0x([0-9a-f]+)\).*loaded (\d+)(?:\s+unloaded (\d+))?")
    for line in text.splitlines():
        if line and not line.startswith(" "):
            name = line
        elif line.strip().startswith("module"):
            module = line.strip()[len("module"):].strip()
        else:
            found = region.search(line)
            if found:
                regions.append((name, module, int(found.group(1), 16), int(found.group(2), 16),
                                int(found.group(3)), int(found.group(4) or 0)))
    return regions


def merged(ranges):
    out = []
    for start, end in sorted(ranges):
        if out and start <= out[-1][1]:
            out[-1][1] = max(out[-1][1], end)
        else:
            out.append([start, end])
    return out


def inside(intervals, starts, address):
    index = bisect.bisect_right(starts, address) - 1
    return index >= 0 and address < intervals[index][1]


def named_share(out_dir, regions):
    java = merged((start, end) for _, module, start, end, _, _ in regions if module == JAVA_MODULE)
    starts = [start for start, _ in java]
    first_rows = {}
    with open(out_dir + "/resolved.csv") as resolved:
        for row in csv.DictReader(resolved):
            first_rows.setdefault((row["timestamp"], row["ip"]), row)
    in_java = named = 0
    for (timestamp, ip), row in first_rows.items():
        if not inside(java, starts, int(ip, 16)):
            continue
        in_java += 1
        named += row["result"] == "jit" and row["module"] == JAVA_MODULE and bool(row["method"])
    return in_java, named


def without_generics(name):
    out, depth = "", 0
    for index, char in enumerate(name):
        if char == "<" and index > 0 and name[index - 1] != ":":
            depth += 1
        elif char == ">" and depth:
            depth -= 1
        elif not depth:
            out += char
    return out


def split_method(name):
    head, _, params = name.partition("(")
    params = params.rstrip(")")
    return head, [p.strip() for p in params.split(",")] if params.strip() else []


def same_parameter(ours, theirs):
    if ours == theirs:
        return True
    # A type variable shows by its name in the trace and by its bound in the map.
    base, their_base = ours.rstrip("[]"), theirs.rstrip("[]")
    return "." not in base and base not in PRIMITIVES and "." in their_base and \
        ours.count("[]") == theirs.count("[]")


def same_name(ours, theirs):
    our_head, our_params = split_method(without_generics(ours).replace("::", "."))
    their_head, their_params = split_method(theirs)
    their_head = their_head.replace("/", ".")
    return our_head == their_head and len(our_params) == len(their_params) and \
        all(same_parameter(o, t) for o, t in zip(our_params, their_params))


def perfmap_agreement(out_dir, regions):
    live = {}
    for name, module, start, end, loaded, unloaded in regions:
        if module == JAVA_MODULE and not unloaded and (start not in live or live[start][2] < loaded):
            live[start] = (name, end - start, loaded)
    entry = re.compile(r"^0x([0-9a-f]+) 0x([0-9a-f]+) (.*)$")
    both = agree = only_map = shared = 0
    disagreements = []
    pid = re.search(r"\.(\d+)\.jit$", glob.glob(out_dir + "/trace/*.jit")[0]).group(1)
    for line in open("%s/perf-%s.map" % (out_dir, pid)):
        found = entry.match(line.strip())
        if not found or "(" not in found.group(3) or " (" in found.group(3):
            continue  # stubs and other code that is no Java method
        start, size, text = int(found.group(1), 16), int(found.group(2), 16), found.group(3)
        name = text[:text.index("(")].split(" ")[-1] + text[text.index("("):]
        if start not in live:
            only_map += 1
            disagreements.append("  0x%x: map %s (%d bytes), not in the trace" % (start, name, size))
            continue
        if SHARED_ID.match(name):
            shared += 1
            continue
        both += 1
        ours, our_size, _ = live[start]
        if our_size == size and same_name(ours, name):
            agree += 1
        elif len(disagreements) < 5:
            disagreements.append("  0x%x: map %s (%d bytes), trace %s (%d bytes)" % (start, name, size, ours, our_size))
    return both, agree, only_map, shared, disagreements


def trace_sizes(tool, trace_file):
    """Bytes of the compiled methods' records (their inlines included), their
    number, the number of inline records, and the bytes of the stubs."""
    text = subprocess.run([tool, "records", trace_file], check=True, capture_output=True, text=True).stdout
    head = re.compile(r"^@0x[0-9a-f]+  (\w+)  (\d+) payload bytes")
    method_bytes = methods = inlines = stub_bytes = 0
    last = None
    for line in text.splitlines():
        found = head.match(line)
        if found:
            last = (found.group(1), int(found.group(2)) + 8)
            if last[0].startswith("FunctionInlineLoad"):
                inlines += 1
                method_bytes += last[1]
        elif last and last[0].startswith("FunctionLoad") and line.strip().startswith("module"):
            if JAVA_MODULE in line:
                methods += 1
                method_bytes += last[1]
            else:
                stub_bytes += last[1]
            last = None
    return method_bytes, methods, inlines, stub_bytes


def deepest_samples(out_dir, count):
    """The resolved rows of the samples in the workload with the deepest inline chains."""
    samples = {}
    with open(out_dir + "/resolved.csv") as resolved:
        for row in csv.DictReader(resolved):
            samples.setdefault((row["timestamp"], row["ip"]), []).append(row)
    workload = [rows for rows in samples.values() if rows[0]["method"].startswith("korvane::workload::")]
    workload.sort(key=lambda rows: (-len(rows), rows[0]["timestamp"]))
    chosen, methods = [], set()
    for rows in workload:
        if rows[0]["method"] not in methods and len(chosen) < count:
            chosen.append(rows)
            methods.add(rows[0]["method"])
    return chosen


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    out_dir = sys.argv[1]
    tool = sys.argv[2] if len(sys.argv) > 2 else "build/tools/korvane-jit"
    regions = trace_methods(tool, out_dir + "/trace")
    in_java, named = named_share(out_dir, regions)
    print("samples in compiled Java code: %d, resolved to a method: %d (%.2f %%; goal >= 99.5 %%)"
          % (in_java, named, 100.0 * named / max(in_java, 1)))
    both, agree, only_map, shared, disagreements = perfmap_agreement(out_dir, regions)
    print("methods in both the JVM's perf map and the trace: %d, same name, address and size: %d (%.2f %%; "
          "goal >= 99 %%); in the map only: %d" % (both, agree, 100.0 * agree / max(both, 1), only_map))
    print("left out: %d method handle intrinsics, which share one JVMTI method id" % shared)
    for line in disagreements:
        print(line)
    print("a few samples in the workload with their inline chains (resolved.csv):")
    for rows in deepest_samples(out_dir, 3):
        for row in rows:
            print("  %s %s depth %s  %s  %s:%s" % (row["timestamp"], row["ip"], row["depth"], row["method"],
                                                 row["source_file"], row["line"]))
    trace_file = glob.glob(out_dir + "/trace/*.jit")[0]
    method_bytes, methods, inlines, stub_bytes = trace_sizes(tool, trace_file)
    print("trace: %d compiled methods with %d inline records (%.1f per method), %.0f bytes per compiled method "
          "(inlines and code bytes included), %d bytes of stubs"
          % (methods, inlines, inlines / max(methods, 1), method_bytes / max(methods, 1), stub_bytes))


if __name__ == "__main__":
    main()
