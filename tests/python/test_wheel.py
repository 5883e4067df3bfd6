"""The package as Python users install it: a wheel built from a copy of the
checkout with Debian's pip (no build isolation, no index), installed into a
fresh venv that sees Debian's packages, imported and tested from outside the
source tree."""

import os
import shutil
import signal
import subprocess
import sys
from pathlib import Path

import pytest

from distributed_support import scheduler_address

SOURCE = Path(os.environ.get("KPZ_SOURCE_DIR", Path(__file__).resolve().parents[2]))
PYTHON = os.environ.get("KPZ_PYTHON", "/usr/bin/python3")


def _clean_env():
    env = dict(os.environ)
    env.pop("PYTHONPATH", None)
    env.pop("PYTHONHOME", None)
    env["PIP_NO_INDEX"] = "1"
    env["PIP_DISABLE_PIP_VERSION_CHECK"] = "1"
    return env


def _run(args, cwd, timeout, extra_env=None):
    env = _clean_env()
    env.update(extra_env or {})
    proc = subprocess.run(args, cwd=cwd, env=env, capture_output=True, text=True,
                          timeout=timeout, check=False)
    assert proc.returncode == 0, f"{args}\n{proc.stdout[-4000:]}\n{proc.stderr[-4000:]}"
    return proc


@pytest.fixture(scope="module")
def venv(tmp_path_factory):
    """The wheel built from a copy of the checkout and installed into a fresh
    venv that sees Debian's packages, as README.md's "Python" section says."""
    tmp_path = tmp_path_factory.mktemp("wheel")
    checkout = tmp_path / "checkout"
    shutil.copytree(SOURCE, checkout,
                    ignore=shutil.ignore_patterns(".git", "build", "build-*", "*.egg-info",
                                                  "__pycache__", ".pytest_cache"))
    wheels = tmp_path / "wheels"
    # Built as several distributions' compilers build by default, with
    # _FORTIFY_SOURCE: the library's fprintf becomes __fprintf_chk, which the
    # module must catch too (the tests run below check that no library line
    # reaches standard error).
    _run([PYTHON, "-m", "pip", "wheel", "--no-build-isolation", "--no-deps", "-w", str(wheels),
          "."], cwd=checkout, timeout=900,
         extra_env={"CXXFLAGS": "-O2 -D_FORTIFY_SOURCE=2", "CFLAGS": "-O2 -D_FORTIFY_SOURCE=2"})
    built = sorted(wheels.glob("kpz-*.whl"))
    assert len(built) == 1, built
    shutil.rmtree(checkout)  # nothing may come from the copy any more

    venv = tmp_path / "venv"
    _run([PYTHON, "-m", "venv", "--system-site-packages", str(venv)], cwd=tmp_path, timeout=300)
    _run([str(venv / "bin" / "pip"), "install", "--no-deps", str(built[0])], cwd=tmp_path,
         timeout=300)
    return venv


def test_wheel_builds_installs_and_passes_the_tests_outside_the_tree(venv, tmp_path):
    vpython = str(venv / "bin" / "python")
    outside = tmp_path / "elsewhere"
    outside.mkdir()
    where = _run([vpython, "-c", "import kpz, sys; print(kpz.__file__); "
                  "print(len(kpz.screennail(sys.argv[1])))",
                  str(SOURCE / "samples" / "sample.kpz")], cwd=outside, timeout=60)
    module_file, size = where.stdout.split()
    assert module_file.startswith(str(venv)), module_file
    assert int(size) > 0
    # One version: the compiled module's is the wheel's metadata's.
    versions = _run([vpython, "-c", "import importlib.metadata, kpz; "
                     "print(kpz.__version__, kpz._kpz.__version__, "
                     "importlib.metadata.version('kpz'))"], cwd=outside, timeout=60)
    package, compiled, metadata = versions.stdout.split()
    assert package == compiled == metadata, versions.stdout

    tests = outside / "tests"
    shutil.copytree(Path(__file__).parent, tests,
                    ignore=shutil.ignore_patterns("test_wheel.py", "*.cpp", "CMakeLists.txt",
                                                  "__pycache__"))
    _run([vpython, "-m", "pytest", "-q", "-p", "no:cacheprovider", str(tests)], cwd=outside,
         timeout=900)

    # Plain pytest, nothing named: what needs the tool or the fixture writer
    # (neither is on PATH nor beside the copied tests) is skipped with words
    # saying which; what needs neither runs and passes.
    bare = {"KPZ_TOOL": "", "KPZ_PY_FIXTURE_WRITER": "", "KPZ_SOURCE_DIR": ""}
    plain = _run([vpython, "-m", "pytest", "-q", "-rs", "-p", "no:cacheprovider",
                  str(tests / "test_docs.py"), str(tests / "test_errors.py"),
                  str(tests / "test_imports.py")], cwd=outside, timeout=300, extra_env=bare)
    assert " passed" in plain.stdout, plain.stdout
    assert "KPZ_PY_FIXTURE_WRITER is not set and none was found" in plain.stdout, plain.stdout


# The distributed commands of README.md, run from the venv as written there
# (HOST 127.0.0.1; the scheduler on a port of its choosing, told to the
# others through --scheduler-file, where README.md uses its default port).
README_COMMANDS = [
    "venv/bin/python -m kpz.distributed preview -r DIR -o OUT",
    "venv/bin/python -m distributed.cli.dask_scheduler --host HOST",
    "venv/bin/python -m distributed.cli.dask_worker tcp://HOST:8786",
    "venv/bin/python -m kpz.distributed preview -r DIR -o OUT --scheduler tcp://HOST:8786",
]


def _stop(proc):
    if proc.poll() is None:
        os.kill(proc.pid, signal.SIGTERM)
        try:
            proc.wait(timeout=30)
        except subprocess.TimeoutExpired:
            os.kill(proc.pid, signal.SIGKILL)
            proc.wait(timeout=30)


def test_the_readme_s_distributed_commands_run_from_the_venv(venv, tmp_path):
    readme = (SOURCE / "README.md").read_text(encoding="utf-8")
    for command in README_COMMANDS:
        assert command in readme, command
    vpython = str(venv / "bin" / "python")
    shoots = tmp_path / "DIR" / "day1"
    shoots.mkdir(parents=True)
    shutil.copy(SOURCE / "samples" / "sample.kpz", shoots / "a.kpz")
    want = (tmp_path / "want.jpg")
    _run([vpython, "-c", "import kpz, sys; open(sys.argv[2], 'wb').write(kpz.screennail("
          "sys.argv[1]))", str(shoots / "a.kpz"), str(want)], cwd=tmp_path, timeout=60)

    # On this machine: a LocalCluster.
    local = _run([vpython, "-m", "kpz.distributed", "preview", "-r", "DIR", "-o", "OUT",
                  "--workers", "1"], cwd=tmp_path, timeout=180)
    assert local.stdout == "wrote OUT/a.preview.jpg (%d bytes)\n" % want.stat().st_size
    assert (tmp_path / "OUT" / "a.preview.jpg").read_bytes() == want.read_bytes()

    # A scheduler and a worker, each started from the venv's interpreter.
    address_file = tmp_path / "scheduler.json"
    env = _clean_env()
    logs = [open(tmp_path / name, "wb") for name in ("scheduler.log", "worker.log")]
    procs = []
    try:
        procs.append(subprocess.Popen(
            [vpython, "-m", "distributed.cli.dask_scheduler", "--host", "127.0.0.1", "--port",
             "0", "--no-dashboard", "--scheduler-file", str(address_file)],
            cwd=tmp_path, env=env, stdout=logs[0], stderr=subprocess.STDOUT))
        procs.append(subprocess.Popen(
            [vpython, "-m", "distributed.cli.dask_worker", "--scheduler-file", str(address_file),
             "--host", "127.0.0.1", "--nthreads", "1", "--no-dashboard",
             "--local-directory", str(tmp_path / "worker")],
            cwd=tmp_path, env=env, stdout=logs[1], stderr=subprocess.STDOUT))
        # The worker waits for the file; the client waits for the worker
        # (--start-timeout), all bounded.
        address = scheduler_address(address_file, procs[0], 120)
        remote = _run([vpython, "-m", "kpz.distributed", "preview", "-r", "DIR", "-o", "OUT2",
                       "--scheduler", address, "--start-timeout", "120"], cwd=tmp_path,
                      timeout=240)
    finally:
        for proc in reversed(procs):
            _stop(proc)
        for f in logs:
            f.close()
    assert remote.stdout == "wrote OUT2/a.preview.jpg (%d bytes)\n" % want.stat().st_size
    assert (tmp_path / "OUT2" / "a.preview.jpg").read_bytes() == want.read_bytes()


if __name__ == "__main__":
    sys.exit(pytest.main([__file__]))
