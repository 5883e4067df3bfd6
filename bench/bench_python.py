#!/usr/bin/python3
"""Times the Python package kpz against the Python tools people use for
previews and against the Python floor, on one corpus, in one run.

Run by scripts/bench.sh --python (which builds everything and makes the
corpus); never by the tests. Jobs, each returning the preview's bytes:

  kpz       kpz.screennail(path)
  floor     os.open, os.pread of 64 KiB, os.pread of the preview's range
            (known in advance from the corpus manifest), os.close: what any
            reader must do at least
  py3exiv2  pyexiv2.ImageMetadata(path).read(); md.previews[-1].data
  gexiv2    GExiv2.Metadata().open_path(path); the largest preview's data

Every job's output is compared byte for byte with `kpz preview` before
anything is timed. One thread: each file's jobs run back to back in pairs
(kpz against each other job), the order alternating with file and round;
the ratio is the geometric mean of the per-pair time ratios. Two threads:
a ThreadPoolExecutor of 2 over all files, kpz and floor runs alternating,
files/s per run, ratio the geometric mean over the rounds' pairs. The cost
of one Python call against the C++ main path (kpz_bench_run main, the JNI
entry's steps, its diagnostics to /dev/null): runs alternating, per-call
times compared as a geometric mean of the rounds' ratios. The scaling
section repeats the thread runs with glibc told to keep large blocks
(MALLOC_MMAP_THRESHOLD_/MALLOC_TRIM_THRESHOLD_) and counts minor page
faults per call, and `perf record` (cpu-clock) profiles the 2-thread kpz run
when perf works here.

Writes python.md (the table) and python.json into --out; prints the table.
"""

import argparse
import concurrent.futures
import json
import os
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from bench_common import geomean, load_manifest


def make_jobs(files):
    import kpz

    ranges = {f["path"]: (f["offset"], f["size"]) for f in files}

    def job_kpz(path):
        return kpz.screennail(path)

    def job_floor(path):
        offset, size = ranges[path]
        fd = os.open(path, os.O_RDONLY)
        try:
            os.pread(fd, 65536, 0)
            return os.pread(fd, size, offset)
        finally:
            os.close(fd)

    jobs = {"kpz": job_kpz, "floor": job_floor}
    versions = {}
    try:
        import pyexiv2

        def job_py3exiv2(path):
            md = pyexiv2.ImageMetadata(path)
            md.read()
            return md.previews[-1].data

        jobs["py3exiv2"] = job_py3exiv2
        versions["py3exiv2"] = getattr(pyexiv2, "__version__", "?") + \
            " (libexiv2 " + getattr(pyexiv2, "__exiv2_version__", "?") + ")"
    except ImportError:
        pass
    try:
        import warnings

        import gi
        gi.require_version("GExiv2", "0.10")
        from gi.repository import GExiv2

        warnings.filterwarnings("ignore", category=DeprecationWarning)

        def job_gexiv2(path):
            md = GExiv2.Metadata()
            md.open_path(path)
            props = md.get_preview_properties()
            largest = max(props, key=lambda p: p.get_size())
            return md.get_preview_image(largest).get_data()

        jobs["gexiv2"] = job_gexiv2
        versions["gexiv2"] = "GExiv2 %d.%d.%d" % (GExiv2.MAJOR_VERSION, GExiv2.MINOR_VERSION,
                                                  GExiv2.MICRO_VERSION)
    except (ImportError, ValueError, AttributeError):
        pass
    return jobs, versions


def check_outputs(jobs, files, kpz_tool, work):
    """Every job's bytes against `kpz preview`'s files."""
    outdir = os.path.join(work, "tool-out")
    os.makedirs(outdir, exist_ok=True)
    subprocess.run([kpz_tool, "preview", "-o", outdir] + [f["path"] for f in files], check=True,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    mismatches = {name: 0 for name in jobs}
    for f in files:
        base = os.path.splitext(os.path.basename(f["path"]))[0]
        with open(os.path.join(outdir, base + ".preview.jpg"), "rb") as g:
            expected = g.read()
        for name, job in jobs.items():
            if job(f["path"]) != expected:
                mismatches[name] += 1
    shutil.rmtree(outdir)
    return mismatches


def paired_one_thread(job_a, job_b, paths, rounds):
    """Per-pair ratios a/b and the total time of each, order alternating."""
    ratios = []
    total_a = total_b = 0.0
    clock = time.perf_counter
    for r in range(rounds):
        for i, p in enumerate(paths):
            if (i + r) % 2 == 0:
                t0 = clock(); job_a(p); t1 = clock(); job_b(p); t2 = clock()
                ta, tb = t1 - t0, t2 - t1
            else:
                t0 = clock(); job_b(p); t1 = clock(); job_a(p); t2 = clock()
                tb, ta = t1 - t0, t2 - t1
            ratios.append(ta / tb)
            total_a += ta
            total_b += tb
    calls = rounds * len(paths)
    return {"ratio": geomean(ratios), "a_per_s": calls / total_a, "b_per_s": calls / total_b,
            "a_us": total_a / calls * 1e6, "b_us": total_b / calls * 1e6}


def pool_rate(job, paths, threads, repeat):
    work = paths * repeat
    with concurrent.futures.ThreadPoolExecutor(max_workers=threads) as pool:
        list(pool.map(job, paths[:threads * 2]))  # start the threads, warm their arenas
        faults0 = resource.getrusage(resource.RUSAGE_SELF).ru_minflt
        t0 = time.perf_counter()
        for _ in pool.map(job, work, chunksize=4):
            pass
        seconds = time.perf_counter() - t0
        faults = resource.getrusage(resource.RUSAGE_SELF).ru_minflt - faults0
    return len(work) / seconds, faults / len(work)


def paired_pool(jobs, a, b, paths, threads, rounds, repeat):
    ratios, rates_a, rates_b, faults_a, faults_b = [], [], [], [], []
    for r in range(rounds):
        order = (a, b) if r % 2 == 0 else (b, a)
        got = {}
        for name in order:
            got[name] = pool_rate(jobs[name], paths, threads, repeat)
        rates_a.append(got[a][0]); rates_b.append(got[b][0])
        faults_a.append(got[a][1]); faults_b.append(got[b][1])
        ratios.append(got[a][0] / got[b][0])
    return {"ratio": geomean(ratios), "a_per_s": statistics.median(rates_a),
            "b_per_s": statistics.median(rates_b), "a_faults": statistics.median(faults_a),
            "b_faults": statistics.median(faults_b)}


def cpp_main_path(bench_run, manifest, rounds):
    proc = subprocess.run([bench_run, "main", manifest, "--rounds", str(rounds)],
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True)
    # "main: 1200 jobs, 0 failed, 0.154 s, 128.0 us/job, ..."
    for part in proc.stdout.split(","):
        if part.strip().endswith("us/job"):
            return float(part.split()[0])
    raise RuntimeError("kpz_bench_run main: no us/job in " + proc.stdout)


def python_per_call(job, paths, rounds):
    t0 = time.perf_counter()
    for _ in range(rounds):
        for p in paths:
            job(p)
    return (time.perf_counter() - t0) / (rounds * len(paths)) * 1e6


def child_scaling(args, env_extra):
    """The thread runs in a fresh interpreter with `env_extra` (glibc tunables)."""
    env = dict(os.environ, **env_extra)
    proc = subprocess.run([sys.executable, __file__, "--child-scaling", "--manifest", args.manifest,
                           "--rounds", str(args.rounds), "--repeat", str(args.repeat)],
                          env=env, capture_output=True, text=True, check=True)
    return json.loads(proc.stdout)


def scaling(files, rounds, repeat):
    jobs, _ = make_jobs(files)
    paths = [f["path"] for f in files]
    out = {}
    for threads in (1, 2):
        out[str(threads)] = paired_pool(jobs, "kpz", "floor", paths, threads, rounds, repeat)
    return out


def profile(args):
    """perf record (cpu-clock, call graphs) of the 2-thread kpz run; the top symbols."""
    perf = shutil.which("perf")
    if not perf:
        return "perf not installed: no profile"
    with tempfile.TemporaryDirectory() as tmp:
        data = os.path.join(tmp, "perf.data")
        code = ("import sys, json; sys.argv=['x']; import kpz, concurrent.futures as c; "
                f"m={args.manifest!r}; "
                "ps=[l.split('\\t')[5].strip() for l in open(m)]*%d; "
                "list(c.ThreadPoolExecutor(2).map(kpz.screennail, ps, chunksize=4))" % (args.repeat * 4))
        rec = subprocess.run([perf, "record", "-q", "-e", "cpu-clock", "-F", "2000", "-o", data,
                              sys.executable, "-c", code], capture_output=True, text=True)
        if rec.returncode != 0:
            return "perf record failed here: " + (rec.stderr.strip().splitlines() or ["?"])[-1]
        rep = subprocess.run([perf, "report", "-i", data, "--stdio", "--no-children",
                              "--sort", "dso,sym", "--percent-limit", "2"],
                             capture_output=True, text=True)
        lines = [ln for ln in rep.stdout.splitlines() if ln.strip() and not ln.startswith("#")]
        return "\n".join(lines[:14])


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--manifest", required=True)
    ap.add_argument("--kpz", help="the kpz tool (outputs are compared with its files)")
    ap.add_argument("--bench-run", help="kpz_bench_run (the C++ main path)")
    ap.add_argument("--out", default=".")
    ap.add_argument("--rounds", type=int, default=10)
    ap.add_argument("--repeat", type=int, default=5, help="passes over the corpus per thread run")
    ap.add_argument("--child-scaling", action="store_true", help=argparse.SUPPRESS)
    args = ap.parse_args()

    files = load_manifest(args.manifest)
    if args.child_scaling:
        print(json.dumps(scaling(files, max(2, args.rounds // 2), args.repeat)))
        return 0

    jobs, versions = make_jobs(files)
    paths = [f["path"] for f in files]
    for p in paths:  # the page cache holds every file's bytes that any job reads
        for job in jobs.values():
            job(p)
    with tempfile.TemporaryDirectory() as work:
        mismatches = check_outputs(jobs, files, args.kpz, work)
    result = {"files": len(files), "mean_preview_bytes": statistics.mean(f["size"] for f in files),
              "mean_file_bytes": statistics.mean(f["file_size"] for f in files),
              "mismatches": mismatches, "versions": versions,
              "load_start": open("/proc/loadavg").read().split()[:3]}

    one = {}
    for peer in [n for n in jobs if n != "kpz"]:
        rounds = args.rounds if peer == "floor" else max(2, args.rounds // 3)
        one[peer] = paired_one_thread(jobs["kpz"], jobs[peer], paths, rounds)
    result["one_thread"] = one

    result["two_threads"] = paired_pool(jobs, "kpz", "floor", paths, 2, args.rounds, args.repeat)
    result["one_thread_pool"] = paired_pool(jobs, "kpz", "floor", paths, 1,
                                            max(2, args.rounds // 2), args.repeat)

    cpp, py = [], []
    for r in range(args.rounds):
        if r % 2 == 0:
            cpp.append(cpp_main_path(args.bench_run, args.manifest, args.repeat))
            py.append(python_per_call(jobs["kpz"], paths, args.repeat))
        else:
            py.append(python_per_call(jobs["kpz"], paths, args.repeat))
            cpp.append(cpp_main_path(args.bench_run, args.manifest, args.repeat))
    result["per_call"] = {"python_us": statistics.median(py), "cpp_us": statistics.median(cpp),
                          "ratio": geomean([p / c for p, c in zip(py, cpp)])}

    keep = {"MALLOC_MMAP_THRESHOLD_": str(64 << 20), "MALLOC_TRIM_THRESHOLD_": str(256 << 20),
            "MALLOC_TOP_PAD_": str(16 << 20)}
    result["scaling_default"] = child_scaling(args, {})
    result["scaling_kept_heap"] = child_scaling(args, keep)
    result["profile"] = profile(args)
    result["load_end"] = open("/proc/loadavg").read().split()[:3]

    os.makedirs(args.out, exist_ok=True)
    with open(os.path.join(args.out, "python.json"), "w", encoding="utf-8") as f:
        json.dump(result, f, indent=1)
    table = render(result)
    with open(os.path.join(args.out, "python.md"), "w", encoding="utf-8") as f:
        f.write(table)
    print(table)
    return 0


def render(r):
    one, two = r["one_thread"], r["two_threads"]
    floor = one["floor"]
    peers = {k: v for k, v in one.items() if k != "floor"}
    lines = []
    lines.append(f"{r['files']} files of {r['mean_file_bytes'] / 1e6:.1f} MB (mean), previews of "
                 f"{r['mean_preview_bytes'] / 1e6:.2f} MB (mean), page cache warm. Load at start "
                 f"{' '.join(r['load_start'])}, at end {' '.join(r['load_end'])}.")
    lines.append("Outputs compared with `kpz preview`'s files, byte for byte: " + ", ".join(
        f"{k} {'all identical' if v == 0 else str(v) + ' differ'}" for k, v in r["mismatches"].items()))
    lines.append("")
    lines.append("| job | threads | files/s | kpz's ratio (geometric mean of paired ratios) | goal |")
    lines.append("|---|---|---|---|---|")
    lines.append(f"| floor (os.pread of head and range) | 1 | {floor['b_per_s']:,.0f} | "
                 f"kpz {floor['a_per_s']:,.0f} files/s = **{1 / floor['ratio']:.2f}x** the floor's rate | >= 0.85x |")
    best_peer = None
    for name, p in peers.items():
        speed = 1 / p["ratio"]
        lines.append(f"| {name} | 1 | {p['b_per_s']:,.0f} | kpz **{speed:.1f}x** faster (kpz "
                     f"{p['a_per_s']:,.0f} files/s in these pairs) | >= 2x the faster peer |")
        if best_peer is None or p["b_per_s"] > best_peer[1]["b_per_s"]:
            best_peer = (name, p)
    lines.append(f"| floor, ThreadPoolExecutor | 2 | {two['b_per_s']:,.0f} | kpz {two['a_per_s']:,.0f} "
                 f"files/s = **{two['ratio']:.2f}x** the floor's 2-thread rate | >= 0.9x |")
    pc = r["per_call"]
    lines.append(f"| C++ main path (kpz_bench_run main) | 1 | {1e6 / pc['cpp_us']:,.0f} | one Python "
                 f"call {pc['python_us']:.1f} us against {pc['cpp_us']:.1f} us = **{pc['ratio']:.2f}x** | <= 1.15x |")
    lines.append("")
    lines.append("Thread scaling (ThreadPoolExecutor, files/s; minor page faults per call):")
    lines.append("")
    lines.append("| glibc heap | job | 1 thread | 2 threads | 2 / 1 | faults/call (1, 2 threads) |")
    lines.append("|---|---|---|---|---|---|")
    for label, key in (("default", "scaling_default"), ("large blocks kept (MALLOC_MMAP_THRESHOLD_ "
                                                       "64 MiB, MALLOC_TRIM_THRESHOLD_ 256 MiB)",
                                                       "scaling_kept_heap")):
        s = r[key]
        for job, pre in (("kpz", "a"), ("floor", "b")):
            r1, r2 = s["1"][f"{pre}_per_s"], s["2"][f"{pre}_per_s"]
            lines.append(f"| {label} | {job} | {r1:,.0f} | {r2:,.0f} | {r2 / r1:.2f} | "
                         f"{s['1'][f'{pre}_faults']:.0f}, {s['2'][f'{pre}_faults']:.0f} |")
    lines.append("")
    lines.append("Profile of the 2-thread kpz run (perf, cpu-clock samples, symbols over 2 %):")
    lines.append("")
    lines.append("```")
    lines.append(r["profile"])
    lines.append("```")
    if r["versions"]:
        lines.append("")
        lines.append("Peers: " + "; ".join(f"{k}: {v}" for k, v in r["versions"].items()))
    return "\n".join(lines) + "\n"


if __name__ == "__main__":
    sys.exit(main())
