"""kpz.remote against a server of the tests' own that misbehaves on cue
(remote_support.FaultyServer, 127.0.0.1, port 0): the same bytes and words
as kpz for every generated file, two requests per file, transient faults
retried, permanent ones told at once, ranges ignored or cut short noticed,
a stalled file timed out while the others go on, redirects bounded."""

import os
import random

import pytest

import kpz
import kpz.remote as remote
from remote_support import FaultyServer, LatencyProxy

FAST = dict(backoff=0.0, connect_timeout=5.0, read_timeout=10.0)


def _local(path, kind="preview", upright=False):
    get = kpz.screennail if kind == "preview" else kpz.thumbnail
    try:
        return get(path, upright=upright), ""
    except (kpz.KpzError, OSError) as e:
        return None, kpz.error_words(e)


def _serve(fixtures):
    files = {}
    for entry in fixtures["files"]:
        with open(entry["path"], "rb") as f:
            files["/%s.kpz" % entry["name"]] = f.read()
    return files


@pytest.mark.parametrize("kind,upright", [("preview", False), ("thumbnail", False),
                                          ("preview", True)])
def test_every_file_same_bytes_and_words_as_kpz(fixtures, kind, upright):
    with FaultyServer(_serve(fixtures)) as server:
        names = [e["name"] for e in fixtures["files"]]
        urls = [server.url("/%s.kpz" % n) for n in names]
        results = remote.fetch(urls, kind, upright=upright, **FAST)
    assert [r.url for r in results] == urls
    for name, got in zip(names, results):
        want, words = _local(fixtures["byname"][name]["path"], kind, upright)
        if want is not None:
            assert got.ok, (name, got.words)
            assert got.data == want, name
            assert got.status == 0
        else:
            assert not got.ok, name
            assert got.words == words, name
            assert got.status == 1, name


def test_two_ranged_requests_per_file_and_no_head(fixtures):
    files = {"/%d.kpz" % i: open(p, "rb").read() for i, p in enumerate(fixtures["many"][:20])}
    with FaultyServer(files) as server:
        results = remote.fetch([server.url(p) for p in files], **FAST)
        log = list(server.log)
    assert all(r.ok for r in results)
    assert len(log) == 2 * len(files)
    assert all(line.startswith("GET ") and "bytes=" in line for line in log)


def test_transient_faults_are_retried_and_cost_only_the_files_ranges(fixtures):
    data = open(fixtures["byname"]["large"]["path"], "rb").read()
    want, _ = _local(fixtures["byname"]["large"]["path"])
    faults = {"/a.kpz": ["503", "reset", "500"], "/b.kpz": ["429", "503"],
              "/c.kpz": ["reset", "reset"]}
    with FaultyServer({p: data for p in faults}, faults) as server:
        results = remote.fetch([server.url(p) for p in faults], **FAST)
        sent = dict(server.sent)
        requests = dict(server.requests)
    for r in results:
        assert r.ok, r.words
        assert r.data == want
    assert requests == {"/a.kpz": 5, "/b.kpz": 4, "/c.kpz": 4}
    for path in faults:
        # the head, the picture, and the halves sent before each reset
        assert sent[path] <= 65536 + len(want) + 2 * max(65536, len(want)) // 2 * 2, path


def test_transient_fault_that_lasts_fails_in_words_after_the_tries(fixtures):
    data = open(fixtures["byname"]["plain"]["path"], "rb").read()
    with FaultyServer({"/a.kpz": data}, {"/a.kpz": ["503"] * 10}) as server:
        (r,) = remote.fetch([server.url("/a.kpz")], tries=4, **FAST)
        assert server.requests["/a.kpz"] == 4
    assert not r.ok
    assert r.words == "HTTP 503 Service Unavailable after 4 tries"
    assert r.status == 1


@pytest.mark.parametrize("fault,words", [("404", "HTTP 404 Not Found"),
                                         ("403", "HTTP 403 Forbidden")])
def test_permanent_faults_fail_at_once(fixtures, fault, words):
    data = open(fixtures["byname"]["plain"]["path"], "rb").read()
    with FaultyServer({"/a.kpz": data}, {"/a.kpz": [fault]}) as server:
        (r,) = remote.fetch([server.url("/a.kpz")], **FAST)
        assert server.requests["/a.kpz"] == 1
    assert (r.ok, r.words, r.status) == (False, words, 1)


def test_a_server_that_ignores_range_is_noticed_without_reading_the_body(fixtures):
    big = open(fixtures["byname"]["large"]["path"], "rb").read() + bytes(4 << 20)
    with FaultyServer({"/a.kpz": big}, {"/a.kpz": ["ignore"]}) as server:
        (r,) = remote.fetch([server.url("/a.kpz")], **FAST)
    assert not r.ok
    assert r.words == "the server does not serve byte ranges (HTTP 200 to a ranged request)"
    assert r.received == 0


def test_a_small_file_sent_whole_is_taken(fixtures):
    path = fixtures["byname"]["plain"]["path"]
    data = open(path, "rb").read()
    assert len(data) <= 65536
    with FaultyServer({"/a.kpz": data}, {"/a.kpz": ["ignore"]}) as server:
        (r,) = remote.fetch([server.url("/a.kpz")], **FAST)
    assert r.ok, r.words
    assert r.data == _local(path)[0]


def test_short_replies_are_asked_again_a_bounded_number_of_times(fixtures):
    path = fixtures["byname"]["large"]["path"]
    data = open(path, "rb").read()
    want = _local(path)[0]
    assert len(want) > 4 * 4096
    with FaultyServer({"/a.kpz": data, "/b.kpz": data},
                      {"/a.kpz": ["short", "short"], "/b.kpz": ["short"] * 1000}) as server:
        a, b = remote.fetch([server.url("/a.kpz"), server.url("/b.kpz")], tries=4, **FAST)
        requests_b = server.requests["/b.kpz"]
    assert a.ok and a.data == want
    assert not b.ok
    assert b.words.startswith("the server sent 16384 of the 65536 bytes asked for in 4 replies")
    assert requests_b == 4


def test_a_stalled_file_times_out_and_the_others_go_on(fixtures):
    data = open(fixtures["byname"]["plain"]["path"], "rb").read()
    files = {"/slow.kpz": data, "/a.kpz": data, "/b.kpz": data}
    with FaultyServer(files, {"/slow.kpz": ["stall"]}) as server:
        results = remote.fetch([server.url(p) for p in files], tries=1, backoff=0.0,
                               connect_timeout=5.0, read_timeout=0.5)
    slow, a, b = results
    assert (slow.ok, slow.words) == (False, "timed out after 1 tries")
    assert a.ok and b.ok


def test_redirects_same_host_followed_others_refused_loops_bounded(fixtures):
    data = open(fixtures["byname"]["plain"]["path"], "rb").read()
    faults = {"/moved.kpz": ["redirect:/a.kpz"], "/away.kpz": ["redirect:http://10.255.255.1/x"],
              "/loop.kpz": ["loop"]}
    with FaultyServer({"/a.kpz": data, "/moved.kpz": data, "/away.kpz": data,
                       "/loop.kpz": data}, faults) as server:
        moved, away, loop = remote.fetch([server.url(p) for p in faults], max_redirects=3,
                                         **FAST)
    assert moved.ok, moved.words
    assert away.words == "redirected to another host (http://10.255.255.1), which is not followed"
    assert loop.words == "too many redirects (more than 3)"


def test_a_refused_connection_is_told_so():
    (r,) = remote.fetch(["http://127.0.0.1:1/a.kpz"], tries=2, **FAST)
    assert (r.ok, r.words) == (False, "connection refused after 2 tries")


def test_many_files_share_few_connections_and_are_in_flight_together(fixtures):
    files = {"/%d.kpz" % i: open(fixtures["many"][i % len(fixtures["many"])], "rb").read()
             for i in range(96)}
    # The proxy holds the first requests until 32 wait at once: a reader
    # that kept fewer in flight would leave the gate shut.
    with FaultyServer(files) as server, LatencyProxy(server.port, 0.05, gate=32) as proxy:
        urls = ["http://127.0.0.1:%d%s" % (proxy.port, p) for p in files]
        results = remote.fetch(urls, max_in_flight=32, **FAST)
        connections = proxy.connections
        reached = proxy.gate_reached
    assert all(r.ok for r in results)
    assert reached                    # 32 requests were on the link together
    assert connections <= 32          # the pool is reused across files
    assert sum(r.requests for r in results) == 2 * len(files)


def test_the_in_flight_limit_holds(fixtures):
    files = {"/%d.kpz" % i: open(p, "rb").read() for i, p in enumerate(fixtures["many"][:12])}
    with FaultyServer(files) as server, LatencyProxy(server.port, 0.02) as proxy:
        urls = ["http://127.0.0.1:%d%s" % (proxy.port, p) for p in files]
        results = remote.fetch(urls, max_in_flight=2, **FAST)
        most = proxy.max_held
    assert all(r.ok for r in results)
    assert 1 <= most <= 2


def test_outputs_written_whole_named_as_kpz_names_them(fixtures, tmp_path):
    path = fixtures["byname"]["plain"]["path"]
    data = open(path, "rb").read()
    with FaultyServer({"/x/a.kpz": data, "/y/a.kpz": data, "/b.kpz": data}) as server:
        results = remote.fetch([server.url("/x/a.kpz"), server.url("/y/a.kpz"),
                                server.url("/b.kpz")], out_dir=str(tmp_path / "out"), **FAST)
    first, second, third = results
    assert first.ok and first.output == str(tmp_path / "out" / "a.preview.jpg")
    assert (tmp_path / "out" / "a.preview.jpg").read_bytes() == _local(path)[0]
    assert not second.ok and second.status == 3
    assert second.words.startswith("not written: ")
    assert third.ok and (tmp_path / "out" / "b.preview.jpg").exists()
    assert sorted(os.listdir(tmp_path / "out")) == ["a.preview.jpg", "b.preview.jpg"]


def test_settings_are_checked_in_words():
    with pytest.raises(ValueError, match="max_in_flight is a whole number of at least 1"):
        remote.Settings(max_in_flight=0)
    with pytest.raises(ValueError, match="read_timeout is a number of seconds above 0"):
        remote.Settings(read_timeout=0)


def test_backoff_is_drawn_between_half_and_all_of_the_doubled_wait():
    import asyncio

    waits = []

    async def fake_sleep(delay):
        waits.append(delay)

    reader = remote.Reader(backoff=1.0, backoff_max=3.0, rng=random.Random(7))
    real = asyncio.sleep
    asyncio.sleep = fake_sleep
    try:
        for n in (1, 2, 3, 4):
            real_loop = asyncio.new_event_loop()
            real_loop.run_until_complete(reader._wait(n))
            real_loop.close()
    finally:
        asyncio.sleep = real
    bounds = [1.0, 2.0, 3.0, 3.0]
    assert len(waits) == 4
    for w, top in zip(waits, bounds):
        assert top / 2 <= w <= top
