"""Inputs that are not what they seem, through the Python API: named pipes
(also one renamed over the path), devices, a change whose far place lies past
the whole modification time, cut files and errno codes.

Every call that could wait forever runs in a child interpreter with a
deadline (subprocess timeout), so a hang fails the test instead of the run.
"""

from __future__ import annotations

import errno
import os
import shutil
import subprocess
import sys
import textwrap
from pathlib import Path

import pytest

import kpz
import kpz._kpz

NOT_REGULAR = "not a regular file (a device, named pipe or socket), not read"
# The interpreter running these tests: the one that imports this kpz (a
# venv's, for an installed wheel).
PYTHON = sys.executable


def _bounded(code: str, *args: str, timeout: float = 20.0) -> subprocess.CompletedProcess:
    """Runs `code` in a fresh interpreter (the same kpz on its path), killed
    after `timeout` seconds (TimeoutExpired fails the test)."""
    return subprocess.run(
        [PYTHON, "-c", textwrap.dedent(code), *args],
        capture_output=True,
        text=True,
        timeout=timeout,
        env=dict(os.environ),
    )


@pytest.fixture()
def fifo(tmp_path: Path):
    path = tmp_path / "p.kpz"
    os.mkfifo(path)
    yield path
    # A call that hung in open() on the pipe (the failure tested) is let go.
    try:
        fd = os.open(path, os.O_WRONLY | os.O_NONBLOCK)
        os.close(fd)
    except OSError:
        pass


PROBE = """
    import sys, kpz, kpz._kpz
    try:
        getattr(kpz._kpz, sys.argv[1])(sys.argv[2], *map(int, sys.argv[3:]))
        print("no error")
    except (kpz.KpzError, kpz.NotRegularFileError) as e:
        print(type(e).__name__, e.code, e.words, sep="|")
"""


@pytest.mark.parametrize("call", [("info_json",), ("set_orientation", "1")])
def test_fifo_is_refused_in_words_without_waiting(fifo, call):
    r = _bounded(PROBE, call[0], str(fifo), *call[1:])
    assert r.returncode == 0, r.stderr
    # ESPIPE: a pipe cannot be read at an offset (the same errno from every call)
    assert r.stdout.strip() == f"NotRegularFileError|{errno.ESPIPE}|{NOT_REGULAR}"


def test_device_is_not_read(tmp_path):
    with pytest.raises(kpz.NotRegularFileError) as e:
        kpz.info("/dev/zero")
    assert e.value.words == NOT_REGULAR
    assert e.value.code is None


def test_file_not_found_has_its_code(tmp_path):
    gone = tmp_path / "gone.kpz"
    for call in (lambda: kpz.info(gone), lambda: kpz._kpz.set_orientation(str(gone), 1),
                 lambda: kpz.open(gone)):
        with pytest.raises(FileNotFoundError) as e:
            call()
        assert e.value.errno == 2
        assert e.value.code == 2
        assert e.value.words == "file not found"
        assert e.value.filename == str(gone)


def test_set_orientation_keeps_the_whole_modification_time(sample, tmp_path):
    path = tmp_path / "t.kpz"
    shutil.copyfile(sample, path)
    mtime = 1609988645 * 10**9 + 987654321  # 03:04:05.987654321 UTC
    os.utime(path, ns=(1610000000 * 10**9, mtime))
    raw = kpz.open(path)
    assert raw.set_orientation(1) is True
    assert os.stat(path).st_mtime_ns == mtime
    assert raw.orientation == 1 == kpz.info(path)["rotation"]["code"]


@pytest.mark.parametrize("cut", [8, 96, 200, 308, 328, 500])
def test_cut_files_never_give_zeros_and_name_the_end(sample, tmp_path, cut):
    data = sample.read_bytes()
    path = tmp_path / "cut.kpz"
    path.write_bytes(data[:cut])
    try:
        record = kpz.info(path)
    except kpz.NotKpzError as e:
        assert "past the end of the file" in e.words, e.words
        return
    for key in ("exposureTime", "fNumber", "focalLength", "exposureBias"):
        v = record[key]
        if v["result"] == 0:
            assert v["denominator"] != 0 and v["numerator"] != 0, (key, v)
        else:
            assert v["result"] == -100
    assert any(v.get("pastEnd") for v in record.values() if isinstance(v, dict))
