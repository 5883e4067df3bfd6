#!/usr/bin/env python3
"""kpz serve against nginx sending the same previews and thumbnails already
extracted as files (sendfile on), measured with wrk (64 connections), in one
run, alternating which goes first: requests per second, p99 latency and
each server's processor time per answer (user + system, read from /proc
around the measured run) for previews and thumbnails, warm (page cache and kpz's cache of located
pictures filled) and cold (both servers started afresh and, as root, the
page cache dropped before each run). Writes serve.md, serve.json and, when
gnuplot is installed, serve.png into --out.

Both servers run on 127.0.0.1 on ports of their own, nginx with its own
configuration in --work, and are stopped by their process ids."""
import argparse
import json
import os
import re
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import time
from pathlib import Path

WRK_SCRIPT = r"""
local paths = {}
local i = 0
init = function(args)
  for line in io.lines(args[1]) do paths[#paths + 1] = line end
  i = math.random(#paths)
end
request = function()
  i = i % #paths + 1
  return wrk.format("GET", paths[i])
end
"""


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_port(port, seconds=30):
    end = time.monotonic() + seconds
    while time.monotonic() < end:  # bounded
        try:
            with socket.create_connection(("127.0.0.1", port), timeout=1):
                return
        except OSError:
            time.sleep(0.05)
    raise RuntimeError("nothing listens on port %d" % port)


class Kpz:
    name = "kpz serve"

    def __init__(self, kpz, root, threads):
        self.proc = subprocess.Popen([kpz, "serve", str(root), "--listen", "127.0.0.1:0",
                                      "--threads", str(threads), "--max-connections", "4096",
                                      "--max-requests", "4096"],
                                     stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        line = self.proc.stdout.readline().decode()
        m = re.search(r":(\d+)/$", line.strip())
        if not m:
            raise RuntimeError("kpz serve said %r" % line)
        self.port = int(m.group(1))

    def stop(self):
        os.kill(self.proc.pid, signal.SIGTERM)
        self.proc.wait(timeout=30)
        self.proc.stdout.close()


class Nginx:
    name = "nginx"

    def __init__(self, prefix, docroot, workers):
        self.prefix = Path(prefix)
        shutil.rmtree(self.prefix, ignore_errors=True)
        (self.prefix / "logs").mkdir(parents=True)
        self.port = free_port()
        conf = self.prefix / "nginx.conf"
        # As root, nginx's workers would run as nobody and could not read a
        # work folder made by mktemp (0700): they run as the user we are.
        user = "user root;" if os.geteuid() == 0 else ""
        conf.write_text(f"""
{user}
worker_processes {workers};
pid {self.prefix}/nginx.pid;
error_log {self.prefix}/logs/error.log warn;
events {{ worker_connections 4096; }}
http {{
  access_log off;
  sendfile on;
  tcp_nopush on;
  keepalive_requests 1000000;
  keepalive_timeout 60;
  types {{ image/jpeg jpg; }}
  client_body_temp_path {self.prefix}/tmp;
  proxy_temp_path {self.prefix}/tmp;
  fastcgi_temp_path {self.prefix}/tmp;
  uwsgi_temp_path {self.prefix}/tmp;
  scgi_temp_path {self.prefix}/tmp;
  server {{
    listen 127.0.0.1:{self.port};
    root {docroot};
    etag on;
  }}
}}
""")
        self.proc = subprocess.Popen(["nginx", "-p", str(self.prefix), "-c", str(conf),
                                      "-g", "daemon off;"], stderr=subprocess.DEVNULL)
        wait_port(self.port)

    def stop(self):
        os.kill(self.proc.pid, signal.SIGQUIT)
        try:
            self.proc.wait(timeout=30)
        except subprocess.TimeoutExpired:
            os.kill(self.proc.pid, signal.SIGKILL)
            self.proc.wait(timeout=10)


def drop_caches():
    try:
        os.sync()
        with open("/proc/sys/vm/drop_caches", "w") as f:
            f.write("3\n")
        return True
    except OSError:
        return False


def wrk(port, paths_file, script, seconds, connections, threads):
    out = subprocess.run(["wrk", "-t", str(threads), "-c", str(connections), "-d", "%ds" % seconds,
                          "--latency", "-s", str(script), "http://127.0.0.1:%d" % port, "--",
                          str(paths_file)], capture_output=True, text=True, timeout=seconds + 120)
    text = out.stdout

    def ms(label):
        m = re.search(r"^\s*%s\s+([\d.]+)(us|ms|s)\s*$" % re.escape(label), text, re.M)
        if not m:
            return None
        scale = {"us": 0.001, "ms": 1.0, "s": 1000.0}[m.group(2)]
        return float(m.group(1)) * scale

    rps = re.search(r"Requests/sec:\s+([\d.]+)", text)
    errors = re.search(r"Non-2xx or 3xx responses:\s+(\d+)", text)
    socket_errors = re.search(r"Socket errors:(.*)", text)
    return {"rps": float(rps.group(1)) if rps else 0.0, "p50_ms": ms("50%"), "p99_ms": ms("99%"),
            "non2xx": int(errors.group(1)) if errors else 0,
            "socket_errors": socket_errors.group(1).strip() if socket_errors else "",
            "raw": text}


def server_pids(server):
    """The processes that answer: kpz serve's one, nginx's workers."""
    if isinstance(server, Nginx):
        for _ in range(50):  # bounded: the workers are forked at start
            out = subprocess.run(["pgrep", "-P", str(server.proc.pid)], capture_output=True,
                                 text=True).stdout.split()
            if out:
                return [int(x) for x in out]
            time.sleep(0.1)
    return [server.proc.pid]


def cpu_ticks(pids):
    """User + system clock ticks used so far by `pids` (all their threads)."""
    total = 0
    for pid in pids:
        with open("/proc/%d/stat" % pid) as f:
            fields = f.read().rsplit(")", 1)[1].split()
        total += int(fields[11]) + int(fields[12])
    return total


def rss_kib(pid):
    with open("/proc/%d/status" % pid) as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return 0


def memory(kpz, sample, work, idle, distinct):
    """kpz serve's resident memory: started, with `idle` idle connections
    open, and after one thumbnail request for each of `distinct` files
    (each its own inode: copies of the bundled sample, 2 KB each)."""
    import http.client
    import resource
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    want = min(hard, idle + 4096)
    if soft < want:
        resource.setrlimit(resource.RLIMIT_NOFILE, (want, hard))
    result = {"idle_connections": 0, "distinct_files": 0}
    tree = Path(work) / "distinct"
    shutil.rmtree(tree, ignore_errors=True)
    tree.mkdir(parents=True)
    data = Path(sample).read_bytes()
    for i in range(distinct):
        d = tree / ("%03d" % (i // 1000))
        if i % 1000 == 0:
            d.mkdir()
        (d / ("f%06d.kpz" % i)).write_bytes(data)
    server = subprocess.Popen([kpz, "serve", str(tree), "--listen", "127.0.0.1:0",
                               "--max-connections", str(idle + 100), "--timeout", "3600"],
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    try:
        port = int(re.search(r":(\d+)/$", server.stdout.readline().decode().strip()).group(1))
        result["rss_start_kib"] = rss_kib(server.pid)
        socks = []
        for _ in range(idle):
            try:
                socks.append(socket.create_connection(("127.0.0.1", port), timeout=10))
            except OSError:
                break
        time.sleep(2)
        result["idle_connections"] = len(socks)
        result["rss_idle_kib"] = rss_kib(server.pid)
        for c in socks:
            c.close()
        time.sleep(2)
        conn = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
        ok = 0
        for i in range(distinct):
            conn.request("GET", "/thumbnail/%03d/f%06d.kpz" % (i // 1000, i))
            r = conn.getresponse()
            r.read()
            ok += r.status == 200
        result["distinct_files"] = ok
        result["rss_distinct_kib"] = rss_kib(server.pid)
    finally:
        os.kill(server.pid, signal.SIGTERM)
        server.wait(timeout=60)
        server.stdout.close()
        shutil.rmtree(tree, ignore_errors=True)
    return result


def geomean(xs):
    xs = [x for x in xs if x and x > 0]
    if not xs:
        return float("nan")
    p = 1.0
    for x in xs:
        p *= x
    return p ** (1.0 / len(xs))


def plot(out, rows):
    """serve.png: requests/s and p99 of both servers, side by side."""
    gp = shutil.which("gnuplot")
    if gp:
        dat = out / "serve.dat"
        dat.write_text("".join('"%s %s" %.1f %.1f %.3f %.3f\n' % (
            x["kind"], x["phase"], x["kpz_rps"], x["nginx_rps"], x["kpz_p99"], x["nginx_p99"])
            for x in rows))
        subprocess.run([gp], text=True, input=f"""
    set terminal pngcairo size 900,420 noenhanced
    set output '{out / 'serve.png'}'
    set multiplot layout 1,2
    set style data histograms
    set style histogram clustered gap 1
    set style fill solid 0.8 border -1
    set boxwidth 0.9
    set grid ytics
    set logscale y
    set key top right
    set xtics rotate by -20
    set title 'requests per second (wrk, 64 connections; log scale)'
    plot '{dat}' using 2:xtic(1) title 'kpz serve', '' using 3 title 'nginx (extracted files)'
    set title 'p99 latency, ms (log scale)'
    plot '{dat}' using 4:xtic(1) title 'kpz serve', '' using 5 title 'nginx (extracted files)'
    unset multiplot
    """)


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--kpz")
    ap.add_argument("--kpz-before", metavar="KPZ",
                    help="also an earlier kpz (a build of another revision), in the same "
                         "rounds and order: the table gains its figures and the ratio of "
                         "kpz serve to it")
    ap.add_argument("--corpus", help="a folder of .kpz files")
    ap.add_argument("--work", default="/tmp/kpz-bench-serve")
    ap.add_argument("--out", required=True)
    ap.add_argument("--rounds", type=int, default=3)
    ap.add_argument("--seconds", type=int, default=10)
    ap.add_argument("--cold-seconds", type=int, default=3)
    ap.add_argument("--connections", type=int, default=64)
    ap.add_argument("--wrk-threads", type=int, default=2)
    ap.add_argument("--server-threads", type=int, default=os.cpu_count() or 2)
    ap.add_argument("--sample", default=str(Path(__file__).resolve().parent.parent / "samples" / "sample.kpz"))
    ap.add_argument("--idle", type=int, default=10000, help="idle connections of the memory check")
    ap.add_argument("--distinct", type=int, default=100000, help="files of the memory check")
    ap.add_argument("--replot", metavar="SERVE_JSON",
                    help="only draw serve.png from an earlier run's serve.json")
    args = ap.parse_args()
    work, out = Path(args.work), Path(args.out)
    if args.replot:
        out.mkdir(parents=True, exist_ok=True)
        plot(out, json.loads(Path(args.replot).read_text())["rows"])
        return
    work.mkdir(parents=True, exist_ok=True)
    out.mkdir(parents=True, exist_ok=True)
    corpus = Path(args.corpus).resolve()
    names = sorted(p.name for p in corpus.glob("*.kpz"))
    if not names:
        sys.exit("bench_serve: no .kpz files in %s" % corpus)

    # nginx's files: the same pictures, extracted by kpz.
    docroot = work / "docroot"
    for sub, cmd in (("previews", "preview"), ("thumbs", "thumbnail")):
        (docroot / sub).mkdir(parents=True, exist_ok=True)
        subprocess.run([args.kpz, cmd, str(corpus), "-o", str(docroot / sub) + "/"],
                       check=True, stdout=subprocess.DEVNULL)
    script = work / "paths.lua"
    script.write_text(WRK_SCRIPT)
    lists = {}
    for kind, route, sub, suffix in (("preview", "/preview/", "previews", ".preview.jpg"),
                                     ("thumbnail", "/thumbnail/", "thumbs", ".thumb.jpg")):
        kp = work / ("kpz-%s.txt" % kind)
        kp.write_text("".join(route + n + "\n" for n in names))
        ng = work / ("nginx-%s.txt" % kind)
        ng.write_text("".join("/%s/%s%s\n" % (sub, n[:-4], suffix) for n in names))
        lists[kind] = {"kpz serve": kp, "nginx": ng, "kpz before": kp}
    # The same bytes from both.
    for kind in lists:
        import urllib.request
        k, n = Kpz(args.kpz, corpus, args.server_threads), Nginx(work / "nginx", docroot, args.server_threads)
        try:
            for i in range(0, len(names), max(1, len(names) // 5)):
                a = urllib.request.urlopen("http://127.0.0.1:%d%s" % (
                    k.port, lists[kind]["kpz serve"].read_text().splitlines()[i])).read()
                b = urllib.request.urlopen("http://127.0.0.1:%d%s" % (
                    n.port, lists[kind]["nginx"].read_text().splitlines()[i])).read()
                if a != b:
                    sys.exit("bench_serve: kpz serve and nginx differ on %s %s" % (kind, names[i]))
        finally:
            k.stop()
            n.stop()

    dropped = None
    runs = []
    for r in range(args.rounds):
        for kind in ("preview", "thumbnail"):
            for phase in ("warm", "cold"):
                order = ["kpz serve", "nginx"]
                if args.kpz_before:
                    order.append("kpz before")
                if (r + (kind == "thumbnail")) % 2:
                    order.reverse()
                for who in order:
                    if phase == "cold":
                        dropped = drop_caches()
                    server = (Kpz(args.kpz, corpus, args.server_threads) if who == "kpz serve"
                              else Kpz(args.kpz_before, corpus, args.server_threads)
                              if who == "kpz before"
                              else Nginx(work / "nginx", docroot, args.server_threads))
                    try:
                        if phase == "warm":
                            wrk(server.port, lists[kind][who], script, 2, args.connections,
                                args.wrk_threads)
                        seconds = args.seconds if phase == "warm" else args.cold_seconds
                        pids = server_pids(server)
                        before = cpu_ticks(pids)
                        res = wrk(server.port, lists[kind][who], script, seconds,
                                  args.connections, args.wrk_threads)
                        used = cpu_ticks(pids) - before
                    finally:
                        server.stop()
                    # The server's processor time per answer (user + system,
                    # all its threads or workers): what holds when other work
                    # shares the machine and requests/s do not.
                    m = re.search(r"(\d+) requests in", res["raw"])
                    answers = int(m.group(1)) if m else 0
                    res["cpu_us"] = (used * 1e6 / os.sysconf("SC_CLK_TCK") / answers
                                     if answers else None)
                    res.update({"round": r, "kind": kind, "phase": phase, "server": who,
                                "load1": float(open("/proc/loadavg").read().split()[0])})
                    print("bench_serve: round %d %-9s %-4s %-9s %9.0f req/s  p99 %s ms  "
                          "cpu %s us/answer  load %.1f"
                          % (r, kind, phase, who, res["rps"], res["p99_ms"],
                             "%.1f" % res["cpu_us"] if res["cpu_us"] else "-", res["load1"]),
                          file=sys.stderr)
                    runs.append(res)

    rows = []
    for kind in ("preview", "thumbnail"):
        for phase in ("warm", "cold"):
            sel = {w: [x for x in runs if x["kind"] == kind and x["phase"] == phase and x["server"] == w]
                   for w in ("kpz serve", "nginx", "kpz before")}
            pairs = list(zip(sel["kpz serve"], sel["nginx"]))
            rows.append({
                "kind": kind, "phase": phase,
                "kpz_rps": statistics.median(x["rps"] for x in sel["kpz serve"]),
                "nginx_rps": statistics.median(x["rps"] for x in sel["nginx"]),
                "kpz_p99": statistics.median(x["p99_ms"] or 0 for x in sel["kpz serve"]),
                "nginx_p99": statistics.median(x["p99_ms"] or 0 for x in sel["nginx"]),
                "rps_ratio": geomean([a["rps"] / b["rps"] for a, b in pairs if b["rps"]]),
                "p99_ratio": geomean([(a["p99_ms"] or 0) / b["p99_ms"] for a, b in pairs if b["p99_ms"]]),
                "errors": sum(x["non2xx"] for x in sel["kpz serve"] + sel["nginx"]),
                "kpz_cpu_us": statistics.median(x["cpu_us"] or 0 for x in sel["kpz serve"]),
                "nginx_cpu_us": statistics.median(x["cpu_us"] or 0 for x in sel["nginx"]),
            })
            if sel["kpz before"]:
                before = list(zip(sel["kpz serve"], sel["kpz before"]))
                rows[-1].update({
                    "before_rps": statistics.median(x["rps"] for x in sel["kpz before"]),
                    "before_p99": statistics.median(x["p99_ms"] or 0 for x in sel["kpz before"]),
                    "before_rps_ratio": geomean([b["rps"] / n["rps"] for b, n in zip(
                        sel["kpz before"], sel["nginx"]) if n["rps"]]),
                    "before_p99_ratio": geomean([(b["p99_ms"] or 0) / n["p99_ms"] for b, n in zip(
                        sel["kpz before"], sel["nginx"]) if n["p99_ms"]]),
                    "after_before_rps": geomean([a["rps"] / b["rps"] for a, b in before if b["rps"]]),
                    "before_cpu_us": statistics.median(x["cpu_us"] or 0 for x in sel["kpz before"]),
                })
    lines = ["| picture | cache | kpz serve req/s | nginx req/s | ratio (goal >= 0.9) | "
             "kpz serve p99 | nginx p99 | p99 ratio (goal <= 1.5) | kpz serve CPU/answer | "
             "nginx CPU/answer |",
             "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|"]
    for x in rows:
        lines.append("| %s | %s | %.0f | %.0f | %.2f | %.2f ms | %.2f ms | %.2f | %.1f µs | "
                     "%.1f µs |" % (
                         x["kind"], x["phase"], x["kpz_rps"], x["nginx_rps"], x["rps_ratio"],
                         x["kpz_p99"], x["nginx_p99"], x["p99_ratio"], x["kpz_cpu_us"],
                         x["nginx_cpu_us"]))
    if args.kpz_before:
        lines += ["", "The earlier kpz (%s), in the same rounds:" % args.kpz_before, "",
                  "| picture | cache | earlier req/s | ratio to nginx | earlier p99 | p99 ratio to "
                  "nginx | kpz serve req/s / earlier's | earlier CPU/answer |",
                  "|---|---|---:|---:|---:|---:|---:|---:|"]
        for x in rows:
            lines.append("| %s | %s | %.0f | %.2f | %.2f ms | %.2f | %.2f | %.1f µs |" % (
                x["kind"], x["phase"], x["before_rps"], x["before_rps_ratio"], x["before_p99"],
                x["before_p99_ratio"], x["after_before_rps"], x["before_cpu_us"]))
    loads = [x["load1"] for x in runs]
    lines.append("")
    lines.append("%d files, %d rounds, wrk -c %d -t %d, %d s warm runs (after 2 s unmeasured), "
                 "%d s cold runs; both servers %d threads/workers; page cache dropped before "
                 "cold runs: %s; 1-minute load during the runs %.1f-%.1f on %d CPUs; non-2xx "
                 "answers: %d." % (len(names), args.rounds, args.connections, args.wrk_threads,
                                   args.seconds, args.cold_seconds, args.server_threads,
                                   {True: "yes", False: "no (not root)", None: "n/a"}[dropped],
                                   min(loads), max(loads), os.cpu_count() or 0,
                                   sum(x["errors"] for x in rows)))
    mem = memory(args.kpz, args.sample, work, args.idle, args.distinct)
    lines.append("")
    lines.append("kpz serve's resident memory: %.1f MiB started, %.1f MiB with %d idle connections "
                 "open, %.1f MiB after one thumbnail of each of %d distinct files (the located "
                 "cache holds its default 8192)." % (
                     mem["rss_start_kib"] / 1024, mem["rss_idle_kib"] / 1024,
                     mem["idle_connections"], mem["rss_distinct_kib"] / 1024,
                     mem["distinct_files"]))
    table = "\n".join(lines) + "\n"
    (out / "serve.md").write_text(table)
    (out / "serve.json").write_text(json.dumps({"rows": rows, "memory": mem, "runs": [
        {k: v for k, v in x.items() if k != "raw"} for x in runs]}, indent=1))
    print(table)

    plot(out, rows)


if __name__ == "__main__":
    main()
