"""python3 -m kpz keeps its pool of reads full across the ends of its
batches: a file that is slow to come holds its own line back (lines are
told in input order), not the reads of the files after it. Checked with a
server of the tests' own (remote_support.FaultyServer), by the requests it
sees, never by time."""

import os
import signal
import subprocess
import sys
import time
from pathlib import Path

from remote_support import FaultyServer

# --max-in-flight 2: batches of 16 files (kpz.__main__.ROUNDS_PER_BATCH 8).
FILES = 40


def _files(fixtures):
    many = fixtures["many"]
    return {"/f%02d.kpz" % i: Path(many[i % len(many)]).read_bytes() for i in range(FILES)}


def _start(urls, out, *flags):
    return subprocess.Popen([sys.executable, "-m", "kpz", "preview", "--max-in-flight", "2",
                             *flags, "-o", str(out), *urls],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                            env=dict(os.environ))


def test_a_stalled_file_does_not_hold_the_reads_of_the_next_batches(fixtures, tmp_path):
    files = _files(fixtures)
    # The first file's head is never answered while the test looks.
    with FaultyServer(files, {"/f00.kpz": ["stall"]}) as server:
        urls = [server.url(p) for p in sorted(files)]
        proc = _start(urls, tmp_path / "out", "--read-timeout", "600", "--file-timeout", "600")
        try:
            others = sorted(files)[1:]
            wanted = {"f%02d.preview.jpg" % i for i in range(1, FILES)}
            deadline = time.monotonic() + 120  # a bound, not a measure: the test waits on counts
            while time.monotonic() < deadline and proc.poll() is None:
                if all(server.requests[p] >= 2 for p in others) and \
                        (tmp_path / "out").is_dir() and \
                        wanted <= {p.name for p in (tmp_path / "out").iterdir()}:
                    break
                time.sleep(0.05)
            seen = {p: server.requests[p] for p in others}
            # Every other file read in full (head and picture) while the
            # first is still in flight, far past the first batch's 16 files.
            assert proc.poll() is None, proc.communicate()
            assert server.requests["/f00.kpz"] == 1 and server.in_flight >= 1
            assert all(n >= 2 for n in seen.values()), seen
            assert server.max_in_flight == 2  # the pool's limit, never more
        finally:
            os.kill(proc.pid, signal.SIGKILL)
            out, _ = proc.communicate(timeout=30)
        # Every other file written while the first still hangs, and no line
        # told past it: lines come in input order.
        assert {p.name for p in (tmp_path / "out").iterdir()} == wanted
        assert out == ""


def test_lines_in_input_order_when_an_early_file_comes_last(fixtures, tmp_path):
    files = _files(fixtures)
    # The first file's head fails twice (retried), so it ends after others.
    with FaultyServer(files, {"/f00.kpz": ["503", "503"]}) as server:
        urls = [server.url(p) for p in sorted(files)]
        proc = _start(urls, tmp_path / "out")
        out, err = proc.communicate(timeout=300)
    assert proc.returncode == 0, err
    wrote = [Path(line.split()[1]).name for line in out.splitlines()]
    assert wrote == ["f%02d.preview.jpg" % i for i in range(FILES)]
    assert server.requests["/f00.kpz"] == 4  # two failures, then head and picture
