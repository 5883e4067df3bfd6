"""kpz.distributed's LocalCluster (no --scheduler): every server it starts
listens on 127.0.0.1 only, and a script that calls extract() at its top
level, without `if __name__ == "__main__":`, is refused in words instead of
starting clusters in its own workers without end."""

import json
import os
import signal
import subprocess
import sys
import textwrap

import pytest

import kpz.distributed
from distributed_support import listening_sockets, python_env


def test_every_listening_socket_of_the_local_cluster_is_on_loopback(fixtures, tmp_path):
    seen = []

    def during_the_run(result):
        # Called on the client while the cluster runs: this process holds the
        # client, the scheduler and the nannies, its children the workers.
        if not seen:
            seen.extend(listening_sockets(os.getpid()))

    files = fixtures["many"][:4]
    summary = kpz.distributed.extract(files, str(tmp_path / "out"), workers=2,
                                      on_result=during_the_run)
    assert summary.done == len(files)
    pids = {pid for pid, _, _ in seen}
    assert os.getpid() in pids and len(pids) >= 3, seen  # the workers' processes too
    assert {address for _, address, _ in seen} == {"127.0.0.1"}, seen


def _run_script(path, tmp_path, seconds=90, env=None):
    """Runs a script in a session of its own, killed whole (by its process
    group's id, which is its pid) when it outlives `seconds`."""
    proc = subprocess.Popen([sys.executable, str(path)], cwd=tmp_path,
                            env=env if env is not None else python_env(),
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                            start_new_session=True)
    try:
        out, err = proc.communicate(timeout=seconds)
    except subprocess.TimeoutExpired:
        os.killpg(proc.pid, signal.SIGKILL)
        out, err = proc.communicate(timeout=30)
        raise AssertionError(f"the script ran for more than {seconds} s:\n{err[-3000:]}")
    finally:
        try:
            os.killpg(proc.pid, signal.SIGKILL)  # nothing of it may outlive the test
        except ProcessLookupError:
            pass
    return proc.returncode, out, err


def test_a_script_without_the_main_guard_is_refused_in_words(fixtures, tmp_path):
    script = tmp_path / "unguarded.py"
    script.write_text(textwrap.dedent(f"""\
        import kpz.distributed
        summary = kpz.distributed.extract([{str(fixtures["many"][0])!r}], "out", workers=1)
        print("done", summary.done)
        """))
    status, out, err = _run_script(script, tmp_path)
    assert status == 1, err
    assert out == ""
    assert (f"RuntimeError: kpz.distributed: {script}, line 2: extract() starts a local "
            "cluster, whose worker processes run the main module again, from the top level "
            "of the script: put the calls under 'if __name__ == \"__main__\":'") in err
    assert "Restarting worker" not in err and "Failed to start" not in err, err
    assert not (tmp_path / "out").exists() or not any((tmp_path / "out").iterdir())


@pytest.mark.parametrize("guard", ['__name__ == "__main__"',
                                   '"__main__" == __name__ and len(sys.argv) > 0'])
def test_a_script_with_the_main_guard_runs(fixtures, tmp_path, guard):
    script = tmp_path / "guarded.py"
    script.write_text(textwrap.dedent(f"""\
        import sys
        import kpz.distributed

        def main():
            summary = kpz.distributed.extract([{str(fixtures["many"][0])!r}], "out", workers=1)
            print("done", summary.done)

        if {guard}:
            main()
        """))
    status, out, err = _run_script(script, tmp_path)
    assert (status, out) == (0, "done 1\n"), err


def test_the_workers_run_with_kpz_s_malloc_thresholds(fixtures, tmp_path):
    # Dask's nanny would start them with MALLOC_TRIM_THRESHOLD_=65536, which
    # maps and unmaps every buffer of a picture's size; the worker
    # processes' own environment (/proc/PID/environ), read during the run,
    # holds kpz's thresholds instead. A fresh process: a nanny of this test
    # session may have put Dask's value into this process's environment,
    # which Dask gives to the workers it starts afterwards.
    script = tmp_path / "environ.py"
    script.write_text(textwrap.dedent(f"""\
        import json, os
        import kpz.distributed

        seen = []

        def workers_environ():
            me = str(os.getpid())
            for pid in filter(str.isdigit, os.listdir("/proc")):
                try:
                    with open("/proc/%s/stat" % pid) as f:
                        parent = f.read().rsplit(")", 1)[1].split()[1]
                    with open("/proc/%s/cmdline" % pid, "rb") as f:
                        command = f.read()
                    with open("/proc/%s/environ" % pid, "rb") as f:
                        environ = f.read().decode("utf-8", "replace").split("\\0")
                except OSError:
                    continue  # a process that ended meanwhile
                if parent == me and b"spawn_main" in command:
                    pairs = dict(e.split("=", 1) for e in environ if "=" in e)
                    yield {{k: v for k, v in pairs.items() if k.startswith("MALLOC_")}}

        def during_the_run(result):
            if not seen:
                seen.extend(workers_environ())

        if __name__ == "__main__":
            summary = kpz.distributed.extract({[str(f) for f in fixtures["many"][:2]]!r}, "out",
                                              workers=1, on_result=during_the_run)
            print(json.dumps({{"done": summary.done, "seen": seen}}))
        """))
    env = {k: v for k, v in python_env().items() if not k.startswith("MALLOC_")}
    status, out, err = _run_script(script, tmp_path, env=env)
    assert status == 0, err
    got = json.loads(out)
    assert got["done"] == 2
    assert got["seen"] == [{"MALLOC_MMAP_THRESHOLD_": str(16 * 1024 * 1024),
                            "MALLOC_TRIM_THRESHOLD_": str(32 * 1024 * 1024)}], got
