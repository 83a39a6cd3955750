#!/usr/bin/env python3
"""Turns the JSON output of korvane_scale_bench (one or more runs) into the README's
Markdown tables: each figure beside its bound and the ratio, growth slopes, files
per process. With --before OLD.json ... --after NEW.json ..., the figures of two
builds stand side by side."""
import json
import math
import sys


def load(paths):
    rows = {}
    for path in paths:
        with open(path) as handle:
            for entry in json.load(handle)["benchmarks"]:
                if entry.get("error_occurred"):
                    continue
                name, _, size = entry["name"].partition("/")
                rows[(name, int(size.split("/")[0]))] = entry
    return rows


def size_text(value):
    if value >= 1000000 and value % 1000000 == 0:
        return "%d M" % (value // 1000000)
    if value >= 1000 and value % 1000 == 0:
        return "%d k" % (value // 1000)
    return str(value)


def number(value):
    if value >= 1e6:
        return "%.2f M" % (value / 1e6)
    if value >= 1e4:
        return "%.0f k" % (value / 1e3)
    if value >= 100:
        return "%.0f" % value
    if value >= 10:
        return "%.1f" % value
    return "%.3g" % value


def slope(points):
    (x1, y1), (x2, y2) = points[0], points[-1]
    if x1 == x2 or y1 <= 0 or y2 <= 0:
        return float("nan")
    return (math.log(y2) - math.log(y1)) / (math.log(x2) - math.log(x1))


# (benchmark, label, figure counter, bound counter or constant, bound label, ratio counter)
MEASURES = [
    ("Create", "create, records/s (CPU)", "rec_per_s", "goal_rec_per_s", "goal", "x_goal"),
    ("Create", "create, MB/s", "MB_per_s", "read_MB_per_s", "`read()` of the files", "pct_of_read"),
    ("GetSymbol", "`getSymbol`, ns", "ns", "flat_ns", "flat sorted array", "x_flat"),
    ("GetSymbol", "`getSymbol`, allocations per query", "allocs_per_query", 0, "none", None),
    ("ResolveJitPoint", "`resolveJitPoint`, ns", "ns", "flat_ns", "flat sorted array", "x_flat"),
    ("ResolveJitPoint", "`resolveJitPoint`, allocations per query", "allocs_per_query", 0, "none", None),
    ("LoaderFirstQueries", "loader's first queries (modules only), s", "loader_s", "full_read_s",
     "full read", "share"),
    ("Memory", "heap beyond code, bytes per method", "beyond_code_B_per_method", "goal_B_per_method",
     "goal", None),
    ("Memory", "peak RSS of create, bytes per method", "peak_rss_B_per_method", "trace_B_per_method",
     "trace bytes", None),
]


def judged(entry, figure, bound, ratio):
    """The figure, its bound and their ratio as texts."""
    value = entry[figure]
    limit = entry[bound] if isinstance(bound, str) else bound
    if ratio:
        share = entry[ratio]
        ratio_text = ("%.2f %%" % share) if ratio.startswith("pct") else ("%.2f" % share)
    else:
        ratio_text = "%.2f" % (value / limit) if limit else "-"
    return number(value), number(limit), ratio_text


def measure_table(rows, before=None):
    sizes = sorted({size for (name, size) in rows if name == "Create"})
    if before is None:
        print("| measure | methods | figure | bound | ratio |")
        print("|---|---|---|---|---|")
    else:
        print("| measure | methods | before | bound | ratio | after | bound | ratio |")
        print("|---|---|---|---|---|---|---|---|")
    for name, label, figure, bound, bound_label, ratio in MEASURES:
        for size in sizes:
            entry = rows.get((name, size))
            if not entry:
                continue
            value, limit, ratio_text = judged(entry, figure, bound, ratio)
            if before is None:
                print("| %s | %s | %s | %s (%s) | %s |" % (label, size_text(size), value, limit, bound_label,
                                                          ratio_text))
                continue
            old = before.get((name, size))
            old_texts = judged(old, figure, bound, ratio) if old else ("-", "-", "-")
            print("| %s | %s | %s | %s | %s | %s | %s (%s) | %s |" % (
                label, size_text(size), old_texts[0], old_texts[1], old_texts[2], value, limit, bound_label,
                ratio_text))


def slope_table(rows):
    creates = sorted((size, entry["create_s"]) for (name, size), entry in rows.items() if name == "Create")
    files = sorted((size, entry["create_s"]) for (name, size), entry in rows.items() if name == "FilesPerProcess")
    print()
    print("| growth of create time (log-log slope; goal at most 1.05) | slope |")
    print("|---|---|")
    for first, second in zip(creates, creates[1:]):
        print("| methods %s → %s | %.2f |" % (size_text(first[0]), size_text(second[0]), slope([first, second])))
    if len(creates) > 2:
        print("| methods %s → %s | %.2f |" % (size_text(creates[0][0]), size_text(creates[-1][0]), slope(creates)))
    if len(files) > 1:
        print("| files per process %s → %s | %.2f |" % (files[0][0], files[-1][0], slope(files)))


def files_table(rows):
    entries = sorted((size, entry) for (name, size), entry in rows.items() if name == "FilesPerProcess")
    if not entries:
        return
    print()
    print("| files per process | files | create, s | records/s | × 1 file per process | `translateToJitRva`, ns (goal 200) |")
    print("|---|---|---|---|---|---|")
    for size, entry in entries:
        translate = rows.get(("TranslateToJitRva", size))
        print("| %d | %d | %.3f | %s | %s | %s |" % (
            size, entry["files"], entry["create_s"], number(entry["rec_per_s"]),
            "%.2f" % entry["x_1_file"] if "x_1_file" in entry else "-",
            number(translate["ns"]) if translate else "-"))


def main():
    arguments = sys.argv[1:]
    if not arguments:
        sys.stderr.write("usage: scale_table.py RESULT.json ... | --before OLD.json ... --after NEW.json ...\n")
        return 2
    if arguments[0] == "--before" and "--after" in arguments:
        split = arguments.index("--after")
        before, rows = load(arguments[1:split]), load(arguments[split + 1:])
        measure_table(rows, before)
        print("\nBefore:")
        slope_table(before)
        files_table(before)
        print("\nAfter:")
    else:
        rows = load(arguments)
        measure_table(rows)
    slope_table(rows)
    files_table(rows)
    return 0


if __name__ == "__main__":
    sys.exit(main())
