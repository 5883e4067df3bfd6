#!/usr/bin/env python3
"""Turns what scripts/bench.sh measured into the performance table.

Reads, from the report directory given as the only argument:
  facts.txt             key=value lines written by scripts/bench.sh
  bench-main.json       Google Benchmark output over the main corpus
  bench-size-<B>.json   the same jobs over previews of B bytes
  bench-files-<N>.json  the main path and the floor over the first N files
Prints the tables as Markdown on standard output, writes size.dat and
files.dat, and renders plot-size.png and plot-files.png when gnuplot is
installed. Uses only the Python standard library.

    python3 bench/bench_report.py build/bench/report
"""
import glob
import json
import math
import os
import re
import shutil
import subprocess
import sys

# What each job does, in the order of the table.
JOBS = [
    ("Floor", "floor: open, read 64 KiB, close; open, seek, read the preview, close"),
    ("MainPath", "main path, as the JNI entry runs it (with its log lines)"),
    ("Descriptor", "descriptor path, as getScreennailFromFd runs it (with the app's open and close)"),
    ("FloorHead64K", "floor of locating: open, read 64 KiB, close"),
    ("LocateOnly", "locate only: Initialize + GetScreennailInfo (+ Finalize)"),
    ("ParseBuffer", "parse only: InitializeBuf over the head in memory + every query"),
    ("Exiv2PreviewManager", "libexiv2 PreviewManager: open, read metadata, largest preview"),
]


def read_facts(path):
    facts = {}
    if os.path.exists(path):
        with open(path, encoding="utf-8") as f:
            for line in f:
                key, sep, value = line.rstrip("\n").partition("=")
                if sep:
                    facts[key] = value
    return facts


def read_bench(path):
    """{job: {"real": us, "cpu": us, "cv": fraction or None}} of one JSON file."""
    if not os.path.exists(path):
        return {}
    with open(path, encoding="utf-8") as f:
        data = json.load(f)
    scale = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}
    result = {}
    iterations = {}
    for b in data.get("benchmarks", []):
        job = b.get("run_name", b["name"]).split("/")[0]
        if b.get("error_occurred"):
            result[job] = {"error": b.get("error_message", "failed")}
            continue
        unit = scale[b.get("time_unit", "ns")]
        if b.get("run_type") == "aggregate":
            entry = result.setdefault(job, {})
            name = b.get("aggregate_name")
            if name == "median":
                entry["real"] = b["real_time"] * unit
                entry["cpu"] = b["cpu_time"] * unit
            elif name == "cv":
                entry["cv"] = b["real_time"]
        else:
            iterations.setdefault(job, []).append(b)
    # Without repetitions there are no aggregates: take the single run.
    for job, runs in iterations.items():
        if job not in result:
            b = runs[0]
            unit = scale[b.get("time_unit", "ns")]
            result[job] = {"real": b["real_time"] * unit, "cpu": b["cpu_time"] * unit}
    return result


def num(value, digits=0):
    if value is None:
        return "n/a"
    return f"{value:,.{digits}f}"


def ratio(a, b):
    if a is None or b is None or b == 0:
        return None
    return a / b


def verdict(ok):
    if ok is None:
        return "n/a"
    return "met" if ok else "**missed**"


def fget(facts, key, kind=float):
    try:
        return kind(facts[key])
    except (KeyError, ValueError):
        return None


def main_table(facts, bench):
    floor = bench.get("Floor", {}).get("real")
    head = bench.get("FloorHead64K", {}).get("real")
    lines = [
        "| job | wall time per file (median) | CPU time per file | ratio to the floor | goal | result |",
        "|---|---:|---:|---:|---|---|",
    ]
    for job, what in JOBS:
        b = bench.get(job)
        if b is None:
            continue
        if "error" in b:
            lines.append(f"| {what} | failed: {b['error']} | | | | |")
            continue
        real = b.get("real")
        cv = b.get("cv")
        spread = f" (±{cv * 100:.0f} %)" if cv is not None else ""
        r = ratio(real, floor)
        goal = ""
        ok = None
        if job == "MainPath":
            goal = "≤ 1.05 × floor"
            ok = r is not None and r <= 1.05
        elif job == "LocateOnly":
            rh = ratio(real, head)
            goal = f"≤ 1.6 × the 64 KiB read (is {num(rh, 2)} ×)"
            ok = rh is not None and rh <= 1.6
        lines.append(
            f"| {what} | {num(real, 1)} µs{spread} | {num(b.get('cpu'), 1)} µs | "
            f"{num(r, 2)} × | {goal} | {verdict(ok) if goal else ''} |")
    return lines


def counts_table(facts):
    jobs = [("main", "main path"), ("fd", "descriptor path"), ("locate", "locate only"),
            ("parse", "parse only"), ("floor", "floor"), ("floorhead", "floor of locating"),
            ("exiv2", "libexiv2")]
    lines = [
        "| per file | " + " | ".join(name for _, name in jobs) + " | goal | result |",
        "|---|" + "---:|" * len(jobs) + "---|---|",
    ]

    def row(title, key, digits, goal="", ok=None):
        cells = [num(fget(facts, key.format(job)), digits) for job, _ in jobs]
        lines.append(f"| {title} | " + " | ".join(cells) + f" | {goal} | {verdict(ok) if goal else ''} |")

    locate_norep = fget(facts, "instr.locate.norep")
    row("user-space instructions, callgrind (memset/memcpy as vector loops)", "instr.{}.norep", 0,
        "locate ≤ 15,000", None if locate_norep is None else locate_norep <= 15000)
    row("user-space instructions, callgrind (glibc defaults: rep stos/movs counted per iteration)",
        "instr.{}.default", 0)
    locate_allocs = fget(facts, "allocs.locate")
    row("heap allocations (malloc of the bench binary, steady state)", "allocs.{}", 1,
        "locate ≤ 16", None if locate_allocs is None else locate_allocs <= 16)
    main_calls = fget(facts, "syscalls.main")
    floor_calls = fget(facts, "syscalls.floor")
    log_calls = fget(facts, "syscalls.main.entry_log")
    extra = None
    if main_calls is not None and floor_calls is not None and log_calls is not None:
        extra = main_calls - floor_calls - log_calls
    row("system calls (strace -c -f, log lines included)", "syscalls.{}", 1,
        f"main path ≤ floor + 2, not counting the {num(log_calls)} calls of the entry's log "
        f"lines (is floor + {num(extra, 1)})", None if extra is None else extra <= 2)
    rss = {job: fget(facts, f"maxrss_kib.{job}") for job, _ in jobs}
    cells = [num(None if rss[j] is None else rss[j] / 1024.0, 2) for j, _ in jobs]
    extra = None
    if rss.get("main") is not None and rss.get("floor") is not None:
        extra = (rss["main"] - rss["floor"]) / 1024.0
    lines.append("| peak resident memory of the process, MiB (all files, one process) | " +
                 " | ".join(cells) +
                 f" | main ≤ floor + 1 MB (is {num(extra, 2)} MiB above) | "
                 f"{verdict(None if extra is None else extra * 1.048576 <= 1.0)} |")
    return lines


def paired_table(facts):
    lines = ["| library | pairs | geometric mean of main path / floor | median | quartiles | "
             "main path µs/file | floor µs/file | goal | result |",
             "|---|---:|---:|---:|---|---:|---:|---|---|"]
    for prefix, name in (("before.paired", f"before ({facts.get('before.rev', '?')})"),
                         ("paired", "now")):
        g = fget(facts, f"{prefix}.geomean")
        if g is None:
            continue
        lines.append(
            f"| {name} | {num(fget(facts, prefix + '.pairs'))} | {num(g, 3)} × | "
            f"{num(fget(facts, prefix + '.median'), 3)} × | {num(fget(facts, prefix + '.q1'), 2)} – "
            f"{num(fget(facts, prefix + '.q3'), 2)} | {num(fget(facts, prefix + '.main_us'), 1)} | "
            f"{num(fget(facts, prefix + '.floor_us'), 1)} | ≤ 1.05 × | {verdict(g <= 1.05)} |")
    return lines


def ifd0_table(facts):
    totals = sorted({int(k.split(".")[1]) for k in facts if re.match(r"ifd0\.\d+\.us$", k)})
    lines = ["| entries in IFD0 | locate µs/file | instructions per file | files located |",
             "|---:|---:|---:|---|"]
    for t in totals:
        jobs = fget(facts, f"ifd0.{t}.jobs", int)
        failed = fget(facts, f"ifd0.{t}.failed", int)
        located = "n/a" if jobs is None or failed is None else (
            "all" if failed == 0 else ("none (-307: IFD0 runs past the 64 KiB head)"
                                       if failed == jobs else f"{jobs - failed} of {jobs}"))
        lines.append(f"| {t:,} | {num(fget(facts, f'ifd0.{t}.us'), 1)} | "
                     f"{num(fget(facts, f'ifd0.{t}.instr'))} | {located} |")
    return lines


def before_after_table(facts):
    if "before.rev" not in facts:
        return []
    rows = [
        ("instructions to locate (callgrind, vector string functions)", "before.instr.locate.norep",
         "instr.locate.norep", 0),
        ("instructions of the main path", "before.instr.main.norep", "instr.main.norep", 0),
        ("heap allocations to locate (Initialize + Finalize)", "before.allocs.locate",
         "allocs.locate", 1),
        ("heap allocations of the main path", "before.allocs.main", "allocs.main", 1),
        ("system calls to locate", "before.syscalls.locate", "syscalls.locate", 1),
        ("system calls of the main path", "before.syscalls.main", "syscalls.main", 1),
        ("locate µs/file (plain loop, 20 rounds)", "before.us.locate", "after.us.locate", 1),
        ("main path µs/file (plain loop, 20 rounds)", "before.us.main", "after.us.main", 1),
        ("main path / floor, paired geometric mean", "before.paired.geomean", "paired.geomean", 3),
    ]
    lines = [f"| per file | before ({facts['before.rev']}) | now | now / before |",
             "|---|---:|---:|---:|"]
    for title, before_key, after_key, digits in rows:
        b = fget(facts, before_key)
        a = fget(facts, after_key)
        lines.append(f"| {title} | {num(b, digits)} | {num(a, digits)} | {num(ratio(a, b), 2)} × |")
    head = fget(facts, "before.us.floorhead")
    for key, name in (("before.us.locate", "before"), ("after.us.locate", "now")):
        r = ratio(fget(facts, key), head)
        lines.append(f"| locate / the 64 KiB read, {name} (plain loop) | | {num(r, 2)} × | |")
    return lines


def sweep(out_dir, pattern, key_name):
    """[(key, {job: real_us})] sorted by key, from files bench-<pattern>-<key>.json."""
    points = []
    for path in glob.glob(os.path.join(out_dir, f"bench-{pattern}-*.json")):
        m = re.search(rf"bench-{pattern}-(\d+)\.json$", path)
        if not m:
            continue
        data = read_bench(path)
        points.append((int(m.group(1)), {job: v.get("real") for job, v in data.items()}))
    points.sort()
    return points


def sweep_table(points, jobs, key_title, key_fmt):
    lines = [f"| {key_title} | " + " | ".join(f"{j} µs/file" for j in jobs) +
             " | main path / floor |",
             "|---:|" + "---:|" * (len(jobs) + 1)]
    for key, values in points:
        cells = [num(values.get(j), 1) for j in jobs]
        r = ratio(values.get("MainPath"), values.get("Floor"))
        lines.append(f"| {key_fmt(key)} | " + " | ".join(cells) + f" | {num(r, 2)} × |")
    return lines


def median(values):
    values = sorted(v for v in values if v is not None)
    if not values:
        return None
    mid = len(values) // 2
    return values[mid] if len(values) % 2 else (values[mid - 1] + values[mid]) / 2


def geomean(values):
    values = [v for v in values if v is not None and v > 0]
    if not values:
        return None
    return math.exp(sum(math.log(v) for v in values) / len(values))


def cli_runs(facts, tool, how):
    """[(round, wall s, cpu s, outputs)] of the passes cli.r<k>.<tool>.<how>."""
    runs = []
    rounds = fget(facts, "cli.rounds", int) or 0
    for r in range(rounds):
        wall = fget(facts, f"cli.r{r}.{tool}.{how}.wall")
        if wall is None:
            continue
        runs.append((r, wall, fget(facts, f"cli.r{r}.{tool}.{how}.cpu"),
                     facts.get(f"cli.r{r}.{tool}.{how}.outputs", "?")))
    return runs


CLI_ROWS = [
    ("kpz", "batch", "`kpz preview -j N -o DIR FILE...`",
     "one process for all files, N files read at once"),
    ("exiv2", "batch", "`exiv2 -q -ep2 -f -l DIR FILE...`",
     "one process for all files (at -j 2: two processes, half the files each)"),
    ("exiftool", "batch", "`exiftool -q -b -OtherImage -w DIR/%f.other.jpg FILE...`",
     "one process for all files (at -j 2: two processes, half the files each)"),
    ("kpzsync", "batch", "`kpz preview --sync -j N -o DIR FILE...`",
     "as the first row, each output flushed to the disk (one round only)"),
    ("kpz", "each", "`kpz preview FILE`", "one process per file, N at a time"),
    ("exiv2", "each", "`exiv2 -q -ep2 -f -l DIR FILE`", "one process per file, N at a time"),
]


def cli_table(facts):
    files = fget(facts, "cli.files", int)
    n = facts.get("cli.jobs", facts.get("machine.nproc", "N"))
    lines = [f"| command | how | files/s at -j 1 | files/s at -j {n} | scaling 1 → {n} | "
             f"CPU per file at -j 1 | CPU per file at -j {n} | outputs written |",
             "|---|---|---:|---:|---:|---:|---:|---|"]
    for tool, kind, command, how in CLI_ROWS:
        cells = {}
        for j in ("j1", "jN"):
            runs = cli_runs(facts, tool, f"{kind}.{j}")
            wall = median([w for _, w, _, _ in runs])
            cpu = median([c for _, _, c, _ in runs])
            cells[j] = (None if not wall or not files else files / wall,
                        None if cpu is None or not files else cpu / files * 1000.0,
                        sorted(set(o for _, _, _, o in runs)))
        if cells["j1"][0] is None and cells["jN"][0] is None:
            continue
        outs = " / ".join(",".join(cells[j][2]) or "?" for j in ("j1", "jN"))
        lines.append(
            f"| {command} | {how} | {num(cells['j1'][0])} | {num(cells['jN'][0])} | "
            f"{num(ratio(cells['jN'][0], cells['j1'][0]), 2)} × | {num(cells['j1'][1], 2)} ms | "
            f"{num(cells['jN'][1], 2)} ms | {outs} of {files} |")
    return lines


def cli_ratio_table(facts):
    """kpz against each peer: geometric mean of the rounds' paired ratios of files/s."""
    n = facts.get("cli.jobs", "N")
    goals = {("exiv2", "batch"): 2.0, ("exiv2", "each"): 1.5}
    lines = [f"| kpz against | how | at -j 1 (wall) | at -j {n} (wall) | at -j 1 (CPU) | "
             f"at -j {n} (CPU) | goal | result |",
             "|---|---|---:|---:|---:|---:|---|---|"]
    for peer, kind in (("exiv2", "batch"), ("exiftool", "batch"), ("exiv2", "each")):
        wall = {}
        cpu = {}
        for j in ("j1", "jN"):
            ours = {r: (w, c) for r, w, c, _ in cli_runs(facts, "kpz", f"{kind}.{j}")}
            theirs = {r: (w, c) for r, w, c, _ in cli_runs(facts, peer, f"{kind}.{j}")}
            paired = [r for r in ours if r in theirs]
            wall[j] = geomean([ratio(theirs[r][0], ours[r][0]) for r in paired])
            cpu[j] = geomean([ratio(theirs[r][1], ours[r][1]) for r in paired])
        if wall["j1"] is None and wall["jN"] is None:
            continue
        goal = goals.get((peer, kind))
        if peer == "exiftool":
            exiv2 = [v for v in (wall_of(facts, "exiv2", kind, "j1"), wall_of(facts, "exiv2", kind, "jN"))]
            goal_text = "more than against exiv2"
            ok = all(w is not None and e is not None and w > e
                     for w, e in zip((wall["j1"], wall["jN"]), exiv2))
        else:
            goal_text = f"≥ {goal:g} × at -j 1 and -j {n}"
            ok = all(w is not None and w >= goal for w in (wall["j1"], wall["jN"]))
        how = "one process for all files" if kind == "batch" else "one process per file"
        lines.append(f"| {peer} | {how} | {num(wall['j1'], 2)} × | {num(wall['jN'], 2)} × | "
                     f"{num(cpu['j1'], 2)} × | {num(cpu['jN'], 2)} × | {goal_text} | {verdict(ok)} |")
    return lines


def wall_of(facts, peer, kind, j):
    ours = {r: w for r, w, _, _ in cli_runs(facts, "kpz", f"{kind}.{j}")}
    theirs = {r: w for r, w, _, _ in cli_runs(facts, peer, f"{kind}.{j}")}
    return geomean([ratio(theirs[r], ours[r]) for r in ours if r in theirs])


def cli_size_table(facts):
    sizes = sorted({int(m.group(1)) for k in facts
                    for m in [re.match(r"cli\.size\.(\d+)\.files$", k)] if m})
    if not sizes:
        return []
    lines = ["| preview | files | kpz files/s | exiv2 files/s | kpz / exiv2 (paired, geometric mean) |",
             "|---:|---:|---:|---:|---:|"]
    for size in sizes:
        n = fget(facts, f"cli.size.{size}.files", int)
        rounds = sorted({int(m.group(1)) for k in facts
                         for m in [re.match(rf"cli\.size\.{size}\.r(\d+)\.kpz\.wall$", k)] if m})
        ours = {r: fget(facts, f"cli.size.{size}.r{r}.kpz.wall") for r in rounds}
        theirs = {r: fget(facts, f"cli.size.{size}.r{r}.exiv2.wall") for r in rounds}
        kw = median(list(ours.values()))
        ew = median(list(theirs.values()))
        paired = geomean([ratio(theirs[r], ours[r]) for r in rounds if theirs.get(r)])
        lines.append(f"| {size / 1024:,.0f} KiB | {n} | {num(None if not kw else n / kw)} | "
                     f"{num(None if not ew else n / ew)} | {num(paired, 2)} × |")
    return lines


def write_dat(path, header, points, jobs, key_fn):
    with open(path, "w", encoding="utf-8") as f:
        f.write("# " + " ".join([header] + jobs) + "\n")
        for key, values in points:
            cells = [f"{values[j]:.3f}" if values.get(j) is not None else "NaN" for j in jobs]
            f.write(" ".join([key_fn(key)] + cells) + "\n")


def plot(out_dir, size_jobs, files_jobs):
    if shutil.which("gnuplot") is None:
        return []
    titles = {"MainPath": "main path", "Floor": "floor", "LocateOnly": "locate only",
              "Exiv2PreviewManager": "libexiv2 PreviewManager"}
    made = []
    size_dat = os.path.join(out_dir, "size.dat")
    files_dat = os.path.join(out_dir, "files.dat")
    script = ['set terminal pngcairo size 720,440 font ",10"', "set grid", "set key top left"]
    if os.path.exists(size_dat):
        parts = [f"'{size_dat}' using 1:{i + 2} with linespoints title '{titles.get(j, j)}'"
                 for i, j in enumerate(size_jobs)]
        script += [f"set output '{os.path.join(out_dir, 'plot-size.png')}'",
                   "set title 'Time per file against preview length (warm page cache)'",
                   "set logscale xy", "set xlabel 'preview length (MiB)'",
                   "set ylabel 'wall time per file (µs)'", "plot " + ", ".join(parts)]
        made.append("plot-size.png")
    if os.path.exists(files_dat):
        parts = [f"'{files_dat}' using 1:{i + 2} with linespoints title '{titles.get(j, j)}'"
                 for i, j in enumerate(files_jobs)]
        script += [f"set output '{os.path.join(out_dir, 'plot-files.png')}'",
                   "set title 'Time per file against number of files (one process)'",
                   "set logscale x", "unset logscale y", "set yrange [0:*]",
                   "set xlabel 'files in the set'", "set ylabel 'wall time per file (µs)'",
                   "plot " + ", ".join(parts)]
        made.append("plot-files.png")
    subprocess.run(["gnuplot"], input="\n".join(script) + "\n", text=True, check=False)
    return made


def main():
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    out_dir = sys.argv[1]
    facts = read_facts(os.path.join(out_dir, "facts.txt"))
    bench = read_bench(os.path.join(out_dir, "bench-main.json"))

    print("## Machine\n")
    print(f"- CPU: {facts.get('machine.cpu', '?')}, {facts.get('machine.nproc', '?')} cores "
          f"(nproc), {facts.get('machine.mem_total', '?')} RAM")
    print(f"- kernel: {facts.get('machine.kernel', '?')}; compiler: {facts.get('machine.compiler', '?')}")
    loads = [f"at start {facts.get('load.start', '?')}"]
    if facts.get("load.before_timing"):
        loads.append(f"before timing {facts['load.before_timing']}, after timing "
                     f"{facts.get('load.after_timing', '?')}")
    if facts.get("load.before_cli"):
        loads.append(f"before the command-line passes {facts['load.before_cli']}")
    loads.append(f"at end {facts.get('load.end', '?')}")
    print(f"- run: {facts.get('machine.date', '?')}; load average " + ", ".join(loads))
    if facts.get("version.exiv2") or facts.get("version.exiftool"):
        print(f"- compared: {facts.get('version.exiv2', 'exiv2 missing')}, exiftool "
              f"{facts.get('version.exiftool', 'missing')}")
    corpus_mb = fget(facts, "corpus.bytes")
    if facts.get("corpus.files"):
        print(f"- corpus: {facts.get('corpus.files', '?')} files, "
              f"{num(None if corpus_mb is None else corpus_mb / 1e6, 0)} MB, generated in "
              f"{facts.get('corpus.seconds', '?')} s")
    if facts.get("quick") == "1":
        print("- **quick run**: small sizes, one repetition; not for publishing")

    if bench:
        print("\n## Time per file (main corpus, warm page cache)\n")
        print("\n".join(main_table(facts, bench)))
        print("\n## Counts per file\n")
        print("\n".join(counts_table(facts)))
        print("\n## The main path against the floor, file by file in pairs\n")
        print("\n".join(paired_table(facts)))
        print("\nEach pair runs the two back to back, library first on even (file + pass) "
              "and floor first on odd ones; the ratio is the geometric mean over all pairs.")
        ba = before_after_table(facts)
        if ba:
            print("\n## Before and after (the same harness, corpus and machine)\n")
            print("\n".join(ba))
        print("\n## Locating against the number of entries in IFD0 (8 files)\n")
        print("\n".join(ifd0_table(facts)))
        print("\nIFD0 of these files holds the standard file's 7 entries (its whole "
              "target set); the others are tags no parser keeps, placed before them, "
              "so that each is read. Past about 5,400 entries IFD0 runs beyond the 64 KiB "
              "head and locating fails as specified, after reading what the head holds.")
    if facts.get("cli_only") == "1":
        print("- **command-line part only** (--cli-only)")

    size_jobs = ["MainPath", "Floor", "LocateOnly", "Exiv2PreviewManager"]
    size_points = sweep(out_dir, "size", "bytes")
    if size_points:
        present = [j for j in size_jobs if any(v.get(j) is not None for _, v in size_points)]
        write_dat(os.path.join(out_dir, "size.dat"), "preview_MiB", size_points, present,
                  lambda k: f"{k / 1048576:.4f}")
        print("\n## Against preview length (8 files each)\n")
        print("\n".join(sweep_table(size_points, present, "preview",
                                    lambda k: f"{k / 1024:,.0f} KiB")))
        size_jobs = present
    files_jobs = ["MainPath", "Floor"]
    files_points = sweep(out_dir, "files", "files")
    if files_points:
        write_dat(os.path.join(out_dir, "files.dat"), "files", files_points, files_jobs, str)
        print("\n## Against number of files (one process going round the set)\n")
        print("\n".join(sweep_table(files_points, files_jobs, "files", str)))
    print(f"\n## Command-line tools over {facts.get('cli.files', '?')} files\n")
    print("\n".join(cli_table(facts)))
    print(f"\nMedians over {facts.get('cli.rounds', '?')} rounds; CPU is user + system time of "
          "everything the pass ran. -j N for exiv2 and exiftool: N processes through xargs -P N. "
          "Before every pass the last pass's outputs are removed and dirty pages written back "
          "(sync, untimed).\n")
    print("\n".join(cli_ratio_table(facts)))
    print("\nEach ratio: files/s of kpz over files/s of the peer (for CPU: the peer's CPU time "
          "over kpz's) in the same round, the tools' order alternating from round to round; "
          "the geometric mean of the rounds.")
    loads = [facts[k] for k in sorted(facts) if re.match(r"cli\.r\d+\..*\.load$", k)]
    if loads:
        print(f"1-minute load average after the passes: {min(loads, key=float)} to "
              f"{max(loads, key=float)}.")
    written = facts.get("cli.kpz.written")
    same = [f"{tool}: {facts[f'cli.{tool}.same']} of {written} identical"
            for tool in ("exiv2", "exiftool") if facts.get(f"cli.{tool}.same")]
    if same:
        print("Every preview compared with kpz's, byte for byte: " + "; ".join(same) + ".")
    size = cli_size_table(facts)
    if size:
        print("\n## Command-line tools against preview length (one process, -j 1)\n")
        print("\n".join(size))
    made = plot(out_dir, size_jobs, files_jobs)
    if made:
        print("\nPlots: " + ", ".join(os.path.join(out_dir, m) for m in made))
    return 0


if __name__ == "__main__":
    sys.exit(main())
