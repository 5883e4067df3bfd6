"""One run on the client: the inputs read as they are found, batches sent
to the cluster within a window, the Results handed on in input order."""

import collections
import os
from typing import Any, Callable, Dict, Iterator, List, Optional, Tuple

from kpz._claims import REASON, Claims
from kpz._kpz import kit
from kpz.remote import Settings, output_name

from ._batches import DEFAULT_BATCH_SIZE, KILLED_WORDS, Job, cut_into_batches, \
    failed_batch_results, holds_several_names, task_outcome
from ._cluster import Cluster
from ._in_order import ResultsInOrder
from ._name_holds import OPEN, NameHolds
from ._outputs import KINDS, Output
from ._progress import Progress
from ._results import SKIPPED_NOTE, Result, Summary
from ._task import run_batch

# Batches on the cluster at once per worker thread: one running, the next
# ones there to start as soon as it ends, so that no thread waits for the
# client. The scheduler holds no more tasks than that.
WINDOW_PER_THREAD = 3

async def _one_round() -> None:
    """Nothing, on the client's event loop (see Run.go)."""


class Run:
    """One run on the client: the inputs read as they are found, each either
    told at once (an error of its own, an output already written or present)
    or put in the batch being filled; batches sent to the cluster within the
    window. The Results go through `results` (ResultsInOrder), the output
    names through `names` (NameHolds: the first input written owns a name)."""

    def __init__(self, kind: str, upright: bool, sync: bool, settings: Settings, output: Output,
                 skip_existing: bool, batch_size: Optional[int],
                 on_result: Optional[Callable[[Result], None]], bar: Progress,
                 connect: Callable[[], Cluster]) -> None:
        self.kind, self.upright, self.sync, self.settings = kind, upright, sync, settings
        self.output = output
        self.suffix = KINDS[kind][0]
        self.skip_existing = skip_existing
        self.size = None if batch_size is None else max(1, int(batch_size))
        self.bar = bar
        self._connect = connect
        self.cluster: Optional[Cluster] = None
        self.threads = 1
        self.window = 2
        self.span = 8 * DEFAULT_BATCH_SIZE  # inputs read but not yet handed on, at most
        self.found = 0           # inputs read
        self.exhausted = False
        self.results = ResultsInOrder(Summary(KINDS[kind][1]), on_result, bar)
        self.rewritten: set = set()         # indices whose broken output is written again
        # The output names written by this run, and the inputs that wrote
        # the latest `span` of them, so that a later input of the same name
        # is told who wrote it, as kpz tells it; past those, "an earlier input".
        self.claims = Claims(kept=self.span)
        self.names = NameHolds(self.claims)
        self.open: List[Job] = []
        self.batches: Dict[int, List[Job]] = {}  # id -> jobs of a batch cut and not ended
        self.queued: "collections.deque[int]" = collections.deque()
        self.alone: "collections.deque[List[Job]]" = collections.deque()
        self.alone_bid: Optional[int] = None  # the batch id of the one running, if any
        self.in_flight: Dict[str, int] = {}  # task key -> batch id
        self.next_id = 0
        self.ended_count = 0     # tasks ended
        self.running: Any = None

    @property
    def summary(self) -> Summary:
        return self.results.summary

    def deliver(self) -> None:
        self.results.hand_on(self.found, not self.exhausted)

    # -- reading the inputs --------------------------------------------------

    def take(self, index: int, source: str, error: str) -> None:
        """Decides what becomes of one input as it is read."""
        if error:
            self.results.put(Result(index, source, "").fail(kit.ExitStatus.INPUT, source, error))
            return
        name = output_name(source, self.suffix)
        if name in self.claims:
            self.results.put(self.taken(index, source, name))
            return
        held = self.names.holder(name)
        if held == OPEN:
            self.open.append((index, source, name))
            return
        if held is not None:
            self.names.wait((index, source, name))
            return
        if self.skip_existing:
            state = self.output.state(name)
            if state == "whole":
                self.results.put(Result(index, source, self.output.shown(name),
                                        note=SKIPPED_NOTE))
                return
            if state == "broken":
                self.rewritten.add(index)
        self.names.open(name)
        self.open.append((index, source, name))
        if self.cluster is None:
            self.start()

    def taken(self, index: int, source: str, name: str) -> Result:
        shown = self.output.shown(name)
        return Result(index, source, shown).fail(kit.ExitStatus.OUTPUT, source,
                                                 self.claims.refusal(name, shown), REASON)

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
        self.claims.kept = self.span

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
        for jobs in cut_into_batches(self.open, self.size):
            self.queue(jobs)
        self.open = []

    def queue(self, jobs: List[Job]) -> None:
        bid = self.next_id
        self.next_id += 1
        self.batches[bid] = jobs
        self.names.hold(bid, jobs)
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
            self.names.hold(bid, jobs)
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
        got, exc = task_outcome(future, value)
        if exc is None:
            results = got
        elif isinstance(exc, KilledWorker) and holds_several_names(batch):
            self.alone.extend(cut_into_batches(batch, 1))
            results = None
        elif isinstance(exc, KilledWorker):
            results = [Result(i, source, self.output.shown(name)).fail(
                kit.ExitStatus.INPUT, source, KILLED_WORDS) for i, source, name in batch]
        else:
            results = failed_batch_results(batch, self.output, exc)
        if results is None:
            return  # its names stay held until their own tasks end
        name_of = {i: name for i, _, name in batch}
        for r in results:
            r.rewritten = r.index in self.rewritten
            self.rewritten.discard(r.index)
            if r.status == 0 and r.out:
                self.claims.wrote(name_of[r.index], r.source)
            self.results.put(r)
        refused, reopened = self.names.release(bid, name_of.values())
        for i, source, name in refused:
            self.results.put(self.taken(i, source, name))
        self.open.extend(reopened)

    # -- the loop --------------------------------------------------------------

    def go(self, entries: Iterator[Tuple[str, str]]) -> None:
        while True:
            free = self.window - len(self.in_flight)
            while not self.exhausted and len(self.queued) < max(1, free) and \
                    self.found - self.results.delivered < self.span:
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
                              self.found - self.results.delivered >= self.span):
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
        assert not self.names.waiting() and not self.results.waiting(), "every input handed on"

    def close(self) -> None:
        self.bar.close()
        if self.cluster is not None:
            self.cluster.close()
