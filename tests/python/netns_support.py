"""A small network of hosts on this machine for the tests of kpz.distributed:
each host a network namespace of its own (`ip netns add`), joined to the
others by a veth pair whose other end is a port of a bridge that lives in a
namespace of its own too. Nothing is added to the namespace this process
runs in: no link, no address, no route. The hosts' addresses are private
ones (10.213.N.0/24, N chosen so that the subnet is not one this machine
already uses) and exist only inside the namespaces.

      [sched]   [w0]   [w1]   [store]   [client]      one namespace each, eth0
         |        |      |       |         |
      +--v-sched--v-w0---v-w1----v-store---v-client--+
      |                 br0                          |  the bridge's namespace
      +----------------------------------------------+

A host loses the network when its bridge port is set down
(`link_down(host)`): its processes live on, their packets go nowhere.

Processes are started in a host with `ip netns exec`, which execs the
command (its pid is the command's), and are stopped by that pid. The
namespaces are deleted by close(), which also deletes their veths and the
bridge. Names are unique per run ("kpzt-<pid>-<n>-<host>"), so that runs
side by side or a run after a crash never meet another's namespaces.

The hosts share this machine's file system, as the hosts of a cluster share
a network file system: paths name the same files everywhere."""

import ipaddress
import itertools
import os
import signal
import subprocess
from pathlib import Path
from typing import Dict, List, Optional, Sequence

from distributed_support import stop

BRIDGE = "br0"
_networks = itertools.count()


def _ip(*args: str, check: bool = True) -> subprocess.CompletedProcess:
    got = subprocess.run(["ip", *args], capture_output=True, text=True, timeout=30)
    if check and got.returncode != 0:
        raise RuntimeError(f"ip {' '.join(args)}: status {got.returncode}: {got.stderr.strip()}")
    return got


def unavailable() -> Optional[str]:
    """Why network namespaces cannot be made here, or None when they can
    (found by making one and deleting it)."""
    if os.geteuid() != 0:
        return "network namespaces need root (ip netns add); CI runs these tests as root"
    probe = f"kpzt-{os.getpid()}-probe"
    try:
        got = _ip("netns", "add", probe, check=False)
    except FileNotFoundError:
        return "the ip command is not installed (Debian: iproute2)"
    if got.returncode != 0:
        return f"ip netns add failed here: {got.stderr.strip()}"
    _ip("netns", "del", probe, check=False)
    return None


def free_subnet() -> ipaddress.IPv4Network:
    """A 10.213.N.0/24 that no address or route of this namespace overlaps."""
    used = []
    for line in _ip("-o", "-4", "addr").stdout.splitlines():
        fields = line.split()
        if "inet" in fields:
            used.append(ipaddress.ip_interface(fields[fields.index("inet") + 1]).network)
    for line in _ip("-4", "route").stdout.splitlines():
        dest = line.split()[0] if line.split() else ""
        if dest and dest != "default":
            try:
                used.append(ipaddress.ip_network(dest, strict=False))
            except ValueError:
                pass  # a route type word ("unreachable", "broadcast", ...)
    for n in range(256):
        net = ipaddress.ip_network(f"10.213.{n}.0/24")
        if not any(net.overlaps(u) for u in used):
            return net
    raise RuntimeError("no free 10.213.N.0/24 on this machine")


class Network:
    """Hosts `hosts` (short names, at most 12 characters) on one bridge;
    host i gets the subnet's address i + 1. Logs of the processes started
    go to `root`. Use as a context manager, or call close() in a finally."""

    def __init__(self, root: Path, hosts: Sequence[str]) -> None:
        self.root = root
        root.mkdir(parents=True, exist_ok=True)
        self.tag = f"kpzt-{os.getpid()}-{next(_networks)}"
        self.bridge_ns = f"{self.tag}-br"
        self.subnet = free_subnet()
        self.ns: Dict[str, str] = {}
        self.address: Dict[str, str] = {}
        self.procs: List[subprocess.Popen] = []
        self._made: List[str] = []
        self._logs: list = []
        try:
            self._build(hosts)
        except BaseException:
            self.close()
            raise

    def _add_ns(self, name: str) -> None:
        _ip("netns", "add", name)
        self._made.append(name)
        _ip("-n", name, "link", "set", "lo", "up")

    def _build(self, hosts: Sequence[str]) -> None:
        self._add_ns(self.bridge_ns)
        _ip("-n", self.bridge_ns, "link", "add", BRIDGE, "type", "bridge")
        _ip("-n", self.bridge_ns, "link", "set", BRIDGE, "up")
        prefix = self.subnet.prefixlen
        for i, host in enumerate(hosts):
            ns = f"{self.tag}-{host}"
            self._add_ns(ns)
            address = str(self.subnet.network_address + i + 1)
            # Both ends are made inside namespaces: the bridge's port in the
            # bridge's, its peer straight into the host's as eth0.
            _ip("-n", self.bridge_ns, "link", "add", self.port(host), "type", "veth",
                "peer", "name", "eth0", "netns", ns)
            _ip("-n", self.bridge_ns, "link", "set", self.port(host), "master", BRIDGE)
            _ip("-n", self.bridge_ns, "link", "set", self.port(host), "up")
            _ip("-n", ns, "addr", "add", f"{address}/{prefix}", "dev", "eth0")
            _ip("-n", ns, "link", "set", "eth0", "up")
            self.ns[host] = ns
            self.address[host] = address

    @staticmethod
    def port(host: str) -> str:
        """The name of the host's bridge port, in the bridge's namespace."""
        return f"v-{host}"

    def command(self, host: str, argv: Sequence[str]) -> List[str]:
        return ["ip", "netns", "exec", self.ns[host], *argv]

    def start(self, host: str, argv: Sequence[str], env: dict, log: str,
              **popen) -> subprocess.Popen:
        """Starts `argv` in `host`, its output into root/log (unless `popen`
        says otherwise); close() stops it."""
        if "stdout" not in popen:
            f = open(self.root / log, "wb")
            self._logs.append(f)
            popen.update(stdout=f, stderr=subprocess.STDOUT)
        proc = subprocess.Popen(self.command(host, argv), env=env, cwd=self.root, **popen)
        self.procs.append(proc)
        return proc

    def run(self, host: str, argv: Sequence[str], env: dict,
            timeout: float) -> subprocess.CompletedProcess:
        return subprocess.run(self.command(host, argv), env=env, cwd=self.root,
                              capture_output=True, text=True, timeout=timeout)

    def link_down(self, host: str) -> None:
        _ip("-n", self.bridge_ns, "link", "set", self.port(host), "down")

    def link_up(self, host: str) -> None:
        _ip("-n", self.bridge_ns, "link", "set", self.port(host), "up")

    def log_tail(self, name: str, chars: int = 3000) -> str:
        try:
            return (self.root / name).read_text(errors="replace")[-chars:]
        except OSError:
            return ""

    def close(self) -> None:
        """Stops every process started here (by pid: SIGTERM, then SIGKILL
        after a few seconds: a process whose host lost the network may wait
        on it while closing), then deletes the namespaces."""
        for proc in reversed(self.procs):
            try:
                stop(proc, signal.SIGTERM, seconds=5)
            except (OSError, subprocess.TimeoutExpired):
                pass  # a process that cannot be stopped is told by ip netns del's failure
        for f in self._logs:
            f.close()
        problems = []
        for name in reversed(self._made):
            got = _ip("netns", "del", name, check=False)
            if got.returncode != 0:
                problems.append(f"{name}: {got.stderr.strip()}")
        self._made = []
        if problems:
            raise RuntimeError("could not delete network namespaces: " + "; ".join(problems))

    def __enter__(self) -> "Network":
        return self

    def __exit__(self, *exc) -> None:
        self.close()
