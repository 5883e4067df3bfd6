"""The client's side of a run: the cluster (a client given, a scheduler's
address, or a LocalCluster on 127.0.0.1), the inputs cut into batches, one
task per batch, and the Results delivered in input order."""

import collections
import dataclasses
import errno
import os
from typing import Any, Callable, Dict, Iterator, List, Optional, Sequence, Tuple, Union

from kpz._deprecation import renamed_keywords
from kpz._kpz import kit
from kpz.remote import Settings, output_name

from ._guard import refuse_recursive_start
from ._inputs import iter_sources
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

# Dask's own periodic work on a worker, made rarer on the local cluster kpz
# starts (no one reads its dashboard): the sampling profiler (every 10 ms),
# the event loop's tick (20 ms) and the memory monitor (100 ms). Measured on
# two idle workers: 74 ms of CPU per second with Dask's defaults, 10 with
# these; docs/DISTRIBUTED.md gives them for a cluster of one's own.
QUIET_WORKERS = {"distributed.worker.profile.enabled": False,
                 "distributed.admin.tick.interval": "1s",
                 "distributed.worker.memory.monitor-interval": "1s"}

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
    import dask

    quiet = dask.config.set(QUIET_WORKERS)  # the workers take the config as they start
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
    started = _Cluster(c, _LOCAL, [c, cluster])
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


def _refused(address: str, start_timeout: float) -> str:
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


def _scheduler(address: str, start_timeout: float) -> _Cluster:
    from distributed import Client

    why = _refused(address, start_timeout)
    if why:
        raise RunFailed(kit.ExitStatus.INPUT, address, why)
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
        # The error's own text cut short: it may carry anything.
        text = str(exc)
        words = "the worker's task failed: %s: %s" % (
            type(exc).__name__, text if len(text) <= 200 else text[:200] + "...")
    return [Result(i, source, out.shown(name)).fail(kit.ExitStatus.INPUT, source, words)
            for i, source, name in batch]


# ---------------------------------------------------------------------------
# The run

# Batches on the cluster at once per worker thread: one running, the next
# ones there to start as soon as it ends, so that no thread waits for the
# client. The scheduler holds no more tasks than that.
WINDOW_PER_THREAD = 3

_OPEN = -1  # holders[name] for a name whose inputs are in the batch being filled


def _outcome(future: Any, value: Any) -> Tuple[Any, Optional[BaseException]]:
    """(the task's Results, None) or (None, why it failed), from what
    as_completed gave with it: the task's return value (a list), the
    exception of a task that failed (as Dask gives it, (type, exception,
    traceback)), or CancelledError. Anything else (a task whose result was
    lost with its worker as it ended, and is being computed again) is asked
    of the future itself, which waits for Dask's second run."""
    if isinstance(value, list):
        return value, None
    if isinstance(value, tuple) and len(value) == 3 and isinstance(value[1], BaseException):
        return None, value[1]
    if isinstance(value, BaseException):
        return None, value
    try:
        return future.result(), None
    except Exception as e:  # noqa: BLE001 - whatever Dask raises is the batch's failure
        return None, e


async def _one_round() -> None:
    """Nothing, on the client's event loop (see _Run.go)."""


# 1.0.0's client= (a distributed.Client) and scheduler= (an address) are both
# cluster= now; client= won when both were given, and still does.
@renamed_keywords(since="1.1.0", removed_in="2.0.0", client="cluster", scheduler="cluster")
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
    ("tcp://host:8786"), or None (client= and scheduler=, its names in kpz
    1.0.0, still work until 2.0.0, with a DeprecationWarning): a LocalCluster of `workers` processes
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
    on_result: called on the client with every Result, in input order, as
    soon as it and every earlier one are there (the Summary keeps counts, not
    the Results).
    progress: a stream for the progress bar (drawn when it is a terminal and
    the run is long), or None. Its total is counted ahead of the work when
    every source is local (directories by a second walk on a thread that
    keeps only the count); with a remote source it is the count found so
    far, since counting ahead would cost a second listing.

    The client stays small however many inputs there are: directories are
    walked as the run goes, no more than WINDOW_PER_THREAD batches per worker
    thread are on the cluster at once (topped up as each ends), results wait
    for earlier ones in a buffer of at most twice the larger of the window's
    inputs and 256 per worker thread (512 inputs per thread with the
    default batch size), and the output
    names written are kept as 12-byte digests (kit.NameSet).

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
    output = Output(out, settings)
    _s3_check(list(sources) + [out], settings)
    output.make()
    bar = Progress(0, progress)
    run = _Run(kind, upright, sync, settings, output, skip_existing, batch_size, on_result,
               bar, lambda: _connect(cluster, workers, threads_per_worker, start_timeout))
    bar.count_ahead(list(sources), recursive, extensions)
    try:
        run.go(iter_sources(list(sources), recursive, extensions, settings))
    finally:
        run.close()
    return run.summary


def _s3_check(names: Sequence[str], settings: Settings) -> None:
    """RunFailed (INPUT) in one line, before any work, when s3:// is named
    and the store cannot be used (no credentials: where they were looked
    for)."""
    from kpz import _s3

    if any(_s3.is_s3(os.fspath(n)) for n in names):
        try:
            _s3.Store(settings.s3)
        except _s3.StoreError as e:
            raise RunFailed(kit.ExitStatus.INPUT, None, str(e)) from None


class _Run:
    """One run on the client: the inputs read as they are found, each either
    told at once (an error of its own, an output already written or present)
    or put in the batch being filled; batches sent to the cluster within the
    window; Results handed on in input order.

    Inputs sharing an output name: the first in input order that is written
    owns it. Inputs of one name in the same batch are settled by the task
    (run_batch), in input order. An input whose name is held by a batch
    already cut (queued or on the cluster) waits for that batch's end: then
    it fails when the name was written, else it goes into the batch being
    filled, with the others that waited for it."""

    def __init__(self, kind: str, upright: bool, sync: bool, settings: Settings, output: Output,
                 skip_existing: bool, batch_size: Optional[int],
                 on_result: Optional[Callable[[Result], None]], bar: Progress,
                 connect: Callable[[], _Cluster]) -> None:
        self.kind, self.upright, self.sync, self.settings = kind, upright, sync, settings
        self.output = output
        self.suffix = KINDS[kind][0]
        self.summary = Summary(KINDS[kind][1])
        self.skip_existing = skip_existing
        self.size = None if batch_size is None else max(1, int(batch_size))
        self.on_result = on_result
        self.bar = bar
        self._connect = connect
        self.cluster: Optional[_Cluster] = None
        self.threads = 1
        self.window = 2
        self.span = 8 * DEFAULT_BATCH_SIZE  # inputs read but not yet handed on, at most
        self.found = 0           # inputs read
        self.delivered = 0       # inputs handed on
        self.exhausted = False
        self.ready: Dict[int, Result] = {}
        self.rewritten: set = set()         # indices whose broken output is written again
        self.written = kit.NameSet()        # output names written by this run
        # The inputs that wrote the names written lately (at most `span` of
        # them), so that a later input of the same name is told who wrote it,
        # as kpz tells it; past those, "an earlier input".
        self.writers: "collections.OrderedDict[str, str]" = collections.OrderedDict()
        self.holders: Dict[str, int] = {}   # name -> id of the batch holding it, or _OPEN
        self.waiting: Dict[str, List[Job]] = {}
        self.open: List[Job] = []
        self.batches: Dict[int, List[Job]] = {}  # id -> jobs of a batch cut and not ended
        self.queued: "collections.deque[int]" = collections.deque()
        self.alone: "collections.deque[List[Job]]" = collections.deque()
        self.alone_bid: Optional[int] = None  # the batch id of the one running, if any
        self.in_flight: Dict[str, int] = {}  # task key -> batch id
        self.next_id = 0
        self.ended_count = 0     # tasks ended
        self.running: Any = None

    # -- handing on ---------------------------------------------------------

    def deliver(self) -> None:
        while self.delivered in self.ready:
            r = self.ready.pop(self.delivered)
            self.bar.clear()
            self.summary._add(r)
            if self.on_result is not None:
                self.on_result(r)
            self.delivered += 1
        self.bar.update(self.delivered, self.found, not self.exhausted)

    # -- reading the inputs --------------------------------------------------

    def take(self, index: int, source: str, error: str) -> None:
        """Decides what becomes of one input as it is read."""
        if error:
            self.ready[index] = Result(index, source, "").fail(kit.ExitStatus.INPUT, source, error)
            return
        name = output_name(source, self.suffix)
        if name in self.written:
            self.ready[index] = self.taken(index, source, name)
            return
        held = self.holders.get(name)
        if held == _OPEN:
            self.open.append((index, source, name))
            return
        if held is not None:
            self.waiting.setdefault(name, []).append((index, source, name))
            return
        if self.skip_existing:
            state = self.output.state(name)
            if state == "whole":
                self.ready[index] = Result(index, source, self.output.shown(name),
                                           note=SKIPPED_NOTE)
                return
            if state == "broken":
                self.rewritten.add(index)
        self.holders[name] = _OPEN
        self.open.append((index, source, name))
        if self.cluster is None:
            self.start()

    def taken(self, index: int, source: str, name: str) -> Result:
        shown = self.output.shown(name)
        owner = self.writers.get(name)
        words = kit.already_written_earlier_words(shown) if owner is None else \
            kit.already_written_words(shown, owner)
        return Result(index, source, shown).fail(kit.ExitStatus.OUTPUT, source, words,
                                                 kit.ALREADY_WRITTEN_REASON)

    def start(self) -> None:
        """Connects to the cluster (at the first input to send, so that a run
        with nothing to send starts none) and sizes the window to it."""
        self.cluster = self._connect()
        from distributed import as_completed

        self.size_window()
        # The results are fetched as the tasks end, on the client's own
        # thread of communication, not asked for one by one.
        self.running = as_completed(with_results=True, raise_errors=False)

    def size_window(self) -> None:
        """The window for the worker threads there now (workers join and
        leave a running scheduler: asked again every window's worth of ended
        batches)."""
        self.threads = max(1, sum(self.cluster.client.nthreads().values()))
        self.window = max(2, WINDOW_PER_THREAD * self.threads)
        # Room for the batch size to be chosen (cut()), and for two windows.
        self.span = 2 * max(self.window * (self.size or DEFAULT_BATCH_SIZE), self.lookahead())

    def lookahead(self) -> int:
        """Inputs to send gathered before the batch size is chosen: enough for
        four batches of DEFAULT_BATCH_SIZE per worker thread."""
        return 4 * self.threads * DEFAULT_BATCH_SIZE

    def cut(self) -> None:
        """Cuts the batch being filled into batches of the batch size, queued
        to be sent. The first time, when no size was given, the size is
        chosen: DEFAULT_BATCH_SIZE, or less when the run is too short to give
        every worker thread four tasks."""
        if not self.open:
            return
        if self.size is None:
            if self.exhausted:
                self.size = max(1, min(DEFAULT_BATCH_SIZE, len(self.open) // (4 * self.threads)))
            else:
                self.size = DEFAULT_BATCH_SIZE
        for jobs in _batches(self.open, self.size):
            self.queue(jobs)
        self.open = []

    def queue(self, jobs: List[Job]) -> None:
        bid = self.next_id
        self.next_id += 1
        self.batches[bid] = jobs
        for _, _, name in jobs:
            self.holders[name] = bid
        self.queued.append(bid)

    def full(self) -> bool:
        """True when the batch being filled is to be cut."""
        return len(self.open) >= (self.size or self.lookahead())

    # -- the cluster -----------------------------------------------------------

    def send(self, bids: List[int]) -> None:
        """One task per batch, all sent in one message (client.map): the
        client's cost per message (building the graph, and Dask noting the
        calling code for its dashboard) is paid once for them all."""
        c = self.cluster.client
        keys = ["kpz-%s-%d-%s" % (self.kind, bid, os.urandom(4).hex()) for bid in bids]
        futures = c.map(run_batch, [self.batches[bid] for bid in bids], kind=self.kind,
                        upright=self.upright, out=self.output.out, sync=self.sync,
                        remote=self.settings, pure=False, key=keys)
        self.in_flight.update(zip(keys, bids))
        self.running.update(futures)

    def send_alone(self) -> None:
        """The files of batches whose workers died as often as Dask allows,
        each (each group sharing an output name) in a task of its own, one
        such task at a time: a worker that dies takes with it the tasks
        queued on it, which Dask counts against them too, so the file that
        kills is alone when it does."""
        if self.alone and self.alone_bid is None:
            bid = self.next_id
            self.next_id += 1
            jobs = self.alone.popleft()
            self.batches[bid] = jobs
            for _, _, name in jobs:
                self.holders[name] = bid
            self.alone_bid = bid
            self.send([bid])

    def ended(self, future: Any, value: Any) -> None:
        """Takes the Results of one task (`value`, what it returned when it did
        not fail) and releases its names."""
        from distributed import KilledWorker

        bid = self.in_flight.pop(future.key)
        batch = self.batches.pop(bid)
        self.ended_count += 1
        if self.ended_count % self.window == 0:
            self.size_window()
        if bid == self.alone_bid:
            self.alone_bid = None
        got, exc = _outcome(future, value)
        if exc is None:
            results = got
        elif isinstance(exc, KilledWorker) and _splittable(batch):
            self.alone.extend(_batches(batch, 1))
            results = None
        elif isinstance(exc, KilledWorker):
            results = [Result(i, source, self.output.shown(name)).fail(
                kit.ExitStatus.INPUT, source, _KILLED) for i, source, name in batch]
        else:
            results = _batch_failed(batch, self.output, exc)
        if results is None:
            return  # its names stay held until their own tasks end
        name_of = {i: name for i, _, name in batch}
        for r in results:
            r.rewritten = r.index in self.rewritten
            self.rewritten.discard(r.index)
            if r.status == 0 and r.out:
                self.written.add(name_of[r.index])
                self.writers[name_of[r.index]] = r.source
                while len(self.writers) > self.span:
                    self.writers.popitem(last=False)
            self.ready[r.index] = r
        for name in dict.fromkeys(name_of.values()):
            if self.holders.get(name) == bid:
                del self.holders[name]
            behind = self.waiting.pop(name, None)
            if not behind:
                continue
            if name in self.written:
                for i, source, _ in behind:
                    self.ready[i] = self.taken(i, source, name)
            else:
                self.holders[name] = _OPEN
                self.open.extend(behind)

    # -- the loop --------------------------------------------------------------

    def go(self, entries: Iterator[Tuple[str, str]]) -> None:
        while True:
            free = self.window - len(self.in_flight)
            while not self.exhausted and len(self.queued) < max(1, free) and \
                    self.found - self.delivered < self.span:
                entry = next(entries, None)
                if entry is None:
                    self.exhausted = True
                    break
                self.take(self.found, *entry)
                self.found += 1
                if self.full():
                    self.cut()
                self.deliver()
            if self.open and (self.exhausted or self.full() or
                              self.found - self.delivered >= self.span):
                self.cut()
            if self.cluster is not None:
                self.send_alone()
                # Topped up a worker thread's share at a time (each message
                # costs the client a few ms), or at once when nothing runs.
                free = self.window - len(self.in_flight)
                if self.queued and free > 0 and (free >= self.threads or not self.in_flight
                                                 or self.exhausted):
                    self.send([self.queued.popleft()
                               for _ in range(min(free, len(self.queued)))])
            self.deliver()
            if not self.in_flight:
                if self.exhausted and not (self.open or self.queued or self.alone):
                    break
                continue  # more to read, cut or send: nothing to wait for
            for future, value in self.running.next_batch(block=True):
                self.ended(future, value)
            del future, value
            # The futures just dropped are released by a callback on the
            # client's event loop, which sends the release in turn; one
            # round on that loop puts the release before the next batches'
            # message, so the scheduler never holds more than the window.
            self.cluster.client.sync(_one_round)
            self.deliver()
        assert not self.waiting and not self.ready, "every input handed on"

    def close(self) -> None:
        self.bar.close()
        if self.cluster is not None:
            self.cluster.close()
