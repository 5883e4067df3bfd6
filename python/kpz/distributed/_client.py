"""kpz.distributed.extract(): a run's inputs, its output and its cluster
put together (connecting: _cluster; batches: _batches; the run: _run)."""

import dataclasses
import os
from typing import Any, Callable, Optional, Sequence, Union

from kpz._deprecation import renamed_keywords
from kpz._kpz import kit
from kpz.remote import Settings

from . import _pool
from ._batches import DEFAULT_BATCH_SIZE
from ._cluster import START_TIMEOUT, connect
from ._inputs import iter_sources
from ._outputs import KINDS, Output
from ._progress import Progress
from ._results import Result, RunFailed, Summary
from ._run import WINDOW_PER_THREAD, Run

__all__ = ["DEFAULT_BATCH_SIZE", "START_TIMEOUT", "WINDOW_PER_THREAD", "extract"]


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
    _pool.use_store(settings, _s3_check(list(sources) + [out], settings))
    output.make()
    bar = Progress(0, progress)
    run = Run(kind, upright, sync, settings, output, skip_existing, batch_size, on_result,
               bar, lambda: connect(cluster, workers, threads_per_worker, start_timeout))
    bar.count_ahead(list(sources), recursive, extensions)
    try:
        run.go(iter_sources(list(sources), recursive, extensions, settings))
    finally:
        run.close()
    return run.summary


def _s3_check(names: Sequence[str], settings: Settings) -> Any:
    """The store (kpz._s3.Store) when s3:// is named, else None; RunFailed
    (INPUT) in one line, before any work, when the store cannot be used (no
    credentials: where they were looked for)."""
    from kpz import _s3

    if any(_s3.is_s3(os.fspath(n)) for n in names):
        try:
            return _s3.Store(settings.s3)
        except _s3.StoreError as e:
            raise RunFailed(kit.ExitStatus.INPUT, None, str(e)) from None
    return None
