"""A file server of the tests' own that misbehaves on cue, and a latency
proxy: both asyncio, on 127.0.0.1, on a port the system picks (port 0),
run in a thread of the test and stopped by it.

FaultyServer serves `files` (path -> bytes) over HTTP/1.1 with keep-alive
and byte ranges. For each path a script of faults is played, one per
request, before it answers normally: "503", "500", "429", "404", "403",
"reset" (headers and half the body, then the connection closed), "ignore"
(200 and the whole file: Range ignored), "short" (a valid 206 with only the
first 4 KiB of the range), "stall" (no answer), "redirect:<location>",
"loop" (a redirect to itself), "nolength" (a 206 whose Content-Range has no
length). It counts requests, connections, the requests in flight at once
and the body bytes sent per path.

LatencyProxy forwards TCP to a target, each chunk delivered `delay` seconds
after it arrived, in each direction (a WAN link or an object store's time to
first byte). Run as a program (`remote_support.py proxy TARGET_PORT DELAY`)
it prints its port and serves until its standard input closes, for a
benchmark that keeps the proxy's work out of the measured process."""

import asyncio
import threading
from collections import defaultdict
from typing import Dict, List, Optional


class _Loop:
    """An event loop in a thread of its own."""

    def __init__(self) -> None:
        self.loop = asyncio.new_event_loop()
        self.thread = threading.Thread(target=self.loop.run_forever, daemon=True)
        self.thread.start()

    def call(self, coro, timeout: float = 30):
        return asyncio.run_coroutine_threadsafe(coro, self.loop).result(timeout)

    def stop(self) -> None:
        async def cancel_all():
            tasks = [t for t in asyncio.all_tasks() if t is not asyncio.current_task()]
            for t in tasks:
                t.cancel()
            await asyncio.gather(*tasks, return_exceptions=True)

        try:
            self.call(cancel_all(), 10)
        finally:
            self.loop.call_soon_threadsafe(self.loop.stop)
            self.thread.join(10)


class FaultyServer:
    def __init__(self, files: Dict[str, bytes], faults: Optional[Dict[str, List[str]]] = None):
        self.files = dict(files)
        self.faults = {k: list(v) for k, v in (faults or {}).items()}
        self.requests: Dict[str, int] = defaultdict(int)
        self.sent: Dict[str, int] = defaultdict(int)
        self.connections = 0
        self.in_flight = 0
        self.max_in_flight = 0
        self.log: List[str] = []
        self._writers = set()
        self._runner = _Loop()
        self._server = self._runner.call(self._start())
        self.port = self._server.sockets[0].getsockname()[1]

    def url(self, path: str) -> str:
        return "http://127.0.0.1:%d%s" % (self.port, path)

    async def _start(self):
        return await asyncio.start_server(self._client, "127.0.0.1", 0)

    def close(self) -> None:
        async def stop():
            self._server.close()
            for w in list(self._writers):
                w.close()
            await self._server.wait_closed()

        try:
            self._runner.call(stop(), 10)
        finally:
            self._runner.stop()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    async def _client(self, reader, writer) -> None:
        self.connections += 1
        self._writers.add(writer)
        try:
            while True:  # one request per pass, until the peer closes
                line = await reader.readline()
                if not line:
                    return
                headers = {}
                while True:
                    h = await reader.readline()
                    if h in (b"\r\n", b"\n", b""):
                        break
                    k, _, v = h.decode("latin-1").partition(":")
                    headers[k.strip().lower()] = v.strip()
                method, target, _ = line.decode("latin-1").split(" ", 2)
                self.in_flight += 1
                self.max_in_flight = max(self.max_in_flight, self.in_flight)
                try:
                    keep = await self._answer(writer, method, target, headers)
                finally:
                    self.in_flight -= 1
                if not keep:
                    return
        except (ConnectionError, asyncio.IncompleteReadError, ValueError):
            return
        finally:
            self._writers.discard(writer)
            writer.close()

    async def _send(self, writer, status: str, headers: Dict[str, str], body: bytes = b"",
                    path: str = "") -> None:
        head = "HTTP/1.1 %s\r\n" % status + "".join("%s: %s\r\n" % kv for kv in headers.items())
        writer.write(head.encode("latin-1") + b"\r\n" + body)
        self.sent[path] += len(body)
        await writer.drain()

    async def _answer(self, writer, method: str, target: str, headers: Dict[str, str]) -> bool:
        path = target.split("?", 1)[0]
        self.requests[path] += 1
        self.log.append("%s %s %s" % (method, target, headers.get("range", "")))
        script = self.faults.get(path)
        fault = script.pop(0) if script else ""
        data = self.files.get(path)
        if fault in ("503", "500", "429", "404", "403"):
            reason = {"503": "Service Unavailable", "500": "Internal Server Error",
                      "429": "Too Many Requests", "404": "Not Found", "403": "Forbidden"}[fault]
            await self._send(writer, "%s %s" % (fault, reason), {"Content-Length": "0"})
            return True
        if fault == "stall":
            await asyncio.sleep(3600)
            return False
        if fault.startswith("redirect:") or fault == "loop":
            location = target if fault == "loop" else fault.split(":", 1)[1]
            if fault == "loop":
                self.faults.setdefault(path, []).insert(0, "loop")
            await self._send(writer, "302 Found", {"Location": location, "Content-Length": "0"})
            return True
        if data is None:
            await self._send(writer, "404 Not Found", {"Content-Length": "0"})
            return True
        if fault == "ignore" or "range" not in headers:
            await self._send(writer, "200 OK", {"Content-Length": str(len(data))}, data, path)
            return True
        asked = headers["range"].split("=", 1)[1]
        first, _, last = asked.partition("-")
        a = int(first)
        b = min(int(last), len(data) - 1) if last else len(data) - 1
        if a >= len(data):
            await self._send(writer, "416 Range Not Satisfiable",
                             {"Content-Range": "bytes */%d" % len(data), "Content-Length": "0"})
            return True
        if fault == "short":
            b = min(b, a + 4095)
        body = data[a:b + 1]
        total = "*" if fault == "nolength" else str(len(data))
        hdrs = {"Content-Range": "bytes %d-%d/%s" % (a, b, total),
                "Content-Length": str(len(body))}
        if fault == "reset":
            head = "HTTP/1.1 206 Partial Content\r\n" + "".join(
                "%s: %s\r\n" % kv for kv in hdrs.items()) + "\r\n"
            writer.write(head.encode("latin-1") + body[:len(body) // 2])
            self.sent[path] += len(body) // 2
            await writer.drain()
            writer.transport.abort()
            return False
        await self._send(writer, "206 Partial Content", hdrs, body, path)
        return True


class LatencyProxy:
    """Forwards 127.0.0.1:port to target_port, each chunk delivered `delay`
    seconds after it arrived in each direction; counts connections.

    With `gate` N, the first requests towards the target are held until N
    of them wait at once (or `gate_timeout` seconds pass): `gate_reached`
    then tells, without any timing, whether the client kept N requests in
    flight together."""

    def __init__(self, target_port: int, delay: float, gate: int = 0,
                 gate_timeout: float = 20.0) -> None:
        self.target_port = target_port
        self.delay = delay
        self.connections = 0
        self.gate = gate
        self.gate_timeout = gate_timeout
        self.gate_reached = False
        self._waiting = 0
        self._open = None
        self.held = 0       # requests on their way to the target now
        self.max_held = 0   # the most at once
        self._runner = _Loop()
        self._server = self._runner.call(asyncio.start_server(self._client, "127.0.0.1", 0))
        self.port = self._server.sockets[0].getsockname()[1]

    async def _hold(self) -> None:
        if self._open is None:
            self._open = asyncio.Event()
        if self._open.is_set():
            return
        self._waiting += 1
        if self._waiting >= self.gate:
            self.gate_reached = True
            self._open.set()
            return
        try:
            await asyncio.wait_for(self._open.wait(), self.gate_timeout)
        except asyncio.TimeoutError:
            self._open.set()

    async def _pipe(self, reader, writer, upstream: bool = False) -> None:
        # Each chunk leaves `delay` after it arrived, in order, while later
        # chunks are already being read: a link's latency, not a cap on its
        # bandwidth (holding chunks one after another would make a 1.5 MB
        # body cost 23 delays instead of one).
        loop = asyncio.get_running_loop()
        queue: asyncio.Queue = asyncio.Queue()

        async def deliver():
            while True:
                due, chunk = await queue.get()
                if chunk is None:
                    return
                try:
                    wait = due - loop.time()
                    if wait > 0:
                        await asyncio.sleep(wait)
                finally:
                    if upstream:
                        self.held -= 1
                writer.write(chunk)
                await writer.drain()

        sender = asyncio.ensure_future(deliver())
        try:
            while not sender.done():
                chunk = await reader.read(65536)
                if not chunk:
                    break
                if upstream and self.gate:
                    await self._hold()
                if upstream:
                    self.held += 1
                    self.max_held = max(self.max_held, self.held)
                queue.put_nowait((loop.time() + self.delay, chunk))
            queue.put_nowait((0.0, None))
            await sender
        except ConnectionError:
            pass
        finally:
            if not sender.done():
                sender.cancel()
            writer.close()

    async def _client(self, reader, writer) -> None:
        self.connections += 1
        try:
            up_reader, up_writer = await asyncio.open_connection("127.0.0.1", self.target_port)
        except OSError:
            writer.close()
            return
        await asyncio.gather(self._pipe(reader, up_writer, True), self._pipe(up_reader, writer))

    def close(self) -> None:
        async def stop():
            self._server.close()
            await self._server.wait_closed()

        try:
            self._runner.call(stop(), 10)
        finally:
            self._runner.stop()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()


def make_certificates(where) -> dict:
    """A CA of the test's own and a certificate for 127.0.0.1 signed by it
    (openssl, EC keys); the paths of the CA's PEM, the server's PEM and key."""
    import subprocess
    from pathlib import Path

    d = Path(where)
    d.mkdir(parents=True, exist_ok=True)
    ec = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]

    def run(*args):
        subprocess.run(["openssl", *args], check=True, capture_output=True, timeout=60, cwd=d)

    run("req", "-x509", *ec, "-keyout", "ca.key", "-out", "ca.pem", "-days", "2",
        "-subj", "/CN=kpz test CA")
    run("req", *ec, "-keyout", "server.key", "-out", "server.csr", "-subj", "/CN=127.0.0.1")
    (d / "ext.cnf").write_text("subjectAltName=IP:127.0.0.1\n")
    run("x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key",
        "-CAcreateserial", "-out", "server.pem", "-days", "2", "-extfile", "ext.cnf")
    return {"ca": str(d / "ca.pem"), "cert": str(d / "server.pem"), "key": str(d / "server.key")}


class TlsNginx:
    """nginx serving `docroot` over HTTPS on 127.0.0.1 with `cert`/`key`,
    everything of its own under `prefix`; its access log names, per request,
    the connection's serial number and the request's number on it
    ($connection, $connection_requests). A port taken by someone else
    between choosing and binding is met by choosing again."""

    def __init__(self, prefix, docroot, cert: str, key: str) -> None:
        import socket
        import subprocess
        from pathlib import Path

        self.prefix = Path(prefix)
        self.access_log = self.prefix / "access.log"
        for d in ("logs", "body", "proxy", "fastcgi", "uwsgi", "scgi"):
            (self.prefix / d).mkdir(parents=True, exist_ok=True)
        for attempt in range(5):  # each pass chooses a port; a clash ends it at once
            with socket.socket() as s:
                s.bind(("127.0.0.1", 0))
                self.port = s.getsockname()[1]
            conf = self.prefix / "nginx.conf"
            p = self.prefix
            conf.write_text(f"""
daemon off;
master_process off;
worker_processes 1;
pid {p}/nginx.pid;
error_log {p}/error.log warn;
events {{ worker_connections 512; }}
http {{
    client_body_temp_path {p}/body;
    proxy_temp_path {p}/proxy;
    fastcgi_temp_path {p}/fastcgi;
    uwsgi_temp_path {p}/uwsgi;
    scgi_temp_path {p}/scgi;
    log_format reuse '$connection $connection_requests $status $uri $body_bytes_sent';
    access_log {self.access_log} reuse;
    default_type application/octet-stream;
    keepalive_requests 10000;
    server {{
        listen 127.0.0.1:{self.port} ssl;
        ssl_certificate {cert};
        ssl_certificate_key {key};
        root {docroot};
    }}
}}
""")
            self.proc = subprocess.Popen(["nginx", "-p", str(p), "-c", str(conf)],
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            if self._listening(30):
                return
            self.close()
        raise RuntimeError("nginx did not start (see %s/error.log)" % self.prefix)

    def _listening(self, seconds: float) -> bool:
        import socket
        import time

        end = time.monotonic() + seconds
        while time.monotonic() < end:  # bounded; ends early when nginx exits
            if self.proc.poll() is not None:
                return False
            try:
                with socket.create_connection(("127.0.0.1", self.port), timeout=0.5):
                    return True
            except OSError:
                time.sleep(0.05)
        return False

    def url(self, path: str) -> str:
        return "https://127.0.0.1:%d%s" % (self.port, path)

    def requests(self) -> List[tuple]:
        """(connection, request number on it, status, uri, bytes) per request."""
        out = []
        with open(self.access_log, encoding="utf-8") as f:
            for line in f:
                c, n, status, uri, sent = line.split()
                out.append((int(c), int(n), int(status), uri, int(sent)))
        return out

    def close(self) -> None:
        import signal
        import subprocess

        if self.proc.poll() is None:
            self.proc.send_signal(signal.SIGQUIT)
            try:
                self.proc.wait(15)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait(5)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()


if __name__ == "__main__":
    import sys

    if len(sys.argv) != 4 or sys.argv[1] != "proxy":
        sys.exit("usage: remote_support.py proxy TARGET_PORT DELAY_SECONDS")
    with LatencyProxy(int(sys.argv[2]), float(sys.argv[3])) as _proxy:
        print(_proxy.port, flush=True)
        sys.stdin.read()
