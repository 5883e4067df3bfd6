"""python3 -m kpz when its standard output cannot be written: the outputs
are still written, the end says so once in kpz's words with kpz's status for
a failed output, and no traceback."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

from kpz._kpz import kit


def _inputs(fixtures, tmp_path, n=5):
    many = fixtures["many"]
    src = tmp_path / "in"
    src.mkdir()
    for i in range(n):
        (src / ("f%d.kpz" % i)).write_bytes(Path(many[i % len(many)]).read_bytes())
    return sorted(str(p) for p in src.iterdir())


@pytest.mark.skipif(not os.path.exists("/dev/full"), reason="needs /dev/full")
def test_a_full_standard_output_is_told_once_and_the_outputs_are_written(fixtures, tmp_path):
    files = _inputs(fixtures, tmp_path)
    out = tmp_path / "out"
    with open("/dev/full", "w") as full:
        done = subprocess.run([sys.executable, "-m", "kpz", "preview", "-o", str(out), *files],
                              stdout=full, stderr=subprocess.PIPE, text=True, timeout=120,
                              env=dict(os.environ))
    assert "Traceback" not in done.stderr, done.stderr
    assert done.stderr.count("kpz: cannot write to standard output: No space left on device\n") == 1
    assert done.returncode == int(kit.ExitStatus.OUTPUT), done.stderr
    assert len(list(out.iterdir())) == len(files)


def test_a_reader_that_stops_reading_ends_no_run_in_a_traceback(fixtures, tmp_path):
    files = _inputs(fixtures, tmp_path, n=40)
    out = tmp_path / "out"
    run = subprocess.Popen([sys.executable, "-m", "kpz", "preview", "-o", str(out), *files],
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                           env=dict(os.environ))
    run.stdout.close()  # the reader is gone before the first line
    err = run.stderr.read()
    assert run.wait(timeout=120) == int(kit.ExitStatus.OUTPUT), err
    assert "Traceback" not in err, err
    assert "kpz: cannot write to standard output: Broken pipe\n" in err
    assert len(list(out.iterdir())) == len(files)
