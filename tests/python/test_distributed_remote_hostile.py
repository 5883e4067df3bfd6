"""kpz.distributed's remote behaviour against hostile listings, web outputs
and unreachable schedulers: a web listing that links '%2e%2e/x.kpz' (or any
other spelling of '..') does not take the run out of its folder;
--skip-existing on an http:// output asks the server the size a listing
does not tell, and skips the outputs present and whole; a scheduler's
address where nothing listens is told at once as refused. Servers: aiohttp
on 127.0.0.1, port 0, in a thread of the test, stopped by it."""

import asyncio
import shutil
import socket
import threading

import pytest

import kpz
import kpz.distributed
from distributed_support import run_cli
from kpz.distributed._outputs import Output


class WebServer:
    """An aiohttp server on 127.0.0.1, port 0: `pages` (path -> HTML) and a
    directory served with its index (aiohttp's static files: ranges, HEAD,
    no sizes in the listing)."""

    def __init__(self, pages=None, static=None) -> None:
        from aiohttp import web

        self.pages = dict(pages or {})
        self.requests = []
        self.loop = asyncio.new_event_loop()
        self.thread = threading.Thread(target=self.loop.run_forever, daemon=True)
        self.thread.start()
        @web.middleware
        async def log(request, handler):
            self.requests.append((request.method, request.raw_path,
                                  request.headers.get("Range")))
            return await handler(request)

        app = web.Application(middlewares=[log])
        for prefix, directory in (static or {}).items():
            app.router.add_static(prefix, directory, show_index=True)
        app.router.add_route("*", "/{tail:.*}", self._page)
        self.runner = web.AppRunner(app)
        self._call(self.runner.setup())
        self.site = web.TCPSite(self.runner, "127.0.0.1", 0, shutdown_timeout=1.0)
        self._call(self.site.start())
        self.port = self.site._server.sockets[0].getsockname()[1]

    @property
    def url(self) -> str:
        return "http://127.0.0.1:%d" % self.port

    def _call(self, coro):
        return asyncio.run_coroutine_threadsafe(coro, self.loop).result(30)

    async def _page(self, request):
        from aiohttp import web

        html = self.pages.get(request.path)
        if html is None:
            raise web.HTTPNotFound()
        return web.Response(text=html, content_type="text/html")

    def close(self) -> None:
        self._call(self.runner.cleanup())
        self.loop.call_soon_threadsafe(self.loop.stop)
        self.thread.join(10)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()


def _links(*hrefs) -> str:
    return "<html><body>%s</body></html>" % "".join('<a href="%s">x</a>' % h for h in hrefs)


ESCAPES = ["%2e%2e/private.kpz", "%2E%2E/private.kpz", ".%2e/private.kpz", "%2e./private.kpz",
           "sub/%2e%2e/%2e%2e/private.kpz", "/gallery/%2e%2e/private.kpz",
           "/gallery/sub/..%2f..%2fprivate.kpz"]


@pytest.mark.parametrize("recursive", [False, True])
def test_a_listing_link_encoded_dot_dot_does_not_escape_its_folder(recursive):
    pages = {"/gallery/": _links("a.kpz", *ESCAPES)}
    with WebServer(pages) as server:
        got = kpz.distributed.expand_sources([server.url + "/gallery/"], recursive=recursive)
    assert got == [(server.url + "/gallery/a.kpz", "")]


def test_a_listing_link_that_stays_inside_after_dot_dot_is_kept():
    pages = {"/gallery/": _links("sub/%2e%2e/b.kpz", "a.kpz")}
    with WebServer(pages) as server:
        got = kpz.distributed.expand_sources([server.url + "/gallery/"])
    # As the URL library requests them: dot-segments resolved.
    assert sorted(got) == [(server.url + "/gallery/a.kpz", ""), (server.url + "/gallery/b.kpz", "")]


def _jpeg(n: int) -> bytes:
    return b"\xff\xd8\xff\xe0" + bytes(n) + b"\xff\xd9"


def test_skip_existing_on_an_http_output_asks_the_size_and_skips_what_is_whole(fixtures,
                                                                            tmp_path):
    served = tmp_path / "served"
    served.mkdir()
    (served / "a.preview.jpg").write_bytes(_jpeg(1000))
    (served / "b.preview.jpg").write_bytes(_jpeg(1000)[:-2])  # cut: no end marker
    with WebServer(static={"/out/": str(served)}) as server:
        out = Output(server.url + "/out/")
        states = {n: out.state(n) for n in ("a.preview.jpg", "b.preview.jpg", "c.preview.jpg")}
        asked = [r for r in server.requests if r[1] != "/out/"]
    assert states == {"a.preview.jpg": "whole", "b.preview.jpg": "broken",
                      "c.preview.jpg": "absent"}
    # Only the two outputs present were asked about, a few small requests each.
    assert {path for _, path, _ in asked} <= {"/out/a.preview.jpg", "/out/b.preview.jpg"}
    assert len(asked) <= 8


def test_skip_existing_on_an_http_output_skips_without_a_cluster(fixtures, tmp_path):
    src = tmp_path / "in"
    src.mkdir()
    shutil.copy(fixtures["byname"]["plain"]["path"], src / "a.kpz")
    served = tmp_path / "served"
    served.mkdir()
    (served / "a.preview.jpg").write_bytes(_jpeg(5000))
    with WebServer(static={"/out/": str(served)}) as server:
        results = []
        # Every input skipped: no cluster is started, no PUT is made.
        summary = kpz.distributed.extract([str(src / "a.kpz")], server.url + "/out/",
                                          skip_existing=True, on_result=results.append,
                                          cluster="tcp://127.0.0.1:1")
        puts = [r for r in server.requests if r[0] == "PUT"]
    assert (summary.files, summary.done, summary.failed) == (1, 1, 0)
    assert results[0].note == "already present, not written again (--skip-existing)"
    assert puts == []


def test_a_refused_scheduler_is_told_at_once_as_refused(fixtures, tmp_path):
    # A socket bound but not listening: a connection to it is refused, and
    # no one else can take its port while the test holds it. The start
    # timeout is an hour: only a refusal told at once ends the run within
    # the test's two minutes.
    with socket.socket() as held:
        held.bind(("127.0.0.1", 0))
        address = "tcp://127.0.0.1:%d" % held.getsockname()[1]
        got = run_cli(["preview", fixtures["byname"]["plain"]["path"], "-o",
                       str(tmp_path / "out"), "--scheduler", address, "--start-timeout", "3600"],
                      timeout=120)
    assert (got.returncode, got.stdout) == (1, "")
    assert got.stderr == "kpz: %s: connection refused: no scheduler listens there\n" % address


def test_a_workers_batch_with_hostile_urls_reads_the_others(fixtures, tmp_path):
    # What a worker runs, without a cluster: the hostile URLs fail alone, in
    # words; the batch goes on and writes the good one.
    from kpz.distributed import run_batch
    from kpz.remote import Settings
    from remote_support import FaultyServer

    path = fixtures["byname"]["plain"]["path"]
    with open(path, "rb") as f:
        data = f.read()
    faults = {"/evil.kpz": ["redirect:file:///etc/passwd"]}
    (tmp_path / "out").mkdir()
    with FaultyServer({"/a.kpz": data, "/evil.kpz": data}, faults) as server:
        items = [(0, "http://127.0.0.1:99999/x.kpz", "x.preview.jpg"),
                 (1, server.url("/evil.kpz"), "evil.preview.jpg"),
                 (2, "http://127.0.0.1:%d/n%%00.kpz" % server.port, "n%00.preview.jpg"),
                 (3, server.url("/a.kpz"), "a.preview.jpg")]
        results = run_batch(items, "preview", False, str(tmp_path / "out"),
                            remote=Settings(backoff=0.0, tries=1))
    port, evil, nul, good = results
    assert port.status == 1 and port.reason.startswith("not a URL that can be read")
    assert evil.status == 1 and evil.reason.startswith(
        "redirected to file:///etc/passwd, which is not followed")
    assert (nul.status, nul.reason) == (1, "HTTP 404 Not Found")
    assert good.status == 0
    assert (tmp_path / "out" / "a.preview.jpg").read_bytes() == kpz.screennail(path)
    assert sorted(p.name for p in (tmp_path / "out").iterdir()) == ["a.preview.jpg"]


def test_a_file_system_that_raises_anything_fails_that_file_alone(fixtures, tmp_path):
    # A remote file system of the test's own (fsspec's registry) that raises
    # an error no file system should, its message full of bytes: that file
    # fails in words without them; the batch goes on.
    import fsspec
    from fsspec.spec import AbstractFileSystem

    from kpz.distributed import run_batch

    secret = "II*\x00secret-bytes"

    class Hostile(AbstractFileSystem):
        protocol = "kpzhostile"

        def info(self, path, **kwargs):
            return {"name": path, "size": 100000, "type": "file"}

        def cat_file(self, path, start=None, end=None, **kwargs):
            raise RuntimeError("boom " + secret * 1000)

    fsspec.register_implementation("kpzhostile", Hostile, clobber=True)
    plain = fixtures["byname"]["plain"]["path"]
    (tmp_path / "out").mkdir()
    hostile, good = run_batch([(0, "kpzhostile://h/a.kpz", "a.preview.jpg"),
                               (1, plain, "plain.preview.jpg")],
                              "preview", False, str(tmp_path / "out"))
    assert hostile.status == 1
    assert hostile.reason == "cannot read: an unforeseen failure (RuntimeError)"
    assert "secret" not in hostile.err
    assert good.status == 0
    assert (tmp_path / "out" / "plain.preview.jpg").read_bytes() == kpz.screennail(plain)


def test_file_timeout_is_an_option_of_the_command(fixtures, tmp_path):
    got = run_cli(["preview", fixtures["byname"]["plain"]["path"], "-o", str(tmp_path / "out"),
                   "--file-timeout", "0"], timeout=120)
    assert (got.returncode, got.stdout) == (2, "")
    assert "--file-timeout is a number of seconds above 0" in got.stderr
    helped = run_cli(["--help"], timeout=120)
    assert "--file-timeout SECONDS" in helped.stdout
