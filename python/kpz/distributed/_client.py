"""The client's side of a run: the cluster (a client given, a scheduler's
address, or a LocalCluster on 127.0.0.1), the inputs cut into batches, one
task per batch, and the Results delivered in input order."""

import dataclasses
import os
from typing import Any, Callable, Dict, List, Optional, Sequence, Tuple, Union

from kpz._kpz import kit
from kpz.remote import Settings

from ._guard import refuse_recursive_start
from ._inputs import expand_sources
from ._outputs import KINDS, Output
from ._progress import Progress
from ._results import SKIPPED_NOTE, Result, RunFailed, Summary
from ._task import run_batch

# Files per task. Measured (docs/PERFORMANCE.md, "Bulk extraction over
# Dask"): the scheduler's cost per task is about a millisecond, a preview
# costs well under one; from a few dozen files per task on, that cost
# is a few per cent of the work. Smaller batches are used when the run is
# too short to give every worker thread several tasks.
DEFAULT_BATCH_SIZE = 64

# Seconds to wait for the workers: those of a LocalCluster to start, the
# first of a scheduler's to be there.
START_TIMEOUT = 60.0

_LOOPBACK = "127.0.0.1"
_LOCAL = "the local cluster"

Job = Tuple[int, str, str]  # (index of the input, source, output name)


# ---------------------------------------------------------------------------
# The cluster


class _Cluster:
    """The client of a run, what to close at its end, and the name the lines
    give the cluster (its address, or "the local cluster")."""

    def __init__(self, client: Any, where: str, closers: Sequence[Any] = ()) -> None:
        self.client = client
        self.where = where
        self._closers = list(closers)

    def close(self) -> None:
        for closer in self._closers:
            closer.close()


def _local_cluster(workers: Optional[int], threads_per_worker: Optional[int],
                   start_timeout: float) -> _Cluster:
    from distributed import Client, LocalCluster

    refuse_recursive_start()
    n = workers or (os.cpu_count() or 1)
    # Every server of the cluster on the loopback interface only: the
    # scheduler's and the workers' HTTP servers (which Dask starts even
    # without a dashboard, on every interface unless told) included. Started
    # without workers, which are then asked for: their start is waited for a
    # bounded time (a worker that dies as it starts is started again by its
    # nanny without end).
    try:
        cluster = LocalCluster(n_workers=0, threads_per_worker=threads_per_worker or 1,
                               processes=True, host=_LOOPBACK,
                               dashboard_address=_LOOPBACK + ":0",
                               worker_dashboard_address=_LOOPBACK + ":0",
                               scheduler_kwargs={"dashboard": False})
    except OSError as e:
        raise RunFailed(kit.ExitStatus.INPUT, _LOCAL, "cannot be started: %s"
                        % (e.strerror or e)) from None
    c = Client(cluster)
    started = _Cluster(c, _LOCAL, [c, cluster])
    try:
        cluster.scale(n)
        c.wait_for_workers(n, timeout=start_timeout)
    except TimeoutError:
        started.close()
        raise RunFailed(kit.ExitStatus.INPUT, _LOCAL,
                        "its workers did not start within %g s" % start_timeout) from None
    return started


def _scheduler(address: str, start_timeout: float) -> _Cluster:
    from distributed import Client

    try:
        c = Client(address, timeout=start_timeout)
    except ValueError as e:  # Dask: "missing port number in address 'garbage'"
        raise RunFailed(kit.ExitStatus.USAGE, address,
                        "not a scheduler's address (tcp://HOST:PORT): %s" % e) from None
    except (OSError, TimeoutError) as e:
        raise RunFailed(kit.ExitStatus.INPUT, address, str(e.strerror or e)) from None
    cluster = _Cluster(c, address, [c])
    try:
        c.wait_for_workers(1, timeout=start_timeout)
    except TimeoutError:
        cluster.close()
        raise RunFailed(kit.ExitStatus.INPUT, address, "no worker joined the scheduler within "
                        "%g s" % start_timeout) from None
    return cluster


def _connect(cluster: Any, workers: Optional[int], threads_per_worker: Optional[int],
             start_timeout: float) -> _Cluster:
    from distributed import Client

    if isinstance(cluster, Client):
        got = _Cluster(cluster, str(cluster.scheduler.address))
    elif isinstance(cluster, str):
        got = _scheduler(cluster, start_timeout)
    else:
        got = _local_cluster(workers, threads_per_worker, start_timeout)
    _check_workers(got)
    return got


def _check_workers(cluster: _Cluster) -> None:
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


# ---------------------------------------------------------------------------
# Batches


def _batches(jobs: List[Job], size: int) -> List[List[Job]]:
    """Cuts jobs into batches of about `size`, inputs sharing an output name
    kept together in input order."""
    groups: Dict[str, List[Job]] = {}
    for job in jobs:
        groups.setdefault(job[2], []).append(job)  # dicts keep the first input's order
    batches: List[List[Job]] = []
    current: List[Job] = []
    for group in groups.values():
        current.extend(group)
        if len(current) >= size:
            batches.append(current)
            current = []
    if current:
        batches.append(current)
    return batches


# The words for a file whose own task killed its workers as often as Dask
# allows (distributed.scheduler.allowed-failures).
_KILLED = ("the workers reading it died, as often as Dask allows "
           "(distributed.scheduler.allowed-failures); not written")


def _splittable(batch: List[Job]) -> bool:
    """True when `batch` holds inputs of more than one output name."""
    return len({name for _, _, name in batch}) > 1


def _batch_failed(batch: List[Job], out: Output, exc: BaseException) -> List[Result]:
    """The Results of a batch whose task failed as a whole (a worker that
    cannot import kpz, or an error of the task's own): each input fails in
    words."""
    if isinstance(exc, ImportError):
        words = "the worker cannot import the kpz package (%s)" % exc
    else:
        words = "the worker's task failed: %s: %s" % (type(exc).__name__, exc)
    return [Result(i, source, out.shown(name)).fail(kit.ExitStatus.INPUT, source, words)
            for i, source, name in batch]


# ---------------------------------------------------------------------------
# The run


def extract(sources: Union[str, Sequence[str]], out: str, *, kind: str = "preview",
            upright: bool = False, cluster: Any = None, workers: Optional[int] = None,
            threads_per_worker: Optional[int] = None, recursive: bool = False,
            extensions: Sequence[str] = (), batch_size: Optional[int] = None,
            skip_existing: bool = False, sync: bool = False,
            start_timeout: float = START_TIMEOUT, max_in_flight: Optional[int] = None,
            remote: Optional[Settings] = None,
            on_result: Optional[Callable[[Result], None]] = None,
            progress: Any = None) -> Summary:
    """Writes the preview (kind="preview") or thumbnail (kind="thumbnail") of
    every file in `sources` into the directory `out` (local path or fsspec
    URL), named as `kpz preview -o OUT` names them, on a Dask cluster.

    cluster: a distributed.Client, or a scheduler's address
    ("tcp://host:8786"), or None: a LocalCluster of `workers` processes
    (default: the number of processors) of `threads_per_worker` threads
    (default 1) on 127.0.0.1, closed at the end. A LocalCluster is refused
    (RuntimeError) when extract() is called from the top level of a script
    without `if __name__ == "__main__":`.
    sources: files, directories (their files ending in `extensions`, default
    .kpz; `recursive` enters subdirectories), local globs, or fsspec URLs.
    Paths must name the same files on every worker.
    upright: turn each picture the right way up, as `kpz preview --upright`.
    batch_size: files per task (default DEFAULT_BATCH_SIZE, less for short runs).
    skip_existing: inputs whose output is already in `out`, whole, are not
    read again; an output present but not whole is written again.
    sync: flush each local output to the disk before it is reported written.
    start_timeout: seconds to wait for the workers to start (or, with an
    address, for one to be there).
    remote: how the workers read http(s):// inputs and write http(s)://
    outputs (kpz.remote.Settings: timeouts, tries, redirects, a CA file ...;
    default Settings()); max_in_flight, when given, replaces its
    max_in_flight: the files read at once per worker.
    on_result: called on the client with every Result, in input order.
    progress: a stream for the progress bar (drawn when it is a terminal and
    the run is long), or None.

    Returns the Summary; it counts every input once. Errors of single files are
    in their Results, never raised. A run that cannot start raises RunFailed
    (str(e) is kpz's line, e.status its exit status): an output that cannot be
    made, a cluster that cannot be reached or started, workers that cannot
    import kpz. A batch whose workers died as often as Dask allows
    (distributed.scheduler.allowed-failures) is split into one task per file:
    the files that kill no worker are written and reported, a file whose own
    task kills its workers fails in words; the run goes on.
    """
    if kind not in KINDS:
        raise ValueError("kind is 'preview' or 'thumbnail', not %r" % (kind,))
    if isinstance(sources, (str, os.PathLike)):
        sources = [os.fspath(sources)]
    settings = remote if remote is not None else Settings()
    if max_in_flight is not None:
        settings = dataclasses.replace(settings, max_in_flight=max_in_flight)
    suffix, noun = KINDS[kind]
    summary = Summary(noun)
    output = Output(out, settings)
    output.make()
    entries = expand_sources(list(sources), recursive, extensions)
    names = [kit.default_path(source, suffix, True) for source, _ in entries]
    whole, broken = output.present(names) if skip_existing else (set(), set())

    ready: Dict[int, Result] = {}
    jobs: List[Job] = []
    for i, ((source, error), name) in enumerate(zip(entries, names)):
        if error:
            ready[i] = Result(i, source, "").fail(kit.ExitStatus.INPUT, source, error)
        elif name in whole:
            ready[i] = Result(i, source, output.shown(name), note=SKIPPED_NOTE)
        else:
            jobs.append((i, source, name))

    total = len(entries)
    delivered = 0
    bar = Progress(total, progress)

    def deliver() -> None:
        nonlocal delivered
        while delivered in ready:
            r = ready.pop(delivered)
            bar.clear()
            summary._add(r)
            if on_result is not None:
                on_result(r)
            delivered += 1
        bar.update(delivered)

    deliver()
    if jobs:
        _run(jobs, ready, deliver, output, broken, kind, upright, sync, batch_size, settings,
             _connect(cluster, workers, threads_per_worker, start_timeout))
    deliver()
    bar.clear()
    return summary


def _run(jobs: List[Job], ready: Dict[int, Result], deliver: Callable[[], None], output: Output,
         broken: set, kind: str, upright: bool, sync: bool, batch_size: Optional[int],
         settings: Settings, cluster: _Cluster) -> None:
    """Sends the jobs to the cluster in batches and puts each Result in
    `ready` as its batch ends (deliver() hands them on in input order)."""
    from distributed import KilledWorker, as_completed

    try:
        c = cluster.client
        if batch_size is None:
            threads = sum(c.nthreads().values()) or 1
            # At least four tasks per worker thread, so that a slow or
            # lost worker is not waited for at the end.
            batch_size = max(1, min(DEFAULT_BATCH_SIZE, len(jobs) // (4 * threads)))
        batches = _batches(jobs, max(1, int(batch_size)))
        # One message to the scheduler for all the tasks (client.map).
        batch_of: Dict[str, List[Job]] = {}

        def submit(parts: List[List[Job]]) -> List[Any]:
            """One task per batch, sent in one message (client.map)."""
            keys = ["kpz-%s-%d-%s" % (kind, n, os.urandom(4).hex()) for n in range(len(parts))]
            futures = c.map(run_batch, parts, kind=kind, upright=upright, out=output.out,
                            sync=sync, remote=settings, pure=False, key=keys)
            batch_of.update(zip(keys, parts))
            return futures

        rewritten = {i for i, _, name in jobs if name in broken}
        running = as_completed(submit(batches))
        # The files of batches whose workers died as often as Dask allows,
        # each (each group sharing an output name) to be tried in a task of
        # its own, one such task at a time: a worker that dies takes with it
        # the tasks queued on it, which Dask counts against them too, so the
        # file that kills is alone when it does.
        alone: List[List[Job]] = []
        alone_key: List[str] = []  # the one running, if any

        def next_alone() -> None:
            if alone and not alone_key:
                future = submit([alone.pop(0)])[0]
                alone_key.append(future.key)
                running.add(future)

        for future in running:
            batch = batch_of.pop(future.key)
            if alone_key and future.key == alone_key[0]:
                alone_key.clear()
            if future.status != "error":
                results = future.result()
            elif isinstance(future.exception(), KilledWorker) and _splittable(batch):
                alone.extend(_batches(batch, 1))
                results = []
            elif isinstance(future.exception(), KilledWorker):
                results = [Result(i, source, output.shown(name)).fail(
                    kit.ExitStatus.INPUT, source, _KILLED) for i, source, name in batch]
            else:
                results = _batch_failed(batch, output, future.exception())
            next_alone()
            for r in results:
                r.rewritten = r.index in rewritten
                ready[r.index] = r
            del future
            deliver()
    finally:
        cluster.close()
