"""kpz.distributed reading over HTTP from nginx (Debian's nginx-light),
started by the test on 127.0.0.1 with its own prefix and configuration in a
temporary directory. Every file must cost no more than its head (64 KiB),
its preview and a few KiB of nginx's access log's $body_bytes_sent, and give
the same bytes and words as `kpz preview` on the same file read locally."""

import shutil
import subprocess

import pytest

import kpz
import kpz.distributed
from distributed_support import Nginx, run_cli

SLACK = 4096
BAD = ["not_tiff", "no_preview", "preview_past_end", "truncated"]

pytestmark = pytest.mark.skipif(shutil.which("nginx") is None,
                                reason="nginx not installed (Debian: nginx-light)")


@pytest.fixture
def served(fixtures, tmp_path):
    docroot = tmp_path / "www"
    docroot.mkdir()
    names = [p for p in fixtures["many"]] + [fixtures["byname"][n]["path"] for n in BAD] + \
        [fixtures["byname"]["large"]["path"]]
    for p in names:
        shutil.copy(p, docroot)
    server = Nginx(tmp_path / "nginx", docroot)
    yield server, docroot
    server.close()


def test_http_two_range_reads_same_bytes_as_kpz(served, tool, tmp_path):
    server, docroot = served
    out = tmp_path / "out"
    results = []
    summary = kpz.distributed.extract([server.url + "/*.kpz"], str(out), workers=2,
                                      on_result=results.append)
    ref = tmp_path / "ref"
    want = subprocess.run([tool, "preview", str(docroot), "-o", str(ref)], capture_output=True,
                          text=True, timeout=120)
    files = sorted(docroot.iterdir())
    assert summary.files == len(files)
    assert summary.failed == len(BAD)
    assert summary.exit_status == want.returncode == 1

    # The same outputs, byte for byte, and the same words for the bad files.
    assert sorted(p.name for p in out.iterdir()) == sorted(p.name for p in ref.iterdir())
    for p in ref.iterdir():
        assert (out / p.name).read_bytes() == p.read_bytes(), p.name
    for r in results:
        name = r.source.rsplit("/", 1)[-1]
        local = str(docroot / name)
        if r.status:
            assert f"kpz: {local}: {r.reason}\n" in want.stderr, r.err
            assert r.err == f"kpz: {r.source}: {r.reason}\n"

    # What nginx sent for each file: at most the head, the preview and a little.
    sent = server.bytes_per_uri()
    for p in files:
        total, requests = sent["/" + p.name]
        try:
            with kpz.open(str(p)) as f:
                preview = f.screennail_size or 0
        except kpz.KpzError:
            preview = 0
        assert total <= 65536 + preview + SLACK, (p.name, total, preview)
        assert requests <= 2, (p.name, requests)  # the head, the picture; no HEAD
    assert {line.split()[0] for line in server.access_log.read_text().splitlines()} == {"GET"}
    # A file larger than its head and preview was not read whole.
    large = docroot / "large.kpz"
    assert sent["/large.kpz"][0] < large.stat().st_size


def test_http_explicit_urls_to_http_bad_url(served, tmp_path):
    server, docroot = served
    name = sorted(p.name for p in docroot.iterdir() if p.name.startswith("many"))[0]
    out = tmp_path / "out"
    summary = kpz.distributed.extract([f"{server.url}/{name}", f"{server.url}/absent.kpz"],
                                      str(out), workers=1)
    assert (summary.files, summary.done, summary.failed) == (2, 1, 1)
    assert summary.exit_status == 1
    assert "kpz:   1 HTTP 404 Not Found\n" in summary.render()
    assert (out / name.replace(".kpz", ".preview.jpg")).read_bytes() == \
        kpz.screennail(str(docroot / name))


def test_http_glob_that_matches_nothing_fails_in_words(served, tmp_path):
    server, _ = served
    got = run_cli(["preview", server.url + "/none*.kpz", server.url + "/none/", "-o",
                   str(tmp_path / "out"), "--workers", "1"], timeout=120)
    assert (got.returncode, got.stdout) == (1, "")
    assert got.stderr == (f"kpz: {server.url}/none*.kpz: the glob matches no file\n"
                          f"kpz: {server.url}/none/: cannot read the directory: not found\n"
                          "kpz: 2 files: 0 done, 2 failed\n"
                          "kpz:   1 cannot read the directory: not found\n"
                          "kpz:   1 the glob matches no file\n")


def test_http_output_that_cannot_be_written_says_why(served, tmp_path):
    server, docroot = served
    name = sorted(p.name for p in docroot.iterdir() if p.name.startswith("many"))[0]
    got = run_cli(["preview", str(docroot / name), "-o", server.url + "/put/", "--workers", "1"],
                  timeout=120)
    shown = server.url + "/put/" + name.replace(".kpz", ".preview.jpg")
    assert (got.returncode, got.stdout) == (3, "")
    assert got.stderr == f"kpz: {shown}: cannot write the file: HTTP 405 Not Allowed\n"
