"""Helpers of kpz serve's tests: the fixture files, and a server started on
127.0.0.1 port 0, its port read from its first line, stopped by its pid."""
import json
import os
import select
import signal
import socket
import subprocess
import tempfile
import time

KPZ = os.environ.get("KPZ_TOOL", "kpz")
FIXTURES = os.environ.get("KPZ_SERVE_FIXTURES", "kpz_serve_fixtures")


def make_fixtures(base):
    """Writes the fixture tree under `base`; returns the manifest."""
    subprocess.run([FIXTURES, str(base)], check=True, timeout=120)
    with open(os.path.join(str(base), "manifest.json"), encoding="utf-8") as f:
        return json.load(f)


class Server:
    """`kpz serve ROOT --listen 127.0.0.1:0 ARGS...`, up once its first line
    came; stop() sends SIGTERM to its pid and waits (bounded)."""

    def __init__(self, root, *args, env=None, start_timeout=30, unread_stderr=False):
        self.root = root
        # Standard error into a file (a pipe nobody reads would fill), or,
        # with `unread_stderr`, into a pipe that is never read.
        self.stderr = tempfile.TemporaryFile()
        self._pipe = os.pipe() if unread_stderr else None
        self.proc = subprocess.Popen(
            [KPZ, "serve", root, "--listen", "127.0.0.1:0", *args],
            stdout=subprocess.PIPE, stderr=self._pipe[1] if self._pipe else self.stderr, env=env)
        if self._pipe:
            os.close(self._pipe[1])
        ready, _, _ = select.select([self.proc.stdout], [], [], start_timeout)
        if not ready:
            self.kill()
            raise AssertionError("kpz serve printed nothing in %d s" % start_timeout)
        self.first_line = self.proc.stdout.readline().decode()
        prefix = "kpz: serving %s on http://127.0.0.1:" % root
        if not self.first_line.startswith(prefix):
            self.kill()
            self.stderr.seek(0)
            raise AssertionError("unexpected first line: %r (stderr %r)" %
                                 (self.first_line, self.stderr.read()))
        self.port = int(self.first_line[len(prefix):].rstrip("/\n"))
        self.base = "http://127.0.0.1:%d" % self.port

    def stop(self, timeout=20):
        """SIGTERM, then the exit status (killed after `timeout` s)."""
        if self.proc.poll() is None:
            os.kill(self.proc.pid, signal.SIGTERM)
        try:
            return self.proc.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            self.kill()
            raise AssertionError("kpz serve did not stop within %d s of SIGTERM" % timeout)

    def kill(self):
        if self.proc.poll() is None:
            os.kill(self.proc.pid, signal.SIGKILL)
            self.proc.wait(timeout=10)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        if self.proc.poll() is None:
            self.stop()
        self.proc.stdout.close()
        self.stderr.close()
        if self._pipe:
            os.close(self._pipe[0])

    def connect(self, timeout=10):
        s = socket.create_connection(("127.0.0.1", self.port), timeout=timeout)
        return s


def raw_request(server, data, timeout=10):
    """Sends `data` on a new connection; returns what came back until the
    server closed it or `timeout` passed with nothing more."""
    s = server.connect(timeout)
    try:
        s.sendall(data)
        out = b""
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            try:
                chunk = s.recv(65536)
            except socket.timeout:
                break
            except ConnectionResetError:
                break
            if not chunk:
                break
            out += chunk
            if b"\r\n\r\n" in out:
                head, _, body = out.partition(b"\r\n\r\n")
                length = [l for l in head.split(b"\r\n") if l.lower().startswith(b"content-length:")]
                if length and len(body) >= int(length[0].split(b":")[1]):
                    break
        return out
    finally:
        s.close()


def status_of(response):
    return int(response.split(b" ", 2)[1]) if response.startswith(b"HTTP/1.") else None


def tool(*args, cwd=None):
    """Runs the kpz tool; returns (exit status, stdout bytes, stderr text)."""
    p = subprocess.run([KPZ, *args], cwd=cwd, capture_output=True, timeout=60)
    return p.returncode, p.stdout, p.stderr.decode()
