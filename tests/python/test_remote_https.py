"""kpz.remote over HTTPS: nginx on 127.0.0.1 with a certificate of the
test's own CA (openssl), the client given the CA's file. The same bytes as
kpz, connections kept and reused across files (nginx's $connection and
$connection_requests), and a server the client cannot trust refused in
words."""

import shutil

import pytest

import kpz
import kpz.remote as remote
from remote_support import TlsNginx, make_certificates

pytestmark = pytest.mark.skipif(not shutil.which("nginx") or not shutil.which("openssl"),
                                reason="needs nginx and openssl (scripts/install-deps.sh)")


@pytest.fixture(scope="module")
def served(fixtures, tmp_path_factory):
    root = tmp_path_factory.mktemp("https")
    docroot = root / "www"
    docroot.mkdir()
    names = []
    for i, path in enumerate(fixtures["many"] * 4):
        name = "f%03d.kpz" % i
        shutil.copyfile(path, docroot / name)
        names.append((name, path))
    certs = make_certificates(root / "certs")
    with TlsNginx(root / "nginx", docroot, certs["cert"], certs["key"]) as nginx:
        yield nginx, names, certs


def test_https_same_bytes_and_connections_reused(served):
    nginx, names, certs = served
    urls = [nginx.url("/" + n) for n, _ in names]
    results = remote.fetch(urls, max_in_flight=8, ca_file=certs["ca"], backoff=0.0)
    for (name, path), got in zip(names, results):
        assert got.ok, (name, got.words)
        assert got.data == kpz.screennail(path)
    log = [r for r in nginx.requests() if r[3].startswith("/f")]
    assert len(log) == 2 * len(names)
    connections = {c for c, _, _, _, _ in log}
    # Kept alive: at most one connection per request in flight, each used
    # for many files' requests (a handshake per file would cost more round
    # trips than the reads).
    assert len(connections) <= 8
    assert max(n for _, n, _, _, _ in log) >= len(log) // len(connections) // 2


def test_https_without_the_ca_is_refused_in_words(served):
    nginx, names, _ = served
    (got,) = remote.fetch([nginx.url("/" + names[0][0])], tries=1, backoff=0.0)
    assert not got.ok
    assert "certificate" in got.words, got.words
