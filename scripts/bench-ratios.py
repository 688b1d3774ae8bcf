#!/usr/bin/env python3
"""Prints the tables of Google Benchmark's JSON files: for each "group/variant/size" the time per step and the
ratio to the variant "pimbsr" of the same group and size (above 1: slower than ours), or, in a group
without one, to the group's first variant."""

import json
import sys

OURS = "pimbsr"
NANOSECONDS = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
MODIFIERS = ("real_time", "process_time", "manual_time")
# What a run says of itself; all else is a counter of the benchmark's own.
STANDARD = {"name", "family_index", "per_family_instance_index", "run_name", "run_type", "repetitions",
            "repetition_index", "threads", "iterations", "real_time", "cpu_time", "time_unit", "label",
            "aggregate_name", "aggregate_unit", "error_occurred", "error_message"}


def split_name(name):
    """(group, variant, size) of a benchmark's run name, without what Google Benchmark adds ("/repeats:3")."""
    parts = [p for p in name.split("/") if ":" not in p and p not in MODIFIERS]
    if len(parts) < 2:
        return name, OURS, ""
    return parts[0], parts[1], "/".join(parts[2:])


def nanoseconds(run):
    measured = "real_time" if "real_time" in run["name"] or "manual_time" in run["name"] else "cpu_time"
    return run[measured] * NANOSECONDS[run.get("time_unit", "ns")]


def read(report):
    """{group: {size: {variant: ns}}}; of repeated runs the median, else the fastest."""
    medians = {r["run_name"]: r for r in report["benchmarks"] if r.get("aggregate_name") == "median"}
    groups = {}
    for run in report["benchmarks"]:
        if run.get("run_type") == "aggregate":
            continue
        name = run.get("run_name", run["name"])
        group, variant, size = split_name(name)
        if run.get("error_occurred"):
            raise SystemExit(f"{name}: {run.get('error_message', 'failed')}")
        times = groups.setdefault(group, {}).setdefault(size, {})
        time = nanoseconds(medians.get(name, run))
        times[variant] = min(time, times.get(variant, time))
    return groups


def counters(report):
    """A line for each counter of each benchmark; of repeated runs the median, else the last."""
    lines = {}
    for run in report["benchmarks"]:
        if run.get("aggregate_name", "median") != "median":
            continue
        for counter in sorted(run.keys() - STANDARD):
            lines[run["run_name"], counter] = f"{run['run_name']}  {run[counter]:,.1f} {counter}"
    return list(lines.values())


def table(group, sizes):
    """The lines of one group: a row for each size, a column for each variant, the base first."""
    variants = list(dict.fromkeys(v for times in sizes.values() for v in times))
    base = OURS if OURS in variants else variants[0]
    variants.sort(key=lambda v: v != base)
    rows = [[group] + variants]
    for size, times in sizes.items():
        row = [size or "-"]
        for variant in variants:
            text = f"{times[variant]:,.1f} ns" if variant in times else "-"
            if variant != base and variant in times and times.get(base):
                text += f" ({times[variant] / times[base]:.2f}x)"
            row.append(text)
        rows.append(row)
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    return ["  ".join(cell.rjust(width) for cell, width in zip(row, widths)) for row in rows]


def excess(groups, most):
    """A line for each variant that takes more than `most` times as long as the base of its group."""
    lines = []
    for group, sizes in groups.items():
        for size, times in sizes.items():
            base = times.get(OURS, next(iter(times.values())))
            lines += [f"{group}/{variant}/{size}: {time / base:.2f} times its base, at most {most} is the aim"
                      for variant, time in times.items() if time > most * base]
    return lines


def main(files):
    """Words: JSON files; `--at-most N` before them makes a greater ratio than N a failure."""
    most = None
    if files[:1] == ["--at-most"]:
        most, files = float(files[1]), files[2:]
    failed = []
    for file in files:
        with open(file, encoding="utf-8") as stream:
            report = json.load(stream)
        groups = read(report)
        failed += excess(groups, most) if most else []
        for group, sizes in groups.items():
            print("\n".join(table(group, sizes)), end="\n\n")
        for line in counters(report):
            print(line)
    if failed:
        sys.exit("\n".join(failed))


if __name__ == "__main__":
    main(sys.argv[1:])
