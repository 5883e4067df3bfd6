"""The web servers README.md names for http:// inputs, tried: the nginx
`server` block shown there, read out of README.md (its `listen` address
and `root` folder replaced, nothing else), serves files that kpz.remote
reads whole and right, and its listing; `python3 -m http.server`, which
README.md names as the one that does not serve byte ranges, fails every
file in those words. Both servers on 127.0.0.1, started here, bounded in
time, stopped by their pid."""

import re
import shutil
import signal
import subprocess
import sys
import time
import urllib.request
from pathlib import Path

import pytest

import kpz
import kpz.remote
from conftest import SOURCE_DIR
from distributed_support import LOOPBACK, candidate_port, listening_sockets, stop

README = SOURCE_DIR / "README.md"
SECONDS = 30


def _server_block() -> str:
    blocks = re.findall(r"```nginx\n(.*?)```", README.read_text(encoding="utf-8"), re.S)
    assert len(blocks) == 1, f"README.md has {len(blocks)} nginx blocks"
    return blocks[0]


def _files(docroot: Path, sample: Path) -> None:
    (docroot / "shoots").mkdir(parents=True)
    for name in ("a.kpz", "b.kpz"):
        shutil.copy(sample, docroot / "shoots" / name)


def _wait_listening(proc: subprocess.Popen, port: int, errors) -> bool:
    """True once `proc` listens on 127.0.0.1:port; False when it ended
    because the port was taken meanwhile."""
    deadline = time.monotonic() + SECONDS
    while time.monotonic() < deadline:
        if proc.poll() is not None:
            if "Address already in use" in errors():
                return False
            raise AssertionError(f"the server ended with status {proc.returncode}: {errors()}")
        if any(a == LOOPBACK and p == port for _, a, p in listening_sockets(proc.pid)):
            return True
        time.sleep(0.05)
    raise AssertionError(f"the server did not listen on {LOOPBACK}:{port} within {SECONDS} s")


@pytest.fixture
def readme_nginx(tmp_path, sample):
    """nginx running README.md's server block: (its URL, the docroot)."""
    if shutil.which("nginx") is None:
        pytest.skip("nginx not installed (Debian: nginx-light)")
    block = _server_block()
    docroot = tmp_path / "photos"
    _files(docroot, sample)
    prefix = tmp_path / "nginx"
    for d in ("logs", "body", "proxy", "fastcgi", "uwsgi", "scgi"):
        (prefix / d).mkdir(parents=True)
    err = prefix / "stderr.log"
    for attempt in range(5):
        port = candidate_port()
        server, n = re.subn(r"\blisten\s+[^;]+;", f"listen {LOOPBACK}:{port};", block)
        assert n == 1, block
        server, n = re.subn(r"\broot\s+[^;]+;", f"root {docroot};", server)
        assert n == 1, block
        # The http context a Debian nginx.conf gives a file of sites-enabled/,
        # with this test's own paths.
        (prefix / "nginx.conf").write_text(f"""
daemon off;
master_process off;
worker_processes 1;
pid {prefix}/nginx.pid;
error_log {prefix}/error.log warn;
events {{ worker_connections 64; }}
http {{
    client_body_temp_path {prefix}/body;
    proxy_temp_path {prefix}/proxy;
    fastcgi_temp_path {prefix}/fastcgi;
    uwsgi_temp_path {prefix}/uwsgi;
    scgi_temp_path {prefix}/scgi;
    access_log {prefix}/access.log;
    default_type application/octet-stream;
    sendfile on;
{server}
}}
""")
        with open(err, "wb") as out:
            proc = subprocess.Popen(["nginx", "-p", str(prefix), "-c", str(prefix / "nginx.conf")],
                                    stdout=subprocess.DEVNULL, stderr=out)
        try:
            up = _wait_listening(proc, port, lambda: err.read_text(errors="replace"))
        except BaseException:
            stop(proc, signal.SIGQUIT)
            raise
        if up:
            break
    else:
        pytest.fail(f"nginx could not bind a port on {LOOPBACK} in 5 tries")
    try:
        yield f"http://{LOOPBACK}:{port}", docroot
    finally:
        stop(proc, signal.SIGQUIT)


def test_readme_s_nginx_block_serves_what_kpz_remote_reads(readme_nginx, sample):
    url, docroot = readme_nginx
    want = kpz.screennail(str(sample))
    results = kpz.remote.fetch([f"{url}/shoots/a.kpz", f"{url}/shoots/b.kpz"])
    assert all(r.ok for r in results), [r.words for r in results]
    assert [r.data for r in results] == [want, want]
    # The listing the block's autoindex gives, which folder inputs read.
    with urllib.request.build_opener(urllib.request.ProxyHandler({})).open(
            f"{url}/shoots/", timeout=SECONDS) as listing:
        page = listing.read().decode()
    assert 'href="a.kpz"' in page and 'href="b.kpz"' in page, page


def test_python_http_server_is_refused_as_readme_says(tmp_path, sample):
    readme = " ".join(README.read_text(encoding="utf-8").split())
    assert ("`python3 -m http.server` does not: every file from it fails with "
            "`the server does not serve byte ranges`") in readme
    docroot = tmp_path / "photos"
    _files(docroot, sample)
    for attempt in range(5):
        port = candidate_port()
        err = tmp_path / f"http-server-{attempt}.log"
        with open(err, "wb") as out:
            proc = subprocess.Popen([sys.executable, "-m", "http.server", str(port), "--bind",
                                     LOOPBACK, "--directory", str(docroot)],
                                    stdout=out, stderr=subprocess.STDOUT)
        try:
            if _wait_listening(proc, port, lambda: err.read_text(errors="replace")):
                results = kpz.remote.fetch([f"http://{LOOPBACK}:{port}/shoots/a.kpz"])
                break
        finally:
            stop(proc)
    else:
        pytest.fail(f"python3 -m http.server could not bind a port on {LOOPBACK} in 5 tries")
    (got,) = results
    assert not got.ok and "the server does not serve byte ranges" in got.words, got.words
