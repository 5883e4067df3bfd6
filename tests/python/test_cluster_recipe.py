"""The cluster recipe of README.md and docs/DISTRIBUTED.md, run as written:
its command lines are read out of the documents (so the documents and this
test cannot drift apart), the scheduler started on one host, a worker on
another and the run on a third, each host a network namespace of its own
(netns_support.Network). Then `ss -ltnH` in each host lists what listens
there: every socket must be bound to the address the recipe names for that
host, none to 0.0.0.0, [::] or another interface (a Dask server runs what
any client that reaches it sends).

What is substituted, and nothing else: `venv/bin/python` by this test's
interpreter (which imports the same kpz package, as the venv's does),
`HOST` by the scheduler host's address, `ADDR` by the worker host's, `DIR`
and `OUT` by directories of the test. Needs root and iproute2 (CI runs it
so); skipped, saying why, where network namespaces cannot be made."""

import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path
from typing import Dict, List, Tuple

import pytest

import kpz
from conftest import SOURCE_DIR
from distributed_support import process_tree, python_env
from netns_support import Network, unavailable

DOCS = (SOURCE_DIR / "README.md", SOURCE_DIR / "docs" / "DISTRIBUTED.md")
VENV_PYTHON = "venv/bin/python"
SCHEDULER = "distributed.cli.dask_scheduler"
WORKER = "distributed.cli.dask_worker"
# How a document starts a scheduler or a worker, in a line or inline code.
STARTS = {
    "scheduler": re.compile(r"(?:\bdask[ -]scheduler|distributed\.cli\.dask_scheduler)\s+\S"),
    "worker": re.compile(r"(?:\bdask[ -]worker|distributed\.cli\.dask_worker)\s+\S"),
}
# What binds each server to one address: the scheduler's port (--host) and
# web pages (--dashboard-address); a worker's port and its nanny's (--host)
# and its web pages (--dashboard-address). --no-dashboard does not do it:
# the web server stays on every interface for its health and metrics pages.
BINDS = {"scheduler": ("--host", "--dashboard-address"),
         "worker": ("--host", "--dashboard-address")}
SECONDS = 120  # the bound of each wait here


def _recipe(path: Path) -> List[str]:
    """The command lines of the document's shell block that starts a
    scheduler: comments dropped, one command per line."""
    text = path.read_text(encoding="utf-8")
    for block in re.findall(r"```sh\n(.*?)```", text, re.S):
        if SCHEDULER in block:
            lines = [line.split(" # ")[0].strip() for line in block.splitlines()]
            return [line for line in lines if line and not line.startswith("#")]
    raise AssertionError(f"{path.name} has no shell block starting {SCHEDULER}")


# The sections that tell a reader how to start a cluster ("" is the text
# before the first heading). Others describe the tests' own hosts.
HOW_TO = {"README.md": ("## Python",), "DISTRIBUTED.md": ("", "## Across machines")}


def _sections(path: Path) -> str:
    text = path.read_text(encoding="utf-8")
    parts = re.split(r"^(?=## )", text, flags=re.M)
    chosen = [p for p in parts if any(p.startswith(h) if h else not p.startswith("## ")
                                      for h in HOW_TO[path.name])]
    assert len(chosen) == len(HOW_TO[path.name]), f"{path.name}: sections {HOW_TO[path.name]}"
    return "".join(chosen)


def _server_commands(path: Path) -> List[Tuple[str, str]]:
    """(role, command) of every place the document's how-to sections start
    a scheduler or a worker: the lines of their shell blocks and their
    inline code."""
    text = _sections(path)
    pieces = []
    for block in re.findall(r"```sh\n(.*?)```", text, re.S):
        pieces += [line.split(" # ")[0] for line in block.splitlines()]
    prose = re.sub(r"```.*?```", "", text, flags=re.S)
    pieces += [" ".join(span.split()) for span in re.findall(r"`([^`]+)`", prose)]
    found = []
    for piece in pieces:
        for role, start in STARTS.items():
            if start.search(piece):
                found.append((role, piece.strip()))
    return found


def test_readme_and_distributed_md_give_the_same_recipe():
    readme, distributed = (_recipe(p) for p in DOCS)
    assert readme == distributed
    assert any(SCHEDULER in c for c in readme) and any(WORKER in c for c in readme)
    assert any("--scheduler tcp://HOST:8786" in c for c in readme), readme


def test_every_scheduler_and_worker_the_docs_start_is_bound_to_one_address():
    for path in DOCS:
        commands = _server_commands(path)
        assert {role for role, _ in commands} == {"scheduler", "worker"}, (path.name, commands)
        for role, command in commands:
            for option in BINDS[role]:
                assert option in command.split(), f"{path.name}: {role} without {option}: {command}"


def _listening(net: Network, host: str, env: dict) -> List[Tuple[str, int]]:
    """(address, port) of every TCP socket listening in the host's namespace."""
    got = net.run(host, ["ss", "-ltnH"], env, 30)
    assert got.returncode == 0, got.stderr
    found = []
    for line in got.stdout.splitlines():
        local = line.split()[3]                       # Local Address:Port
        address, port = local.rsplit(":", 1)
        found.append((address.strip("[]").split("%")[0], int(port)))
    return found


def _substituted(command: str, values: Dict[str, str]) -> List[str]:
    args = shlex.split(command)
    assert args[0] == VENV_PYTHON, command
    out = [sys.executable]
    for arg in args[1:]:
        if arg in ("DIR", "OUT"):
            arg = values[arg]
        arg = arg.replace("HOST", values["HOST"]).replace("ADDR", values["ADDR"])
        assert not re.search(r"\b[A-Z]{3,}\b", arg), f"a placeholder left in {arg!r} ({command})"
        out.append(arg)
    return out


def _wait_for(what: str, ready, procs, net: Network, logs: List[str]) -> None:
    deadline = time.monotonic() + SECONDS
    while time.monotonic() < deadline:
        if ready():
            return
        for proc in procs:
            assert proc.poll() is None, f"{proc.args} ended with status {proc.returncode} " \
                                        f"before {what}:" + "".join(net.log_tail(n) for n in logs)
        time.sleep(0.2)
    raise AssertionError(f"no {what} within {SECONDS} s:" + "".join(net.log_tail(n) for n in logs))


@pytest.fixture
def network(tmp_path):
    why = unavailable()
    if why:
        pytest.skip(why)
    if shutil.which("ss") is None:
        pytest.skip("the ss command is not installed (Debian: iproute2)")
    net = Network(tmp_path / "hosts", ("sched", "w0", "client"))
    yield net
    # Every process of the recipe, children too (a nanny's worker), is
    # stopped by its pid: the ones started here by close(), a child still
    # alive after that (the same pid and command line) by SIGKILL.
    started = {}
    for proc in net.procs:
        for pid in process_tree(proc.pid):
            started[pid] = _command_line(pid)
    try:
        net.close()
    finally:
        for pid, line in started.items():
            if line and _command_line(pid) == line:
                try:
                    os.kill(pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass  # it ended meanwhile


def _command_line(pid: int) -> bytes:
    try:
        return Path(f"/proc/{pid}/cmdline").read_bytes()
    except OSError:
        return b""


def test_the_recipe_listens_only_on_the_addresses_it_names(network, sample, tmp_path):
    net = network
    sched, worker = net.address["sched"], net.address["w0"]
    root = net.root  # the processes' working directory
    (root / "shoots" / "day1").mkdir(parents=True)
    shutil.copy(sample, root / "shoots" / "day1" / "a.kpz")
    values = {"HOST": sched, "ADDR": worker, "DIR": "shoots", "OUT": "previews"}
    env = dict(python_env(), TMPDIR=str(tmp_path))  # Dask's worker space under the test's

    commands = _recipe(DOCS[0])
    (start_scheduler,) = [c for c in commands if SCHEDULER in c]
    (start_worker,) = [c for c in commands if WORKER in c]
    (run,) = [c for c in commands if "--scheduler" in c]

    scheduler = net.start("sched", _substituted(start_scheduler, values), env, "scheduler.log")
    _wait_for("scheduler listening on port 8786",
              lambda: any(p == 8786 for _, p in _listening(net, "sched", env)),
              [scheduler], net, ["scheduler.log"])
    worker_proc = net.start("w0", _substituted(start_worker, values), env, "worker.log")
    _wait_for("worker registered with the scheduler",
              lambda: "Registered to:" in net.log_tail("worker.log", 100000),
              [scheduler, worker_proc], net, ["scheduler.log", "worker.log"])

    done = net.run("client", _substituted(run, values), env, 240)
    want = kpz.screennail(str(sample))
    assert done.returncode == 0, done.stderr + net.log_tail("worker.log")
    assert done.stdout == "wrote previews/a.preview.jpg (%d bytes)\n" % len(want), done.stdout
    assert (root / "previews" / "a.preview.jpg").read_bytes() == want

    # The servers are alive, and every socket they listen on is bound to the
    # address of their own host.
    assert scheduler.poll() is None and worker_proc.poll() is None
    for host, address, least in (("sched", sched, 2), ("w0", worker, 3)):
        sockets = _listening(net, host, env)
        assert len(sockets) >= least, (host, sockets)  # the servers' sockets were seen
        assert all(a == address for a, _ in sockets), \
            f"{host}: listening elsewhere than {address}: {sockets}"
    assert (sched, 8786) in _listening(net, "sched", env)
    assert (sched, 8787) in _listening(net, "sched", env)
