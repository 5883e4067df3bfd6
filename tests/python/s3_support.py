"""An S3 API server for the tests (s3rver, the pinned npm package that
scripts/install-deps.sh installs into .deps/s3rver), and a fault proxy of
our own in front of it. Both on 127.0.0.1, on a port the system picks,
stopped by the test (s3rver by its process id).

S3rver: `with S3rver(tmp) as s3:` gives s3.endpoint (http://127.0.0.1:PORT)
and s3.env (the variables that point kpz at it, with s3rver's keys).

s3rver checks access key IDs (InvalidAccessKeyId) but not Version 4
signatures: a wrong secret passes. SignatureDoesNotMatch is answered by the
fault proxy (`error`), the signature itself tested against AWS's worked
example.

FaultProxy forwards every request to a target (headers as they came, so the
signature still holds) and misbehaves on cue for object reads (GETs with a
Range): every `slowdown_every`-th such request is answered 503 SlowDown
with the store's error document, and every `put_slowdown_every`-th object
write; the keys in `reset` have their first read
cut half way through the body (the connection closed); the keys in `stall`
have their first read never answered (until the proxy stops). `error` maps a
key to (status, code, message) answered for every request to it."""

import asyncio
import os
import signal
import subprocess
import threading
import time
from pathlib import Path
from typing import Dict, Optional, Set, Tuple

from remote_support import _Loop

KEY = SECRET = "S3RVER"  # the one pair of keys s3rver takes


def s3rver_script() -> Path:
    root = Path(os.environ.get("KPZ_SOURCE_DIR", Path(__file__).resolve().parents[2]))
    return root / ".deps" / "s3rver" / "node_modules" / "s3rver" / "bin" / "s3rver.js"


class S3rver:
    def __init__(self, where: Path, start_timeout: float = 30.0) -> None:
        self.where = Path(where)
        self.start_timeout = start_timeout
        self.proc: Optional[subprocess.Popen] = None
        self.endpoint = ""

    def __enter__(self) -> "S3rver":
        script = s3rver_script()
        if not script.exists():
            raise RuntimeError("s3rver is not installed at %s: run scripts/install-deps.sh"
                               % script)
        data = self.where / "s3rver-data"
        data.mkdir(parents=True, exist_ok=True)
        self.log = self.where / "s3rver.log"
        with open(self.log, "wb") as log:
            # s3rver's continuation tokens use a cipher OpenSSL 3 keeps in its
            # legacy provider.
            self.proc = subprocess.Popen(["node", "--openssl-legacy-provider", str(script),
                                          "-a", "127.0.0.1", "-p", "0",
                                          "-d", str(data)], stdout=log, stderr=subprocess.STDOUT,
                                         stdin=subprocess.DEVNULL)
        deadline = time.monotonic() + self.start_timeout
        while time.monotonic() < deadline:
            text = self.log.read_text(errors="replace")
            for line in text.splitlines():
                if "listening on 127.0.0.1:" in line:
                    self.port = int(line.rsplit(":", 1)[1])
                    self.endpoint = "http://127.0.0.1:%d" % self.port
                    return self
            if self.proc.poll() is not None:
                raise RuntimeError("s3rver ended as it started: %s" % text)
            time.sleep(0.05)
        self.__exit__(None, None, None)
        raise RuntimeError("s3rver did not start within %g s" % self.start_timeout)

    def __exit__(self, *exc) -> None:
        if self.proc is not None and self.proc.poll() is None:
            os.kill(self.proc.pid, signal.SIGTERM)
            try:
                self.proc.wait(10)
            except subprocess.TimeoutExpired:
                os.kill(self.proc.pid, signal.SIGKILL)
                self.proc.wait(10)

    def env(self, endpoint: Optional[str] = None) -> Dict[str, str]:
        """The variables a user sets for this store (no profile, no region)."""
        return {"AWS_ACCESS_KEY_ID": KEY, "AWS_SECRET_ACCESS_KEY": SECRET,
                "AWS_ENDPOINT_URL": endpoint or self.endpoint,
                "AWS_EC2_METADATA_DISABLED": "true",
                "AWS_CONFIG_FILE": "/nonexistent", "AWS_SHARED_CREDENTIALS_FILE": "/nonexistent"}


def error_document(code: str, message: str) -> bytes:
    return ("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Error><Code>%s</Code>"
            "<Message>%s</Message><RequestId>kpz-test</RequestId></Error>"
            % (code, message)).encode()


class FaultProxy:
    def __init__(self, target: str, *, slowdown_every: int = 0, put_slowdown_every: int = 0,
                 reset: Set[str] = frozenset(),
                 stall: Set[str] = frozenset(),
                 error: Optional[Dict[str, Tuple[int, str, str]]] = None) -> None:
        self.target = target
        self.slowdown_every = slowdown_every
        self.put_slowdown_every = put_slowdown_every
        self.puts = 0           # object writes seen
        self.reset = set(reset)
        self.stall = set(stall)
        self.error = dict(error or {})
        self.reads = 0          # object reads seen (GETs with a Range)
        self.slowdowns = 0
        self.resets = 0
        self.stalls = 0
        self.requests = 0
        self._lock = threading.Lock()

    def __enter__(self) -> "FaultProxy":
        self._loop = _Loop()
        self.port = self._loop.call(self._start())
        self.endpoint = "http://127.0.0.1:%d" % self.port
        return self

    def __exit__(self, *exc) -> None:
        try:
            self._loop.call(self._stop(), 10)
        finally:
            self._loop.stop()

    async def _start(self) -> int:
        import aiohttp
        from aiohttp import web

        self._released = asyncio.Event()
        self._client = aiohttp.ClientSession(auto_decompress=False)
        app = web.Application(client_max_size=64 * 1024 * 1024)
        app.router.add_route("*", "/{tail:.*}", self._handle)
        self._runner = web.AppRunner(app, access_log=None)
        await self._runner.setup()
        site = web.TCPSite(self._runner, "127.0.0.1", 0)
        await site.start()
        return site._server.sockets[0].getsockname()[1]

    async def _stop(self) -> None:
        self._released.set()
        await self._client.close()
        await self._runner.cleanup()

    async def _handle(self, request):
        from aiohttp import web

        self.requests += 1
        key = request.path.lstrip("/")
        if key in self.error:
            status, code, message = self.error[key]
            return web.Response(status=status, body=error_document(code, message),
                                content_type="application/xml")
        read = request.method == "GET" and "Range" in request.headers
        if request.method == "PUT" and "/" in key:
            self.puts += 1
            if self.put_slowdown_every and self.puts % self.put_slowdown_every == 0:
                self.slowdowns += 1
                await request.read()
                return web.Response(status=503, body=error_document(
                    "SlowDown", "Please reduce your request rate."),
                    content_type="application/xml")
        if read:
            self.reads += 1
            if self.slowdown_every and self.reads % self.slowdown_every == 0:
                self.slowdowns += 1
                return web.Response(status=503, body=error_document(
                    "SlowDown", "Please reduce your request rate."),
                    content_type="application/xml")
            if key in self.stall:
                self.stall.discard(key)
                self.stalls += 1
                await self._released.wait()
                raise ConnectionResetError("stalled")
        body = await request.read()
        headers = {k: v for k, v in request.headers.items()
                   if k.lower() not in ("content-length", "transfer-encoding")}
        async with self._client.request(request.method, self.target + request.path_qs,
                                        headers=headers, data=body or None,
                                        allow_redirects=False) as got:
            data = await got.read()
            out = {k: v for k, v in got.headers.items()
                   if k.lower() not in ("content-length", "transfer-encoding", "connection",
                                        "content-encoding")}
            if read and key in self.reset and got.status == 206 and len(data) > 2:
                self.reset.discard(key)
                self.resets += 1
                resp = web.StreamResponse(status=got.status, headers=out)
                resp.content_length = len(data)
                await resp.prepare(request)
                await resp.write(data[:len(data) // 2])
                request.transport.close()
                return resp
            return web.Response(status=got.status, headers=out, body=data)


def upload(bucket: str, objects: Dict[str, bytes], settings=None) -> None:
    """Makes `bucket` and puts `objects` (key -> bytes) into it with kpz's
    own client (the store and keys from the environment)."""
    from kpz import _s3
    from kpz.remote import Reader, Settings

    settings = settings or Settings(backoff=0.0)

    async def main():
        async with Reader(settings) as reader:
            store = reader.store()
            await _s3._request(reader, store, "PUT", store.url(bucket, query=[]), limit=65536)
            gate = asyncio.Semaphore(32)

            async def one(key, data):
                async with gate:
                    return await reader.put("s3://%s/%s" % (bucket, key), data)
            return await asyncio.gather(*(one(k, v) for k, v in objects.items()))
    got = asyncio.run(main())
    assert got == [""] * len(objects), [g for g in got if g][:3]


def objects(bucket: str, prefix: str = "", settings=None) -> Dict[str, int]:
    """{key: size} of what is in `bucket` under `prefix` (every level)."""
    from kpz import _s3
    from kpz.remote import Reader, Settings

    async def main():
        async with Reader(settings or Settings(backoff=0.0)) as reader:
            return {k: n async for page in _s3.pages(reader, reader.store(), bucket, prefix, None)
                    for k, n in page.objects}
    return asyncio.run(main())


def get_object(bucket: str, key: str, settings=None) -> bytes:
    """The whole object, read with kpz's client (a signed GET)."""
    from kpz import _s3
    from kpz.remote import Reader, Settings

    async def main():
        async with Reader(settings or Settings(backoff=0.0)) as reader:
            store = reader.store()
            return await _s3._request(reader, store, "GET", store.url(bucket, key),
                                      limit=64 * 1024 * 1024)
    return asyncio.run(main())
