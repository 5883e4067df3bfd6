"""Connecting a run to its cluster: a client given, a scheduler's address,
or a LocalCluster started on 127.0.0.1; the workers checked to import kpz."""

import errno
import os
from typing import Any, Optional, Sequence

from kpz._kpz import kit

from ._guard import refuse_recursive_start
from ._results import RunFailed

# Seconds to wait for the workers: those of a LocalCluster to start, the
# first of a scheduler's to be there.
START_TIMEOUT = 60.0

# Dask's own periodic work on a worker, made rarer on the local cluster kpz
# starts (no one reads its dashboard): the sampling profiler (every 10 ms),
# the event loop's tick (20 ms) and the memory monitor (100 ms). Measured on
# two idle workers: 74 ms of CPU per second with Dask's defaults, 10 with
# these; docs/DISTRIBUTED.md gives them for a cluster of one's own.
QUIET_WORKERS = {"distributed.worker.profile.enabled": False,
                 "distributed.admin.tick.interval": "1s",
                 "distributed.worker.memory.monitor-interval": "1s"}

# glibc's malloc in the workers of that cluster. Dask's nanny starts each
# worker with MALLOC_TRIM_THRESHOLD_=65536 (distributed.nanny.pre-spawn-environ),
# which also fixes glibc's mmap threshold at 128 KiB: every buffer of a
# picture's size (a preview, or the 256 KiB asyncio reads a socket into) is
# then mapped and unmapped again, its pages faulted in each time, and the
# top of each heap handed back to the system as soon as 64 KiB of it is free.
# Page faults and munmap were a fifth of a worker's CPU per file
# (perf). With buffers up to 16 MiB taken from the heaps and up to 32 MiB
# of free heap kept, the workers spend a quarter less CPU per file (medians
# of 12 runs of 240 s3:// objects, clusters alternating: 2.79 against 3.71
# ms with Dask's setting; 2.73 against 3.17 with glibc's own defaults);
# what stays mapped is bounded all the same, by the reads in flight and
# those 32 MiB per heap.
WORKER_MALLOC = {"MALLOC_MMAP_THRESHOLD_": 16 * 1024 * 1024,
                 "MALLOC_TRIM_THRESHOLD_": 32 * 1024 * 1024}

_LOOPBACK = "127.0.0.1"
_LOCAL = "the local cluster"


def worker_config() -> dict:
    """Dask's configuration for the workers kpz's local cluster starts:
    QUIET_WORKERS, and the environment the nanny gives a worker process
    (Dask's own, distributed.nanny.pre-spawn-environ) with WORKER_MALLOC in
    place of Dask's malloc setting. A variable set in this process's own
    environment is given to the workers as set (Dask's rule)."""
    import dask
    import distributed  # noqa: F401 - its defaults are in the configuration once imported

    environ = dict(dask.config.get("distributed.nanny.pre-spawn-environ", default=None) or {})
    environ.update(WORKER_MALLOC)
    return dict(QUIET_WORKERS, **{"distributed.nanny.pre-spawn-environ": environ})


class Cluster:
    """The client of a run, what to close at its end, and the name the lines
    give the cluster (its address, or "the local cluster")."""

    def __init__(self, client: Any, where: str, closers: Sequence[Any] = ()) -> None:
        self.client = client
        self.where = where
        self._closers = list(closers)

    def close(self) -> None:
        for closer in self._closers:
            closer.close()


def start_local_cluster(workers: Optional[int], threads_per_worker: Optional[int],
                   start_timeout: float) -> Cluster:
    from distributed import Client, LocalCluster

    refuse_recursive_start()
    n = workers or (os.cpu_count() or 1)
    # Every server of the cluster on the loopback interface only: the
    # scheduler's and the workers' HTTP servers (which Dask starts even
    # without a dashboard, on every interface unless told) included. Started
    # without workers, which are then asked for: their start is waited for a
    # bounded time (a worker that dies as it starts is started again by its
    # nanny without end).
    import dask

    quiet = dask.config.set(worker_config())  # the workers take the config as they start
    try:
        cluster = LocalCluster(n_workers=0, threads_per_worker=threads_per_worker or 1,
                               processes=True, host=_LOOPBACK,
                               dashboard_address=_LOOPBACK + ":0",
                               worker_dashboard_address=_LOOPBACK + ":0",
                               scheduler_kwargs={"dashboard": False})
    except OSError as e:
        quiet.__exit__(None, None, None)
        raise RunFailed(kit.ExitStatus.INPUT, _LOCAL, "cannot be started: %s"
                        % (e.strerror or e)) from None
    c = Client(cluster)
    started = Cluster(c, _LOCAL, [c, cluster])
    try:
        cluster.scale(n)
        c.wait_for_workers(n, timeout=start_timeout)
    except TimeoutError:
        started.close()
        raise RunFailed(kit.ExitStatus.INPUT, _LOCAL,
                        "its workers did not start within %g s" % start_timeout) from None
    finally:
        quiet.__exit__(None, None, None)
    return started


def unreachable(address: str, start_timeout: float) -> str:
    """Why the scheduler at a tcp:// `address` cannot be reached at all (a
    connection refused: nothing listens there; no route to it), or "" when
    it may be there (Dask's client, which tries again until start_timeout,
    is left to tell the rest)."""
    from distributed.comm import parse_address, parse_host_port

    try:
        scheme, where = parse_address(address)
        if scheme != "tcp":
            return ""
        host, port = parse_host_port(where)
    except (ValueError, TypeError):
        return ""  # Dask's client tells what is wrong with it
    import socket

    try:
        with socket.create_connection((host, port), timeout=min(start_timeout, 10.0)):
            return ""
    except ConnectionRefusedError:
        return "connection refused: no scheduler listens there"
    except OSError as e:
        if e.errno in (errno.EHOSTUNREACH, errno.ENETUNREACH):
            return "cannot connect: %s" % os.strerror(e.errno).lower()
        return ""


def join_scheduler(address: str, start_timeout: float) -> Cluster:
    from distributed import Client

    why = unreachable(address, start_timeout)
    if why:
        raise RunFailed(kit.ExitStatus.INPUT, address, why)
    try:
        c = Client(address, timeout=start_timeout)
    except ValueError as e:  # Dask: "missing port number in address 'garbage'"
        raise RunFailed(kit.ExitStatus.USAGE, address,
                        "not a scheduler's address (tcp://HOST:PORT): %s" % e) from None
    except (OSError, TimeoutError) as e:
        raise RunFailed(kit.ExitStatus.INPUT, address, str(e.strerror or e)) from None
    cluster = Cluster(c, address, [c])
    try:
        c.wait_for_workers(1, timeout=start_timeout)
    except TimeoutError:
        cluster.close()
        raise RunFailed(kit.ExitStatus.INPUT, address, "no worker joined the scheduler within "
                        "%g s" % start_timeout) from None
    return cluster


def connect(cluster: Any, workers: Optional[int], threads_per_worker: Optional[int],
             start_timeout: float) -> Cluster:
    from distributed import Client

    if isinstance(cluster, Client):
        got = Cluster(cluster, str(cluster.scheduler.address))
    elif isinstance(cluster, str):
        got = join_scheduler(cluster, start_timeout)
    else:
        got = start_local_cluster(workers, threads_per_worker, start_timeout)
    check_workers(got)
    return got


def check_workers(cluster: Cluster) -> None:
    """RunFailed when a worker cannot import the kpz package (it would fail
    every task given to it)."""
    got = cluster.client.run(exec, "import kpz.distributed", on_error="return")
    failed = sorted((w, e) for w, e in got.items() if isinstance(e, BaseException))
    if failed:
        cluster.close()
        worker, e = failed[0]
        raise RunFailed(kit.ExitStatus.INPUT, cluster.where,
                        "%d of %d workers cannot import the kpz package (%s: %s, on %s): "
                        "install it where the workers run, for their Python (see "
                        "docs/DISTRIBUTED.md)"
                        % (len(failed), len(got), type(e).__name__, e, worker))
