"""Real servers for the tests of kpz.distributed, on 127.0.0.1 only: a Dask
scheduler and workers started with Debian's `dask scheduler` / `dask worker`
commands, and nginx with its own prefix, configuration and access log in a
temporary directory. Each is started by the test, bounded in time, and
stopped by its pid."""

import os
import shutil
import signal
import socket
import subprocess
import sys
import time
from pathlib import Path
from typing import List, Optional, Sequence

LOOPBACK = "127.0.0.1"


def candidate_port() -> int:
    """A port that was free a moment ago. Only for a server that cannot be
    given port 0 (nginx): its caller must tell its own server from another
    that took the port meanwhile, and try again on a clash."""
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as s:
        s.bind((LOOPBACK, 0))
        return s.getsockname()[1]


def wait_for_port(port: int, proc: subprocess.Popen, seconds: float, what: str) -> None:
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if proc.poll() is not None:
            raise RuntimeError(f"{what} ended early with status {proc.returncode}")
        try:
            with socket.create_connection((LOOPBACK, port), timeout=0.5):
                return
        except OSError:
            time.sleep(0.1)
    raise RuntimeError(f"{what} did not listen on {LOOPBACK}:{port} within {seconds} s")


def stop(proc: subprocess.Popen, sig: int = signal.SIGTERM, seconds: float = 15) -> None:
    """Stops one process we started, by its pid."""
    if proc.poll() is None:
        os.kill(proc.pid, sig)
        try:
            proc.wait(timeout=seconds)
        except subprocess.TimeoutExpired:
            os.kill(proc.pid, signal.SIGKILL)
            proc.wait(timeout=seconds)


def dask_command(role: str) -> List[str]:
    """Debian's command for a scheduler or worker: `dask scheduler` where the
    dask command has it, else `dask-scheduler` (older releases)."""
    dask = shutil.which("dask")
    if dask:
        probe = subprocess.run([dask, role, "--help"], capture_output=True, timeout=60)
        if probe.returncode == 0:
            return [dask, role]
    return [shutil.which(f"dask-{role}") or f"dask-{role}"]


class DaskCluster:
    """A scheduler and `workers` worker processes (one thread each) on
    127.0.0.1, their local directories in `root`."""

    def __init__(self, root: Path, workers: int, env: dict) -> None:
        self.root = root
        root.mkdir(parents=True, exist_ok=True)
        self.env = env
        self.port = 0        # the scheduler's, once it has one (it binds port 0)
        self.address = ""
        self.scheduler: Optional[subprocess.Popen] = None
        self.workers: List[subprocess.Popen] = []
        self._logs = []
        self._start(workers)

    def _log(self, name: str):
        f = open(self.root / name, "wb")
        self._logs.append(f)
        return f

    def _start(self, workers: int) -> None:
        # Port 0: the system picks a free one, and the scheduler says which
        # in its scheduler file.
        info = self.root / "scheduler.json"
        self.scheduler = subprocess.Popen(
            dask_command("scheduler") + ["--host", LOOPBACK, "--port", "0",
                                         "--scheduler-file", str(info),
                                         "--no-dashboard", "--no-show"],
            stdout=self._log("scheduler.log"), stderr=subprocess.STDOUT, env=self.env,
            cwd=self.root)
        self.address = scheduler_address(info, self.scheduler, 60)
        self.port = int(self.address.rsplit(":", 1)[1])
        wait_for_port(self.port, self.scheduler, 60, "dask scheduler")
        for i in range(workers):
            self.add_worker(f"w{i}")
        if workers:
            self.wait_for_workers(workers, 60)

    def add_worker(self, name: str, extra: Sequence[str] = (),
                   env: Optional[dict] = None) -> subprocess.Popen:
        """Starts one more worker (`extra` arguments, `env` instead of the
        cluster's environment); wait_for_workers() waits for it."""
        local = self.root / f"worker-{name}"
        local.mkdir()
        w = subprocess.Popen(
            dask_command("worker") + [self.address, "--host", LOOPBACK, "--nworkers", "1",
                                      "--nthreads", "1", "--no-dashboard", "--no-nanny",
                                      "--local-directory", str(local), "--name", name,
                                      *extra],
            stdout=self._log(f"worker-{name}.log"), stderr=subprocess.STDOUT,
            env=self.env if env is None else env, cwd=self.root)
        self.workers.append(w)
        return w

    def wait_for_workers(self, n: int, seconds: float) -> None:
        from distributed import Client

        with Client(self.address, timeout=seconds) as c:
            c.wait_for_workers(n, timeout=seconds)

    def close(self) -> None:
        for w in self.workers:
            stop(w)
        if self.scheduler is not None:
            stop(self.scheduler)
        for f in self._logs:
            f.close()


def scheduler_address(info: Path, proc: subprocess.Popen, seconds: float) -> str:
    """The address a scheduler wrote into its scheduler file `info`."""
    import json

    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if proc.poll() is not None:
            raise RuntimeError(f"dask scheduler ended early with status {proc.returncode}")
        try:
            address = json.loads(info.read_text(encoding="utf-8"))["address"]
            if address:
                return address
        except (OSError, ValueError, KeyError):
            pass  # not written yet, or written in part
        time.sleep(0.1)
    raise RuntimeError(f"dask scheduler wrote no address into {info} within {seconds} s")


class Nginx:
    """nginx serving `docroot` on 127.0.0.1 (or on `address`), everything of
    its own under `prefix`; its access log says, per request, the URI, the
    status and $body_bytes_sent, and its clients log the client's address
    and the URI.

    Given a `port`, it binds that one: for an address in a network namespace
    of the test's own (`command` = ["ip", "netns", "exec", NS]), where no
    other server can hold the port; it is ready when its process listens
    there (seen in /proc/<pid>/net/tcp, which shows the namespace's
    sockets)."""

    def __init__(self, prefix: Path, docroot: Path, address: str = LOOPBACK,
                 port: Optional[int] = None, command: Sequence[str] = ()) -> None:
        self.prefix = prefix
        self.address = address
        self.access_log = prefix / "access.log"
        self.clients_log = prefix / "clients.log"
        self.command = list(command)
        for d in ("logs", "body", "proxy", "fastcgi", "uwsgi", "scgi"):
            (prefix / d).mkdir(parents=True, exist_ok=True)
        if port is not None:
            self.port = port
            self.nonce = ""
            self._start_at(prefix, docroot)
            return
        # nginx cannot bind port 0 and say which port it got: it is given a
        # port that was free, answers a nonce of this instance's at
        # /.kpz-nonce (so that another server that took the port meanwhile
        # is never mistaken for it), and is started again on another port
        # when the port was taken.
        self.nonce = os.urandom(8).hex()
        for attempt in range(5):
            self.port = candidate_port()
            if self._start(prefix, docroot):
                return
        raise RuntimeError("nginx could not bind a port on 127.0.0.1 in 5 tries")

    def _launch(self, prefix: Path, docroot: Path) -> None:
        conf = prefix / "nginx.conf"
        nonce = ("        location = /.kpz-nonce { access_log off; "
                 f'return 200 "{self.nonce}"; }}\n' if self.nonce else "")
        conf.write_text(f"""
daemon off;
master_process off;
worker_processes 1;
pid {prefix}/nginx.pid;
error_log {prefix}/error.log warn;
events {{ worker_connections 1024; }}
http {{
    client_body_temp_path {prefix}/body;
    proxy_temp_path {prefix}/proxy;
    fastcgi_temp_path {prefix}/fastcgi;
    uwsgi_temp_path {prefix}/uwsgi;
    scgi_temp_path {prefix}/scgi;
    log_format bytes '$request_method $uri $status $body_bytes_sent';
    log_format clients '$remote_addr $uri';
    access_log {self.access_log} bytes;
    access_log {self.clients_log} clients;
    default_type application/octet-stream;
    sendfile on;
    server {{
        listen {self.address}:{self.port};
        root {docroot};
        autoindex on;
{nonce}    }}
}}
""")
        with open(prefix / "stderr.log", "wb") as err:
            self.proc = subprocess.Popen(self.command + ["nginx", "-p", str(prefix), "-c",
                                                         str(conf)],
                                         stdout=subprocess.DEVNULL, stderr=err)

    def _start_at(self, prefix: Path, docroot: Path) -> None:
        self._launch(prefix, docroot)
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline:
            if self.proc.poll() is not None:
                raise RuntimeError(f"nginx ended early with status {self.proc.returncode}: "
                                   f"{self._errors()[-500:]}")
            if any(a == self.address and p == self.port
                   for _, a, p in listening_sockets(self.proc.pid)):
                return
            time.sleep(0.05)
        stop(self.proc, signal.SIGQUIT)
        raise RuntimeError(f"nginx did not listen on {self.address}:{self.port} within 30 s")

    def _errors(self) -> str:
        return "".join(f.read_text(errors="replace")
                       for f in (self.prefix / "stderr.log", self.prefix / "error.log")
                       if f.exists())

    def _start(self, prefix: Path, docroot: Path) -> bool:
        """True when this nginx serves on self.port; False when the port was taken."""
        self._launch(prefix, docroot)
        import urllib.request

        direct = urllib.request.build_opener(urllib.request.ProxyHandler({}))  # no proxy
        deadline = time.monotonic() + 30
        while time.monotonic() < deadline:
            if self.proc.poll() is not None:
                text = self._errors()
                if "Address already in use" in text:
                    return False
                raise RuntimeError(f"nginx ended early with status {self.proc.returncode}: "
                                   f"{text[-500:]}")
            try:
                with direct.open(f"{self.url}/.kpz-nonce", timeout=2) as r:
                    if r.read().decode() == self.nonce:
                        return True
            except OSError:
                pass  # not listening yet, or another server's answer
            time.sleep(0.1)
        stop(self.proc, signal.SIGQUIT)
        raise RuntimeError(f"nginx did not answer on {LOOPBACK}:{self.port} within 30 s")

    @property
    def url(self) -> str:
        return f"http://{self.address}:{self.port}"

    def bytes_per_uri(self) -> dict:
        """Body bytes sent per URI, summed over the requests, and the number of requests."""
        sent: dict = {}
        with open(self.access_log, encoding="utf-8") as f:
            for line in f:
                method, uri, status, n = line.split()
                total, count = sent.get(uri, (0, 0))
                sent[uri] = (total + int(n), count + 1)
        return sent

    def close(self) -> None:
        stop(self.proc, signal.SIGQUIT)


def python_env() -> dict:
    """The environment of a process that imports the same kpz package as this
    one (the build tree's, or an installed wheel's): the directory holding the
    package first on PYTHONPATH, as a user makes kpz importable on workers
    that Debian's `dask worker` (/usr/bin/python3) runs."""
    import kpz

    env = dict(os.environ)
    home = str(Path(kpz.__file__).resolve().parent.parent)
    env["PYTHONPATH"] = os.pathsep.join([home] + [p for p in env.get("PYTHONPATH", "").split(
        os.pathsep) if p])
    env["PYTHONDONTWRITEBYTECODE"] = "1"
    return env


def run_cli(args: List[str], timeout: float = 120) -> subprocess.CompletedProcess:
    return subprocess.run([sys.executable, "-m", "kpz.distributed", *args], capture_output=True,
                          text=True, timeout=timeout, env=python_env())


def same_tree(a: Path, b: Path) -> None:
    """The two directories hold the same file names with the same bytes."""
    names_a = sorted(p.name for p in a.iterdir())
    names_b = sorted(p.name for p in b.iterdir())
    assert names_a == names_b
    for name in names_a:
        assert (a / name).read_bytes() == (b / name).read_bytes(), name


def _children_of() -> dict:
    """{ppid: [pid, ...]} of every process now running (from /proc/*/stat)."""
    kids: dict = {}
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            with open(f"/proc/{entry}/stat", encoding="utf-8", errors="replace") as f:
                ppid = int(f.read().rsplit(")", 1)[1].split()[1])
        except (OSError, IndexError, ValueError):
            continue  # a process that ended meanwhile
        kids.setdefault(ppid, []).append(int(entry))
    return kids


def process_tree(root: int) -> List[int]:
    """`root` and all its descendants."""
    kids = _children_of()
    out, todo = [], [root]
    while todo:
        pid = todo.pop()
        out.append(pid)
        todo.extend(kids.get(pid, []))
    return out


def _socket_address(field: str, v6: bool):
    hex_ip, hex_port = field.split(":")
    raw = bytes.fromhex(hex_ip)
    # /proc shows each 32-bit word of the address in the host's byte order.
    raw = b"".join(raw[i:i + 4][::-1] for i in range(0, len(raw), 4))
    return socket.inet_ntop(socket.AF_INET6 if v6 else socket.AF_INET, raw), int(hex_port, 16)


def listening_sockets(root: int) -> List[tuple]:
    """(pid, address, port) of every TCP socket in the LISTEN state held by
    `root` or one of its descendants: the sockets of the network namespace
    (/proc/<pid>/net/tcp and tcp6) matched to the processes' descriptors by
    inode."""
    owner = {}
    for pid in process_tree(root):
        try:
            fds = os.listdir(f"/proc/{pid}/fd")
        except OSError:
            continue
        for fd in fds:
            try:
                target = os.readlink(f"/proc/{pid}/fd/{fd}")
            except OSError:
                continue
            if target.startswith("socket:["):
                owner[target[len("socket:["):-1]] = pid
    found = []
    for table, v6 in (("tcp", False), ("tcp6", True)):
        try:
            with open(f"/proc/{root}/net/{table}", encoding="ascii") as f:
                lines = f.read().splitlines()[1:]
        except FileNotFoundError:
            continue  # no IPv6 in this kernel
        for line in lines:
            fields = line.split()
            if fields[3] == "0A" and fields[9] in owner:  # 0A: TCP_LISTEN
                found.append((owner[fields[9]],) + _socket_address(fields[1], v6))
    return found


# Runs a command as a grandchild and prints its peak resident memory (KiB)
# and exit status. A child's ru_maxrss counts the memory of the process that
# forked it (Linux copies the high-water mark through fork and exec), so the
# command is forked from this small launcher, not from the test's process.
_PEAK_LAUNCHER = """
import os, sys
fd = int(sys.argv[1])
pid = os.fork()
if pid == 0:
    os.close(fd)
    os.execvp(sys.argv[2], sys.argv[2:])
_, status, usage = os.wait4(pid, 0)
os.write(fd, b"%d %d" % (usage.ru_maxrss, os.waitstatus_to_exitcode(status)))
"""


def run_measured(cmd: List[str], env: dict, timeout: float = 600,
                 stdout=subprocess.DEVNULL) -> tuple:
    """(exit status, peak resident KiB, standard error) of `cmd`."""
    r, w = os.pipe()
    try:
        proc = subprocess.Popen(["/usr/bin/python3", "-c", _PEAK_LAUNCHER, str(w), *cmd],
                                env=env, stdout=stdout, stderr=subprocess.PIPE, pass_fds=(w,))
        os.close(w)
        w = -1
        try:
            _, err = proc.communicate(timeout=timeout)
        except subprocess.TimeoutExpired:
            proc.kill()
            proc.communicate()
            raise
        got = os.read(r, 64).split()
    finally:
        os.close(r)
        if w >= 0:
            os.close(w)
    assert proc.returncode == 0 and len(got) == 2, (proc.returncode, got, err[-2000:])
    return int(got[1]), int(got[0]), err.decode(errors="replace")
