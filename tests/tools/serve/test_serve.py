"""kpz serve over HTTP: routes, statuses, caching headers, ranges, the same
bytes as the kpz tool, hostile requests and the server's limits. Every
server is started on 127.0.0.1 port 0 by its test and stopped by its pid."""
import asyncio
import hashlib
import hmac
import http.client
import json
import os
import shutil
import socket
import stat
import struct
import sys
import time
import urllib.parse

import pytest

sys.path.insert(0, os.path.dirname(__file__))
from serve_support import Server, make_fixtures, raw_request, status_of, tool  # noqa: E402


@pytest.fixture(scope="module")
def tree(tmp_path_factory):
    base = tmp_path_factory.mktemp("serve")
    manifest = make_fixtures(base)
    root = manifest["root"]
    outside = os.path.join(str(base), "outside.kpz")
    shutil.copy(os.path.join(root, "shot02.kpz"), outside)
    os.symlink(outside, os.path.join(root, "link_out.kpz"))
    os.symlink("../outside.kpz", os.path.join(root, "sub", "rel_out.kpz"))
    os.symlink("/", os.path.join(root, "slash"))
    os.symlink("shot02.kpz", os.path.join(root, "link_in.kpz"))
    os.mkfifo(os.path.join(root, "pipe.kpz"))
    manifest["device"] = None
    try:
        os.mknod(os.path.join(root, "null.kpz"), 0o600 | stat.S_IFCHR, os.makedev(1, 3))
        manifest["device"] = "null.kpz"
    except PermissionError:
        pass
    os.mkdir(os.path.join(root, "folder.kpz"))
    with open(os.path.join(root, "notes.txt"), "w") as f:
        f.write("not served")
    manifest["base"] = str(base)
    return manifest


@pytest.fixture(scope="module")
def server(tree):
    with Server(tree["root"]) as s:
        yield s


def get(server, path, headers=None, method="GET"):
    c = http.client.HTTPConnection("127.0.0.1", server.port, timeout=30)
    try:
        c.request(method, path, headers=headers or {})
        r = c.getresponse()
        return r.status, {k.lower(): v for k, v in r.getheaders()}, r.read()
    finally:
        c.close()


def q(name):
    return urllib.parse.quote(name)


def test_first_line_names_root_and_the_port_it_got(server, tree):
    assert server.first_line == "kpz: serving %s on http://127.0.0.1:%d/\n" % (tree["root"], server.port)
    assert server.port > 0
    assert get(server, "/healthz")[0] == 200


@pytest.mark.parametrize("route,command", [("preview", "preview"), ("thumbnail", "thumbnail")])
def test_pictures_are_the_tools_bytes(server, tree, route, command):
    for name in tree["good"]:
        status, headers, body = get(server, "/%s/%s" % (route, q(name)))
        assert status == 200, name
        assert headers["content-type"] == "image/jpeg"
        rc, out, err = tool(command, name, "-o", "-", cwd=tree["root"])
        assert rc == 0, err
        assert body == out, name


@pytest.mark.parametrize("route,command", [("preview", "preview"), ("thumbnail", "thumbnail")])
def test_upright_pictures_are_the_tools_upright_bytes(server, tree, route, command):
    for name in tree["good"]:
        status, headers, body = get(server, "/%s/%s?upright=1" % (route, q(name)))
        rc, out, err = tool(command, "--upright", name, "-o", "-", cwd=tree["root"])
        if rc != 0:
            assert status == 422, name
            continue
        assert status == 200, name
        assert body == out, name
        plain = get(server, "/%s/%s" % (route, q(name)))[1]
        if body != get(server, "/%s/%s" % (route, q(name)))[2]:
            assert headers["etag"] != plain["etag"]


def test_info_is_the_tools_json(server, tree):
    for name in tree["good"] + tree["bad"]:
        status, headers, body = get(server, "/info/%s" % q(name))
        rc, out, err = tool("info", "--json", name, cwd=tree["root"])
        assert body == out, name
        assert status == (200 if rc == 0 else 422), name
        assert headers["content-type"] == "application/json"


def test_a_file_that_is_not_kpz_is_422_with_the_tools_words(server, tree):
    for name in tree["bad"]:
        for route in ("preview", "thumbnail"):
            status, headers, body = get(server, "/%s/%s" % (route, q(name)))
            rc, out, err = tool(route, name, "-o", "-", cwd=tree["root"])
            assert rc != 0
            assert status == 422, name
            words = err.strip().split("\n")[-1]
            assert words == "kpz: %s: %s" % (name, body.decode().strip()), (words, body)


def test_head_has_the_headers_and_no_body(server, tree):
    name = q(tree["good"][1])
    g = get(server, "/preview/" + name)
    h = get(server, "/preview/" + name, method="HEAD")
    assert h[0] == 200 and h[2] == b""
    assert h[1]["content-length"] == str(len(g[2]))
    assert h[1]["etag"] == g[1]["etag"]
    assert get(server, "/info/" + name, method="HEAD")[2] == b""


def test_validators_answer_304(server, tree):
    path = "/thumbnail/" + q(tree["good"][2])
    status, headers, body = get(server, path)
    assert status == 200
    etag, modified = headers["etag"], headers["last-modified"]
    assert headers["cache-control"] == "no-cache"
    assert get(server, path, {"If-None-Match": etag})[0] == 304
    assert get(server, path, {"If-None-Match": '"other", ' + etag})[0] == 304
    assert get(server, path, {"If-None-Match": '"other"'})[0] == 200
    assert get(server, path, {"If-Modified-Since": modified})[0] == 304
    assert get(server, path, {"If-Modified-Since": "Sat, 01 Jan 2000 00:00:00 GMT"})[0] == 200
    # If-None-Match wins over If-Modified-Since.
    assert get(server, path, {"If-None-Match": '"x"', "If-Modified-Since": modified})[0] == 200
    s304, h304, b304 = get(server, path, {"If-None-Match": etag})
    assert b304 == b"" and h304["etag"] == etag


def test_ranges_answer_206_and_416(server, tree):
    path = "/preview/" + tree["large"]
    whole = get(server, path)[2]
    assert len(whole) == 3000000
    status, headers, body = get(server, path, {"Range": "bytes=100-199"})
    assert status == 206 and body == whole[100:200]
    assert headers["content-range"] == "bytes 100-199/3000000"
    status, headers, body = get(server, path, {"Range": "bytes=-10"})
    assert status == 206 and body == whole[-10:]
    status, headers, body = get(server, path, {"Range": "bytes=2999990-"})
    assert status == 206 and body == whole[-10:]
    status, headers, body = get(server, path, {"Range": "bytes=3000000-"})
    assert status == 416 and headers["content-range"] == "bytes */3000000"
    # Up to 64 KiB is read and sent with the head; more is sent from the
    # file's descriptor: the same bytes either side of the line.
    for first, last in ((0, 65535), (0, 65536), (7, 65542), (2934463, 2999999)):
        status, headers, body = get(server, path, {"Range": "bytes=%d-%d" % (first, last)})
        assert status == 206 and body == whole[first:last + 1], (first, last)
        assert headers["content-length"] == str(last - first + 1)
    # Several ranges, or a stale If-Range: the whole picture.
    assert get(server, path, {"Range": "bytes=0-1,5-6"})[0] == 200
    assert get(server, path, {"Range": "bytes=0-1", "If-Range": '"old"'})[0] == 200
    etag = get(server, path, method="HEAD")[1]["etag"]
    assert get(server, path, {"Range": "bytes=0-1", "If-Range": etag})[0] == 206
    upright = "/preview/%s?upright=1" % q(tree["good"][1])
    full = get(server, upright)[2]
    status, headers, body = get(server, upright, {"Range": "bytes=10-19"})
    assert status == 206 and body == full[10:20]


def test_not_there_and_not_allowed_get_the_same_404(server, tree):
    paths = [
        "/preview/nothere.kpz",
        "/preview/../outside.kpz",
        "/preview/sub/../../outside.kpz",
        "/preview/%2e%2e/outside.kpz",
        "/preview/%2E%2E%2Foutside.kpz",
        "/preview/sub%2finner1.kpz",
        "/preview/sub%5cinner1.kpz",
        "/preview/shot02.kpz%00",
        "/preview/shot02.kpz%00.kpz",
        "/preview/link_out.kpz",
        "/preview/sub/rel_out.kpz",
        "/preview/slash/etc/passwd",
        "/preview/pipe.kpz",
        "/preview/folder.kpz",
        "/preview/notes.txt",
        "/preview//shot02.kpz",
        "/preview/./shot02.kpz",
        "/info/pipe.kpz",
        "/thumbnail/link_out.kpz",
        "/list/../",
        "/list/nothere",
        "/list/slash",
        "/nowhere",
    ]
    if tree["device"]:
        paths.append("/preview/" + tree["device"])
    bodies = set()
    for p in paths:
        response = raw_request(server, b"GET " + p.encode() + b" HTTP/1.1\r\nHost: x\r\n\r\n")
        assert status_of(response) == 404, (p, response[:200])
        bodies.add(response.split(b"\r\n\r\n", 1)[1])
    assert bodies == {b"not found\n"}
    # A FIFO is refused without waiting for a writer: the server still answers.
    assert get(server, "/healthz")[0] == 200


def test_a_link_inside_root_is_served(server, tree):
    status, _, body = get(server, "/preview/link_in.kpz")
    assert status == 200
    assert body == get(server, "/preview/shot02.kpz")[2]


def test_other_methods_are_405(server):
    for method in ("POST", "PUT", "DELETE", "OPTIONS", "BREW"):
        response = raw_request(server, method.encode() + b" /healthz HTTP/1.1\r\nHost: x\r\n"
                               b"Content-Length: 3\r\n\r\nabc")
        assert status_of(response) == 405, method
        assert b"Allow: GET, HEAD" in response


def test_long_urls_are_414_and_large_headers_431(server):
    for n in (5000, 20000, 200000):
        response = raw_request(server, b"GET /preview/" + b"a" * n + b".kpz HTTP/1.1\r\nHost: x\r\n\r\n")
        assert status_of(response) == 414, n
    for n in (9000, 30000, 200000):
        response = raw_request(server, b"GET /healthz HTTP/1.1\r\nHost: x\r\nX-Big: " + b"b" * n +
                               b"\r\n\r\n")
        assert status_of(response) == 431, n
    many = b"".join(b"X-H%d: %s\r\n" % (i, b"v" * 50) for i in range(400))
    assert status_of(raw_request(server, b"GET /healthz HTTP/1.1\r\nHost: x\r\n" + many + b"\r\n")) == 431
    assert get(server, "/healthz")[0] == 200


def test_malformed_requests_get_an_answer_or_a_close_never_a_crash(server):
    for junk in (b"\x00\x01\x02\r\n\r\n", b"GET\r\n\r\n", b"GET / HTTP/9.9\r\n\r\n",
                 b"GET /healthz HTTP/1.1\r\nHost: x\r\nBad header\r\n\r\n",
                 b"GET /preview/a\x00b.kpz HTTP/1.1\r\nHost: x\r\n\r\n",
                 b"GET /healthz HTTP/1.1\r\nHost: x\r\nContent-Length: -5\r\n\r\n"):
        response = raw_request(server, junk, timeout=5)
        assert status_of(response) in (None, 400, 404, 405, 505), (junk, response[:100])
        assert status_of(response) != 500
    assert get(server, "/healthz")[0] == 200


def test_listing_pages_through_a_folder_in_order(server, tree):
    names = []
    after = ""
    for _ in range(100):  # bounded: 40 files, pages of 7
        status, headers, body = get(server, "/list/many?limit=7&after=" + q(after))
        assert status == 200
        page = json.loads(body)
        assert len(page["entries"]) <= 7
        names += [e["name"] for e in page["entries"]]
        if page["next"] is None:
            break
        after = page["next"]
    expected = sorted(os.path.basename(n) for n in tree["many"])
    assert names == expected
    top = json.loads(get(server, "/list/")[2])
    listed = {e["name"]: e["dir"] for e in top["entries"]}
    assert listed["sub"] is True and listed["many"] is True
    assert listed["shot 01.kpz"] is False
    assert "notes.txt" not in listed and "pipe.kpz" not in listed and "link_out.kpz" not in listed


def test_the_page_has_a_strict_policy_and_no_external_resource(server):
    for path in ("/", "/browse/sub/"):
        status, headers, body = get(server, path)
        assert status == 200
        csp = headers["content-security-policy"]
        assert "default-src 'none'" in csp and "script-src 'self'" in csp
        assert b"http://" not in body and b"https://" not in body
    for asset in ("/_/gallery.js", "/_/gallery.css"):
        status, headers, body = get(server, asset)
        assert status == 200 and len(body) > 0
        assert b"http://" not in body and b"https://" not in body


def test_metrics_count_routes_statuses_and_failures(server, tree):
    get(server, "/preview/" + q(tree["good"][0]))
    get(server, "/preview/nothere.kpz")
    get(server, "/preview/not_tiff.kpz")
    status, headers, body = get(server, "/metrics")
    assert status == 200 and headers["content-type"].startswith("text/plain")
    text = body.decode()

    def value(line_start):
        lines = [l for l in text.splitlines() if l.startswith(line_start)]
        assert lines, line_start
        return float(lines[0].rsplit(" ", 1)[1])

    assert value('kpz_serve_requests_total{route="preview",status="200"}') >= 1
    assert value('kpz_serve_requests_total{route="preview",status="404"}') >= 1
    assert value('kpz_serve_requests_total{route="preview",status="422"}') >= 1
    assert value('kpz_serve_failures_total{kind="not_found"}') >= 1
    assert value('kpz_serve_failures_total{kind="not_kpz"}') >= 1
    assert value('kpz_serve_response_bytes_total{route="preview"}') > 0
    assert value('kpz_serve_request_seconds_count{route="preview"}') >= 3
    assert 'kpz_serve_request_seconds_bucket{route="preview",le="+Inf"}' in text


def test_cache_control_and_extensions_are_settable(tree):
    with Server(tree["root"], "--cache-control", "public, max-age=600", "--ext", "txt,kpz") as s:
        status, headers, _ = get(s, "/thumbnail/" + q(tree["good"][0]))
        assert status == 200 and headers["cache-control"] == "public, max-age=600"
        # notes.txt is now a served name: it is not a KPZ file, so 422, not 404.
        assert get(s, "/preview/notes.txt")[0] == 422
        assert get(s, "/preview/sub/inner2.KPZ")[0] == 200


def sign(key, message):
    return hmac.new(key.encode(), message.encode(), hashlib.sha256).hexdigest()


@pytest.mark.parametrize("by_env", [False, True])
def test_signed_urls(tree, by_env):
    key = "test key 1"
    env = dict(os.environ)
    args = []
    if by_env:
        env["KPZ_SERVE_KEY"] = key
    else:
        args = ["--key", key]
    with Server(tree["root"], *args, env=env) as s:
        name = "shot02.kpz"
        assert get(s, "/preview/" + name)[0] == 403
        assert get(s, "/preview/%s?sig=%s" % (name, "0" * 64))[0] == 403
        assert get(s, "/preview/%s?sig=%s" % (name, sign(key, "thumbnail/" + name)))[0] == 403
        assert get(s, "/preview/%s?sig=%s" % (name, sign(key, "preview/" + name)))[0] == 200
        assert get(s, "/thumbnail/%s?upright=1&sig=%s" % (name, sign(key, "thumbnail/" + name)))[0] == 200
        # A missing file with a valid signature: 404; without one: 403
        # (nothing is told about a name that was not signed).
        assert get(s, "/preview/none.kpz?sig=" + sign(key, "preview/none.kpz"))[0] == 404
        assert get(s, "/preview/none.kpz")[0] == 403
        assert get(s, "/")[0] == 403
        assert get(s, "/?sig=" + sign(key, "browse/"))[0] == 200
        listing = json.loads(get(s, "/list/sub?sig=" + sign(key, "browse/sub"))[2])
        entry = [e for e in listing["entries"] if e["name"] == "inner1.kpz"][0]
        assert get(s, "/info/sub/inner1.kpz?sig=" + entry["sig"]["info"])[0] == 200
        assert get(s, "/healthz")[0] == 200 and get(s, "/metrics")[0] == 200


def test_slow_clients_are_cut_and_do_not_slow_others(tree):
    import resource
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    clients = 1000 if hard >= 1200 else 100
    if soft < clients + 200:
        resource.setrlimit(resource.RLIMIT_NOFILE, (clients + 200, hard))
    # Its standard error a pipe nobody reads: cutting a thousand clients
    # must not write a line each and stop on the full pipe.
    with Server(tree["root"], "--timeout", "1", unread_stderr=True) as s:
        slow = [s.connect() for _ in range(clients)]
        request = b"GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n"
        cut_at = [None] * len(slow)
        start = time.monotonic()
        # One byte every 0.2 s from each (the test's own rate): a request
        # head would take 7 s, far past the 1 s allowed.
        for step in range(len(request)):
            for i, c in enumerate(slow):
                if cut_at[i] is not None:
                    continue
                try:
                    c.sendall(request[step:step + 1])
                except OSError:
                    cut_at[i] = time.monotonic() - start
            # Meanwhile others are answered at once.
            t0 = time.monotonic()
            assert get(s, "/healthz")[0] == 200
            assert time.monotonic() - t0 < 5
            if all(x is not None for x in cut_at):
                break
            time.sleep(0.2)
        for i, c in enumerate(slow):
            c.settimeout(10)
            try:
                data = c.recv(100)
            except OSError:
                data = b""
            assert b"200 OK" not in data, "a slow client was answered"
            c.close()
        metrics = get(s, "/metrics")[2].decode()
        cut = [l for l in metrics.splitlines() if l.startswith("kpz_serve_connections_cut_total")]
        assert float(cut[0].split()[1]) >= clients
        assert s.stop(timeout=20) == 0


def test_past_the_connection_limit_503_with_retry_after(tree):
    with Server(tree["root"], "--max-connections", "4") as s:
        idle = [s.connect() for _ in range(8)]
        # The idle ones take the server's slots once it has accepted them; a
        # loaded machine may take a while: until then a probe is still
        # answered 200. Probe until the limit shows, within a bound.
        deadline = time.monotonic() + 30
        while True:
            response = raw_request(s, b"GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n")
            if status_of(response) == 503 or response == b"" or time.monotonic() > deadline:
                break
        assert status_of(response) == 503 or response == b"", response[:100]
        if response:
            assert b"Retry-After: 1" in response
        for c in idle:
            c.close()
        deadline = time.monotonic() + 10
        while time.monotonic() < deadline:  # the closed ones are noticed
            if get(s, "/healthz")[0] == 200:
                break
            time.sleep(0.1)
        assert get(s, "/healthz")[0] == 200


def test_past_the_requests_in_progress_503(tree):
    with Server(tree["root"], "--max-requests", "1") as s:
        reader = socket.socket()
        reader.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        reader.connect(("127.0.0.1", s.port))
        reader.sendall(b"GET /preview/large.kpz HTTP/1.1\r\nHost: x\r\n\r\n")
        reader.settimeout(10)
        assert reader.recv(100).startswith(b"HTTP/1.1 200")
        # The 3 MB answer is still being sent: a second request is past the
        # limit.
        response = raw_request(s, b"GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n")
        assert status_of(response) == 503
        assert b"Retry-After:" in response
        reader.close()


def test_a_file_cut_while_being_served(tree, tmp_path):
    root = str(tmp_path / "root")
    os.mkdir(root)
    shutil.copy(os.path.join(tree["root"], tree["large"]), os.path.join(root, "big.kpz"))
    with Server(root) as s:
        reader = socket.socket()
        reader.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        reader.connect(("127.0.0.1", s.port))
        reader.sendall(b"GET /preview/big.kpz HTTP/1.1\r\nHost: x\r\n\r\n")
        reader.settimeout(10)
        got = reader.recv(65536)
        assert got.startswith(b"HTTP/1.1 200")
        os.truncate(os.path.join(root, "big.kpz"), 1500000)
        while True:  # until the server ends the short answer
            try:
                chunk = reader.recv(65536)
            except (socket.timeout, ConnectionResetError):
                break
            if not chunk:
                break
            got += chunk
        reader.close()
        body = got.split(b"\r\n\r\n", 1)[1]
        assert len(body) < 3000000  # cut short, not padded
        # Asked again, the cut file is answered in words, and others still are.
        status, _, words = get(s, "/preview/big.kpz")
        assert status == 422 and b"past the end" in words
        assert get(s, "/healthz")[0] == 200
        # A picture that does not lie inside its file is counted as damage;
        # the cut file is another file, parsed anew.
        assert metric(s, 'kpz_serve_failures_total{kind="damaged"}') == 1
        assert metric(s, "kpz_serve_head_parses_total") == 2


def test_a_file_changed_is_served_anew(tree, tmp_path):
    root = str(tmp_path / "root")
    os.mkdir(root)
    target = os.path.join(root, "x.kpz")
    shutil.copy(os.path.join(tree["root"], "shot02.kpz"), target)
    with Server(root) as s:
        first = get(s, "/preview/x.kpz")
        shutil.copy(os.path.join(tree["root"], "shot03.kpz"), target + ".new")
        os.rename(target + ".new", target)
        second = get(s, "/preview/x.kpz")
        assert second[0] == 200 and second[1]["etag"] != first[1]["etag"]
        assert second[2] == tool("preview", "x.kpz", "-o", "-", cwd=root)[1]
        assert get(s, "/preview/x.kpz", {"If-None-Match": first[1]["etag"]})[0] == 200


def test_a_cold_file_is_parsed_once_for_both_pictures(tree):
    turned = q(tree["good"][1])  # orientation 6: ?upright=1 turns it
    plain = q(tree["good"][0])
    with Server(tree["root"]) as s:
        assert metric(s, "kpz_serve_head_parses_total") == 0
        assert get(s, "/preview/" + turned)[0] == 200
        assert metric(s, "kpz_serve_head_parses_total") == 1
        # The thumbnail, both turned, and the metadata: no parse of the head
        # again (the metadata are read by the library's reader, as kpz info
        # reads them).
        assert get(s, "/thumbnail/" + turned)[0] == 200
        assert get(s, "/thumbnail/" + turned + "?upright=1")[0] == 200
        assert get(s, "/preview/" + turned + "?upright=1")[0] == 200
        assert get(s, "/info/" + turned)[0] == 200
        assert metric(s, "kpz_serve_head_parses_total") == 1
        # The other way round on another file.
        assert get(s, "/thumbnail/" + plain)[0] == 200
        assert get(s, "/preview/" + plain)[0] == 200
        assert metric(s, "kpz_serve_head_parses_total") == 2
        # A file that is not KPZ is parsed once too: its failure is kept.
        assert get(s, "/preview/not_tiff.kpz")[0] == 422
        assert get(s, "/thumbnail/not_tiff.kpz")[0] == 422
        assert get(s, "/preview/not_tiff.kpz")[0] == 422
        assert metric(s, "kpz_serve_head_parses_total") == 3
        assert metric(s, 'kpz_serve_failures_total{kind="not_kpz"}') == 3
        assert metric(s, "kpz_serve_located_cache_entries") == 3


def test_a_missing_picture_is_told_as_that_picture(tree):
    no_thumbnail = tree["partial"]["no_thumbnail"]
    no_preview = tree["partial"]["no_preview"]
    with Server(tree["root"]) as s:
        for name, missing, present in ((no_thumbnail, "thumbnail", "preview"),
                                       (no_preview, "preview", "thumbnail")):
            rc, _, err = tool(missing, name, "-o", "-", cwd=tree["root"])
            assert rc != 0
            for suffix in ("", "?upright=1"):
                status, headers, body = get(s, "/%s/%s%s" % (missing, q(name), suffix))
                assert status == 422, (name, suffix)
                assert headers["cache-control"] == "no-store"
                assert "kpz: %s: %s" % (name, body.decode().strip()) == err.strip().split("\n")[-1]
            status, _, body = get(s, "/%s/%s" % (present, q(name)))
            assert status == 200
            assert body == tool(present, name, "-o", "-", cwd=tree["root"])[1]
        assert metric(s, 'kpz_serve_failures_total{kind="no_thumbnail"}') == 2
        assert metric(s, 'kpz_serve_failures_total{kind="no_preview"}') == 2
        assert metric(s, 'kpz_serve_failures_total{kind="damaged"}') == 0
        assert metric(s, 'kpz_serve_failures_total{kind="not_kpz"}') == 0
        assert metric(s, "kpz_serve_head_parses_total") == 2


def metric(server, name):
    """The value of the line of /metrics that starts with `name `."""
    text = get(server, "/metrics")[2].decode()
    lines = [l for l in text.splitlines() if l.startswith(name + " ")]
    assert len(lines) == 1, name
    return float(lines[0].rsplit(" ", 1)[1])


def test_a_turned_picture_is_kept_and_answered_again_from_the_cache(tree):
    name = q(tree["good"][1])  # orientation 6: turned
    with Server(tree["root"]) as s:
        first = get(s, "/thumbnail/%s?upright=1" % name)
        assert first[0] == 200
        assert metric(s, "kpz_serve_turned_cache_entries") == 1
        second = get(s, "/thumbnail/%s?upright=1" % name)
        assert second[2] == first[2] and second[1]["etag"] == first[1]["etag"]
        assert metric(s, "kpz_serve_turned_cache_hits_total") == 1
        # A range of a kept picture is a range of the same bytes.
        part = get(s, "/thumbnail/%s?upright=1" % name, {"Range": "bytes=5-14"})
        assert part[0] == 206 and part[2] == first[2][5:15]
        # The plain picture is not the turned one and does not touch the cache.
        assert get(s, "/thumbnail/%s" % name)[2] != first[2]
        assert metric(s, "kpz_serve_turned_cache_hits_total") == 2


def orientation_changed(data, old, new):
    """`data` with every orientation entry (tag 0x0112, SHORT, count 1) of
    value `old` set to `new`, in either byte order: the same size."""
    out = data
    for order in ("<", ">"):
        pattern = struct.pack(order + "HHIH", 0x0112, 3, 1, old)
        out = out.replace(pattern, struct.pack(order + "HHIH", 0x0112, 3, 1, new))
    assert out != data and len(out) == len(data)
    return out


def test_a_changed_file_is_never_answered_from_the_turned_cache(tree, tmp_path):
    root = str(tmp_path / "root")
    os.mkdir(root)
    target = os.path.join(root, "x.kpz")
    shot02 = open(os.path.join(tree["root"], "shot02.kpz"), "rb").read()  # orientation 6
    shot04 = open(os.path.join(tree["root"], "shot04.kpz"), "rb").read()  # orientation 8

    def replace(data):  # another file under the name (a new inode)
        with open(target + ".new", "wb") as f:
            f.write(data)
        os.rename(target + ".new", target)

    def rewrite(data):  # the same file written again; its time moved on for sure
        before = os.stat(target)
        with open(target, "r+b") as f:
            f.truncate(0)
            f.write(data)
        os.utime(target, ns=(before.st_atime_ns, before.st_mtime_ns + 1000))
        assert os.stat(target).st_ino == before.st_ino

    with Server(root) as s:
        # Each step changes the file, then asks twice (the second from the
        # cache): the answer is always the tool's for the file as it is now.
        steps = (lambda: replace(shot02), lambda: replace(shot04),
                 lambda: rewrite(shot02),  # another size
                 lambda: rewrite(orientation_changed(shot02, 6, 8)))  # the same size
        for i, step in enumerate(steps):
            step()
            for route in ("thumbnail", "preview"):
                want = tool(route, "--upright", "x.kpz", "-o", "-", cwd=root)[1]
                for _ in range(2):
                    status, _, body = get(s, "/%s/x.kpz?upright=1" % route)
                    assert status == 200 and body == want, (i, route)
        assert metric(s, "kpz_serve_turned_cache_hits_total") == 8
        # The first file's two pictures are kept until pushed out (its inode
        # is gone, no request reaches them); the versions rewritten in place
        # were dropped, not kept beside the last.
        assert metric(s, "kpz_serve_turned_cache_entries") == 4


def test_the_turned_cache_keeps_its_bound(tree):
    names = [n for n in tree["good"] if n.startswith("shot")]
    sizes = {}
    with Server(tree["root"], "--turned-cache", "0") as s:
        for n in names:
            status, _, body = get(s, "/preview/%s?upright=1" % q(n))
            assert status == 200
            sizes[n] = len(body)
        assert metric(s, "kpz_serve_turned_cache_entries") == 0
        assert metric(s, "kpz_serve_turned_cache_hits_total") == 0
    turned = [n for n in names if tool("preview", "--upright", n, "-o", "-", cwd=tree["root"])[1]
              != tool("preview", n, "-o", "-", cwd=tree["root"])[1]]
    assert len(turned) >= 3
    # Room for the two largest turned previews and their bookkeeping, not three.
    largest = sorted((sizes[n] for n in turned), reverse=True)
    bound = largest[0] + largest[1] + 2 * 256
    assert bound < sum(largest[:3]) + 3 * 256
    with Server(tree["root"], "--turned-cache", str(bound)) as s:
        assert metric(s, "kpz_serve_turned_cache_capacity_bytes") == bound
        for _ in range(3):
            for n in turned:
                status, _, body = get(s, "/preview/%s?upright=1" % q(n))
                assert status == 200 and len(body) == sizes[n]
                assert metric(s, "kpz_serve_turned_cache_bytes") <= bound
                assert metric(s, "kpz_serve_turned_cache_entries") <= 2
        assert metric(s, "kpz_serve_turned_cache_evictions_total") > 0
    with Server(tree["root"], "--turned-cache", "1MiB") as s:
        assert metric(s, "kpz_serve_turned_cache_capacity_bytes") == 1 << 20


def test_a_small_picture_is_answered_again_as_it_was_kept(tree, tmp_path):
    root = str(tmp_path / "root")
    os.mkdir(root)
    target = os.path.join(root, "x.kpz")
    shutil.copy(os.path.join(tree["root"], "shot02.kpz"), target)
    with Server(root) as s:
        assert metric(s, "kpz_serve_ready_answers") == 0
        first = get(s, "/thumbnail/x.kpz")
        assert first[0] == 200
        assert first[2] == tool("thumbnail", "x.kpz", "-o", "-", cwd=root)[1]
        assert metric(s, "kpz_serve_ready_answers") == 1
        assert metric(s, "kpz_serve_ready_bytes") >= len(first[2])
        # Kept: the same bytes and headers (but the date) every time.
        for _ in range(3):
            again = get(s, "/thumbnail/x.kpz")
            assert again[0] == 200 and again[2] == first[2]
            assert {k: v for k, v in again[1].items() if k != "date"} == \
                {k: v for k, v in first[1].items() if k != "date"}
        assert first[1]["x-content-type-options"] == "nosniff"
        assert first[1]["content-length"] == str(len(first[2]))
        head = get(s, "/thumbnail/x.kpz", method="HEAD")
        assert head[0] == 200 and head[2] == b""
        assert head[1]["content-length"] == str(len(first[2]))
        assert head[1]["etag"] == first[1]["etag"]
        # Conditions and ranges are still answered as such.
        assert get(s, "/thumbnail/x.kpz", {"If-None-Match": first[1]["etag"]})[0] == 304
        assert get(s, "/thumbnail/x.kpz",
                   {"If-Modified-Since": first[1]["last-modified"]})[0] == 304
        part = get(s, "/thumbnail/x.kpz", {"Range": "bytes=3-12"})
        assert part[0] == 206 and part[2] == first[2][3:13]
        upright = get(s, "/thumbnail/x.kpz?upright=1")
        assert upright[0] == 200 and upright[1]["etag"] != first[1]["etag"]
        assert metric(s, "kpz_serve_ready_answers") == 1
        # The file written again, the same size, its time moved on: answered
        # from the file as it is now, never from what was kept.
        before = os.stat(target)
        data = bytearray(open(target, "rb").read())
        start = data.index(first[2])
        data[start + len(first[2]) - 3] ^= 0xFF  # a byte of the thumbnail, before its end mark
        with open(target, "r+b") as f:
            f.write(data)
        os.utime(target, ns=(before.st_atime_ns, before.st_mtime_ns + 1000))
        changed = get(s, "/thumbnail/x.kpz")
        assert changed[0] == 200 and changed[2] != first[2]
        assert changed[2] == tool("thumbnail", "x.kpz", "-o", "-", cwd=root)[1]
        assert changed[1]["etag"] != first[1]["etag"]
        assert get(s, "/thumbnail/x.kpz")[2] == changed[2]


def test_the_kept_answers_keep_their_bound(tree):
    names = [q(n) for n in tree["good"] if n.startswith("shot")][:3]
    with Server(tree["root"], "--ready-cache", "0") as s:
        sizes = [len(get(s, "/thumbnail/" + n)[2]) for n in names]
        for n in names:
            assert get(s, "/thumbnail/" + n)[0] == 200
        assert metric(s, "kpz_serve_ready_answers") == 0
        assert metric(s, "kpz_serve_ready_bytes") == 0
    # Room for the largest of them (and its headers), not for two.
    bound = max(sizes) + 1024 + min(sizes) // 2
    with Server(tree["root"], "--ready-cache", str(bound)) as s:
        for _ in range(2):
            for n, size in zip(names, sizes):
                status, _, body = get(s, "/thumbnail/" + n)
                assert status == 200 and len(body) == size
        assert metric(s, "kpz_serve_ready_answers") == 1
        assert 0 < metric(s, "kpz_serve_ready_bytes") <= bound
        assert metric(s, "kpz_serve_ready_capacity_bytes") == bound


def test_many_connections_at_once(server, tree):
    aiohttp = pytest.importorskip("aiohttp")
    names = tree["many"]
    expected = {n: tool("thumbnail", n, "-o", "-", cwd=tree["root"])[1] for n in names[:8]}

    async def run():
        connector = aiohttp.TCPConnector(limit=64)
        async with aiohttp.ClientSession(connector=connector) as session:
            async def one(i):
                n = names[i % 8]
                async with session.get(server.base + "/thumbnail/" + q(n)) as r:
                    return n, r.status, await r.read()
            return await asyncio.gather(*(one(i) for i in range(400)))

    for n, status, body in asyncio.run(asyncio.wait_for(run(), 120)):
        assert status == 200 and body == expected[n]


def test_sigterm_stops_it_cleanly_within_the_drain(tree):
    s = Server(tree["root"], "--drain", "2")
    idle = s.connect()
    t0 = time.monotonic()
    assert s.stop(timeout=20) == 0
    assert time.monotonic() - t0 < 10
    idle.close()
    s.proc.stdout.close()
    s.stderr.close()


def test_it_refuses_a_root_that_is_not_a_folder(tree):
    rc, out, err = tool("serve", os.path.join(tree["root"], "shot02.kpz"), "--listen", "127.0.0.1:0")
    assert rc == 1 and "not a directory" in err
    rc, out, err = tool("serve", tree["root"], "--listen", "nonsense")
    assert rc == 2 and "--listen" in err
