"""A client whose workers cannot work says so in one line, exit status 1,
within a bound: workers that cannot import kpz (Debian's `dask worker`
without the package on its path), a scheduler without workers, and
LocalCluster workers that die as they start."""

import os
import subprocess
import sys

import pytest

from distributed_support import DaskCluster, python_env, run_cli


def _without_kpz() -> dict:
    """The environment of a process that cannot import kpz: the build's
    package dropped from PYTHONPATH."""
    import kpz

    home = os.path.dirname(os.path.dirname(os.path.realpath(kpz.__file__)))
    env = python_env()
    env["PYTHONPATH"] = os.pathsep.join(p for p in env["PYTHONPATH"].split(os.pathsep)
                                        if p and os.path.realpath(p) != home)
    return env


def test_workers_that_cannot_import_kpz_told_in_one_line(fixtures, tmp_path):
    env = _without_kpz()
    probe = subprocess.run([sys.executable, "-c", "import kpz"], env=env, capture_output=True,
                           timeout=60)
    if probe.returncode == 0:
        pytest.skip("kpz is installed for this interpreter: every worker can import it")
    cluster = DaskCluster(tmp_path / "dask", 1, env)
    try:
        got = run_cli(["preview", fixtures["many"][0], "-o", str(tmp_path / "out"),
                       "--scheduler", cluster.address], timeout=90)
    finally:
        cluster.close()
    assert (got.returncode, got.stdout) == (1, "")
    assert got.stderr.startswith(
        f"kpz: {cluster.address}: 1 of 1 workers cannot import the kpz package "
        "(ModuleNotFoundError: No module named 'kpz', on tcp://127.0.0.1:"), got.stderr
    assert got.stderr.endswith("): install it where the workers run, for their Python "
                               "(see docs/DISTRIBUTED.md)\n")
    assert got.stderr.count("\n") == 1
    assert not (tmp_path / "out").exists() or not any((tmp_path / "out").iterdir())


def test_a_scheduler_without_workers_told_in_one_line(fixtures, tmp_path):
    cluster = DaskCluster(tmp_path / "dask", 0, python_env())
    try:
        got = run_cli(["preview", fixtures["many"][0], "-o", str(tmp_path / "out"),
                       "--scheduler", cluster.address, "--start-timeout", "2"], timeout=90)
    finally:
        cluster.close()
    assert (got.returncode, got.stdout, got.stderr) == (
        1, "", f"kpz: {cluster.address}: no worker joined the scheduler within 2 s\n")


def test_local_workers_that_die_as_they_start_told_in_one_line(fixtures, tmp_path):
    # Every worker process fails as it starts: Dask preloads a module that
    # does not exist (its nanny would start it again without end).
    env = python_env()
    env["DASK_DISTRIBUTED__WORKER__PRELOAD"] = '["kpz_test_no_such_module"]'
    got = subprocess.run([sys.executable, "-m", "kpz.distributed", "preview",
                          fixtures["many"][0], "-o", str(tmp_path / "out"), "--workers", "1",
                          "--start-timeout", "5"], capture_output=True, text=True, timeout=90,
                         env=env, start_new_session=True)
    assert (got.returncode, got.stdout) == (1, "")
    ours = [line for line in got.stderr.splitlines() if line.startswith("kpz:")]
    assert ours == ["kpz: the local cluster: its workers did not start within 5 s"]
    assert "No module named 'kpz_test_no_such_module'" in got.stderr  # Dask's own log says why


def test_a_file_that_kills_its_workers_fails_alone(fixtures, tool, tmp_path):
    # A LocalCluster whose workers (restarted by their nannies) die when a
    # task reaches the file named "killer": its batch dies as often as Dask
    # allows (1 here), then every file is tried alone. The run goes on: the
    # others written and reported once each, the killer failed in words.
    inputs = tmp_path / "in"
    inputs.mkdir()
    many = fixtures["many"]
    names = [f"f{i:02d}.kpz" for i in range(12)]
    names.insert(5, "killer.kpz")
    for n, name in enumerate(names):
        os.symlink(many[n % len(many)], inputs / name)
    env = python_env()
    env["DASK_DISTRIBUTED__WORKER__PRELOAD"] = \
        '["%s"]' % os.path.join(os.path.dirname(__file__), "killer_preload.py")
    env["DASK_DISTRIBUTED__SCHEDULER__ALLOWED_FAILURES"] = "1"
    out = tmp_path / "out"
    got = subprocess.run([sys.executable, "-m", "kpz.distributed", "preview", str(inputs), "-o",
                          str(out), "--workers", "1", "--batch-size", "20"],
                         capture_output=True, text=True, timeout=240, env=env,
                         start_new_session=True)
    assert got.returncode == 1, got.stderr
    wrote = sorted(line.split()[1] for line in got.stdout.splitlines())
    assert wrote == sorted(str(out / n.replace(".kpz", ".preview.jpg"))
                           for n in names if n != "killer.kpz")
    ours = [line for line in got.stderr.splitlines() if line.startswith("kpz:")]
    assert ours == [
        f"kpz: {inputs / 'killer.kpz'}: the workers reading it died, as often as Dask allows "
        "(distributed.scheduler.allowed-failures); not written",
        f"kpz: {len(names)} files: {len(names) - 1} done, 1 failed",
        "kpz:   1 the workers reading it died, as often as Dask allows "
        "(distributed.scheduler.allowed-failures); not written"]
    assert not (out / "killer.preview.jpg").exists()
