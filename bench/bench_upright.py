#!/usr/bin/env python3
"""bench_upright.py - what `kpz preview --upright` costs (bench/, run by
scripts/bench.sh --upright; never part of the tests).

Over a corpus written by `kpz_bench_run corpus --real-jpeg ... --orientation-mix`
(manifest.tsv and orientations.tsv in CORPUS) it measures:

 1. one process for all files (-j 1 and -j 2): `kpz preview -o DIR FILE...`
    against `kpz preview --upright -o DIR FILE...` (and --edges=trim), ROUNDS
    rounds, the order of the commands alternating from round to round; per
    command the wall and CPU time (user + system of the process), and the
    geometric mean over the rounds of the paired ratio upright / plain.
 2. one process per file, file by file in pairs: `kpz preview FILE -o OUT`
    and `kpz preview --upright FILE -o OUT` back to back, which runs first
    alternating by file; the geometric mean of the per-file ratios, overall
    and for each kind of file (not turned, turned losslessly, re-encoded).
 3. against the peer, file by file in pairs on the first PEER_FILES files:
    `kpz preview --upright FILE -o OUT` against `exiftool -b -OtherImage FILE
    | jpegtran -copy all -rotate N -trim > OUT` (exiftool alone for files
    that need no turn). The peer is told each file's turn in advance (from
    orientations.tsv), so it runs exiftool once per file, not twice; both
    commands run through `bash -c`, so both pay for the same shell start.

Prints the tables (Markdown) and writes them with every figure to OUT_DIR.

  bench_upright.py --kpz build/bench/bin/kpz --corpus /tmp/c --out build/bench/report \\
      [--rounds 5] [--peer-files 100] [--pair-files 1000]
"""
import argparse
import math
import os
import resource
import shutil
import statistics
import subprocess
import sys
import time

# The jpegtran option that shows a picture of each rotation code upright.
JPEGTRAN = {
    1: ["-rotate", "90"],
    2: ["-rotate", "180"],
    3: ["-rotate", "270"],
    4: ["-flip", "horizontal"],
    5: ["-transpose"],
    6: ["-flip", "vertical"],
    7: ["-transverse"],
}


def geomean(xs):
    return math.exp(sum(math.log(x) for x in xs) / len(xs)) if xs else float("nan")


def timed(argv, shell=False):
    """Runs argv; returns (wall s, cpu s of the child, exit status)."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    t0 = time.perf_counter()
    p = subprocess.run(argv, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, shell=shell)
    t1 = time.perf_counter()
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpu = (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)
    return t1 - t0, cpu, p.returncode


def fresh(d):
    shutil.rmtree(d, ignore_errors=True)
    os.makedirs(d)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--kpz", required=True)
    ap.add_argument("--corpus", required=True)
    ap.add_argument("--out", required=True)
    ap.add_argument("--work", default=None)
    ap.add_argument("--rounds", type=int, default=5)
    ap.add_argument("--pair-files", type=int, default=1000)
    ap.add_argument("--peer-files", type=int, default=100)
    a = ap.parse_args()

    codes = {}
    with open(os.path.join(a.corpus, "orientations.tsv")) as f:
        for line in f:
            code, path = line.rstrip("\n").split("\t", 1)
            codes[path] = int(code)
    files = [line.rstrip("\n").split("\t")[5] for line in open(os.path.join(a.corpus, "manifest.tsv"))]
    work = a.work or os.path.join(a.corpus, "..", "upright-work")
    os.makedirs(a.out, exist_ok=True)
    facts = []
    out_dir = os.path.join(work, "out")

    # What kind of file each one is, from the tool's own -v lines.
    fresh(out_dir)
    p = subprocess.run([a.kpz, "preview", "--upright", "-v", "-j", "1", "-o", out_dir] + files,
                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    kind = {}
    for line in p.stderr.splitlines():
        if not line.startswith("kpz: ") or ": preview " not in line:
            continue
        path = line[5:line.index(": preview ")]
        if "not turned" in line:
            kind[path] = "not turned"
        elif "re-encoded" in line:
            kind[path] = "re-encoded"
        elif "losslessly" in line:
            kind[path] = "turned losslessly"
    written = len([n for n in os.listdir(out_dir) if n.endswith(".jpg")])
    facts.append(("upright.written", f"{written} of {len(files)}"))
    for k in ("not turned", "turned losslessly", "re-encoded"):
        facts.append((f"upright.kind.{k}", sum(1 for f in files if kind.get(f) == k)))
    size = os.path.getsize(os.path.join(out_dir, os.path.basename(files[0]).rsplit(".", 1)[0] + ".preview.jpg"))
    facts.append(("preview.bytes", size))

    # 1. one process for all files
    commands = {
        "plain.j1": [a.kpz, "preview", "-j", "1", "-o", out_dir] + files,
        "upright.j1": [a.kpz, "preview", "--upright", "-j", "1", "-o", out_dir] + files,
        "trim.j1": [a.kpz, "preview", "--upright", "--edges=trim", "-j", "1", "-o", out_dir] + files,
        "plain.j2": [a.kpz, "preview", "-j", "2", "-o", out_dir] + files,
        "upright.j2": [a.kpz, "preview", "--upright", "-j", "2", "-o", out_dir] + files,
    }
    batch = {k: [] for k in commands}
    for r in range(a.rounds):
        order = list(commands) if r % 2 == 0 else list(reversed(list(commands)))
        for k in order:
            fresh(out_dir)
            subprocess.run(["sync"])
            batch[k].append(timed(commands[k]))
        print(f"bench_upright: batch round {r + 1} of {a.rounds} done", file=sys.stderr)
    rows1 = []
    for k in commands:
        wall = statistics.median(t[0] for t in batch[k])
        cpu = statistics.median(t[1] for t in batch[k])
        rows1.append((k, wall, cpu, len(files) / wall, 1000 * cpu / len(files)))
    ratio = {}
    for k, base in (("upright.j1", "plain.j1"), ("trim.j1", "plain.j1"), ("upright.j2", "plain.j2")):
        ratio[k] = (geomean([batch[k][r][0] / batch[base][r][0] for r in range(a.rounds)]),
                    geomean([batch[k][r][1] / batch[base][r][1] for r in range(a.rounds)]))

    # 2. one process per file, in pairs
    pair_files = files[: a.pair_files]
    one = os.path.join(work, "one.jpg")
    per_kind = {}
    plain_t = []
    up_t = []
    for i, f in enumerate(pair_files):
        plain = [a.kpz, "preview", f, "-o", one]
        upright = [a.kpz, "preview", "--upright", f, "-o", one]
        if i % 2 == 0:
            tp = timed(plain)[0]
            tu = timed(upright)[0]
        else:
            tu = timed(upright)[0]
            tp = timed(plain)[0]
        plain_t.append(tp)
        up_t.append(tu)
        per_kind.setdefault(kind.get(f, "?"), []).append(tu / tp)
    all_ratios = [u / p for u, p in zip(up_t, plain_t)]

    # 3. against exiftool + jpegtran, in pairs
    have_peer = shutil.which("exiftool") and shutil.which("jpegtran")
    peer_rows = []
    if have_peer and a.peer_files > 0:
        peer_files = files[: a.peer_files]
        ours_t, theirs_t = [], []
        for i, f in enumerate(peer_files):
            ours = f"'{a.kpz}' preview --upright '{f}' -o '{one}'"
            code = codes.get(f, 0)
            if code == 0:
                theirs = f"exiftool -b -OtherImage '{f}' > '{one}'"
            else:
                theirs = (f"exiftool -b -OtherImage '{f}' | jpegtran -copy all "
                          f"{' '.join(JPEGTRAN[code])} -trim > '{one}'")
            if i % 2 == 0:
                to = timed(["bash", "-c", ours])[0]
                tt = timed(["bash", "-c", theirs])[0]
            else:
                tt = timed(["bash", "-c", theirs])[0]
                to = timed(["bash", "-c", ours])[0]
            ours_t.append(to)
            theirs_t.append(tt)
        peer_rows = [(len(peer_files), statistics.median(ours_t), statistics.median(theirs_t),
                      geomean([t / o for o, t in zip(ours_t, theirs_t)]))]

    lines = []
    lines.append(f"Corpus: {len(files)} files, every preview the same real 1616x1080 4:2:0 JPEG of "
                 f"{size} bytes; orientations: " + ", ".join(
                     f"{sum(1 for f in files if codes.get(f) == c)} code {c}" for c in sorted(set(codes.values()))) + ".")
    lines.append("Kinds (from `-v`): " + ", ".join(
        f"{sum(1 for f in files if kind.get(f) == k)} {k}" for k in ("not turned", "turned losslessly", "re-encoded")) + ".")
    lines.append("")
    lines.append(f"One process for all files, median of {a.rounds} rounds (order alternating):")
    lines.append("")
    lines.append("| command | wall s | CPU s | files/s | CPU ms per file |")
    lines.append("|---|---|---|---|---|")
    names = {"plain.j1": "`kpz preview -j 1`", "upright.j1": "`kpz preview --upright -j 1`",
             "trim.j1": "`kpz preview --upright --edges=trim -j 1`", "plain.j2": "`kpz preview -j 2`",
             "upright.j2": "`kpz preview --upright -j 2`"}
    for k, wall, cpu, fps, cpf in rows1:
        lines.append(f"| {names[k]} | {wall:.3f} | {cpu:.3f} | {fps:.0f} | {cpf:.2f} |")
    lines.append("")
    lines.append("| ratio (geometric mean of the rounds' paired ratios) | wall | CPU |")
    lines.append("|---|---|---|")
    for k, (w, c) in ratio.items():
        lines.append(f"| {names[k]} / plain | {w:.2f} x | {c:.2f} x |")
    lines.append("")
    lines.append(f"One process per file, {len(pair_files)} files in pairs (order alternating by file):")
    lines.append("")
    lines.append("| files | median ms plain | median ms --upright | --upright / plain (geometric mean) |")
    lines.append("|---|---|---|---|")
    lines.append(f"| all {len(pair_files)} | {1000 * statistics.median(plain_t):.2f} | "
                 f"{1000 * statistics.median(up_t):.2f} | {geomean(all_ratios):.2f} x |")
    for k in ("not turned", "turned losslessly", "re-encoded"):
        if k in per_kind:
            lines.append(f"| {len(per_kind[k])} {k} | | | {geomean(per_kind[k]):.2f} x |")
    if peer_rows:
        n, mo, mt, g = peer_rows[0]
        lines.append("")
        lines.append(f"Against exiftool + jpegtran, one process per file, {n} files in pairs:")
        lines.append("")
        lines.append("| files | median ms kpz --upright | median ms exiftool + jpegtran | peer / kpz (geometric mean) |")
        lines.append("|---|---|---|---|")
        lines.append(f"| {n} | {1000 * mo:.2f} | {1000 * mt:.2f} | {g:.1f} x |")
    else:
        lines.append("")
        lines.append("exiftool or jpegtran missing: no peer comparison.")
    text = "\n".join(lines) + "\n"
    with open(os.path.join(a.out, "upright.md"), "w") as f:
        f.write(text)
    with open(os.path.join(a.out, "upright-facts.txt"), "w") as f:
        for k, v in facts:
            f.write(f"{k}={v}\n")
        for k in commands:
            for r, (w, c, rc) in enumerate(batch[k]):
                f.write(f"batch.{k}.r{r}=wall {w:.4f} cpu {c:.4f} exit {rc}\n")
    sys.stdout.write(text)


if __name__ == "__main__":
    main()
