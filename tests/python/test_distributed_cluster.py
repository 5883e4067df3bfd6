"""kpz.distributed on real Dask clusters on 127.0.0.1: a scheduler and two
workers started with Debian's commands, and a LocalCluster. Outputs are
compared byte for byte with the kpz tool's, lines and summary with its own;
a worker is killed with SIGKILL in the middle of a run."""

import os
import re
import shutil
import signal
import socket
import subprocess
import sys
from pathlib import Path

import pytest

import kpz.distributed
from kpz._kpz import kit
from distributed_support import DaskCluster, python_env, run_cli, same_tree

BAD = ["not_tiff", "no_preview", "preview_past_end"]
KILL_AFTER = 100


def make_inputs(fixtures, where: Path) -> Path:
    """The 64 valid files and a few bad ones, in one directory."""
    where.mkdir()
    for p in fixtures["many"]:
        shutil.copy(p, where)
    for name in BAD:
        shutil.copy(fixtures["byname"][name]["path"], where)
    return where


@pytest.fixture(scope="module")
def cluster(tmp_path_factory):
    c = DaskCluster(tmp_path_factory.mktemp("dask"), 2, python_env())
    yield c
    c.close()


def tool_run(tool, kind, inputs, out, *extra):
    return subprocess.run([tool, kind, *extra, str(inputs), "-o", str(out)], capture_output=True,
                          text=True, timeout=120)


def test_two_workers_same_as_kpz(cluster, fixtures, tool, tmp_path):
    inputs = make_inputs(fixtures, tmp_path / "in")
    got = run_cli(["preview", str(inputs), "-o", str(tmp_path / "out"),
                   "--scheduler", cluster.address, "--batch-size", "8"])
    want = tool_run(tool, "preview", inputs, tmp_path / "ref")
    assert got.returncode == want.returncode == 1
    assert got.stdout == want.stdout.replace(str(tmp_path / "ref"), str(tmp_path / "out"))
    assert got.stderr == want.stderr
    assert "kpz: 67 files: 64 done, 3 failed\n" in got.stderr
    same_tree(tmp_path / "out", tmp_path / "ref")


def test_same_output_name_first_input_owns_it(cluster, fixtures, tool, tmp_path):
    many = fixtures["many"]
    dirs = []
    for d, src in (("a", fixtures["byname"]["not_tiff"]["path"]), ("b", many[0]), ("c", many[1])):
        (tmp_path / d).mkdir()
        shutil.copy(src, tmp_path / d / "x.kpz")
        dirs.append(str(tmp_path / d / "x.kpz"))
    got = run_cli(["preview", *dirs, "-o", str(tmp_path / "out"), "--scheduler", cluster.address])
    want = subprocess.run([tool, "preview", *dirs, "-o", str(tmp_path / "ref")],
                          capture_output=True, text=True, timeout=60)
    assert got.returncode == want.returncode == 3
    assert got.stdout == want.stdout.replace(str(tmp_path / "ref"), str(tmp_path / "out"))
    assert got.stderr == want.stderr.replace(str(tmp_path / "ref"), str(tmp_path / "out"))
    same_tree(tmp_path / "out", tmp_path / "ref")


def test_thumbnails_upright_and_skip_existing(cluster, fixtures, tool, tmp_path):
    inputs = make_inputs(fixtures, tmp_path / "in")
    out = tmp_path / "out"
    first = run_cli(["thumbnail", "--upright", str(inputs), "-o", str(out),
                     "--scheduler", cluster.address])
    want = tool_run(tool, "thumbnail", inputs, tmp_path / "ref", "--upright")
    assert first.returncode == want.returncode
    same_tree(out, tmp_path / "ref")

    # A run that stopped half-way: half of the outputs are missing. Of those
    # left, the ones that are whole JPEGs are kept; the test files' own
    # pictures that are not (a few bytes after SOI) are written again.
    names = sorted(p.name for p in out.iterdir())
    removed = names[::2]
    for name in removed:
        (out / name).unlink()
    kept = {name: (out / name).stat().st_mtime_ns for name in names
            if name not in removed and kit.output_is_whole(str(out / name))}
    again_names = sorted(set(names) - set(kept))
    again = run_cli(["thumbnail", "--upright", "--skip-existing", str(inputs), "-o", str(out),
                     "--scheduler", cluster.address])
    written = sorted(os.path.basename(m) for m in
                     re.findall(r"^wrote (\S+) \(\d+ bytes\)$", again.stdout, re.M))
    assert written == again_names
    for name, mtime in kept.items():
        assert (out / name).stat().st_mtime_ns == mtime, name
    rewritten = len(again_names) - len(removed)
    if kept:
        assert f"kpz:   {len(kept)} thumbnails already present, not written again " \
            "(--skip-existing)" in again.stderr
    if rewritten:
        assert f"kpz:   {rewritten} thumbnails written again, as the file present was not a " \
            "whole JPEG (--skip-existing)" in again.stderr
    same_tree(out, tmp_path / "ref")


def test_local_cluster(fixtures, tool, tmp_path):
    inputs = make_inputs(fixtures, tmp_path / "in")
    results = []
    summary = kpz.distributed.extract([str(inputs)], str(tmp_path / "out"), workers=2,
                                      on_result=results.append)
    assert (summary.files, summary.done, summary.failed) == (67, 64, 3)
    assert summary.exit_status == 1
    assert [r.index for r in results] == list(range(67))
    tool_run(tool, "preview", inputs, tmp_path / "ref")
    same_tree(tmp_path / "out", tmp_path / "ref")


def test_worker_killed_mid_run(fixtures, tool, tmp_path):
    # Many inputs (links to the 64 files under distinct names), small
    # batches. One of the two workers (kill_point_preload.py) says when it
    # has written KILL_AFTER outputs and then waits in its task: it is killed
    # there, with a batch written but not reported, the run still going.
    many = [Path(p) for p in fixtures["many"]]
    inputs = tmp_path / "in"
    inputs.mkdir()
    total = 3000
    for i in range(total):
        os.symlink(many[i % len(many)], inputs / f"f{i:05d}.kpz")
    ref = tmp_path / "ref"
    assert tool_run(tool, "preview", fixtures["dir"], ref).returncode == 1  # bad files there too
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    listener.bind(str(tmp_path / "kill.sock"))
    listener.listen(1)
    listener.settimeout(120)
    env = python_env()
    cluster = DaskCluster(tmp_path / "dask", 1, env)
    try:
        victim_env = dict(env, KPZ_TEST_KILL_AFTER=str(KILL_AFTER),
                          KPZ_TEST_KILL_SOCKET=str(tmp_path / "kill.sock"))
        victim = cluster.add_worker(
            "victim", ["--preload", str(Path(__file__).with_name("kill_point_preload.py"))],
            victim_env)
        cluster.wait_for_workers(2, 60)
        out = tmp_path / "out"
        run = subprocess.Popen(
            [sys.executable, "-m", "kpz.distributed",
             "preview", str(inputs), "-o", str(out), "--scheduler", cluster.address,
             "--batch-size", "10"],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=python_env())
        conn, _ = listener.accept()  # bounded by the listener's timeout
        with conn:
            conn.settimeout(30)
            pid, written = (int(n) for n in conn.makefile().readline().split())
        assert pid == victim.pid and KILL_AFTER <= written < total
        assert run.poll() is None  # the victim's batch holds the run open
        os.kill(victim.pid, signal.SIGKILL)
        assert victim.wait(timeout=10) == -signal.SIGKILL
        stdout, stderr = run.communicate(timeout=120)
    finally:
        cluster.close()
        listener.close()
    assert run.returncode == 0, stderr
    assert f"kpz: {total} files: {total} done, 0 failed\n" in stderr
    wrote = re.findall(r"^wrote (\S+) \(\d+ bytes\)$", stdout, re.M)
    assert sorted(wrote) == sorted(str(out / f"f{i:05d}.preview.jpg") for i in range(total))
    # Every output once and whole; a temporary file of the killed worker
    # (".<name>.XXXXXX") may be left behind, never under an output's name.
    names = [n for n in os.listdir(out) if not n.startswith(".")]
    assert len(names) == total
    for i in range(total):
        want = (ref / (many[i % len(many)].stem + ".preview.jpg")).read_bytes()
        assert (out / f"f{i:05d}.preview.jpg").read_bytes() == want


def test_fsspec_output_whole_under_its_name(fixtures, tmp_path):
    # An fsspec target that is not an object store: a temporary name, then
    # the file system's move. fsspec's memory file system lives in one
    # process, so the cluster's workers are threads of this one here.
    import fsspec
    from distributed import Client, LocalCluster

    inputs = make_inputs(fixtures, tmp_path / "in")
    with LocalCluster(n_workers=1, threads_per_worker=2, processes=False,
                      dashboard_address=None, scheduler_kwargs={"dashboard": False}) as lc, \
            Client(lc) as client:
        summary = kpz.distributed.extract([str(inputs)], "memory://kpz-test/out", cluster=client)
    assert (summary.files, summary.done, summary.failed) == (67, 64, 3)
    fs = fsspec.filesystem("memory")
    names = sorted(p.rsplit("/", 1)[-1] for p in fs.ls("/kpz-test/out", detail=False))
    assert names == sorted(Path(p).stem + ".preview.jpg" for p in fixtures["many"])
    for p in fixtures["many"]:
        assert fs.cat_file(f"/kpz-test/out/{Path(p).stem}.preview.jpg") == kpz.screennail(p)
    fs.rm("/kpz-test", recursive=True)


def test_fsspec_output_skip_existing_checks_whole_objects(fixtures, tmp_path):
    # --skip-existing on an fsspec target: an object counts as present when
    # its size and its first 3 and last 2 bytes say it is a whole JPEG.
    import fsspec
    from distributed import Client, LocalCluster

    names = [f"orient{n}_whole" for n in range(1, 5)]
    inputs = tmp_path / "in"
    inputs.mkdir()
    for name in names:
        shutil.copy(fixtures["byname"][name]["path"], inputs / f"{name}.kpz")
    fs = fsspec.filesystem("memory")
    root = "/kpz-skip/out"
    with LocalCluster(n_workers=1, threads_per_worker=1, processes=False,
                      dashboard_address=None, scheduler_kwargs={"dashboard": False}) as lc, \
            Client(lc) as client:
        first = kpz.distributed.extract([str(inputs)], "memory://" + root, cluster=client)
        assert first.done == len(names)
        fs.pipe_file(f"{root}/{names[0]}.preview.jpg", b"")
        fs.pipe_file(f"{root}/{names[1]}.preview.jpg", b"\xff\xd8\xff\xe0 cut short")
        got = []
        again = kpz.distributed.extract([str(inputs)], "memory://" + root, cluster=client,
                                        skip_existing=True, on_result=got.append)
    lines = again.render()
    assert "kpz:   2 previews already present, not written again (--skip-existing)\n" in lines
    assert "kpz:   2 previews written again, as the file present was not a whole JPEG " \
        "(--skip-existing)\n" in lines
    assert sorted(r.index for r in got if r.out) == [0, 1]
    for name in names:
        assert fs.cat_file(f"{root}/{name}.preview.jpg") == \
            kpz.screennail(str(inputs / f"{name}.kpz"))
    fs.rm("/kpz-skip", recursive=True)
