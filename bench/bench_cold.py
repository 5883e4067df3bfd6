#!/usr/bin/python3
"""Cold page cache: how many bytes each way of taking out a preview reads from
the disk, and how long it takes, when the files are not in the page cache yet.

Run by `scripts/bench.sh --cold`; writes cold.md (the table) and cold.json
(every pass) into --out. For every pass of every job the page cache of the
corpus is emptied first (posix_fadvise POSIX_FADV_DONTNEED on every file,
checked with fincore when it is installed), then the job runs once over the
whole corpus as one process. Bytes read from the disk are the growth of
/proc/vmstat pgpgin over the pass (the whole machine's reads: other programs
reading at the same time add to it) and, as a cross-check, the process's own
block input (getrusage ru_inblock of the child, which counts the reads it
started, readahead included). The jobs run in alternating order from round to
round, and every ratio of wall times is the geometric mean of the per-round
paired ratios. With --readahead-kb the rounds are repeated for each value of
the disk's read_ahead_kb (set through sysfs, as root; the old value is put
back at the end).

The need of a preview job is the 64 KiB head plus the preview's bytes per
file; of locating, the 64 KiB head.
"""
import argparse
import json
import math
import os
import shutil
import statistics
import subprocess
import sys
import time

from bench_common import geomean, load_manifest

HEAD = 65536
MiB = 1048576.0


def pgpgin_kib():
    with open("/proc/vmstat") as f:
        for line in f:
            name, value = line.split()
            if name == "pgpgin":
                return int(value)  # the kernel reports it in KiB
    raise RuntimeError("no pgpgin in /proc/vmstat")


def drop_cache(paths):
    for p in paths:
        fd = os.open(p, os.O_RDONLY)
        try:
            os.posix_fadvise(fd, 0, 0, os.POSIX_FADV_DONTNEED)
        finally:
            os.close(fd)


def resident_bytes(paths):
    """Bytes of `paths` in the page cache (fincore), or None without fincore."""
    if shutil.which("fincore") is None:
        return None
    out = subprocess.run(["fincore", "--bytes", "--noheadings", "--raw", "-o", "RES"] + paths,
                         check=True, capture_output=True, text=True).stdout
    return sum(int(x) for x in out.split())


def readahead_file(directory):
    st = os.stat(directory)
    base = "/sys/dev/block/%d:%d" % (os.major(st.st_dev), os.minor(st.st_dev))
    for cand in (base + "/queue/read_ahead_kb", base + "/../queue/read_ahead_kb"):
        if os.path.exists(cand):
            return os.path.realpath(cand)
    return None


def read_int(path):
    with open(path) as f:
        return int(f.read().strip())


def run_once(cmd):
    """Runs `cmd`; returns (exit code, wall seconds, ru_inblock in bytes)."""
    start = time.perf_counter()
    proc = subprocess.Popen(cmd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(proc.pid, 0)
    wall = time.perf_counter() - start
    proc.returncode = os.waitstatus_to_exitcode(status)
    return proc.returncode, wall, usage.ru_inblock * 512


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--bin", required=True, help="directory of kpz_bench_run")
    ap.add_argument("--kpz", required=True)
    ap.add_argument("--manifest", required=True)
    ap.add_argument("--out", required=True)
    ap.add_argument("--work", required=True, help="scratch directory for the outputs")
    ap.add_argument("--rounds", type=int, default=3)
    ap.add_argument("--readahead-kb", default="", help="comma-separated read_ahead_kb values")
    ap.add_argument("--before-bin", default="", help="kpz_bench_run's directory at an older revision")
    ap.add_argument("--before-kpz", default="", help="kpz at that revision")
    ap.add_argument("--before-label", default="before")
    args = ap.parse_args()

    files = load_manifest(args.manifest)
    paths = [f["path"] for f in files]
    n = len(files)
    need_preview = sum(HEAD + f["size"] for f in files)
    need_locate = HEAD * n
    outdir = os.path.join(args.work, "out")
    run_job = os.path.join(args.bin, "kpz_bench_run")

    jobs = [
        ("kpz", "`kpz preview -j 1 -o DIR FILE...`", "preview",
         lambda: [args.kpz, "preview", "-j", "1", "-o", outdir] + paths),
        ("main", "the library's main path (the JNI entry's steps, `kpz_bench_run main`)", "preview",
         lambda: [run_job, "main", args.manifest]),
        ("locate", "locate only (`Initialize` + `GetScreennailInfo`)", "locate",
         lambda: [run_job, "locate", args.manifest]),
        ("floorhinted", "floor: the known ranges read with RANDOM + WILLNEED hints", "preview",
         lambda: [run_job, "floorhinted", args.manifest]),
        ("floor", "floor without hints: the same reads, readahead left alone", "preview",
         lambda: [run_job, "floor", args.manifest]),
    ]
    if args.before_kpz:
        jobs.append(("kpz.before", "`kpz preview -j 1 -o DIR FILE...` at %s" % args.before_label,
                     "preview",
                     lambda: [args.before_kpz, "preview", "-j", "1", "-o", outdir] + paths))
    if args.before_bin:
        old_run = os.path.join(args.before_bin, "kpz_bench_run")
        jobs.append(("main.before", "the library's main path at %s" % args.before_label,
                     "preview", lambda: [old_run, "main", args.manifest]))
        jobs.append(("locate.before", "locate only at %s" % args.before_label, "locate",
                     lambda: [old_run, "locate", args.manifest]))
    if shutil.which("exiv2"):
        jobs.append(("exiv2", "`exiv2 -q -ep2 -f -l DIR FILE...`", "preview",
                     lambda: ["exiv2", "-q", "-ep2", "-f", "-l", outdir] + paths))
    if shutil.which("exiftool"):
        jobs.append(("exiftool", "`exiftool -q -b -OtherImage -w DIR/%f.other.jpg FILE...`",
                     "preview",
                     lambda: ["exiftool", "-q", "-b", "-OtherImage", "-w",
                              outdir + "/%f.other.jpg"] + paths))

    ra_path = readahead_file(os.path.dirname(paths[0]))
    ra_original = read_int(ra_path) if ra_path else None
    ra_values = [int(v) for v in args.readahead_kb.split(",") if v.strip()] or [ra_original]

    def fresh_outdir():
        shutil.rmtree(outdir, ignore_errors=True)
        os.makedirs(outdir)

    # Warm-up: every program once with a warm corpus, so that its own binary,
    # libraries and (for exiftool) Perl modules are in the page cache.
    for name, _, _, cmd in jobs:
        fresh_outdir()
        code, _, _ = run_once(cmd())
        if code != 0:
            print("bench_cold: %s failed (exit %d) in the warm-up" % (name, code), file=sys.stderr)
            return 1
    # The corpus must be on the disk, not only dirty in the page cache.
    for p in paths:
        fd = os.open(p, os.O_RDONLY)
        os.fsync(fd)
        os.close(fd)

    passes = []
    try:
        for ra in ra_values:
            if ra_path and ra is not None and ra != read_int(ra_path):
                try:
                    with open(ra_path, "w") as f:
                        f.write(str(ra))
                except OSError as e:
                    print("bench_cold: cannot set %s to %d (%s): skipped" % (ra_path, ra, e),
                          file=sys.stderr)
                    continue
            ra_now = read_int(ra_path) if ra_path else None
            for r in range(args.rounds):
                order = jobs if r % 2 == 0 else list(reversed(jobs))
                for name, _, _, cmd in order:
                    fresh_outdir()
                    drop_cache(paths)
                    left = resident_bytes(paths)
                    load = os.getloadavg()[0]
                    before = pgpgin_kib()
                    code, wall, inblock = run_once(cmd())
                    after = pgpgin_kib()
                    if code != 0:
                        print("bench_cold: %s failed (exit %d)" % (name, code), file=sys.stderr)
                        return 1
                    passes.append({"readahead_kb": ra_now, "round": r, "job": name,
                                   "pgpgin_bytes": (after - before) * 1024,
                                   "inblock_bytes": inblock, "wall": wall,
                                   "resident_before": left, "load1": load})
                    print("bench_cold: ra=%s round %d %-11s %8.1f MiB (own %8.1f MiB) %7.3f s"
                          % (ra_now, r, name, (after - before) / 1024.0, inblock / MiB, wall),
                          file=sys.stderr)
    finally:
        if ra_path and ra_original is not None and read_int(ra_path) != ra_original:
            with open(ra_path, "w") as f:
                f.write(str(ra_original))
        shutil.rmtree(outdir, ignore_errors=True)

    with open(os.path.join(args.out, "cold.json"), "w") as f:
        json.dump({"files": n, "need_preview": need_preview, "need_locate": need_locate,
                   "readahead_file": ra_path, "readahead_original": ra_original,
                   "passes": passes}, f, indent=1)

    lines = []
    mean_file = statistics.mean(f["file_size"] for f in files)
    mean_preview = statistics.mean(f["size"] for f in files)
    lines.append("%d files of %.1f MiB on average, previews of %.2f MiB on average; need: "
                 "%.1f MiB for a preview job (64 KiB head + preview per file), %.2f MiB for "
                 "locating. Page cache of the corpus emptied before every pass "
                 "(POSIX_FADV_DONTNEED); %d rounds, order alternating."
                 % (n, mean_file / MiB, mean_preview / MiB, need_preview / MiB,
                    need_locate / MiB, args.rounds))
    lines.append("")
    for ra in sorted({p["readahead_kb"] for p in passes}, key=lambda v: -(v or 0)):
        mine = [p for p in passes if p["readahead_kb"] == ra]
        rounds = sorted({p["round"] for p in mine})
        by = {(p["job"], p["round"]): p for p in mine}

        def ratio_to(job, ref):
            return geomean([by[(job, r)]["wall"] / by[(ref, r)]["wall"] for r in rounds
                            if (job, r) in by and (ref, r) in by])

        lines.append("read_ahead_kb = %s:" % ra)
        lines.append("")
        lines.append("| job | read from disk, pgpgin (MiB, median) | per file (KiB) | x need "
                     "| own reads, ru_inblock (MiB) | wall per file (ms, median) "
                     "| wall / floor (hinted) | wall / exiv2 |")
        lines.append("|---|---|---|---|---|---|---|---|")
        for name, words, kind, _ in jobs:
            runs = [by[(name, r)] for r in rounds if (name, r) in by]
            if not runs:
                continue
            read = statistics.median(p["pgpgin_bytes"] for p in runs)
            own = statistics.median(p["inblock_bytes"] for p in runs)
            wall = statistics.median(p["wall"] for p in runs)
            need = need_preview if kind == "preview" else need_locate
            to_floor = ratio_to(name, "floorhinted") if kind == "preview" else float("nan")
            to_exiv2 = ratio_to(name, "exiv2") if ("exiv2", rounds[0]) in by else float("nan")
            lines.append("| %s | %.1f | %.0f | %.2f | %.1f | %.1f | %s | %s |"
                         % (words, read / MiB, read / n / 1024.0, read / need, own / MiB,
                            wall / n * 1000.0,
                            "-" if math.isnan(to_floor) else "%.2f" % to_floor,
                            "-" if math.isnan(to_exiv2) else "%.2f" % to_exiv2))
        lines.append("")
        left = [p["resident_before"] for p in mine if p["resident_before"] is not None]
        if left:
            lines.append("Corpus bytes still in the page cache after emptying it: at most %d."
                         % max(left))
        lines.append("1-minute load during the passes: %.2f to %.2f."
                     % (min(p["load1"] for p in mine), max(p["load1"] for p in mine)))
        lines.append("")
    text = "\n".join(lines)
    with open(os.path.join(args.out, "cold.md"), "w") as f:
        f.write(text + "\n")
    print(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
