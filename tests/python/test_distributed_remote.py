"""kpz.distributed's workers read http(s):// inputs through kpz.remote:
two ranged GETs per file, many files in flight per worker (shown at a gate
of the tests' latency proxy, not by wall time), transient faults retried
and permanent ones told at once, settable from extract() and the command,
and a listing's entries kept inside the listed folder. Servers of the tests'
own on 127.0.0.1 (remote_support.py), a scheduler and one worker started
with Debian's commands."""

import subprocess
from pathlib import Path

import pytest

import kpz
import kpz.distributed
from kpz.remote import Settings
from distributed_support import DaskCluster, python_env, run_cli
from remote_support import FaultyServer, LatencyProxy

FAST = Settings(backoff=0.0, connect_timeout=5.0, read_timeout=10.0)


@pytest.fixture(scope="module")
def cluster(tmp_path_factory):
    c = DaskCluster(tmp_path_factory.mktemp("dask"), 1, python_env())
    yield c
    c.close()


def _files(fixtures, n):
    return {f"/raw/f{i:03d}.kpz": Path(p).read_bytes()
            for i, p in enumerate((fixtures["many"] * 4)[:n])}


def test_many_files_in_flight_per_worker_two_gets_each(cluster, fixtures, tmp_path):
    files = _files(fixtures, 40)
    with FaultyServer(files) as server, LatencyProxy(server.port, 0.0, gate=16) as proxy:
        urls = [f"http://127.0.0.1:{proxy.port}{p}" for p in files]
        summary = kpz.distributed.extract(urls, str(tmp_path / "out"), cluster=cluster.address,
                                          batch_size=40, max_in_flight=16, remote=FAST)
        log = list(server.log)
        requests = dict(server.requests)
    assert (summary.files, summary.done) == (40, 40)
    # One worker of one thread, one task: 16 requests waited at the proxy
    # together, which only files read at once can do.
    assert proxy.gate_reached
    assert requests == {p: 2 for p in files}
    assert all(line.startswith("GET ") and "bytes=" in line for line in log)
    for i, p in enumerate(files):
        want = kpz.screennail((fixtures["many"] * 4)[i])
        assert (tmp_path / "out" / (Path(p).stem + ".preview.jpg")).read_bytes() == want


def test_faults_retried_or_told_at_once(cluster, fixtures, tmp_path):
    files = _files(fixtures, 4)
    names = list(files)
    faults = {names[0]: ["503", "reset"], names[1]: ["403"], names[2]: ["503"] * 3}
    with FaultyServer(files, faults) as server:
        results = []
        summary = kpz.distributed.extract(
            [server.url(p) for p in names], str(tmp_path / "out"), cluster=cluster.address,
            remote=Settings(tries=3, backoff=0.0, connect_timeout=5.0, read_timeout=10.0),
            on_result=results.append)
    assert [r.status for r in results] == [0, 1, 1, 0]
    assert results[1].err == f"kpz: {server.url(names[1])}: HTTP 403 Forbidden\n"
    assert results[2].reason == "HTTP 503 Service Unavailable after 3 tries"
    assert summary.exit_status == 1
    assert "kpz:   1 HTTP 403 Forbidden\n" in summary.render()


def test_a_listing_s_entries_stay_inside_its_folder(cluster, fixtures, tmp_path):
    files = _files(fixtures, 2)
    files["/ok/evil.kpz"] = files["/raw/f000.kpz"]
    files["/raw/"] = (b'<html><a href="f000.kpz">f000.kpz</a> <a href="../ok/evil.kpz">x</a> '
                      b'<a href="http://127.0.0.2/raw/far.kpz">far</a> '
                      b'<a href="f001.kpz">f001.kpz</a></html>')
    with FaultyServer(files) as server:
        results = []
        kpz.distributed.extract([server.url("/raw/")], str(tmp_path / "out"),
                                cluster=cluster.address, remote=FAST, on_result=results.append)
        asked = dict(server.requests)
    assert [r.source for r in results] == [server.url("/raw/f000.kpz"),
                                           server.url("/raw/f001.kpz")]
    assert "/ok/evil.kpz" not in asked


def test_the_command_sets_the_reads(cluster, fixtures, tmp_path):
    files = _files(fixtures, 1)
    name = next(iter(files))
    with FaultyServer(files, {name: ["503"] * 2}) as server:
        got = run_cli(["preview", server.url(name), "-o", str(tmp_path / "out"),
                       "--scheduler", cluster.address, "--tries", "2", "--max-in-flight", "4",
                       "--connect-timeout", "5", "--read-timeout", "10"], timeout=120)
    assert (got.returncode, got.stdout) == (1, "")
    assert got.stderr == f"kpz: {server.url(name)}: HTTP 503 Service Unavailable after 2 tries\n"
    bad = run_cli(["preview", server.url(name), "-o", str(tmp_path / "out"), "--tries", "0"],
                  timeout=60)
    assert bad.returncode == 2 and "--tries is a whole number of at least 1, not 0" in bad.stderr


def test_upright_over_http_says_what_kpz_says(cluster, fixtures, tool, tmp_path):
    names = [f"orient{n}_{part}" for n in range(1, 9) for part in ("whole", "partial")]
    local = tmp_path / "in"
    local.mkdir()
    files = {}
    for name in names:
        data = Path(fixtures["byname"][name]["path"]).read_bytes()
        (local / f"{name}.kpz").write_bytes(data)
        files[f"/raw/{name}.kpz"] = data
    want = subprocess.run([tool, "preview", "--upright", str(local), "-o", str(tmp_path / "ref")],
                          capture_output=True, text=True, timeout=120)
    assert "re-encoded at quality 95" in want.stderr
    with FaultyServer(files) as server:
        summary = kpz.distributed.extract([server.url(p) for p in sorted(files)],
                                          str(tmp_path / "out"), upright=True,
                                          cluster=cluster.address, remote=FAST)
    assert summary.render() == want.stderr
    for p in (tmp_path / "ref").iterdir():
        assert (tmp_path / "out" / p.name).read_bytes() == p.read_bytes(), p.name


def test_a_url_s_query_is_no_glob():
    # '?' begins a URL's query (a signed URL's): the URL is one file, read
    # as given, even with '*' or '[' in its query.
    from kpz.distributed._inputs import expand_sources

    for url in ("http://127.0.0.1:9/a.kpz?sig=1", "https://127.0.0.1:9/a.kpz?x=*&y=[1]"):
        assert expand_sources([url]) == [(url, "")]
    # A '*' before the query is still a pattern: it is listed (and here the
    # server is not there, which is told in words, not raised).
    [(url, why)] = expand_sources(["http://127.0.0.1:9/d/*.kpz?sig=1"])
    assert why.startswith("cannot read the directory: "), why


def test_typed_glob_is_not_filtered_by_ext(tmp_path):
    # A pattern the user typed ('dir/*.xyz') is what was asked for: its
    # matches are taken whatever --ext says, as kpz takes them; --ext
    # chooses the files of directories only (a directory matched included).
    import os

    import fsspec

    from kpz.distributed._inputs import expand_sources

    root = "/kpz-typed-glob-%d" % os.getpid()
    fs = fsspec.filesystem("memory")
    for name in ("a.xyz", "b.xyz", "c.kpz", "d.xyz/in.kpz", "d.xyz/in.xyz"):
        fs.pipe("%s/%s" % (root, name), b"x")
    try:
        url = "memory://%s" % root
        assert expand_sources([url + "/*.xyz"]) == [
            (url + "/a.xyz", ""), (url + "/b.xyz", ""), (url + "/d.xyz/in.kpz", "")]
        assert expand_sources([url + "/*.xyz"], extensions=["xyz"]) == [
            (url + "/a.xyz", ""), (url + "/b.xyz", ""), (url + "/d.xyz/in.xyz", "")]
        assert expand_sources([url + "/*.nope"]) == [
            (url + "/*.nope", "the glob matches no file")]
        assert expand_sources([url + "/"], extensions=["kpz"]) == [(url + "/c.kpz", "")]
    finally:
        fs.rm(root, recursive=True)
    # Local: the kit's own expansion, the same rule.
    for name in ("a.xyz", "b.xyz", "c.kpz"):
        (tmp_path / name).write_bytes(b"x")
    assert expand_sources([str(tmp_path / "*.xyz")]) == [
        (str(tmp_path / "a.xyz"), ""), (str(tmp_path / "b.xyz"), "")]
