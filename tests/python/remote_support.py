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

LatencyProxy forwards TCP to a target, holding each chunk `delay` seconds in
each direction (a WAN link or an object store's time to first byte)."""

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
        spec = headers["range"].split("=", 1)[1]
        first, _, last = spec.partition("-")
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
    """Forwards 127.0.0.1:port to target_port, each chunk held `delay`
    seconds in each direction; counts connections.

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
        try:
            while True:
                chunk = await reader.read(65536)
                if not chunk:
                    break
                if upstream and self.gate:
                    await self._hold()
                if upstream:
                    self.held += 1
                    self.max_held = max(self.max_held, self.held)
                try:
                    await asyncio.sleep(self.delay)
                finally:
                    if upstream:
                        self.held -= 1
                writer.write(chunk)
                await writer.drain()
        except ConnectionError:
            pass
        finally:
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
