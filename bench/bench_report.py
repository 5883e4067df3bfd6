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
import os
import re
import shutil
import subprocess
import sys

# What each job does, in the order of the table.
JOBS = [
    ("Floor", "floor: open, read 64 KiB, close; open, seek, read the preview, close"),
    ("MainPath", "main path, as the JNI entry runs it (with its log lines)"),
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
            goal = f"≤ 2 × the 64 KiB read (is {num(rh, 2)} ×)"
            ok = rh is not None and rh <= 2.0
        lines.append(
            f"| {what} | {num(real, 1)} µs{spread} | {num(b.get('cpu'), 1)} µs | "
            f"{num(r, 2)} × | {goal} | {verdict(ok) if goal else ''} |")
    return lines


def counts_table(facts):
    jobs = [("main", "main path"), ("locate", "locate only"), ("parse", "parse only"),
            ("floor", "floor"), ("floorhead", "floor of locating"), ("exiv2", "libexiv2")]
    lines = [
        "| per file | " + " | ".join(name for _, name in jobs) + " | goal | result |",
        "|---|" + "---:|" * len(jobs) + "---|---|",
    ]

    def row(title, key, digits, goal="", ok=None):
        cells = [num(fget(facts, key.format(job)), digits) for job, _ in jobs]
        lines.append(f"| {title} | " + " | ".join(cells) + f" | {goal} | {verdict(ok) if goal else ''} |")

    locate_norep = fget(facts, "instr.locate.norep")
    row("user-space instructions, callgrind (memset/memcpy as vector loops)", "instr.{}.norep", 0,
        "locate ≤ 20,000", None if locate_norep is None else locate_norep <= 20000)
    locate_default = fget(facts, "instr.locate.default")
    row("user-space instructions, callgrind (glibc defaults: rep stos/movs counted per iteration)",
        "instr.{}.default", 0, "locate ≤ 20,000",
        None if locate_default is None else locate_default <= 20000)
    main_calls = fget(facts, "syscalls.main")
    row("system calls (strace -c -f, log lines included)", "syscalls.{}", 1, "main path ≤ 12",
        None if main_calls is None else main_calls <= 12)
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


def cli_table(facts):
    files = fget(facts, "cli.files", int)
    rows = [("kpz preview -j N -o DIR", "one process for all files, N files read at once; "
             "outputs written durably (fsync, rename)", "kpzbatch"),
            ("kpz preview", "one process per file; output file written durably (fsync, rename)", "kpz"),
            ("kpz preview FILE -o -", "one process per file; JPEG to standard output, discarded (no file)",
             "kpzstdout"),
            ("exiv2 -ep2", "one process for all files (-j N: N processes)", "exiv2.batch"),
            ("exiv2 -ep2", "one process per file", "exiv2.each"),
            ("exiftool -b -OtherImage -w", "one process for all files (-j N: N processes)",
             "exiftool.batch")]
    n = facts.get("machine.nproc", "N")
    lines = [f"| tool | how | files/s at -j 1 | files/s at -j {n} | scaling 1 → {n} | outputs written |",
             "|---|---|---:|---:|---:|---|"]
    for tool, how, key in rows:
        s1 = fget(facts, f"cli.{key}.j1.seconds")
        sn = fget(facts, f"cli.{key}.jN.seconds")
        if s1 is None and sn is None:
            continue
        f1 = None if not s1 or files is None else files / s1
        fn = None if not sn or files is None else files / sn
        outs = f"{facts.get(f'cli.{key}.j1.outputs', '?')} / {facts.get(f'cli.{key}.jN.outputs', '?')}"
        if key == "kpzstdout":
            outs = "none (by design)"
        lines.append(f"| `{tool}` | {how} | {num(f1, 0)} | {num(fn, 0)} | {num(ratio(fn, f1), 2)} × | {outs} |")
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
    print(f"- run: {facts.get('machine.date', '?')}; load average at start "
          f"{facts.get('load.start', '?')}, before timing {facts.get('load.before_timing', '?')}, "
          f"after timing {facts.get('load.after_timing', '?')}, at end {facts.get('load.end', '?')}")
    if facts.get("version.exiv2") or facts.get("version.exiftool"):
        print(f"- compared: {facts.get('version.exiv2', 'exiv2 missing')}, exiftool "
              f"{facts.get('version.exiftool', 'missing')}")
    corpus_mb = fget(facts, "corpus.bytes")
    print(f"- corpus: {facts.get('corpus.files', '?')} files, "
          f"{num(None if corpus_mb is None else corpus_mb / 1e6, 0)} MB, generated in "
          f"{facts.get('corpus.seconds', '?')} s")
    if facts.get("quick") == "1":
        print("- **quick run**: small sizes, one repetition; not for publishing")

    print("\n## Time per file (main corpus, warm page cache)\n")
    print("\n".join(main_table(facts, bench)))
    print("\n## Counts per file\n")
    print("\n".join(counts_table(facts)))

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
    print("\nOne process per file: N processes at a time through xargs -P N.")
    if facts.get("cli.kpz_batch") == "no":
        print("`kpz preview` takes one file per run here (no batch mode, no -j).")
    loads = [facts.get(f"cli.{key}.{j}.load")
             for key in ("kpzbatch", "kpz", "kpzstdout", "exiv2.batch", "exiv2.each", "exiftool.batch")
             for j in ("j1", "jN")]
    loads = [l for l in loads if l]
    if loads:
        print(f"1-minute load average after each pass: {', '.join(loads)}.")
    same = [f"{tool}: {'same bytes' if facts.get(f'cli.{tool}.same_bytes') == 'yes' else 'DIFFERENT bytes'}"
            for tool in ("exiv2", "exiftool") if facts.get(f"cli.{tool}.same_bytes")]
    if same:
        print("Preview written by the other tools compared with kpz's: " + "; ".join(same) + ".")
    made = plot(out_dir, size_jobs, files_jobs)
    if made:
        print("\nPlots: " + ", ".join(os.path.join(out_dir, m) for m in made))
    return 0


if __name__ == "__main__":
    sys.exit(main())
