"""kpz.distributed's client at 10^4 to 10^6 inputs: its peak memory, the
scheduler's task count, its wall time, and resuming at scale. Run by
scripts/bench.sh --scale; writes scale.md, scale.json and
perf-client-memory.png into --out.

Inputs: hard links (the same inodes: the disk holds the few files once) of a
few generated files with 1 KiB thumbnails (kpz_bench_run corpus; each tree
links copies of its own, at most 50,000 links each, as ext4 allows 65,000
links to a file: 20 files for 10^6 inputs), in folders of 1,000 as a
camera's card holds them (000/ 001/ ...), each name once in the whole tree
(K0000000.kpz ...), so that `-r TREE` walks them and every input has an
output of its own. A tree is built once in --work and reused while it
holds the right count.

The cluster: Debian's `dask scheduler` and 2 `dask worker` processes of one
thread each on 127.0.0.1 (tests/python/distributed_support.DaskCluster), a
fresh one for every measured run, so that the client process is the client
alone. The client is the command line of whatever package --pythonpath
holds, run as a child process:

    /usr/bin/python3 -m kpz.distributed thumbnail -r TREE -o OUT --scheduler ADDR

Its peak resident memory is its ru_maxrss (os.wait4 in a small launcher
process that forks it: a child forked from the harness would start from the
harness's resident size), its wall time from its start to its exit; its standard output (the 'wrote' lines) is
counted, not kept. A second distributed.Client asks the scheduler for its
task count every 0.2 s during the run; the maximum is reported.

Resume: (a) --skip-existing over an output directory holding 10^5 outputs
with a few hundred new inputs: time from the client's start to its first
task on the scheduler (polled every 0.02 s) and to its first 'wrote' line;
(b) a run of --kill-inputs inputs whose client is killed (SIGKILL) at seeded
random output counts and restarted with --skip-existing until it exits 0,
then every output checked: present once, no temporary file (.NAME.*) left,
each a whole JPEG (FF D8 FF ... FF D9).
"""

import argparse
import json
import os
import random
import shutil
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

PYTHON = "/usr/bin/python3"
PER_FOLDER = 1000
LINKS_PER_FILE = 50000  # below ext4's limit of 65,000 links to one file
SUFFIX = ".thumb.jpg"
KIB = 1024
MIB = 1024 * 1024


def log(text):
    print("scale: " + text, file=sys.stderr, flush=True)


def input_name(i):
    return "K%07d.kpz" % i


def output_name(i):
    return "K%07d%s" % (i, SUFFIX)


# ---------------------------------------------------------------------------
# Inputs


def make_sources(bench_run, where: Path, files, thumbnail_bytes):
    """The few generated files every link points at (reused when present)."""
    manifest = where / "manifest.tsv"
    if not manifest.exists():
        shutil.rmtree(where, ignore_errors=True)
        where.mkdir(parents=True)
        subprocess.run([bench_run, "corpus", "--out", str(where), "--files", str(files),
                        "--preview-bytes", "4096", "--filler-bytes", "0", "--sparse",
                        "--thumbnail-bytes", str(thumbnail_bytes)],
                       check=True, stdout=subprocess.DEVNULL, timeout=600)
    with open(manifest, encoding="utf-8") as f:
        return [line.rstrip("\n").split("\t")[5] for line in f if line.count("\t") >= 5]


def tree(work: Path, sources, count):
    """work/tree-COUNT: `count` hard links in folders of 1,000, built once;
    work/tree-COUNT.count says it is complete. A file takes at most 65,000
    links on ext4: the links point at copies of `sources` of the tree's own
    (work/tree-COUNT.src), at most LINKS_PER_FILE each. Returns the tree
    and the seconds spent building it (0 when reused)."""
    root = work / ("tree-%d" % count)
    copies_dir = work / ("tree-%d.src" % count)
    mark = work / ("tree-%d.count" % count)
    if mark.exists() and mark.read_text().strip() == str(count) and root.is_dir():
        return root, 0.0
    log("building %s (%d hard links)" % (root, count))
    t = time.perf_counter()
    mark.unlink(missing_ok=True)
    shutil.rmtree(root, ignore_errors=True)
    shutil.rmtree(copies_dir, ignore_errors=True)
    copies_dir.mkdir(parents=True)
    copies = []
    for j in range(max(len(sources), -(-count // LINKS_PER_FILE))):
        copies.append(copies_dir / ("s%04d.kpz" % j))
        shutil.copyfile(sources[j % len(sources)], copies[-1])
    root.mkdir()
    folder = None
    for i in range(count):
        if i % PER_FOLDER == 0:
            folder = root / ("%03d" % (i // PER_FOLDER))
            folder.mkdir()
        os.link(copies[i % len(copies)], folder / input_name(i))
    mark.write_text("%d\n" % count)
    return root, time.perf_counter() - t


def empty_dir(d: Path):
    shutil.rmtree(d, ignore_errors=True)
    d.mkdir(parents=True)


def outputs_in(d: Path):
    """Names of the outputs in `d` (not the temporary files)."""
    with os.scandir(d) as it:
        return sum(1 for e in it if e.name.endswith(SUFFIX) and not e.name.startswith("."))


# ---------------------------------------------------------------------------
# The cluster, the client, the scheduler's task count


class Cluster:
    """A DaskCluster (2 workers of one thread on 127.0.0.1) and a second
    client of ours that asks the scheduler for its task count."""

    def __init__(self, tests_dir, root: Path, env, workers):
        sys.path.insert(0, str(tests_dir))
        from distributed import Client
        from distributed_support import DaskCluster

        shutil.rmtree(root, ignore_errors=True)
        t = time.perf_counter()
        self.dask = DaskCluster(root, workers, env)
        self.started_s = time.perf_counter() - t
        self.address = self.dask.address
        self.watch = Client(self.address, timeout=60)

    def tasks(self):
        return self.watch.run_on_scheduler(lambda dask_scheduler: len(dask_scheduler.tasks))

    def scheduler_peak_kib(self):
        """The scheduler's peak resident memory so far (VmHWM), KiB."""
        try:
            with open("/proc/%d/status" % self.dask.scheduler.pid, encoding="ascii") as f:
                for line in f:
                    if line.startswith("VmHWM:"):
                        return int(line.split()[1])
        except OSError:
            pass
        return None

    def wait_idle(self, seconds):
        """Waits (bounded) until the scheduler holds no task (a killed
        client's tasks released)."""
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            if self.tasks() == 0:
                return True
            time.sleep(0.2)
        return False

    def close(self):
        self.watch.close()
        self.dask.close()


class Poller(threading.Thread):
    """Asks the scheduler for its task count every `interval` seconds: the
    maximum, and when the first task was seen (seconds after `t0`)."""

    def __init__(self, cluster, t0, interval):
        super().__init__(daemon=True)
        self.cluster = cluster
        self.t0 = t0
        self.interval = interval
        self.max_tasks = 0
        self.first_task_s = None
        self.samples = 0
        self.errors = 0
        self._halt = threading.Event()

    def run(self):
        while not self._halt.is_set():
            try:
                n = self.cluster.tasks()
            except Exception:  # the scheduler busy or a reply lost: the next one counts
                self.errors += 1
                n = 0
            self.samples += 1
            if n > self.max_tasks:
                self.max_tasks = n
            if n > 0 and self.first_task_s is None:
                self.first_task_s = time.perf_counter() - self.t0
            self._halt.wait(self.interval)

    def stop(self):
        self._halt.set()
        self.join(30)


# Starts the client and reports its rusage. A child's ru_maxrss starts from the
# resident size of the process it was forked from (the kernel carries the old
# memory's high-water mark across exec), so the client is forked from this
# small process, started afresh for each run, and not from the harness, whose
# size (the task-count client, the listings of 10^6 names) it would inherit.
# argv: a descriptor, then the client's command line. On the descriptor, one
# JSON line when the client has started ({"pid", "t0"}), one when it has
# ended ({"status", "maxrss_kib", "cpu_s", "t1"}); t0 and t1 on
# CLOCK_MONOTONIC, as the harness's perf_counter.
LAUNCHER = r"""
import json, os, sys, time
report = os.fdopen(int(sys.argv[1]), "w")
cmd = sys.argv[2:]
t0 = time.perf_counter()
pid = os.fork()
if pid == 0:
    report.close()
    try:
        os.execv(cmd[0], cmd)
    finally:
        os._exit(127)
report.write(json.dumps({"pid": pid, "t0": t0}) + "\n")
report.flush()
_, status, ru = os.wait4(pid, 0)
report.write(json.dumps({"status": os.waitstatus_to_exitcode(status), "t1": time.perf_counter(),
                         "maxrss_kib": ru.ru_maxrss, "cpu_s": ru.ru_utime + ru.ru_stime}) + "\n")
"""


def run_client(tree_dir, out, cluster, env, work: Path, skip=False, kill_at_lines=None,
               interval=0.2, timeout=7200.0):
    """One run of the client's command line, a grandchild of the harness
    (LAUNCHER). Returns what it gave: exit status (-9 when killed), peak RSS
    KiB, CPU, wall time, 'wrote' lines counted, the scheduler's maximum task
    count and the times to the first task and the first 'wrote' line."""
    cmd = [PYTHON, "-m", "kpz.distributed", "thumbnail", "-r", str(tree_dir), "-o", str(out),
           "--scheduler", cluster.address]
    if skip:
        cmd.append("--skip-existing")
    err_path = work / "client-stderr.txt"
    lines = 0
    first_line_s = None
    lock = threading.Lock()
    done = False
    killed = [False]
    timed_out = [False]
    report_r, report_w = os.pipe()
    with open(err_path, "wb") as err:
        launcher = subprocess.Popen([PYTHON, "-I", "-S", "-c", LAUNCHER, str(report_w)] + cmd,
                                    stdout=subprocess.PIPE, stderr=err, env=env, cwd=work,
                                    pass_fds=(report_w,))
    os.close(report_w)
    report = os.fdopen(report_r)
    started = json.loads(report.readline() or "{}")
    if "pid" not in started:
        launcher.wait(60)
        raise RuntimeError("the client did not start: %s" % err_path.read_text()[-500:])
    pid, t0 = started["pid"], started["t0"]
    poller = Poller(cluster, t0, interval)
    poller.start()

    def kill():
        with lock:
            if not done and not killed[0]:
                os.kill(pid, signal.SIGKILL)
                killed[0] = True

    def read():
        nonlocal lines, first_line_s
        fd = launcher.stdout.fileno()
        while True:
            chunk = os.read(fd, 1 << 16)
            if not chunk:
                return
            if first_line_s is None and b"\n" in chunk:
                first_line_s = time.perf_counter() - t0
            lines += chunk.count(b"\n")
            if kill_at_lines is not None and lines >= kill_at_lines:
                kill()

    reader = threading.Thread(target=read, daemon=True)
    reader.start()

    def stuck():
        timed_out[0] = True
        kill()

    timer = threading.Timer(timeout, stuck)
    timer.start()
    ended = json.loads(report.readline() or "{}")  # the launcher has reaped the client
    with lock:
        done = True
    timer.cancel()
    report.close()
    launcher.wait(60)
    reader.join(60)
    launcher.stdout.close()
    poller.stop()
    if "status" not in ended:
        raise RuntimeError("the launcher ended with status %s without the client's end"
                           % launcher.returncode)
    tail = err_path.read_text(errors="replace").strip().splitlines()[-3:]
    return {"status": ended["status"], "killed": killed[0] and not timed_out[0],
            "timed_out": timed_out[0], "maxrss_kib": ended["maxrss_kib"],
            "cpu_s": ended["cpu_s"], "wall_s": ended["t1"] - t0, "lines": lines,
            "max_tasks": poller.max_tasks, "task_samples": poller.samples,
            "task_poll_errors": poller.errors, "first_task_s": poller.first_task_s,
            "first_wrote_s": first_line_s, "stderr_tail": tail}


# ---------------------------------------------------------------------------
# The modes


def bench_memory(args, env, sources, work, outputs):
    rows = []
    keep = None  # the outputs of the 10^5 run, kept for the resume run
    for count in args.counts:
        src, built = tree(work, sources, count)
        out = outputs / "out"
        empty_dir(out)
        os.sync()
        cluster = Cluster(args.tests_dir, work / "cluster", env, args.workers)
        try:
            log("%d inputs: client running" % count)
            r = run_client(src, out, cluster, env, work, timeout=args.run_timeout)
            r["scheduler_peak_kib"] = cluster.scheduler_peak_kib()
            r["cluster_start_s"] = cluster.started_s
        finally:
            cluster.close()
        r.update({"inputs": count, "tree_build_s": built, "outputs": outputs_in(out)})
        log("%d inputs: status %d, peak RSS %.1f MiB, %.1f s, max %d tasks, %d outputs"
            % (count, r["status"], r["maxrss_kib"] / KIB, r["wall_s"], r["max_tasks"],
               r["outputs"]))
        rows.append(r)
        if count == args.resume_outputs and r["status"] == 0 and r["outputs"] == count:
            keep = outputs / "out-skip"
            shutil.rmtree(keep, ignore_errors=True)
            os.rename(out, keep)
        else:
            shutil.rmtree(out, ignore_errors=True)
    return rows, keep


def bench_skip(args, env, sources, work, outputs, kept):
    """--skip-existing over args.resume_outputs outputs with args.resume_new
    new inputs (the tree of resume_outputs + resume_new inputs: the same
    names, and one more folder)."""
    n_old, n_new = args.resume_outputs, args.resume_new
    out = outputs / "out-skip"
    if kept is None and not (out.is_dir() and outputs_in(out) == n_old):
        src, _ = tree(work, sources, n_old)
        empty_dir(out)
        cluster = Cluster(args.tests_dir, work / "cluster", env, args.workers)
        try:
            log("writing the %d outputs a resumed run finds" % n_old)
            r = run_client(src, out, cluster, env, work, timeout=args.run_timeout)
        finally:
            cluster.close()
        if r["status"] != 0 or outputs_in(out) != n_old:
            raise RuntimeError("the outputs for the resumed run were not written: %r" % r)
    src, _ = tree(work, sources, n_old + n_new)
    runs = []
    cluster = Cluster(args.tests_dir, work / "cluster", env, args.workers)
    try:
        for k in range(args.resume_rounds):
            for i in range(n_old, n_old + n_new):  # the new inputs' outputs, of the last round
                (out / output_name(i)).unlink(missing_ok=True)
            os.sync()
            cluster.wait_idle(60)
            r = run_client(src, out, cluster, env, work, skip=True, interval=0.02,
                           timeout=args.run_timeout)
            r["outputs"] = outputs_in(out)
            log("resume over %d outputs: first task %.2f s, first wrote %.2f s, exit %.2f s, "
                "%d written" % (n_old, r["first_task_s"] or -1, r["first_wrote_s"] or -1,
                                r["wall_s"], r["lines"]))
            runs.append(r)
    finally:
        cluster.close()
    return {"outputs_present": n_old, "new_inputs": n_new, "runs": runs}


def check_outputs(out: Path, count):
    """Every output present once, no temporary files, each a whole JPEG."""
    names = os.listdir(out)
    expected = {output_name(i) for i in range(count)}
    got = set(names)
    temporary = [n for n in names if n.startswith(".")]
    missing = len(expected - got)
    extra = sorted(got - expected - set(temporary))
    not_whole = []
    for n in sorted(expected & got):
        with open(out / n, "rb") as f:
            head = f.read(3)
            tail = b""
            if os.fstat(f.fileno()).st_size >= 5:
                f.seek(-2, os.SEEK_END)
                tail = f.read(2)
        if head != b"\xff\xd8\xff" or tail != b"\xff\xd9":
            not_whole.append(n)
    return {"names": len(names), "expected": count, "missing": missing,
            "extra": len(extra), "temporary": len(temporary), "not_whole": len(not_whole),
            "examples": (temporary + extra + not_whole)[:5],
            "ok": missing == 0 and not extra and not temporary and not not_whole
            and len(names) == count}


def bench_kill(args, env, sources, work, outputs):
    """A run of args.kill_inputs inputs killed at args.kills seeded random
    output counts, restarted with --skip-existing until it exits 0."""
    n = args.kill_inputs
    src, built = tree(work, sources, n)
    out = outputs / "out-kill"
    empty_dir(out)
    os.sync()
    rng = random.Random(args.seed)
    targets = sorted(rng.sample(range(n // 10, n * 9 // 10), args.kills))
    runs = []
    cluster = Cluster(args.tests_dir, work / "cluster", env, args.workers)
    t = time.perf_counter()
    try:
        pending = list(targets)
        for attempt in range(args.kills + 3):
            present = outputs_in(out)
            while pending and pending[0] <= present:
                pending.pop(0)  # passed already (the workers finished what they held)
            kill_at = pending[0] - present if pending else None
            log("kill run %d: %d outputs present, kill after %s more"
                % (attempt, present, kill_at))
            r = run_client(src, out, cluster, env, work, skip=attempt > 0,
                           kill_at_lines=kill_at, timeout=args.run_timeout)
            r["present_at_start"] = present
            r["kill_target"] = pending[0] if pending else None
            runs.append(r)
            log("kill run %d: status %d after %.1f s, %d written, peak RSS %.1f MiB"
                % (attempt, r["status"], r["wall_s"], r["lines"], r["maxrss_kib"] / KIB))
            if r["killed"] and pending:
                pending.pop(0)
            if r["status"] == 0:
                break
            if not r["killed"]:
                raise RuntimeError("the client failed without being killed: %r" % r)
        total = time.perf_counter() - t
    finally:
        cluster.close()
    log("checking %d outputs" % n)
    check = check_outputs(out, n)
    log("check: %r" % check)
    shutil.rmtree(out, ignore_errors=True)
    return {"inputs": n, "seed": args.seed, "targets": targets, "tree_build_s": built,
            "kills": sum(1 for r in runs if r["killed"]), "runs": runs, "total_s": total,
            "final_status": runs[-1]["status"] if runs else None, "check": check}


# ---------------------------------------------------------------------------
# The report


def mib(kib):
    return kib / KIB


def render(r):
    L = []
    m = r["machine"]
    L.append("kpz.distributed's client (`%s -m kpz.distributed thumbnail -r TREE -o OUT "
             "--scheduler ADDR`, the package from %s) against the number of inputs: hard "
             "links to copies of %d generated files (%d-byte thumbnails; at most %s links "
             "to one file) in folders of %s; a fresh "
             "scheduler and %d workers of one thread (Debian's dask, 127.0.0.1) for each "
             "run. %s, %d cores, load %s at the start, %s at the end."
             % (PYTHON, r["pythonpath"], r["sources"], r["thumbnail_bytes"],
                "{:,}".format(LINKS_PER_FILE), "{:,}".format(PER_FOLDER),
                r["workers"], m["date"], m["nproc"], m["load_start"], m["load_end"]))
    L.append("")
    if r.get("memory"):
        L.append("| inputs | client peak RSS (MiB) | growth per input (bytes) | max scheduler "
                 "tasks | wall time (s) | files/s | client CPU (s) | scheduler peak RSS (MiB) "
                 "| exit |")
        L.append("|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
        prev = None
        for x in r["memory"]:
            growth = ""
            if prev is not None:
                growth = "%.0f" % ((x["maxrss_kib"] - prev["maxrss_kib"]) * KIB
                                   / (x["inputs"] - prev["inputs"]))
            sched = x.get("scheduler_peak_kib")
            L.append("| {:,} | {:.1f} | {} | {:,} | {:.1f} | {:.0f} | {:.1f} | {} | {} |".format(
                x["inputs"], mib(x["maxrss_kib"]), growth, x["max_tasks"], x["wall_s"],
                x["inputs"] / x["wall_s"], x["cpu_s"],
                "%.1f" % mib(sched) if sched else "", x["status"]))
            prev = x
        L.append("")
        L.append("Growth per input: the difference of peak RSS from the row above, over the "
                 "difference of inputs. The scheduler's task count is sampled every 0.2 s "
                 "from a second client; wall time is the client process's, from its start "
                 "(connection and the directory walk included) to its exit.")
        L.append("")
        before = {x["inputs"]: x for x in (r.get("before") or {}).get("memory") or []}
        if before:
            L.append("Against the earlier run (%s):" % r["before"]["label"])
            L.append("")
            L.append("| inputs | client peak RSS before (MiB) | now (MiB) | now / before | "
                     "max scheduler tasks before | now |")
            L.append("|---:|---:|---:|---:|---:|---:|")
            for x in r["memory"]:
                b = before.get(x["inputs"])
                if b:
                    L.append("| {:,} | {:.1f} | {:.1f} | {:.2f} | {:,} | {:,} |".format(
                        x["inputs"], mib(b["maxrss_kib"]), mib(x["maxrss_kib"]),
                        x["maxrss_kib"] / b["maxrss_kib"], b["max_tasks"], x["max_tasks"]))
            L.append("")
    s = r.get("skip")
    if s:
        L.append("Resume: `--skip-existing` over an output directory holding {:,} outputs, "
                 "with {:,} new inputs ({} runs; the task count polled every 0.02 s):"
                 .format(s["outputs_present"], s["new_inputs"], len(s["runs"])))
        L.append("")
        L.append("| run | first task on the scheduler (s) | first 'wrote' line (s) | "
                 "client exit (s) | written | client peak RSS (MiB) | exit |")
        L.append("|---:|---:|---:|---:|---:|---:|---:|")
        for i, x in enumerate(s["runs"]):
            L.append("| {} | {} | {} | {:.2f} | {:,} | {:.1f} | {} |".format(
                i + 1, "%.2f" % x["first_task_s"] if x["first_task_s"] is not None else "-",
                "%.2f" % x["first_wrote_s"] if x["first_wrote_s"] is not None else "-",
                x["wall_s"], x["lines"], mib(x["maxrss_kib"]), x["status"]))
        L.append("")
        L.append("First task: when a poll of the scheduler's task count first found one (the "
                 "time of its reply, so up to one poll late); it can come after the first "
                 "'wrote' line when a batch ends within a poll.")
        L.append("")
    k = r.get("kill")
    if k:
        c = k["check"]
        L.append("Resume after kills: {:,} inputs, the client killed (SIGKILL) at output "
                 "counts {} (seed {}) and restarted with `--skip-existing` until it exited 0: "
                 "{} kills, {} runs, {:.0f} s in all; final exit {}."
                 .format(k["inputs"], ", ".join("{:,}".format(t) for t in k["targets"]),
                         k["seed"], k["kills"], len(k["runs"]), k["total_s"],
                         k["final_status"]))
        L.append("")
        L.append("| run | outputs present at start | killed | written in the run | "
                 "wall time (s) | client peak RSS (MiB) | first task (s) | first 'wrote' "
                 "line (s) | max scheduler tasks |")
        L.append("|---:|---:|---|---:|---:|---:|---:|---:|---:|")
        for i, x in enumerate(k["runs"]):
            L.append("| {} | {:,} | {} | {:,} | {:.1f} | {:.1f} | {} | {} | {:,} |".format(
                i + 1, x["present_at_start"], "yes" if x["killed"] else "no", x["lines"],
                x["wall_s"], mib(x["maxrss_kib"]),
                "%.2f" % x["first_task_s"] if x["first_task_s"] is not None else "-",
                "%.2f" % x["first_wrote_s"] if x["first_wrote_s"] is not None else "-",
                x["max_tasks"]))
        L.append("")
        L.append("Final check: {:,} names for {:,} inputs, {} missing, {} unexpected, {} "
                 "temporary (.NAME.*), {} not a whole JPEG: {}.".format(
                     c["names"], c["expected"], c["missing"], c["extra"], c["temporary"],
                     c["not_whole"], "every output present once and whole" if c["ok"]
                     else "FAILED (%s)" % ", ".join(c["examples"])))
        L.append("")
        L.append("A kill at an output count: when the outputs present at the run's start and "
                 "its 'wrote' lines reach it; the workers finish the batches they hold, so "
                 "the next run finds a few more. First task: polled every 0.2 s here.")
        L.append("")
    for note in r.get("notes", []):
        L.append(note)
    return "\n".join(L).rstrip() + "\n"


def plot(r, out: Path, docs_png):
    rows = r.get("memory") or []
    if not rows or shutil.which("gnuplot") is None:
        return []
    series = []
    before = (r.get("before") or {}).get("memory") or []
    if before:
        series.append(("client-memory-before.dat", before, "before (%s)" % r["before"]["label"]))
    series.append(("client-memory.dat", rows, "client peak RSS" if not before else "now"))
    parts = []
    for name, data, title in series:
        dat = out / name
        dat.write_text("".join("%d %.3f\n" % (x["inputs"], mib(x["maxrss_kib"])) for x in data))
        parts.append("'%s' using 1:2 with linespoints pointtype 7 title '%s'" % (dat, title))
    png = out / "perf-client-memory.png"
    script = ['set terminal pngcairo size 720,440 font ",10"', "set grid", "set key top left",
              "set output '%s'" % png,
              "set title \"kpz.distributed's client: peak memory against inputs\"",
              "set logscale x", "set format x '10^{%L}'", "set yrange [0:*]",
              "set xlabel 'inputs'", "set ylabel 'client peak RSS (MiB)'",
              "plot " + ", ".join(parts)]
    subprocess.run(["gnuplot"], input="\n".join(script) + "\n", text=True, check=True)
    made = [str(png)]
    if docs_png:
        shutil.copyfile(png, docs_png)
        made.append(str(docs_png))
    return made


def with_before(r, path, label):
    """Adds the memory rows of an earlier run (its scale.json) to `r`."""
    earlier = json.loads(Path(path).read_text())
    r["before"] = {"label": label or earlier.get("pythonpath", path),
                   "memory": earlier.get("memory") or []}


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--pythonpath", required=True,
                    help="the directory holding the kpz package to measure (client and workers)")
    ap.add_argument("--bench-run", required=True, help="kpz_bench_run (writes the few files)")
    ap.add_argument("--tests-dir", required=True, help="tests/python (DaskCluster)")
    ap.add_argument("--out", required=True, help="report directory")
    ap.add_argument("--work", help="trees and cluster logs (default OUT/work; kept)")
    ap.add_argument("--outputs", help="where the runs' outputs go (default: WORK)")
    ap.add_argument("--counts", default="10000,100000,1000000",
                    type=lambda s: [int(x) for x in s.split(",") if x])
    ap.add_argument("--modes", default="memory,skip,kill")
    ap.add_argument("--workers", type=int, default=2)
    ap.add_argument("--sources", type=int, default=4, help="generated files linked to")
    ap.add_argument("--thumbnail-bytes", type=int, default=1024)
    ap.add_argument("--resume-outputs", type=int, default=100000)
    ap.add_argument("--resume-new", type=int, default=300)
    ap.add_argument("--resume-rounds", type=int, default=3)
    ap.add_argument("--kill-inputs", type=int, default=1000000)
    ap.add_argument("--kills", type=int, default=3)
    ap.add_argument("--seed", type=int, default=27)
    ap.add_argument("--run-timeout", type=float, default=7200.0,
                    help="seconds before a client run is killed as stuck")
    ap.add_argument("--docs-png", help="also copy the plot here (docs/perf-client-memory.png)")
    ap.add_argument("--before", metavar="JSON",
                    help="an earlier run's scale.json: its memory rows in the table and the plot")
    ap.add_argument("--before-label", help="what the earlier run measured (default: its path)")
    ap.add_argument("--render-only", action="store_true",
                    help="only write scale.md and the plot again from OUT/scale.json")
    args = ap.parse_args()
    modes = set(args.modes.split(","))
    out = Path(args.out).resolve()
    if args.render_only:
        r = json.loads((out / "scale.json").read_text())
        if args.before:
            with_before(r, args.before, args.before_label)
        r["plots"] = plot(r, out, args.docs_png)
        text = render(r)
        (out / "scale.md").write_text(text)
        print(text)
        return 0
    work = Path(args.work).resolve() if args.work else out / "work"
    outputs = Path(args.outputs).resolve() if args.outputs else work
    for d in (out, work, outputs):
        d.mkdir(parents=True, exist_ok=True)
    pythonpath = str(Path(args.pythonpath).resolve())
    env = dict(os.environ)
    env["PYTHONPATH"] = pythonpath
    env["PYTHONDONTWRITEBYTECODE"] = "1"

    # Every output takes a block of its own: the largest run's outputs must fit.
    largest = max([0] + (args.counts if "memory" in modes else [])
                  + ([args.kill_inputs] if "kill" in modes else [])
                  + ([args.resume_outputs + args.resume_new] if "skip" in modes else []))
    block = os.statvfs(outputs).f_bsize
    per_output = max(block, (args.thumbnail_bytes + block - 1) // block * block)
    need = largest * per_output
    free = shutil.disk_usage(outputs).free
    log("outputs: up to %d of %d bytes (%d on the disk each): %.2f GB; %.1f GB free in %s"
        % (largest, args.thumbnail_bytes, per_output, need / 1e9, free / 1e9, outputs))
    if free < 2 * need + (1 << 30):  # the kept outputs of the resumed run besides
        raise SystemExit("scale: %.1f GB free in %s, %.1f GB needed: give --outputs a larger "
                         "file system (a tmpfs)" % (free / 1e9, outputs, 2 * need / 1e9))

    sources = make_sources(args.bench_run, work / "sources", args.sources, args.thumbnail_bytes)
    r = {"pythonpath": pythonpath, "workers": args.workers, "sources": len(sources),
         "thumbnail_bytes": args.thumbnail_bytes, "outputs_dir": str(outputs),
         "output_bytes_on_disk_each": per_output, "largest_run_outputs_bytes": need,
         "free_bytes_at_start": free,
         "machine": {"date": time.strftime("%Y-%m-%d %H:%M UTC", time.gmtime()),
                     "nproc": os.cpu_count(),
                     "load_start": "%.2f %.2f %.2f" % os.getloadavg()}}
    kept = None
    t = time.perf_counter()
    if "memory" in modes:
        r["memory"], kept = bench_memory(args, env, sources, work, outputs)
        r["memory_s"] = time.perf_counter() - t
    if "skip" in modes:
        t = time.perf_counter()
        r["skip"] = bench_skip(args, env, sources, work, outputs, kept)
        r["skip_s"] = time.perf_counter() - t
    if "kill" in modes:
        t = time.perf_counter()
        r["kill"] = bench_kill(args, env, sources, work, outputs)
        r["kill_s"] = time.perf_counter() - t
    r["machine"]["load_end"] = "%.2f %.2f %.2f" % os.getloadavg()
    if args.before:
        with_before(r, args.before, args.before_label)
    r["plots"] = plot(r, out, args.docs_png)
    (out / "scale.json").write_text(json.dumps(r, indent=1))
    text = render(r)
    (out / "scale.md").write_text(text)
    print(text)
    failed = (any(x["status"] != 0 for x in r.get("memory", []))
              or any(x["status"] != 0 for x in (r.get("skip") or {}).get("runs", []))
              or ("kill" in r and not r["kill"]["check"]["ok"]))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
