"""Paths that name no regular file: a named pipe (with and without a
writer), a Unix socket, character devices. Every function refuses them
without reading, with a NotRegularFileError (an OSError) in the kit's
words, and returns at once:
each case runs in a child bounded in time, so a hang fails instead of
holding the test run."""

import errno
import json
import os
import socket
import subprocess
import sys
import textwrap

import pytest

NOT_REGULAR = "not a regular file (a device, named pipe or socket), not read"

# Runs every function on sys.argv[1]; prints one JSON line per call:
# [call, exception class, words, code, filename] (class None: it returned).
CHILD = textwrap.dedent("""
    import json, sys, kpz
    from kpz import _kpz
    path = sys.argv[1]
    calls = {
        "screennail": lambda: kpz.screennail(path),
        "thumbnail": lambda: kpz.thumbnail(path, upright=True),
        "info": lambda: kpz.info(path),
        "open": lambda: kpz.open(path),
        "set_orientation": lambda: _kpz.set_orientation(path, 1),
    }
    for name, call in calls.items():
        try:
            call()
            row = [name, None, None, None, None]
        except Exception as e:
            row = [name, type(e).__name__, kpz.error_words(e), getattr(e, "code", None),
                   getattr(e, "filename", None)]
        print(json.dumps(row), flush=True)
    """)


def run_child(path: str) -> list:
    try:
        proc = subprocess.run([sys.executable, "-c", CHILD, path], capture_output=True,
                              text=True, timeout=60, check=False)
    except subprocess.TimeoutExpired as e:
        done = (e.stdout or b"").decode() if isinstance(e.stdout, bytes) else (e.stdout or "")
        pytest.fail(f"kpz hung on {path}; calls finished before: {done!r}")
    assert proc.returncode == 0, proc.stderr
    return [json.loads(line) for line in proc.stdout.splitlines()]


def assert_refused(path: str, code=errno.ESPIPE) -> None:
    """Every call refuses `path` unread with the same words and class; a pipe
    or socket carries ESPIPE (it cannot be read at an offset), a device no
    errno, from every call alike."""
    code_wanted = code
    rows = run_child(path)
    assert [row[0] for row in rows] == ["screennail", "thumbnail", "info", "open",
                                        "set_orientation"]
    for call, cls, words, code, filename in rows:
        assert cls is not None, f"{call} returned for {path}"
        assert words == NOT_REGULAR, (call, cls, words)
        assert cls == "NotRegularFileError", (call, cls)
        assert code == code_wanted, (call, code)
        assert filename == path, (call, filename)


def test_a_named_pipe_without_a_writer_is_refused_at_once(tmp_path):
    fifo = str(tmp_path / "pipe.kpz")
    os.mkfifo(fifo)
    assert_refused(fifo)


def test_a_named_pipe_with_a_writer_is_refused_without_being_read(tmp_path):
    fifo = str(tmp_path / "pipe.kpz")
    os.mkfifo(fifo)
    # A writer that holds the pipe open with data waiting (and never ends it).
    fd = os.open(fifo, os.O_RDWR | os.O_NONBLOCK)
    try:
        os.write(fd, b"II*\0" + b"\0" * 1000)
        assert_refused(fifo)
        # Nothing was read: the data still waits in the pipe.
        assert os.read(fd, 2000) == b"II*\0" + b"\0" * 1000
    finally:
        os.close(fd)


def test_a_unix_socket_is_refused(tmp_path):
    path = str(tmp_path / "sock.kpz")
    server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    try:
        server.bind(path)
        server.listen(1)
        assert_refused(path)
    finally:
        server.close()


@pytest.mark.parametrize("device", ["/dev/null", "/dev/zero", "/dev/urandom"])
def test_a_character_device_is_refused(device):
    if not os.path.exists(device):
        pytest.skip(f"{device} is not on this machine")
    assert_refused(device, code=None)
