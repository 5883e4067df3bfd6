"""Previews of remote files: kpz.remote against the floor, over HTTP from
nginx, through a latency proxy standing in for a WAN link or an object
store's time to first byte. Run by scripts/bench.sh --remote; writes
remote.md and remote.json into --out, and remote-rtt.png and
remote-inflight.png when gnuplot is installed.

Both are timed from the making of their connection pool to the last byte,
their modules imported before (as in a service that has run for a while).
The floor is one asyncio process (aiohttp, one connection pool) fetching
the same two ranges per file that kpz.remote fetches (the head's 64 KiB,
then the preview), with the preview's offset known in advance (it parses
nothing), 64 files in flight, the bodies kept in memory and dropped.
kpz.remote reads the same URLs (read_many, 64 in flight, its other
settings the defaults) from a process of its own, each picture used and
dropped as it comes, as the floor does.

Each comparison is a pair: both timed back to back over the same files
through the same proxy, the order alternating from pair to pair; the ratio
is the geometric mean of the pairs' rate ratios. Every preview kpz.remote
returned in the first pair is compared byte for byte with the file's
bytes at the manifest's offset.

kpz.distributed is paired with the same floor at the same RTTs: extract()
on a standing LocalCluster of 2 worker processes of one thread each (started
once, untimed), writing every preview into a local directory (emptied
between runs, untimed), its workers reading through kpz.remote.

The proxy (tests/python/remote_support.py) runs in a process of its own,
delivering each chunk RTT/2 after it arrived in each direction; nginx
serves hard links of the corpus on 127.0.0.1.
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

HEAD = 65536

FLOOR = r'''
import asyncio, json, sys, time
import aiohttp

async def main(job):
    urls, offsets, sizes, limit = job["urls"], job["offsets"], job["sizes"], job["limit"]
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
                    async with session.get(urls[i], headers={"Range": f"bytes={first}-{last}"}) as r:
                        body = await r.read()
                        if r.status != 206:
                            raise SystemExit(f"floor: HTTP {r.status} for {urls[i]}")
                        got += len(body)
        await asyncio.gather(*(one(i) for i in range(len(urls))))
        print(json.dumps({"seconds": time.perf_counter() - t, "cpu": time.process_time() - c,
                          "bytes": got}))

asyncio.run(main(json.load(sys.stdin)))
'''

KPZ = r'''
import asyncio, json, sys, time
import aiohttp  # imported before the clock starts, as for the floor
import kpz.remote

job = json.load(sys.stdin)
check = job.get("check")


async def main():
    t = time.perf_counter()
    c = time.process_time()
    out = {"bytes": 0, "requests": 0, "failed": 0, "first_failure": [], "identical": True}
    settings = kpz.remote.Settings(max_in_flight=job["limit"])
    # Each picture used and dropped as it comes, as the floor drops its bodies.
    async for r in kpz.remote.read_many(job["urls"], settings=settings):
        out["bytes"] += r.received
        out["requests"] += r.requests
        if not r.ok:
            out["failed"] += 1
            out["first_failure"] = out["first_failure"] or [r.words]
        elif check:
            path, offset, size = check[r.index]
            with open(path, "rb") as f:
                f.seek(offset)
                out["identical"] &= r.data == f.read(size)
    out["seconds"] = time.perf_counter() - t
    out["cpu"] = time.process_time() - c
    return out

out = asyncio.run(main())
if not check:
    del out["identical"]
print(json.dumps(out))
'''


class Proxy:
    """tests/python/remote_support.py's latency proxy in a process of its own."""

    def __init__(self, tests_dir: Path, target_port: int, rtt: float) -> None:
        self.proc = subprocess.Popen(
            [sys.executable, str(tests_dir / "remote_support.py"), "proxy", str(target_port),
             str(rtt / 2)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.port = int(self.proc.stdout.readline())

    def close(self) -> None:
        self.proc.stdin.close()
        try:
            self.proc.wait(10)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()


def run(code: str, job: dict, env: dict) -> dict:
    p = subprocess.run([sys.executable, "-c", code], input=json.dumps(job), text=True,
                       capture_output=True, env=env, timeout=3600)
    if p.returncode != 0:
        raise RuntimeError(p.stderr[-2000:])
    return json.loads(p.stdout)


def pairs(urls, files, limit, rounds, env, check=False):
    """`rounds` pairs of (kpz.remote, floor) runs, alternating which goes first."""
    job = {"urls": urls, "limit": limit,
            "offsets": [f["offset"] for f in files], "sizes": [f["size"] for f in files]}
    kpz_runs, floor_runs = [], []
    identical = None
    for r in range(rounds):
        kjob = dict(job)
        if check and r == 0:
            kjob["check"] = [(f["path"], f["offset"], f["size"]) for f in files]
        order = ("kpz", "floor") if r % 2 == 0 else ("floor", "kpz")
        for who in order:
            if who == "kpz":
                got = run(KPZ, kjob, env)
                if got["failed"]:
                    raise RuntimeError(f"kpz.remote failed {got['failed']} files: "
                                       f"{got['first_failure']}")
                if "identical" in got:
                    identical = got["identical"]
                kpz_runs.append(got)
            else:
                floor_runs.append(run(FLOOR, job, env))
    n = len(urls)
    ratios = [(n / k["seconds"]) / (n / f["seconds"]) for k, f in zip(kpz_runs, floor_runs)]
    return {"files": n, "limit": limit, "rounds": rounds,
            "kpz_files_per_s": statistics.median(n / k["seconds"] for k in kpz_runs),
            "floor_files_per_s": statistics.median(n / f["seconds"] for f in floor_runs),
            "ratio": geomean(ratios), "ratios": ratios,
            "kpz_cpu_ms_per_file": 1000 * statistics.median(k["cpu"] for k in kpz_runs) / n,
            "floor_cpu_ms_per_file": 1000 * statistics.median(f["cpu"] for f in floor_runs) / n,
            "kpz_requests_per_file": kpz_runs[0]["requests"] / n,
            "kpz_bytes_per_file": kpz_runs[0]["bytes"] / n,
            "floor_bytes_per_file": floor_runs[0]["bytes"] / n,
            "identical": identical}


def distributed_pairs(client, urls, files, rounds, work: Path, env):
    """`rounds` pairs of (kpz.distributed, floor), alternating which goes first."""
    import kpz.distributed

    job = {"urls": urls, "limit": 64,
            "offsets": [f["offset"] for f in files], "sizes": [f["size"] for f in files]}
    out = work / "out-distributed"
    dist_runs, floor_runs = [], []
    for r in range(rounds):
        order = ("kpz", "floor") if r % 2 == 0 else ("floor", "kpz")
        for who in order:
            if who == "floor":
                floor_runs.append(run(FLOOR, job, env))
                continue
            shutil.rmtree(out, ignore_errors=True)
            t = time.perf_counter()
            summary = kpz.distributed.extract(urls, str(out), cluster=client)
            seconds = time.perf_counter() - t
            if summary.failed:
                raise RuntimeError(f"kpz.distributed failed {summary.failed} files")
            dist_runs.append({"seconds": seconds})
    shutil.rmtree(out, ignore_errors=True)
    n = len(urls)
    ratios = [(n / d["seconds"]) / (n / f["seconds"]) for d, f in zip(dist_runs, floor_runs)]
    return {"files": n, "rounds": rounds,
            "kpz_files_per_s": statistics.median(n / d["seconds"] for d in dist_runs),
            "floor_files_per_s": statistics.median(n / f["seconds"] for f in floor_runs),
            "ratio": geomean(ratios), "ratios": ratios}


def plot(out: Path, name: str, xlabel: str, rows, logx=False):
    gp = shutil.which("gnuplot")
    if not gp:
        return False
    dat = out / f"{name}.dat"
    dat.write_text("".join(f"{x} {k} {f}\n" for x, k, f in rows))
    script = f"""
set terminal pngcairo size 800,480 noenhanced
set output '{out / (name + '.png')}'
set xlabel '{xlabel}'
set ylabel 'files per second'
set key top right
set grid
{'set logscale x 2' if logx else ''}
plot '{dat}' using 1:2 with linespoints title 'kpz.remote', '{dat}' using 1:3 with linespoints title 'floor (asyncio, two ranges per file)'
"""
    return subprocess.run([gp], input=script, text=True).returncode == 0


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--manifest", required=True)
    ap.add_argument("--tests-dir", required=True, help="tests/python (nginx and the proxy)")
    ap.add_argument("--work", required=True)
    ap.add_argument("--out", required=True)
    ap.add_argument("--files", type=int, default=240)
    ap.add_argument("--rounds", type=int, default=4, help="pairs per paired comparison")
    ap.add_argument("--paired-rtts", default="0,50", help="ms; the goal's comparisons")
    ap.add_argument("--rtts", default="0,10,50,100", help="ms; the curve against RTT")
    ap.add_argument("--limits", default="1,8,64,256", help="in-flight limits at --limit-rtt")
    ap.add_argument("--limit-rtt", type=float, default=50.0)
    ap.add_argument("--distributed-rounds", type=int, default=3,
                    help="pairs of kpz.distributed and the floor at each paired RTT (0: none)")
    args = ap.parse_args()

    tests_dir = Path(args.tests_dir).resolve()
    sys.path.insert(0, str(tests_dir))
    from distributed_support import Nginx

    work = Path(args.work)
    shutil.rmtree(work, ignore_errors=True)
    www = work / "www"
    www.mkdir(parents=True)
    out = Path(args.out)
    out.mkdir(parents=True, exist_ok=True)
    files = load_manifest(args.manifest)[:args.files]
    for f in files:
        os.link(f["path"], www / os.path.basename(f["path"]))
    env = dict(os.environ)
    server = Nginx(work / "nginx", www)
    report = {"files": len(files),
              "mean_file_size": sum(f["file_size"] for f in files) / len(files),
              "mean_preview": sum(f["size"] for f in files) / len(files),
              "paired": [], "rtt_curve": [], "limit_curve": [], "distributed": []}
    try:
        def through(rtt_ms, limit, rounds, check=False):
            proxy = Proxy(tests_dir, server.port, rtt_ms / 1000.0)
            try:
                urls = [f"http://127.0.0.1:{proxy.port}/{os.path.basename(f['path'])}"
                        for f in files]
                got = pairs(urls, files, limit, rounds, env, check)
            finally:
                proxy.close()
            got["rtt_ms"] = rtt_ms
            print(f"rtt {rtt_ms:g} ms, {limit} in flight: kpz.remote "
                  f"{got['kpz_files_per_s']:.1f} files/s, floor {got['floor_files_per_s']:.1f}, "
                  f"ratio {got['ratio']:.2f}", file=sys.stderr)
            return got

        for i, rtt in enumerate(float(x) for x in args.paired_rtts.split(",")):
            report["paired"].append(through(rtt, 64, args.rounds, check=(i == 0)))
        for rtt in (float(x) for x in args.rtts.split(",")):
            report["rtt_curve"].append(through(rtt, 64, 1))
        for limit in (int(x) for x in args.limits.split(",")):
            report["limit_curve"].append(through(args.limit_rtt, limit, 1))
        if args.distributed_rounds > 0:
            sys.path.insert(0, str(Path(__file__).resolve().parent))
            from bench_distributed import local_cluster

            cluster, client, _ = local_cluster(2)
            try:
                for rtt in (float(x) for x in args.paired_rtts.split(",")):
                    proxy = Proxy(tests_dir, server.port, rtt / 1000.0)
                    try:
                        urls = [f"http://127.0.0.1:{proxy.port}/{os.path.basename(f['path'])}"
                                for f in files]
                        got = distributed_pairs(client, urls, files, args.distributed_rounds,
                                                work, env)
                    finally:
                        proxy.close()
                    got["rtt_ms"] = rtt
                    print(f"rtt {rtt:g} ms: kpz.distributed {got['kpz_files_per_s']:.1f} "
                          f"files/s, floor {got['floor_files_per_s']:.1f}, "
                          f"ratio {got['ratio']:.2f}", file=sys.stderr)
                    report["distributed"].append(got)
            finally:
                client.close()
                cluster.close()
    finally:
        server.close()
        shutil.rmtree(work, ignore_errors=True)

    (out / "remote.json").write_text(json.dumps(report, indent=1))
    has_rtt_plot = plot(out, "remote-rtt", "added round-trip time (ms)",
                        [(r["rtt_ms"], r["kpz_files_per_s"], r["floor_files_per_s"])
                         for r in report["rtt_curve"]])
    has_limit_plot = plot(out, "remote-inflight", f"files in flight (RTT {args.limit_rtt:g} ms)",
                          [(r["limit"], r["kpz_files_per_s"], r["floor_files_per_s"])
                           for r in report["limit_curve"]], logx=True)
    L = [f"Remote previews: {report['files']} files of {report['mean_file_size'] / 1e6:.1f} MB "
         f"(previews of {report['mean_preview'] / 1e6:.2f} MB) from nginx on 127.0.0.1 through a "
         "latency proxy; kpz.remote against the floor (one asyncio process, two ranged GETs per "
         "file, 64 in flight), paired, alternating order.", "",
         "| added RTT | kpz.remote files/s | floor files/s | ratio (geomean of pairs) | pairs "
         "| kpz CPU ms/file | floor CPU ms/file | requests/file | bytes/file kpz / floor |",
         "|---|---|---|---|---|---|---|---|---|"]
    for r in report["paired"]:
        L.append(f"| {r['rtt_ms']:g} ms | {r['kpz_files_per_s']:.1f} | {r['floor_files_per_s']:.1f} "
                 f"| {r['ratio']:.2f}x | {r['rounds']} | {r['kpz_cpu_ms_per_file']:.2f} "
                 f"| {r['floor_cpu_ms_per_file']:.2f} | {r['kpz_requests_per_file']:.2f} "
                 f"| {r['kpz_bytes_per_file']:.0f} / {r['floor_bytes_per_file']:.0f} |")
    first = report["paired"][0] if report["paired"] else {}
    L += ["", f"Previews byte-identical to the files' bytes: {first.get('identical')}", "",
          "| added RTT | kpz.remote files/s | floor files/s |", "|---|---|---|"]
    for r in report["rtt_curve"]:
        L.append(f"| {r['rtt_ms']:g} ms | {r['kpz_files_per_s']:.1f} | {r['floor_files_per_s']:.1f} |")
    L += ["", f"| in flight (RTT {args.limit_rtt:g} ms) | kpz.remote files/s | floor files/s |",
          "|---|---|---|"]
    for r in report["limit_curve"]:
        L.append(f"| {r['limit']} | {r['kpz_files_per_s']:.1f} | {r['floor_files_per_s']:.1f} |")
    if report["distributed"]:
        L += ["", "kpz.distributed (a LocalCluster of 2 worker processes of one thread, standing; "
              "previews written to a local directory) against the same floor:", "",
              "| added RTT | kpz.distributed files/s | floor files/s | ratio (geomean of pairs) "
              "| pairs |", "|---|---|---|---|---|"]
        for r in report["distributed"]:
            L.append(f"| {r['rtt_ms']:g} ms | {r['kpz_files_per_s']:.1f} "
                     f"| {r['floor_files_per_s']:.1f} | {r['ratio']:.2f}x | {r['rounds']} |")
    if has_rtt_plot or has_limit_plot:
        L += ["", "Plots: remote-rtt.png, remote-inflight.png"]
    (out / "remote.md").write_text("\n".join(L) + "\n")
    print("\n".join(L))


if __name__ == "__main__":
    main()
