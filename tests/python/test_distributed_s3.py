"""s3:// through the command lines: `python3 -m kpz.distributed` (a
scheduler and a worker started with Debian's commands) and `python3 -m kpz`
(one process), against a real S3 API server (s3rver, s3_support.py) with
the variables a user sets: every preview written, byte-identical to
`kpz preview` on the same files; -o s3:// fills the bucket; --skip-existing
takes the listed outputs; no credentials: one line, exit 1, before any
work."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

from distributed_support import DaskCluster, python_env
from s3_support import FaultProxy, S3rver, get_object, objects, upload


@pytest.fixture(scope="module")
def store(tmp_path_factory, fixtures):
    """s3rver with bucket 'photos' (raw/: the fixtures' files, a subfolder
    and a file that is no KPZ file) and bucket 'out'; the environment points
    at it while the module runs."""
    with S3rver(tmp_path_factory.mktemp("s3rver")) as server:
        saved = dict(os.environ)
        os.environ.update(server.env())
        try:
            files = {"raw/f%03d.kpz" % i: Path(p).read_bytes()
                     for i, p in enumerate(fixtures["many"][:10])}
            files["raw/sub/deep.kpz"] = Path(fixtures["many"][0]).read_bytes()
            upload("photos", files)
            upload("out", {})
            server.files = files
            yield server
        finally:
            os.environ.clear()
            os.environ.update(saved)


@pytest.fixture(scope="module")
def cluster(store, tmp_path_factory):
    c = DaskCluster(tmp_path_factory.mktemp("dask"), 1, python_env())
    yield c
    c.close()


def _wanted(store, tool, where: Path) -> dict:
    """{output name: bytes} that `kpz preview` writes for raw/*.kpz (not sub/)."""
    src = where / "src"
    src.mkdir()
    for key, data in store.files.items():
        if key.count("/") == 1:
            (src / Path(key).name).write_bytes(data)
    subprocess.run([tool, "preview", *sorted(str(p) for p in src.iterdir()), "-o",
                    str(where / "want")], check=True, capture_output=True, timeout=120)
    return {p.name: p.read_bytes() for p in (where / "want").iterdir()}


def _run(module: str, args, env=None, timeout=180):
    return subprocess.run([sys.executable, "-m", module, *args], capture_output=True, text=True,
                          timeout=timeout, env=env or python_env())


@pytest.mark.parametrize("module", ["kpz.distributed", "kpz"])
def test_previews_of_a_bucket_byte_identical_to_kpz_preview(module, store, cluster, tool,
                                                            tmp_path):
    want = _wanted(store, tool, tmp_path)
    extra = ["--scheduler", cluster.address] if module == "kpz.distributed" else []
    got = _run(module, ["preview", "s3://photos/raw/", "-o", str(tmp_path / "out"), *extra])
    assert got.returncode == 0, got.stderr
    assert {p.name: p.read_bytes() for p in (tmp_path / "out").iterdir()} == want
    assert got.stdout.splitlines() == ["wrote %s (%d bytes)" % (tmp_path / "out" / n, len(want[n]))
                                       for n in sorted(want)]
    assert got.stderr == "kpz: 10 files: 10 done, 0 failed\n"  # kpz's summary


@pytest.mark.parametrize("module", ["kpz.distributed", "kpz"])
def test_output_to_a_bucket_and_skip_existing_from_its_listing(module, store, cluster, tool,
                                                               tmp_path):
    want = _wanted(store, tool, tmp_path)
    extra = ["--scheduler", cluster.address] if module == "kpz.distributed" else []
    prefix = "previews-%s/" % module.replace(".", "-")
    target = "s3://out/" + prefix
    got = _run(module, ["preview", "s3://photos/raw/*.kpz", "-o", target, *extra])
    assert got.returncode == 0, got.stderr
    assert len(got.stdout.splitlines()) == 10
    listed = objects("out", prefix)
    assert listed == {prefix + n: len(d) for n, d in want.items()}
    for name, data in want.items():  # read back from the store: byte-identical
        assert get_object("out", prefix + name) == data
    again = _run(module, ["preview", "s3://photos/raw/", "-o", target, "--skip-existing",
                          *extra])
    assert again.returncode == 0, again.stderr
    assert again.stdout == ""
    assert "already present, not written again (--skip-existing)" in again.stderr


def test_no_credentials_one_line_exit_1_before_any_work(store, tmp_path):
    env = python_env()
    for name in ("AWS_ACCESS_KEY_ID", "AWS_SECRET_ACCESS_KEY"):
        env.pop(name, None)
    for module, extra in (("kpz.distributed", ["--scheduler", "tcp://127.0.0.1:9"]),
                          ("kpz", [])):
        got = _run(module, ["preview", "s3://photos/raw/", "-o", str(tmp_path / "out"), *extra],
                   env=env, timeout=60)
        assert got.returncode == 1
        assert got.stdout == ""
        assert got.stderr.splitlines() == [
            "kpz: no credentials for s3:// (looked for them in the environment: "
            "AWS_ACCESS_KEY_ID and AWS_SECRET_ACCESS_KEY; in the profile 'default' of "
            "~/.aws/credentials and ~/.aws/config; and for a container's or instance's role); "
            "for a public bucket give --no-sign-request"]


def test_store_errors_in_its_words_on_the_command_line(store, tmp_path):
    got = _run("kpz", ["preview", "s3://photos/raw/none.kpz", "s3://nobucket/raw/",
                       "-o", str(tmp_path / "out")])
    assert got.returncode == 1
    lines = got.stderr.splitlines()
    assert lines[0] == ("kpz: s3://photos/raw/none.kpz: NoSuchKey (HTTP 404): The specified key "
                        "does not exist.")
    assert lines[1] == ("kpz: s3://nobucket/raw/: cannot read the directory: NoSuchBucket "
                        "(HTTP 404): The specified bucket does not exist")


def _doc_commands(doc: Path):
    """The commands of the doc's sh blocks about s3:// (comments dropped)
    and the variables its export lines set."""
    import re

    commands, exported = [], set()
    for block in re.findall(r"```sh\n(.*?)```", doc.read_text(encoding="utf-8"), re.S):
        if "s3://photos" not in block:
            continue
        for line in block.splitlines():
            line = line.split(" # ")[0].strip()
            if line.startswith("export "):
                exported |= {a.split("=", 1)[0] for a in line.split()[1:]}
            elif line:
                commands.append(line)
    return commands, exported


@pytest.mark.parametrize("doc", ["PYTHON.md", "DISTRIBUTED.md"])
def test_the_s3_snippets_of_the_docs_run_as_written(doc, store, tmp_path):
    """Each command as written, with the doc's variables set to this store
    (its port is the one s3rver reported)."""
    import shlex

    commands, exported = _doc_commands(Path(os.environ["KPZ_SOURCE_DIR"]) / "docs" / doc)
    assert commands and exported == {"AWS_ACCESS_KEY_ID", "AWS_SECRET_ACCESS_KEY",
                                     "AWS_ENDPOINT_URL"}
    for command in commands:
        args = shlex.split(command)
        assert args[0] == "python3", command
        got = subprocess.run([sys.executable, *args[1:]], cwd=tmp_path, capture_output=True,
                             text=True, timeout=180, env=python_env())
        assert got.returncode == 0, (command, got.stderr)
    if doc == "PYTHON.md":
        assert sorted(p.name for p in (tmp_path / "previews").iterdir()) == [
            "f%03d.preview.jpg" % i for i in range(10)]
    assert {k for k in objects("photos", "previews/")} >= {
        "previews/f%03d.preview.jpg" % i for i in range(10)}


def test_python_m_kpz_on_local_files_as_kpz_says_it(fixtures, tool, tmp_path):
    """Lines, summary, names and exit status of kpz preview with several
    files, a damaged one among them."""
    src = tmp_path / "src"
    src.mkdir()
    for i, p in enumerate(fixtures["many"][:5]):
        (src / ("f%d.kpz" % i)).write_bytes(Path(p).read_bytes())
    (src / "bad.kpz").write_bytes(b"II*\0 not a raw file at all")
    want = subprocess.run([tool, "preview", str(src), "-o", str(tmp_path / "a")],
                          capture_output=True, text=True, timeout=60)
    got = _run("kpz", ["preview", str(src), "-o", str(tmp_path / "b")])
    assert (got.returncode, got.stderr.replace(str(tmp_path / "b"), "OUT")) == \
        (want.returncode, want.stderr.replace(str(tmp_path / "a"), "OUT"))
    assert got.stdout.replace(str(tmp_path / "b"), "OUT") == \
        want.stdout.replace(str(tmp_path / "a"), "OUT")
    assert want.returncode == 1 and "bad.kpz" in want.stderr
    for p in (tmp_path / "a").iterdir():
        assert (tmp_path / "b" / p.name).read_bytes() == p.read_bytes()


@pytest.mark.parametrize("module", ["kpz.distributed", "kpz"])
def test_faults_of_the_store_every_good_output_once_every_bad_one_in_words(
        module, store, cluster, tool, tmp_path):
    """Through the fault proxy (--endpoint-url): SlowDown for every 4th read
    and every 3rd write, one read cut mid-body, one stalled, one object
    AccessDenied; outputs to the bucket."""
    want = _wanted(store, tool, tmp_path)
    prefix = "faults-%s/" % module.replace(".", "-")
    with FaultProxy(store.endpoint, slowdown_every=4, put_slowdown_every=3,
                    reset={"photos/raw/f001.kpz"}, stall={"photos/raw/f002.kpz"},
                    error={"photos/raw/f003.kpz": (403, "AccessDenied", "Access Denied")}) as proxy:
        extra = ["--scheduler", cluster.address] if module == "kpz.distributed" else []
        got = _run(module, ["preview", "s3://photos/raw/", "-o", "s3://out/" + prefix,
                            "--endpoint-url", proxy.endpoint, "--read-timeout", "5",
                            "--tries", "10", *extra])
        assert proxy.slowdowns >= 4 and proxy.resets == 1 and proxy.stalls == 1
    assert got.returncode == 1, got.stderr
    assert got.stderr.splitlines()[0] == ("kpz: s3://photos/raw/f003.kpz: AccessDenied "
                                          "(HTTP 403): Access Denied")
    listed = objects("out", prefix)
    good = {n: d for n, d in want.items() if n != "f003.preview.jpg"}
    assert listed == {prefix + n: len(d) for n, d in good.items()}
    for name, data in good.items():
        assert get_object("out", prefix + name) == data
    assert len(got.stdout.splitlines()) == len(good)
