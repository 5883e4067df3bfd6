"""kpz.remote against hostile URLs and hostile servers: every URL a user or a
server can produce (other schemes, no scheme, ports out of range, odd
encodings, a NUL, redirects to anything, absurd headers and lengths, a huge
reason phrase, a body shorter or longer than promised) ends as that file's
result in words, never as an exception out of the batch, while the other
URLs of the same batch are read. Servers: remote_support.FaultyServer with
answers written byte for byte by the test (what no well-behaved server
library would send), and aiohttp servers, all on 127.0.0.1, port 0, stopped
by the test."""

import asyncio
import os
import threading

import pytest

import kpz
import kpz.remote as remote
from remote_support import FaultyServer

FAST = dict(backoff=0.0, connect_timeout=5.0, read_timeout=10.0, tries=2)


def _raw(status_line: str, headers, body: bytes = b"") -> bytes:
    """An answer as written, byte for byte; the connection closed after it."""
    headers = list(headers) + [("Connection", "close")]
    head = status_line + "\r\n" + "".join("%s: %s\r\n" % kv for kv in headers) + "\r\n"
    return head.encode("latin-1") + body


class RawServer(FaultyServer):
    """FaultyServer whose paths in `raw` are answered with the bytes the test
    gives (a function of the Range asked), then the connection closed."""

    def __init__(self, files, raw, faults=None):
        self.raw = dict(raw)
        super().__init__(files, faults)

    async def _answer(self, writer, method, target, headers):
        path = target.split("?", 1)[0]
        make = self.raw.get(path)
        if make is None:
            return await super()._answer(writer, method, target, headers)
        self.requests[path] += 1
        writer.write(make(headers.get("range", "")))
        await writer.drain()
        writer.transport.close()
        return False


@pytest.fixture(scope="module")
def plain(fixtures):
    path = fixtures["byname"]["plain"]["path"]
    with open(path, "rb") as f:
        data = f.read()
    return data, kpz.screennail(path)


def _check_words(r, data: bytes, picture: bytes) -> None:
    """A failure told in words of a bounded length, carrying no file bytes."""
    assert not r.ok, r.url
    assert r.status in (1, 3), (r.url, r.status)
    assert r.words, r.url
    assert len(r.words) <= 400, (r.url, len(r.words))
    assert "\x00" not in r.words, r.url
    assert not r.words.startswith("kpz:"), r.words
    for piece in (data[:16], data[len(data) // 2:][:16], picture[:16], picture[-16:]):
        assert len(piece) == 16 and piece.decode("latin-1") not in r.words, r.url
    assert r.data is None


def test_every_url_a_user_or_a_server_can_produce_fails_alone_in_words(plain):
    data, picture = plain
    big_reason = "A" * 8000
    head = data[:65536]
    ranged = lambda total: lambda _r: _raw(  # noqa: E731
        "HTTP/1.1 206 Partial Content",
        [("Content-Range", "bytes 0-%d/%s" % (len(head) - 1, total)),
         ("Content-Length", str(len(head)))], head)
    raw = {
        "/range-total-1e20.kpz": ranged(10 ** 20),
        "/range-total-negative.kpz": ranged("-5"),
        "/range-total-words.kpz": ranged("many"),
        "/range-total-underscore.kpz": ranged("1_000_000"),
        "/range-first-negative.kpz": lambda _r: _raw(
            "HTTP/1.1 206 Partial Content", [("Content-Range", "bytes -5-3/100"),
                                             ("Content-Length", "9")], b"x" * 9),
        "/length-negative.kpz": lambda _r: _raw(
            "HTTP/1.1 206 Partial Content", [("Content-Range", "bytes 0-9/100"),
                                             ("Content-Length", "-1")], b"x" * 10),
        "/length-words.kpz": lambda _r: _raw(
            "HTTP/1.1 206 Partial Content", [("Content-Range", "bytes 0-9/100"),
                                             ("Content-Length", "ten")], b"x" * 10),
        "/length-1e20.kpz": lambda _r: _raw(
            "HTTP/1.1 200 OK", [("Content-Length", str(10 ** 20))], b"x" * 10),
        "/body-shorter.kpz": lambda _r: _raw(
            "HTTP/1.1 206 Partial Content",
            [("Content-Range", "bytes 0-65535/%d" % len(data)), ("Content-Length", "65536")],
            head[:100]),
        "/body-longer.kpz": lambda _r: _raw(
            "HTTP/1.1 206 Partial Content",
            [("Content-Range", "bytes 0-9/%d" % len(data)), ("Content-Length", "10")],
            head[:5000]),
        "/reason-8000.kpz": lambda _r: _raw("HTTP/1.1 404 " + big_reason,
                                            [("Content-Length", "0")]),
        "/reason-503-8000.kpz": lambda _r: _raw("HTTP/1.1 503 " + big_reason,
                                                [("Content-Length", "0")]),
        "/status-999.kpz": lambda _r: _raw("HTTP/1.1 999 Odd", [("Content-Length", "0")]),
        "/not-http.kpz": lambda _r: b"hello there\r\n\r\n",
        "/header-20k.kpz": lambda _r: _raw("HTTP/1.1 206 Partial Content",
                                           [("X-Long", "b" * 20000),
                                            ("Content-Length", "0")]),
        "/location-nul.kpz": lambda _r: _raw("HTTP/1.1 302 Found",
                                             [("Location", "/a\x00.kpz"),
                                              ("Content-Length", "0")]),
        "/location-empty.kpz": lambda _r: _raw("HTTP/1.1 302 Found",
                                               [("Location", ""), ("Content-Length", "0")]),
        "/location-huge.kpz": lambda _r: _raw("HTTP/1.1 302 Found",
                                              [("Location", "ftp://h/" + "c" * 7000),
                                               ("Content-Length", "0")]),
    }
    redirects = {
        "/to-passwd.kpz": "file:///etc/passwd",
        "/to-ftp.kpz": "ftp://127.0.0.1/a.kpz",
        "/to-s3.kpz": "s3://bucket/a.kpz",
        "/to-data.kpz": "data:,hello",
        "/to-javascript.kpz": "javascript:alert(1)",
        "/to-port-99999.kpz": "http://127.0.0.1:99999/a.kpz",
        "/to-port-0.kpz": "http://127.0.0.1:0/a.kpz",
        "/to-ipv6-broken.kpz": "http://[::1/a.kpz",
        "/to-other-host.kpz": "http://10.255.255.1/a.kpz",
    }
    faults = {p: ["redirect:" + t] * 10 for p, t in redirects.items()}
    faults["/loop.kpz"] = ["loop"]
    files = {"/a.kpz": data, "/b.kpz": data, "/loop.kpz": data}
    with RawServer(files, raw, faults) as server:
        good = [server.url("/a.kpz"), server.url("/b.kpz")]
        origin = "127.0.0.1:%d" % server.port
        user = [
            "ftp://%s/a.kpz" % origin, "gs://bucket/a.kpz", "file:///etc/passwd", "data:,abc",
            "javascript:alert(1)", "%s/a.kpz" % origin, "", "a.kpz",
            "http://127.0.0.1:0/a.kpz", "http://127.0.0.1:65536/a.kpz",
            "http://127.0.0.1:99999/a.kpz", "http://127.0.0.1:-1/a.kpz", "http://[::1/a.kpz",
            "http:///a.kpz", "http://%s/a\x00.kpz" % origin, "http://%s/%%00.kpz" % origin,
            "http://%s/%%zz.kpz" % origin, "http://%s/\udcff.kpz" % origin,
            "http://%s/%s.kpz" % (origin, "d" * 20000), None, b"http://h/a.kpz",
        ]
        hostile = user + [server.url(p) for p in list(raw) + list(redirects) + ["/loop.kpz"]]
        # The good URLs first, between and last: each is read.
        urls = good[:1] + hostile[:len(hostile) // 2] + good[1:] + \
            hostile[len(hostile) // 2:] + good[:1]
        results = remote.fetch(urls, **FAST)
    assert [r.url for r in results] == urls
    assert [r.index for r in results] == list(range(len(urls)))
    by_url = {}
    for u, r in zip(urls, results):
        if u in good:
            assert r.ok, (u, r.words)
            assert r.data == picture
            continue
        _check_words(r, data, picture)
        by_url[u if isinstance(u, str) else repr(u)] = r
    words = {u: r.words for u, r in by_url.items()}
    scheme = "the scheme %s is not supported (kpz.remote reads http://, https:// and s3://)"
    assert words["ftp://%s/a.kpz" % origin] == scheme % "ftp://"
    assert words["gs://bucket/a.kpz"] == scheme % "gs://"
    assert words["file:///etc/passwd"] == scheme % "file://"
    assert words["data:,abc"] == scheme % "data:"
    assert words["javascript:alert(1)"] == scheme % "javascript:"
    assert words[""] == "not a URL: it has no scheme (http:// or https://)"
    assert words["%s/a.kpz" % origin] == "not a URL: it has no scheme (http:// or https://)"
    assert words["None"] == "not a URL (a NoneType)"
    assert words["http://127.0.0.1:0/a.kpz"] == \
        "not a URL that can be read (port 0 is no server's port)"
    assert words["http://127.0.0.1:99999/a.kpz"].startswith("not a URL that can be read (")
    assert words["http://%s/a\x00.kpz" % origin] == "HTTP 404 Not Found"
    assert words[server.url("/to-passwd.kpz")] == (
        "redirected to file:///etc/passwd, which is not followed: " + scheme % "file://")
    assert words[server.url("/to-javascript.kpz")].startswith("redirected to javascript:")
    assert words[server.url("/range-total-1e20.kpz")].startswith(
        "a partial reply without a readable Content-Range (bytes 0-%d/1000000000"
        % (len(head) - 1))
    assert words[server.url("/reason-8000.kpz")] == "HTTP 404 " + "A" * 80 + "..."
    assert words[server.url("/reason-503-8000.kpz")] == \
        "HTTP 503 " + "A" * 80 + "... after 2 tries"
    assert words[server.url("/loop.kpz")] == "too many redirects (more than 5)"
    assert words[server.url("/location-huge.kpz")] == (
        "redirected to ftp://h/" + "c" * 72 + "..., which is not followed: " + scheme % "ftp://")


def test_redirect_to_file_url_fails_that_file_alone(plain):
    data, picture = plain
    faults = {"/evil.kpz": ["redirect:file:///etc/passwd"]}
    with FaultyServer({"/a.kpz": data, "/evil.kpz": data}, faults) as server:
        evil, a = remote.fetch([server.url("/evil.kpz"), server.url("/a.kpz")], **FAST)
    assert a.ok and a.data == picture
    assert not evil.ok
    assert evil.words.startswith("redirected to file:///etc/passwd, which is not followed")


def test_content_range_total_of_ten_to_the_twenty_fails_without_the_heads_bytes(fixtures):
    path = fixtures["byname"]["large"]["path"]
    with open(path, "rb") as f:
        data = f.read()
    head = data[:65536]
    assert len(data) > len(head)  # a whole head: the kit is asked about it
    raw = {"/huge.kpz": lambda _r: _raw(
        "HTTP/1.1 206 Partial Content",
        [("Content-Range", "bytes 0-%d/%d" % (len(head) - 1, 10 ** 20)),
         ("Content-Length", str(len(head)))], head)}
    with RawServer({"/a.kpz": data}, raw) as server:
        huge, a = remote.fetch([server.url("/huge.kpz"), server.url("/a.kpz")], **FAST)
    assert a.ok and a.data == kpz.screennail(path)
    _check_words(huge, data, a.data)
    assert huge.words == "a partial reply without a readable Content-Range (bytes 0-65535/%d)" \
        % 10 ** 20
    assert huge.status == 1


def test_port_99999_and_the_schemes_ftp_and_gs_fail_in_words(plain):
    data, _ = plain
    with FaultyServer({"/a.kpz": data}) as server:
        results = remote.fetch(["http://127.0.0.1:99999/a.kpz", "ftp://127.0.0.1/a.kpz",
                                "gs://bucket/a.kpz", server.url("/a.kpz")], **FAST)
    port, ftp, s3, a = results
    assert a.ok
    assert port.words.startswith("not a URL that can be read")
    assert ftp.words.startswith("the scheme ftp:// is not supported")
    assert s3.words.startswith("the scheme gs:// is not supported")  # (s3://: test_s3.py)
    assert all(not r.storage_failed for r in (port, ftp, s3))


def test_reader_read_never_raises_for_a_files_own_failure(plain):
    async def go():
        async with remote.Reader(**FAST) as reader:
            return [await reader.read(u) for u in
                    ("ftp://h/a.kpz", "http://h:99999/a.kpz", "", None, "http://[::1/x")]

    for r in asyncio.run(go()):
        assert not r.ok and r.words and r.status == 1


def test_a_nul_in_a_url_never_reaches_an_output_name(plain, tmp_path):
    data, picture = plain
    out = tmp_path / "out"
    out.mkdir()
    (out / "notes.txt").write_text("keep me")
    with FaultyServer({"/notes.txt%00.kpz": data, "/x/a.kpz": data}) as server:
        # The server sees the path as the URL library sends it: %00.
        results = remote.fetch([server.url("/notes.txt%00.kpz"),
                                "http://127.0.0.1:%d/notes.txt\x00.kpz" % server.port,
                                server.url("/x/a%2F..%2Fb.kpz")],
                               out_dir=str(out), **FAST)
    encoded, literal, slash = results
    assert (out / "notes.txt").read_text() == "keep me"
    assert encoded.ok, encoded.words
    assert encoded.output == str(out / "notes.txt%00.preview.jpg")
    assert (out / "notes.txt%00.preview.jpg").read_bytes() == picture
    # The same name for a NUL written as such: one name, the first owns it.
    assert not literal.ok and literal.status == 3
    assert literal.words == kpz._kpz.kit.already_written_words(encoded.output, encoded.url)
    assert slash.output is None or "/" not in os.path.basename(slash.output)
    assert sorted(os.listdir(out)) == sorted(["notes.txt", "notes.txt%00.preview.jpg"])


def test_remote_and_distributed_name_outputs_with_one_function():
    import kpz.distributed._run as run

    assert run.output_name is remote.output_name
    cases = {
        "http://h/d/a.kpz": "a.preview.jpg",
        "http://h/d/notes.txt%00.kpz": "notes.txt%00.preview.jpg",
        "http://h/d/notes.txt\x00.kpz": "notes.txt%00.preview.jpg",
        "http://h/d/a%2Fb.kpz": "a%2Fb.preview.jpg",
        "https://h/d/a.kpz?X-Sig=a/b/c#frag/x": "a.preview.jpg",
        "http://h/": "index.preview.jpg",
        "http://h/d/..": "index.preview.jpg",
        "http://h": "index.preview.jpg",
        "s3://bucket/dir/x.kpz": "x.preview.jpg",
        "/local/dir/y.kpz": "y.preview.jpg",
    }
    for source, name in cases.items():
        assert remote.output_name(source, ".preview.jpg") == name, source
        assert "\x00" not in name and "/" not in name


def test_a_first_url_that_fails_does_not_own_its_name(plain, tmp_path):
    data, picture = plain
    with FaultyServer({"/y/a.kpz": data, "/z/a.kpz": data}) as server:
        results = remote.fetch([server.url("/x/a.kpz"), server.url("/y/a.kpz"),
                                server.url("/z/a.kpz")], out_dir=str(tmp_path), **FAST)
    missing, second, third = results
    assert (missing.ok, missing.words, missing.status) == (False, "HTTP 404 Not Found", 1)
    assert second.ok, second.words
    assert second.output == str(tmp_path / "a.preview.jpg")
    assert (tmp_path / "a.preview.jpg").read_bytes() == picture
    assert (third.ok, third.status) == (False, 3)
    # The words of kpz and kpz.distributed, from the kit.
    assert third.words == kpz._kpz.kit.already_written_words(second.output, second.url)


def test_a_later_url_read_first_waits_for_the_earlier_one_of_its_name(plain, tmp_path):
    # The first URL is held by the server until the later one is done: the
    # first, read last, still owns the name.
    data, picture = plain

    class Held(FaultyServer):
        # The first URL's requests wait until the later URL's two ranges were
        # served: an event on the server's loop, no clock. (A client that
        # never asked for the later one would see its read timeout: bounded.)
        later_served = asyncio.Event()

        async def _answer(self, writer, method, target, headers):
            if target.startswith("/x/"):
                await self.later_served.wait()
            keep = await super()._answer(writer, method, target, headers)
            if target.startswith("/y/") and self.requests["/y/a.kpz"] >= 2:
                self.later_served.set()
            return keep

    with Held({"/x/a.kpz": data, "/y/a.kpz": data}) as server:
        first, later = remote.fetch([server.url("/x/a.kpz"), server.url("/y/a.kpz")],
                                    out_dir=str(tmp_path), **FAST)
    assert first.ok and first.output == str(tmp_path / "a.preview.jpg")
    assert (later.ok, later.status) == (False, 3)
    assert later.words == kpz._kpz.kit.already_written_words(first.output, first.url)


def test_a_404_is_the_files_failure_not_the_storages(plain):
    data, _ = plain
    faults = {"/gone.kpz": ["404"], "/forbidden.kpz": ["403"], "/busy.kpz": ["503"] * 5}
    with FaultyServer({"/gone.kpz": data, "/forbidden.kpz": data, "/busy.kpz": data},
                      faults) as server:
        gone, forbidden, busy, refused = remote.fetch(
            [server.url(p) for p in faults] + ["http://127.0.0.1:1/a.kpz"], **FAST)
    assert (gone.words, gone.http_status, gone.storage_failed) == \
        ("HTTP 404 Not Found", 404, False)
    assert (forbidden.http_status, forbidden.storage_failed) == (403, False)
    assert (busy.http_status, busy.storage_failed) == (503, True)
    assert (refused.http_status, refused.storage_failed) == (None, True)


def test_a_huge_reason_phrase_is_cut_short_in_the_words(plain):
    raw = {"/a.kpz": lambda _r: _raw("HTTP/1.1 404 " + "R" * 8000, [("Content-Length", "0")])}
    with RawServer({}, raw) as server:
        (r,) = remote.fetch([server.url("/a.kpz")], **FAST)
    assert r.words == "HTTP 404 " + "R" * 80 + "..."


class Dribbler:
    """An aiohttp server on 127.0.0.1, port 0, in a thread of its own: /slow.kpz
    answers a ranged GET with a 206 and then one byte every `gap` seconds,
    never ending (each byte well within the read timeout); other paths are
    served from `files` at once."""

    def __init__(self, files, gap: float) -> None:
        from aiohttp import web

        self.files = files
        self.gap = gap
        self.sent = 0
        self.loop = asyncio.new_event_loop()
        self.thread = threading.Thread(target=self.loop.run_forever, daemon=True)
        self.thread.start()
        app = web.Application()
        app.router.add_get("/{name}", self.handle)
        self.runner = web.AppRunner(app)
        self._call(self.runner.setup())
        self.site = web.TCPSite(self.runner, "127.0.0.1", 0, shutdown_timeout=1.0)
        self._call(self.site.start())
        self.port = self.site._server.sockets[0].getsockname()[1]

    def _call(self, coro):
        return asyncio.run_coroutine_threadsafe(coro, self.loop).result(30)

    def url(self, path: str) -> str:
        return "http://127.0.0.1:%d%s" % (self.port, path)

    async def handle(self, request):
        from aiohttp import web

        name = "/" + request.match_info["name"]
        data = self.files[name]
        first, _, last = request.headers["Range"].split("=", 1)[1].partition("-")
        a, b = int(first), min(int(last), len(data) - 1)
        body = data[a:b + 1]
        resp = web.StreamResponse(status=206, headers={
            "Content-Range": "bytes %d-%d/%d" % (a, b, len(data)),
            "Content-Length": str(len(body))})
        await resp.prepare(request)
        if name != "/slow.kpz":
            await resp.write(body)
            return resp
        for i in range(len(body)):
            await resp.write(body[i:i + 1])
            self.sent += 1
            await asyncio.sleep(self.gap)
        return resp

    def close(self) -> None:
        self._call(self.runner.cleanup())
        self.loop.call_soon_threadsafe(self.loop.stop)
        self.thread.join(10)


def test_a_dribbling_server_fails_the_file_at_its_deadline_and_frees_its_slot(plain):
    data, picture = plain
    # Two bytes a second, each well within the read timeout: only the
    # file's deadline can end it. The file would take 9 hours; the deadline
    # is 3 s, which a fast file (read in milliseconds) meets even on a
    # loaded machine.
    server = Dribbler({"/slow.kpz": data, "/a.kpz": data, "/b.kpz": data}, 0.5)
    try:
        slow, a, b = remote.fetch([server.url(p) for p in ("/slow.kpz", "/a.kpz", "/b.kpz")],
                                  max_in_flight=1, file_timeout=3.0, read_timeout=30.0,
                                  backoff=0.0, tries=2)
    finally:
        server.close()
    # One slot: a and b were read after the slow file's deadline freed it.
    assert (slow.ok, slow.status, slow.storage_failed) == (False, 1, True)
    assert slow.words == "timed out: the file was not read within 3 s (file_timeout)"
    assert server.sent < len(data[:65536])
    assert a.ok and a.data == picture
    assert b.ok and b.data == picture


def test_file_timeout_is_a_setting_checked_in_words():
    assert remote.Settings().file_timeout == 300.0
    assert remote.Settings(file_timeout=None).file_timeout is None
    for bad in (0, -1, "5", True):
        with pytest.raises(ValueError, match="file_timeout is a number of seconds above 0"):
            remote.Settings(file_timeout=bad)
