"""kpz.distributed against `kpz preview -j N` on the same files, over HTTP
from nginx, and how it grows with the number of files and the batch size.
Run by scripts/bench.sh --distributed; writes distributed.md and
distributed.json into --out.

Local files: a LocalCluster of 1 and of 2 worker processes (one thread each,
on 127.0.0.1, started once and kept, as a standing cluster is) against
`kpz preview -j 1` and `-j 2` on the same directory, each pair timed back to
back in alternating order, the output directory emptied between runs (not
timed); the ratio is the geometric mean of the pairs' rate ratios. Every
output of the first run of each is compared byte for byte with kpz's.

HTTP: nginx (its own prefix and config in the work directory, 127.0.0.1)
serves the corpus; bytes per file are nginx's $body_bytes_sent summed per
file from its access log, against 64 KiB + the preview and against the
file's size (what a tool that reads the whole file costs).

Scaling: hard links of the corpus under new names (the same inodes: the
disk holds the corpus once) for 1,000 to 10,000 files, and batch sizes from
1 to 256 files per task.
"""

import argparse
import json
import math
import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

from bench_common import geomean, load_manifest


def empty(d: Path):
    shutil.rmtree(d, ignore_errors=True)


def same_tree(a: Path, b: Path):
    na = sorted(os.listdir(a))
    nb = sorted(os.listdir(b))
    if na != nb:
        return False
    return all((a / n).read_bytes() == (b / n).read_bytes() for n in na)


def time_kpz(kpz, src, out, jobs):
    empty(out)
    t = time.perf_counter()
    p = subprocess.run([kpz, "preview", "-j", str(jobs), str(src), "-o", str(out)],
                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, timeout=3600)
    dt = time.perf_counter() - t
    if p.returncode != 0:
        raise RuntimeError("kpz preview failed: " + p.stderr[-500:])
    return dt


def time_dask(client, sources, out, batch_size=None):
    import kpz.distributed

    empty(out)
    t = time.perf_counter()
    s = kpz.distributed.extract(sources, str(out), cluster=client, batch_size=batch_size)
    dt = time.perf_counter() - t
    if s.failed:
        raise RuntimeError("kpz.distributed failed: " + s.render())
    return dt, s.files


def local_cluster(workers):
    from distributed import Client, LocalCluster

    t = time.perf_counter()
    cluster = LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                           host="127.0.0.1", dashboard_address=None,
                           scheduler_kwargs={"dashboard": False})
    client = Client(cluster)
    client.wait_for_workers(workers)
    started = time.perf_counter() - t
    # A standing cluster has run before: every worker has imported kpz.
    client.run(lambda: __import__("kpz.distributed"))
    return cluster, client, started


def bench_local(args, corpus, files, work):
    n = len(files)
    results = {}
    for jobs in (1, 2):
        cluster, client, start = local_cluster(jobs)
        try:
            pairs = []
            checked = False
            for r in range(args.rounds):
                order = ["kpz", "dask"] if r % 2 == 0 else ["dask", "kpz"]
                times = {}
                for who in order:
                    if who == "kpz":
                        times[who] = time_kpz(args.kpz, corpus, work / "out-kpz", jobs)
                    else:
                        times[who] = time_dask(client, [str(corpus)], work / "out-dask")[0]
                if not checked:
                    if not same_tree(work / "out-kpz", work / "out-dask"):
                        raise RuntimeError("outputs differ from kpz preview's")
                    checked = True
                pairs.append((n / times["dask"], n / times["kpz"]))
        finally:
            client.close()
            cluster.close()
        results[str(jobs)] = {
            "files": n, "cluster_start_s": start,
            "dask_files_per_s": sorted(p[0] for p in pairs)[len(pairs) // 2],
            "kpz_files_per_s": sorted(p[1] for p in pairs)[len(pairs) // 2],
            "ratio": geomean([d / k for d, k in pairs]), "pairs": pairs,
            "outputs_identical": True}
        print(f"local, {jobs} worker(s): {results[str(jobs)]['ratio']:.3f} of kpz -j {jobs}",
              file=sys.stderr)
    empty(work / "out-kpz")
    empty(work / "out-dask")
    return results


def bench_http(args, corpus, files, work):
    sys.path.insert(0, str(Path(args.tests_dir)))
    from distributed_support import Nginx

    n = min(len(files), args.http_files)
    http_rounds = min(args.rounds, 3)
    www = work / "www"
    www.mkdir()
    chosen = files[:n]
    for f in chosen:
        os.link(f["path"], www / os.path.basename(f["path"]))
    server = Nginx(work / "nginx", www)
    cluster, client, _ = local_cluster(2)
    try:
        urls = [f"{server.url}/{os.path.basename(f['path'])}" for f in chosen]
        rates = []
        for r in range(http_rounds):
            dt, count = time_dask(client, urls, work / "out-http")
            rates.append(count / dt)
        sent = server.bytes_per_uri()
    finally:
        client.close()
        cluster.close()
        server.close()
    time_kpz(args.kpz, www, work / "out-kpz", 2)
    identical = same_tree(work / "out-http", work / "out-kpz")
    per_file = []
    for f in chosen:
        total, requests = sent["/" + os.path.basename(f["path"])]
        per_file.append({"bytes": total / http_rounds, "requests": requests / http_rounds,
                         "bound": 65536 + f["size"], "file_size": f["file_size"]})
    worst = max(p["bytes"] / p["bound"] for p in per_file)
    out = {"files": n, "rounds": http_rounds,
           "files_per_s": sorted(rates)[len(rates) // 2], "rates": rates,
           "bytes_per_file": sum(p["bytes"] for p in per_file) / n,
           "requests_per_file": sum(p["requests"] for p in per_file) / n,
           "head_plus_preview": sum(p["bound"] for p in per_file) / n,
           "file_size": sum(p["file_size"] for p in per_file) / n,
           "worst_ratio_to_bound": worst, "outputs_identical": identical}
    empty(work / "out-http")
    empty(work / "out-kpz")
    empty(www)
    print(f"http: {out['bytes_per_file']:.0f} bytes per file, worst {worst:.4f}x of the bound",
          file=sys.stderr)
    return out


def linked(corpus_files, count, where: Path):
    empty(where)
    where.mkdir(parents=True)
    for i in range(count):
        f = corpus_files[i % len(corpus_files)]["path"]
        os.link(f, where / f"f{i:05d}.kpz")
    return where


def bench_scaling(args, files, work):
    cluster, client, _ = local_cluster(2)
    counts = {}
    batches = {}
    try:
        for count in args.counts:
            src = linked(files, count, work / "links")
            dt_k = time_kpz(args.kpz, src, work / "out-kpz", 2)
            dt_d, _ = time_dask(client, [str(src)], work / "out-dask")
            counts[str(count)] = {"dask_files_per_s": count / dt_d, "kpz_files_per_s": count / dt_k,
                                  "ratio": dt_k / dt_d}
            print(f"{count} files: dask {count / dt_d:.0f}/s, kpz -j 2 {count / dt_k:.0f}/s",
                  file=sys.stderr)
            empty(work / "out-kpz")
            empty(work / "out-dask")
        src = linked(files, args.batch_files, work / "links")
        for size in args.batch_sizes:
            dt_d, _ = time_dask(client, [str(src)], work / "out-dask", batch_size=size)
            batches[str(size)] = {"dask_files_per_s": args.batch_files / dt_d,
                                  "tasks": math.ceil(args.batch_files / size)}
            print(f"batch {size}: {args.batch_files / dt_d:.0f} files/s", file=sys.stderr)
            empty(work / "out-dask")
    finally:
        client.close()
        cluster.close()
        empty(work / "links")
    return {"counts": counts, "batch_files": args.batch_files, "batches": batches}


def render(r):
    L = []
    loc = r["local"]
    L.append(f"Local files: {loc['1']['files']} files (sparse, {r['corpus']['preview_mb']:.2f} MB "
             f"previews, {r['corpus']['file_mb']:.1f} MB per file), {r['rounds']} paired rounds, "
             "page cache warm, outputs compared byte for byte with kpz preview's: "
             + ("identical" if loc["1"]["outputs_identical"] else "DIFFERENT") + ".")
    L.append("")
    L.append("| run | kpz.distributed files/s | kpz preview files/s | ratio (geomean of pairs) | goal |")
    L.append("|---|---:|---:|---:|---|")
    for j in ("1", "2"):
        x = loc[j]
        goal = ">= 0.80" if j == "2" else "-"
        met = "" if j == "1" else (" met" if x["ratio"] >= 0.8 else " NOT met")
        L.append(f"| {j} worker(s) vs `kpz -j {j}` | {x['dask_files_per_s']:.0f} | "
                 f"{x['kpz_files_per_s']:.0f} | {x['ratio']:.3f} | {goal}{met} |")
    L.append("")
    L.append(f"LocalCluster start (not in the rates): 1 worker {loc['1']['cluster_start_s']:.1f} s, "
             f"2 workers {loc['2']['cluster_start_s']:.1f} s.")
    L.append("")
    h = r["http"]
    L.append(f"HTTP (nginx on 127.0.0.1, 2 workers, {h['files']} files, {h['rounds']} runs): "
             f"{h['files_per_s']:.0f} files/s; outputs "
             + ("identical to kpz preview's" if h["outputs_identical"] else "DIFFERENT") + ".")
    L.append("")
    L.append("| bytes per file | requests per file | 64 KiB + preview | whole file | worst file / (64 KiB + preview) | goal |")
    L.append("|---:|---:|---:|---:|---:|---|")
    goal = "<= 1.10" + (" met" if h["worst_ratio_to_bound"] <= 1.1 else " NOT met")
    L.append(f"| {h['bytes_per_file']:.0f} | {h['requests_per_file']:.1f} | "
             f"{h['head_plus_preview']:.0f} | {h['file_size']:.0f} | "
             f"{h['worst_ratio_to_bound']:.4f} | {goal} |")
    L.append("")
    s = r["scaling"]
    L.append("Number of files (hard links to the corpus, 2 workers, default batch size):")
    L.append("")
    L.append("| files | kpz.distributed files/s | kpz -j 2 files/s | ratio |")
    L.append("|---:|---:|---:|---:|")
    for c, x in s["counts"].items():
        L.append(f"| {c} | {x['dask_files_per_s']:.0f} | {x['kpz_files_per_s']:.0f} | {x['ratio']:.3f} |")
    L.append("")
    L.append(f"Batch size ({s['batch_files']} files, 2 workers):")
    L.append("")
    L.append("| files per task | tasks | files/s |")
    L.append("|---:|---:|---:|")
    for b, x in s["batches"].items():
        L.append(f"| {b} | {x['tasks']} | {x['dask_files_per_s']:.0f} |")
    return "\n".join(L) + "\n"


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--manifest", required=True)
    ap.add_argument("--kpz", required=True)
    ap.add_argument("--tests-dir", required=True, help="tests/python (the nginx helper)")
    ap.add_argument("--work", required=True)
    ap.add_argument("--out", default=".")
    ap.add_argument("--rounds", type=int, default=3)
    ap.add_argument("--http-files", type=int, default=300)
    ap.add_argument("--counts", type=lambda s: [int(x) for x in s.split(",")],
                    default=[1000, 3000, 10000])
    ap.add_argument("--batch-files", type=int, default=3000)
    ap.add_argument("--batch-sizes", type=lambda s: [int(x) for x in s.split(",")],
                    default=[1, 8, 64, 256])
    args = ap.parse_args()
    files = load_manifest(args.manifest)
    corpus = Path(os.path.dirname(files[0]["path"]))
    work = Path(args.work)
    work.mkdir(parents=True, exist_ok=True)
    r = {"rounds": args.rounds,
         "corpus": {"files": len(files),
                    "preview_mb": sum(f["size"] for f in files) / len(files) / 1e6,
                    "file_mb": sum(f["file_size"] for f in files) / len(files) / 1e6},
         "load_before": os.getloadavg()}
    r["local"] = bench_local(args, corpus, files, work)
    r["http"] = bench_http(args, corpus, files, work)
    r["scaling"] = bench_scaling(args, files, work)
    r["load_after"] = os.getloadavg()
    out = Path(args.out)
    out.mkdir(parents=True, exist_ok=True)
    (out / "distributed.json").write_text(json.dumps(r, indent=1))
    text = render(r)
    (out / "distributed.md").write_text(text)
    print(text)


if __name__ == "__main__":
    main()
