"""Previews of objects in an S3 API server (s3rver, as the tests run it) on
127.0.0.1, direct and through the latency proxy: kpz.remote, `python3 -m
kpz` and kpz.distributed (a standing LocalCluster of 2 workers of one
thread, configured as kpz.distributed's own: worker_config()) against the
floor, paired, alternating order. Run by scripts/bench.sh --s3; writes
s3.md and s3.json into --out.

The floor is one asyncio process (aiohttp, one pool, 64 objects in
flight) that signs each request with botocore's S3SigV4Auth as it sends it
and fetches the same two ranges per object that kpz does (the head's 64
KiB, then the preview, its offset known in advance: it parses nothing),
the bodies dropped. kpz.remote reads the same s3:// URLs (read_many, 64 in
flight) in a process of its own; `python3 -m kpz preview s3://... -o DIR`
and kpz.distributed write every preview into a local directory (emptied
between runs, untimed).

CPU per file is the processes' CPU time (user + system) over the files: the
floor's and kpz.remote's own (process_time), `python3 -m kpz`'s as its
child's rusage, kpz.distributed's workers' from /proc/PID/stat of the
worker processes before and after the run. Bytes per object are the body
bytes received.

Beside each run (the floor's too) the bench measures what else ran: the CPU
of s3rver and of the latency proxy (/proc/PID/stat), of the scheduler and
of the client (their threads in this process: the client has an event loop
of its own), and the whole machine's busy CPU and share (/proc/stat), other
users included. On 2 cores all of these share the machine, so files/s
follows the CPU per file of all of them together. After the pairs at each
RTT one more kpz.distributed run is watched (--timeline): each task's
submission, start and end, s3rver's first and last response, and each
process's share of a core, sampled every 10 ms.

The objects are a corpus of kpz_bench_run (--manifest: scripts/bench.sh
makes 240 files of 1.3 MB with previews of 256 KiB) or the test-data
builder's files (--fixtures: tests/python's "many", small previews), put
under --files keys.
"""

import argparse
import json
import os
import shutil
import statistics
import subprocess
import sys
import time
from pathlib import Path

from bench_common import geomean, load_manifest

FLOOR = r'''
import asyncio, json, sys, time
import aiohttp
from botocore.auth import S3SigV4Auth
from botocore.awsrequest import AWSRequest
from botocore.credentials import Credentials

async def main(job):
    urls, offsets, sizes, limit = job["urls"], job["offsets"], job["sizes"], job["limit"]
    creds = Credentials(job["key"], job["secret"])
    gate = asyncio.Semaphore(limit)
    got = 0
    t = time.perf_counter()
    c = time.process_time()
    conn = aiohttp.TCPConnector(limit=limit)
    async with aiohttp.ClientSession(connector=conn) as session:
        async def one(i):
            nonlocal got
            async with gate:
                for first, last in ((0, 65535), (offsets[i], offsets[i] + sizes[i] - 1)):
                    req = AWSRequest(method="GET", url=urls[i],
                                     headers={"Range": f"bytes={first}-{last}"})
                    S3SigV4Auth(creds, "s3", "us-east-1").add_auth(req)
                    async with session.get(urls[i], headers=dict(req.headers.items())) as r:
                        body = await r.read()
                        if r.status != 206:
                            raise SystemExit(f"floor: HTTP {r.status} for {urls[i]}: {body[:300]}")
                        got += len(body)
        await asyncio.gather(*(one(i) for i in range(len(urls))))
        print(json.dumps({"seconds": time.perf_counter() - t, "cpu": time.process_time() - c,
                          "bytes": got}))

asyncio.run(main(json.load(sys.stdin)))
'''

REMOTE = r'''
import asyncio, json, sys, time
import aiohttp, botocore.auth, botocore.session  # imported before the clock, as for the floor
import kpz.remote

job = json.load(sys.stdin)

async def main():
    t = time.perf_counter()
    c = time.process_time()
    out = {"bytes": 0, "requests": 0, "failed": 0, "first_failure": []}
    async for r in kpz.remote.read_many(job["s3"], settings=kpz.remote.Settings(
            max_in_flight=job["limit"])):
        out["bytes"] += r.received
        out["requests"] += r.requests
        if not r.ok:
            out["failed"] += 1
            out["first_failure"] = out["first_failure"] or [r.words]
    out["seconds"] = time.perf_counter() - t
    out["cpu"] = time.process_time() - c
    return out

print(json.dumps(asyncio.run(main())))
'''


# The contenders, each paired with the floor.
WHO = ("kpz.remote", "python3 -m kpz", "kpz.distributed")


def run(code: str, job: dict, env: dict) -> dict:
    """The job's own figures (its clock starts after its imports), and the
    same process timed whole from outside as run_cli times `python3 -m kpz`:
    process_seconds and process_cpu, start-up included."""
    before = os.times()
    t = time.perf_counter()
    p = subprocess.run([sys.executable, "-c", code], input=json.dumps(job), text=True,
                       capture_output=True, env=env, timeout=3600)
    seconds = time.perf_counter() - t
    after = os.times()
    if p.returncode != 0:
        raise RuntimeError(p.stderr[-2000:])
    got = json.loads(p.stdout)
    got["process_seconds"] = seconds
    got["process_cpu"] = (after.children_user - before.children_user) + \
        (after.children_system - before.children_system)
    return got


def run_cli(args, env, out: Path) -> dict:
    shutil.rmtree(out, ignore_errors=True)
    before = os.times()
    t = time.perf_counter()
    p = subprocess.run([sys.executable, "-m", "kpz", *args, "-o", str(out)], env=env,
                       capture_output=True, text=True, timeout=3600)
    seconds = time.perf_counter() - t
    after = os.times()
    if p.returncode != 0:
        raise RuntimeError(p.stderr[-2000:])
    cpu = (after.children_user - before.children_user) + \
        (after.children_system - before.children_system)
    return {"seconds": seconds, "cpu": cpu}


def proc_cpu(pids) -> float:
    """CPU seconds (user + system) of the processes `pids` so far."""
    return sum(task_cpu(pid) for pid in pids)


def task_cpu(pid: int, tid: int = 0) -> float:
    """CPU seconds (user + system) of the process `pid`, or of its thread
    `tid`, so far (0 for one that has ended)."""
    path = f"/proc/{pid}/task/{tid}/stat" if tid else f"/proc/{pid}/stat"
    try:
        with open(path, encoding="utf-8") as f:
            fields = f.read().rsplit(")", 1)[1].split()
    except OSError:
        return 0.0
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def machine_jiffies():
    """(busy, all) clock ticks of every core so far (/proc/stat; waiting for
    I/O counts as idle)."""
    with open("/proc/stat", encoding="utf-8") as f:
        v = [int(x) for x in f.readline().split()[1:9]]
    busy = v[0] + v[1] + v[2] + v[5] + v[6] + v[7]
    return busy, busy + v[3] + v[4]


class Probe:
    """CPU seconds of named processes and of named threads of this process
    over one run, and the whole machine's busy share: what else ran while a
    contender did (s3rver, the latency proxy, the scheduler, other users of
    the machine)."""

    def __init__(self, pids, threads=None) -> None:
        self.pids = dict(pids)             # name -> [pid]
        self.threads = dict(threads or {})  # name -> [thread id of this process]

    def sample(self) -> dict:
        got = {name: proc_cpu(pids) for name, pids in self.pids.items()}
        me = os.getpid()
        for name, tids in self.threads.items():
            got[name] = sum(task_cpu(me, t) for t in tids)
        got["machine"] = machine_jiffies()
        got["process"] = time.process_time()
        return got

    def start(self) -> None:
        self.first = self.sample()
        self.t = time.perf_counter()

    def stop(self) -> dict:
        last = self.sample()
        out = {"cpu." + name: last[name] - self.first[name]
               for name in list(self.pids) + list(self.threads)}
        busy = last["machine"][0] - self.first["machine"][0]
        every = last["machine"][1] - self.first["machine"][1]
        out["machine_busy"] = busy / every if every else 0.0
        out["machine_cpu"] = busy / os.sysconf("SC_CLK_TCK")
        out["wall"] = time.perf_counter() - self.t
        out["cpu.bench"] = last["process"] - self.first["process"]
        return out


def cluster_apart(n: int):
    """A standing LocalCluster of `n` workers of one thread (as
    bench_distributed's) whose client has an event loop of its own, so that
    the scheduler's CPU and the client's are told apart: (cluster, client,
    {"scheduler": [thread ids], "client": [thread ids]})."""
    import threading

    from distributed import Client, LocalCluster

    def ids():
        return {int(t) for t in os.listdir("/proc/self/task")}

    before = ids()
    cluster = LocalCluster(n_workers=n, threads_per_worker=1, processes=True,
                           host="127.0.0.1", dashboard_address=None,
                           scheduler_kwargs={"dashboard": False})
    scheduler = ids() - before
    before = ids()
    client = Client(cluster.scheduler_address)
    mine = (ids() - before) | {threading.main_thread().native_id}
    client.wait_for_workers(n)
    # A standing cluster has run before: every worker has imported kpz.
    client.run(lambda: __import__("kpz.distributed"))
    return cluster, client, {"scheduler": sorted(scheduler), "client": sorted(mine)}


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    what = ap.add_mutually_exclusive_group(required=True)
    what.add_argument("--manifest", help="a corpus of kpz_bench_run (manifest.tsv)")
    what.add_argument("--fixtures", help="the directory of kpz_py_fixtures' files")
    ap.add_argument("--tests-dir", required=True, help="tests/python (s3rver and the proxy)")
    ap.add_argument("--work", required=True)
    ap.add_argument("--out", required=True)
    ap.add_argument("--files", type=int, default=240,
                    help="objects put in the store and read (the corpus's files repeated "
                         "as needed: a larger run shows the start-up against more work)")
    ap.add_argument("--only", default=",".join(WHO),
                    help="the contenders measured, comma-separated (default: all of %s)"
                         % ", ".join(WHO))
    ap.add_argument("--rounds", type=int, default=3, help="pairs per comparison")
    ap.add_argument("--rtts", default="0,50", help="added round-trip times, ms")
    ap.add_argument("--timeline", action=argparse.BooleanOptionalAction, default=True,
                    help="after the pairs at each RTT, one more kpz.distributed run "
                         "sampled every 10 ms: tasks, requests, CPU of each process")
    args = ap.parse_args()
    args.only = tuple(w for w in WHO if w in args.only.split(","))
    if not args.only:
        ap.error("--only names none of %s" % ", ".join(WHO))

    tests_dir = Path(args.tests_dir).resolve()
    sys.path.insert(0, str(tests_dir))
    sys.path.insert(0, str(Path(__file__).resolve().parent))
    from s3_support import KEY, SECRET, S3rver, upload

    import compileall

    import kpz
    from kpz._kpz import HEAD_SIZE, picture

    # Measured as installed by pip, which byte-compiles the package's
    # modules: from a build tree with PYTHONDONTWRITEBYTECODE=1 set, every
    # `python3 -m kpz` would compile them from source again, 30 to 40 ms of
    # CPU that an installed package does not spend.
    compileall.compile_dir(os.path.dirname(kpz.__file__), quiet=1)

    work = Path(args.work)
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    out = Path(args.out)
    out.mkdir(parents=True, exist_ok=True)
    if args.manifest:
        many = [f["path"] for f in load_manifest(args.manifest)]
    else:
        many = json.loads((Path(args.fixtures) / "manifest.json").read_text())["many"]
    objects, offsets, sizes = {}, [], []
    for i in range(args.files):
        data = Path(many[i % len(many)]).read_bytes()
        found = picture(data[:HEAD_SIZE], "preview", file_size=len(data))
        objects["raw/f%05d.kpz" % i] = data
        offsets.append(found.offset)
        sizes.append(found.length)
    keys = sorted(objects)
    head_bytes = [min(HEAD_SIZE, len(objects[k])) for k in keys]
    report = {"files": len(keys), "mean_object": sum(map(len, objects.values())) / len(keys),
              "mean_preview": sum(sizes) / len(sizes), "rows": []}
    with S3rver(work) as server:
        env = dict(os.environ, **server.env())
        os.environ.update(env)
        upload("bench", objects)
        import dask
        from kpz.distributed._cluster import worker_config

        # Configured as kpz's own local cluster is, and as docs/DISTRIBUTED.md
        # tells for a cluster of one's own (Dask's periodic work made rarer,
        # glibc's malloc thresholds for buffers of a picture's size).
        cluster = client = None
        workers = []
        threads = {}
        if "kpz.distributed" in args.only:
            with dask.config.set(worker_config()):
                cluster, client, threads = cluster_apart(2)
            workers = list(client.run(os.getpid).values())
        try:
            for rtt in (float(x) for x in args.rtts.split(",")):
                proxy = subprocess.Popen([sys.executable, str(tests_dir / "remote_support.py"),
                                          "proxy", str(server.port), str(rtt / 2000.0)],
                                         stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
                port = int(proxy.stdout.readline())
                endpoint = "http://127.0.0.1:%d" % port
                probe = Probe({"s3rver": [server.proc.pid], "proxy": [proxy.pid],
                               "workers": workers}, threads)
                try:
                    row = measure(args, env, endpoint, keys, offsets, sizes, head_bytes, client,
                                  probe, work, KEY, SECRET)
                    if client is not None and args.timeline:
                        row["timeline"] = timeline(client, endpoint, probe, server.log,
                                                   work / "out-dist", len(keys))
                finally:
                    proxy.stdin.close()
                    proxy.wait(10)
                row["rtt_ms"] = rtt
                report["rows"].append(row)
                print(json.dumps(row), file=sys.stderr)
        finally:
            if client is not None:
                client.close()
                cluster.close()
    shutil.rmtree(work, ignore_errors=True)
    (out / "s3.json").write_text(json.dumps(report, indent=1))
    want = [h + s for h, s in zip(head_bytes, sizes)]
    floor_bytes = sum(want) / len(want)
    L = [f"Previews from an S3 API server (s3rver on 127.0.0.1): {report['files']} objects of "
         f"{report['mean_object'] / 1e3:.0f} kB (previews of {report['mean_preview'] / 1e3:.1f} "
         "kB), each request signed (AWS Signature Version 4, botocore); against the floor (one "
         "asyncio process signing each request, the same two ranges, 64 in flight), paired, "
         "alternating order; ratio = geometric mean of the pairs' files/s ratios.", "",
         "| added RTT | who | files/s | floor files/s | ratio | CPU ms/file | floor CPU ms/file "
         "| CPU ratio | bytes/object (floor's) |", "|---|---|---|---|---|---|---|---|---|"]
    for r in report["rows"]:
        for who in args.only:
            m = r[who]
            L.append(f"| {r['rtt_ms']:g} ms | {who} | {m['files_per_s']:.1f} "
                     f"| {m['floor_files_per_s']:.1f} | {m['ratio']:.2f}x "
                     f"| {m['cpu_ms']:.2f} | {m['floor_cpu_ms']:.2f} "
                     f"| {m['cpu_ms'] / m['floor_cpu_ms']:.2f}x "
                     + (f"| {m['bytes']:.0f} ({floor_bytes:.0f}) |" if "bytes" in m else "| |"))
    if "kpz.distributed" in args.only:
        L += ["", "kpz.distributed's CPU is its 2 workers' (the client's and the scheduler's "
              "apart: %s)." % ", ".join(
                  "%.2f and %.2f ms/file at %g ms" % (r["kpz.distributed"]["client_cpu_ms"],
                                                       r["kpz.distributed"]["scheduler_ms"],
                                                       r["rtt_ms"])
                  for r in report["rows"])]
    if "python3 -m kpz" in args.only:
        L += ["", "`python3 -m kpz` is timed whole, start-up included; against the floor's "
              "process timed whole the same way (its interpreter's start-up and imports "
              "included): " + ", ".join("%.2fx files/s and %.2fx CPU at %g ms" % (
                  r["python3 -m kpz"]["ratio_whole"],
                  r["python3 -m kpz"]["cpu_ms"] / r["python3 -m kpz"]["floor_cpu_ms_whole"],
                  r["rtt_ms"]) for r in report["rows"]) + "."]
    L += ["", "CPU of every process over the runs, ms per file (medians): the contender's "
          "own (the floor's, kpz.remote's and `python3 -m kpz`'s process whole, start-up "
          "included; kpz.distributed's 2 workers), the scheduler and the client (threads of "
          "the bench process), s3rver, the latency proxy, and the whole machine's busy CPU "
          "(everything, other users included) and busy share of its %d cores." % os.cpu_count(),
          "", "| added RTT | run | files/s | own | scheduler | client | s3rver | proxy "
          "| machine | machine busy |", "|---|---|---|---|---|---|---|---|---|---|"]
    for r in report["rows"]:
        for who in args.only:
            m = r[who]
            for side, name in (("floor_", "floor (paired with %s)" % who), ("", who)):
                # Whole processes where they are children; the workers' for
                # kpz.distributed.
                own = m["floor_own_whole_ms"] if side else m.get("own_whole_ms", m["cpu_ms"])
                dist = who == "kpz.distributed" and side == ""
                L.append("| %g ms | %s | %.1f | %.2f | %s | %s | %.2f | %.2f | %.2f | %.0f %% |" % (
                    r["rtt_ms"], name, m[side + "files_per_s"], own,
                    "%.2f" % m["scheduler_ms"] if dist else "",
                    "%.2f" % m["client_ms"] if dist else "",
                    m[side + "s3rver_ms"], m[side + "proxy_ms"], m[side + "machine_ms"],
                    100 * m[side + "machine_busy"]))
    for r in report["rows"]:
        t = r.get("timeline")
        if not t:
            continue
        share = ", ".join("%s %.2f" % kv for kv in t["core_share_between_responses"].items())
        L += ["", "One kpz.distributed run watched at %g ms (%d tasks, %.2f s): first response "
              "of s3rver at %.3f s (the listing), first task submitted at %.3f s, started at "
              "%.3f s, last response at %.3f s, last task ended at %.3f s; each worker idle "
              "%s s between its first task and the last's end. Share of a core between the "
              "first and the last response: %s; s3rver at 90 %% of a core or more in %d of "
              "%d samples of 10 ms." % (
                  r["rtt_ms"], len(t["tasks"]), t["seconds"], t["first_response"],
                  t["first_task_submitted"], t["first_task_start"], t["last_response"],
                  t["last_task_stop"], " and ".join("%.3f" % v for v in
                                                    t["idle_per_worker"].values()),
                  share, *t["samples_s3rver_at_90pct"])]
    (out / "s3.md").write_text("\n".join(L) + "\n")
    plot(report, out, args.only)
    print("\n".join(L))


def plot(report: dict, out: Path, who) -> None:
    """perf-s3.png: each contender's files/s and workers' CPU per file, as
    ratios to the floor's in the same pairs, at each added RTT (gnuplot)."""
    if shutil.which("gnuplot") is None:
        return
    dat = out / "s3.dat"
    lines = ["# who " + " ".join("rate@%gms cpu@%gms" % (r["rtt_ms"], r["rtt_ms"])
                                 for r in report["rows"])]
    for w in who:
        cells = []
        for r in report["rows"]:
            m = r[w]
            cells += ["%.3f" % m["ratio"], "%.3f" % (m["cpu_ms"] / m["floor_cpu_ms"])]
        lines.append('"%s" %s' % (w, " ".join(cells)))
    dat.write_text("\n".join(lines) + "\n")
    cols = []
    for i, r in enumerate(report["rows"]):
        cols.append("'%s' using %d:xtic(1) title 'files/s vs floor, %g ms'"
                    % (dat, 2 + 2 * i, r["rtt_ms"]))
        cols.append("'' using %d title 'CPU/file vs floor, %g ms'" % (3 + 2 * i, r["rtt_ms"]))
    script = ['set terminal pngcairo size 720,400 font ",10"', "set grid ytics",
              "set output '%s'" % (out / "perf-s3.png"), "set style data histograms",
              "set style fill solid 0.8 border -1", "set key top left", "set yrange [0:*]",
              "set ylabel 'ratio to the floor (same pairs)'",
              "set title 's3:// from s3rver: files/s and CPU per file against the floor'",
              "plot " + ", ".join(cols) + ", 1 with lines lc 'black' notitle, "
              "2 with lines dt 2 lc 'black' notitle"]
    subprocess.run(["gnuplot"], input="\n".join(script) + "\n", text=True, check=False)


def timeline(client, endpoint: str, probe: Probe, server_log: Path, dest: Path, n: int) -> dict:
    """One more kpz.distributed run, watched: each task's submission (the
    scheduler's transition log), start and end on its worker (Dask's task
    stream), the first and last request s3rver answered (its log growing,
    one line a response), and every 10 ms the CPU of each process; what
    it says, in seconds from the run's start."""
    import threading

    import kpz.distributed
    from distributed import get_task_stream
    from kpz._s3 import Options
    from kpz.remote import Settings

    shutil.rmtree(dest, ignore_errors=True)
    samples = []
    stop = threading.Event()

    def sample():
        while not stop.is_set():
            got = probe.sample()
            samples.append((time.time(), server_log.stat().st_size, got))
            stop.wait(0.01)

    def since(t):
        return round(t - t0, 4)

    sampler = threading.Thread(target=sample, daemon=True)
    t0 = time.time()
    sampler.start()
    with get_task_stream(client) as stream:
        summary = kpz.distributed.extract(["s3://bench/raw/"], str(dest), cluster=client,
                                          remote=Settings(s3=Options(endpoint_url=endpoint)))
        t1 = time.time()
    stop.set()
    sampler.join()
    if summary.failed or summary.done != n:
        raise RuntimeError("kpz.distributed: %d failed" % summary.failed)
    log = client.run_on_scheduler(lambda dask_scheduler: [
        (str(e[0]), e[1], e[2], e[-1]) for e in dask_scheduler.transition_log])
    submitted = {}
    for key, start, _, at in log:
        if start == "released" and t0 <= at <= t1 and key not in submitted:
            submitted[key] = at
    tasks = []
    for task in stream.data:
        for ss in task.get("startstops", ()):
            if ss["action"] == "compute":
                tasks.append({"key": str(task["key"]), "worker": task["worker"],
                              "submitted": since(submitted.get(str(task["key"]), t0)),
                              "start": since(ss["start"]), "stop": since(ss["stop"])})
    tasks.sort(key=lambda x: x["start"])
    grew = [at for (at, size), (_, before, _) in
            zip(((x[0], x[1]) for x in samples[1:]), samples) if size > before]
    # Idle time of each worker between its first task's start and the last
    # task's end anywhere: when it ran none.
    idle = {}
    end = max(x["stop"] for x in tasks)
    for w in sorted({x["worker"] for x in tasks}):
        busy_until, gap = None, 0.0
        for x in (x for x in tasks if x["worker"] == w):
            if busy_until is not None and x["start"] > busy_until:
                gap += x["start"] - busy_until
            busy_until = max(busy_until or x["stop"], x["stop"])
        idle[w] = round(gap + max(0.0, end - busy_until), 4)
    # Each process's share of one core over the samples between the first
    # and the last response, and how often s3rver had a whole core.
    first_get, last_get = (since(grew[0]), since(grew[-1])) if grew else (None, None)
    share = {}
    full = 0
    inside = [(a, b) for a, b in zip(samples, samples[1:])
              if grew and grew[0] <= b[0] <= grew[-1]]
    for a, b in inside:
        dt = b[0] - a[0]
        if dt > 0 and (b[2]["s3rver"] - a[2]["s3rver"]) / dt >= 0.9:
            full += 1
    if inside:
        span = inside[-1][1][0] - inside[0][0][0]
        for name in list(probe.pids) + list(probe.threads):
            share[name] = round((inside[-1][1][2][name] - inside[0][0][2][name]) / span, 3)
        busy = inside[-1][1][2]["machine"][0] - inside[0][0][2]["machine"][0]
        every = inside[-1][1][2]["machine"][1] - inside[0][0][2]["machine"][1]
        share["machine (of all cores)"] = round(busy / every, 3) if every else 0.0
    return {"seconds": round(t1 - t0, 4), "tasks": tasks, "first_task_submitted":
            min((x["submitted"] for x in tasks), default=None),
            "first_task_start": tasks[0]["start"] if tasks else None,
            "last_task_stop": end, "first_response": first_get, "last_response": last_get,
            "idle_per_worker": idle, "core_share_between_responses": share,
            "samples_s3rver_at_90pct": [full, len(inside)]}


def measure(args, env, endpoint, keys, offsets, sizes, head_bytes, client, probe, work,
            key, secret):
    import kpz.distributed
    from kpz._s3 import Options
    from kpz.remote import Settings

    n = len(keys)
    env = dict(env, AWS_ENDPOINT_URL=endpoint)
    os.environ["AWS_ENDPOINT_URL"] = endpoint
    urls = ["%s/bench/%s" % (endpoint, k) for k in keys]
    s3 = ["s3://bench/%s" % k for k in keys]
    job = {"urls": urls, "s3": s3, "offsets": offsets, "sizes": sizes, "limit": 64, "key": key,
           "secret": secret}
    runs = {"floor": [], **{w: [] for w in args.only}}
    floors = {w: [] for w in args.only}
    for r in range(args.rounds):
        for who in args.only:
            order = (who, "floor") if r % 2 == 0 else ("floor", who)
            for w in order:
                probe.start()
                if w == "floor":
                    got = run(FLOOR, job, env)
                    floors[who].append(got)
                    runs["floor"].append(got)
                elif w == "kpz.remote":
                    got = run(REMOTE, job, env)
                    if got["failed"]:
                        raise RuntimeError("kpz.remote: %s" % got["first_failure"])
                    runs[w].append(got)
                elif w == "python3 -m kpz":
                    runs[w].append(run_cli(["preview", "s3://bench/raw/"], env,
                                           work / "out-cli"))
                else:
                    dest = work / "out-dist"
                    shutil.rmtree(dest, ignore_errors=True)
                    t = time.perf_counter()
                    summary = kpz.distributed.extract(
                        ["s3://bench/raw/"], str(dest), cluster=client,
                        remote=Settings(s3=Options(endpoint_url=endpoint)))
                    seconds = time.perf_counter() - t
                    if summary.failed or summary.done != n:
                        raise RuntimeError("kpz.distributed: %d failed" % summary.failed)
                    runs[w].append({"seconds": seconds})
                around = probe.stop()
                got = runs[w][-1] if w != "floor" else floors[who][-1]
                got["around"] = around
                if w == "kpz.distributed":
                    got["cpu"] = around["cpu.workers"]
                    got["client_cpu"] = around["cpu.client"]
    row = {}
    for who in floors:
        mine, floor = runs[who], floors[who]
        ratios = [(n / m["seconds"]) / (n / f["seconds"]) for m, f in zip(mine, floor)]
        row[who] = {"files_per_s": statistics.median(n / m["seconds"] for m in mine),
                    "floor_files_per_s": statistics.median(n / f["seconds"] for f in floor),
                    "ratio": geomean(ratios), "ratios": ratios,
                    "cpu_ms": 1000 * statistics.median(m["cpu"] for m in mine) / n,
                    "floor_cpu_ms": 1000 * statistics.median(f["cpu"] for f in floor) / n,
                    "floor_own_whole_ms": 1000 * statistics.median(
                        f["process_cpu"] for f in floor) / n}
        if "process_cpu" in mine[0]:
            row[who]["own_whole_ms"] = 1000 * statistics.median(
                m["process_cpu"] for m in mine) / n
        if who == "python3 -m kpz":
            # A command timed whole against the floor timed whole: both pay
            # their interpreter's start-up and imports.
            whole = [(n / m["seconds"]) / (n / f["process_seconds"]) for m, f in zip(mine, floor)]
            row[who]["ratio_whole"] = geomean(whole)
            row[who]["floor_cpu_ms_whole"] = 1000 * statistics.median(
                f["process_cpu"] for f in floor) / n
        if "bytes" in mine[0]:
            row[who]["bytes"] = mine[0]["bytes"] / n
        row[who]["floor_files_per_s"] = statistics.median(n / f["seconds"] for f in floor)
        if "client_cpu" in mine[0]:
            row[who]["client_cpu_ms"] = 1000 * statistics.median(
                m["client_cpu"] for m in mine) / n
        # What ran beside each: CPU ms per file of every process measured
        # (medians of the runs), and the machine's busy share (of all cores).
        for side, runs_of in (("", mine), ("floor_", floor)):
            keys_of = [k for k in runs_of[0]["around"] if k.startswith("cpu.")]
            for k in keys_of:
                row[who][side + k[4:] + "_ms"] = 1000 * statistics.median(
                    m["around"][k] for m in runs_of) / n
            row[who][side + "machine_busy"] = statistics.median(
                m["around"]["machine_busy"] for m in runs_of)
            # CPU of the machine over the run not counted above: the
            # contender's own (a child's), then anything else running.
            row[who][side + "machine_ms"] = 1000 * statistics.median(
                m["around"]["machine_cpu"] for m in runs_of) / n
    return row


if __name__ == "__main__":
    main()
