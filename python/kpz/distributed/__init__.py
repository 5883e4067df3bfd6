"""Previews from many files at once, over a Dask cluster.

    import kpz.distributed

    if __name__ == "__main__":
        summary = kpz.distributed.extract(["/data/shoot", "http://host/raw/*.kpz"],
                                          "/data/previews", recursive=True,
                                          cluster="tcp://10.0.0.1:8786")
        print(summary.done, summary.failed)

Every worker reads with the kpz package: a local file (a path every worker
sees) as `kpz.screennail(path)` reads it, a remote one with two range reads,
the head (64 KiB) and the picture's own range, never the whole file:
http(s):// and s3:// (signed, listed a page at a time: kpz._s3) through
kpz.remote's pool, other fsspec URLs where their back end is installed.

Outputs are named as `kpz preview -o OUT` names them (x.kpz ->
OUT/x.preview.jpg, x.thumb.jpg for thumbnails) and are written whole or not
at all: a local OUT receives a temporary file renamed when complete (as kpz
writes); an object store (s3, gcs, azure) receives one PUT, which is whole or
absent by itself; any other fsspec target receives a temporary name moved
into place by the file system's own move, which is whole only where that
move is a rename (see docs/DISTRIBUTED.md).

Work goes to the cluster in batches of files, one task per batch. A task
that is lost with its worker is run again by Dask on another worker; as an
output is written whole under its final name, and a rerun writes the same
bytes, every output ends present once, and every input is counted once in
the summary (the client takes each batch's result once).

The client stays small however many files there are: directories are walked
as the run goes, at most WINDOW_PER_THREAD batches per worker thread are on
the cluster at once, and the Summary keeps counts, not Results (on_result
gets each Result in input order as it comes).

The parts: _inputs (the inputs' expansion), _outputs (the output directory),
_task (what a worker runs), _pool (a worker's connections for http(s)),
_client (extract()), _cluster (connecting to the cluster), _batches (the
inputs cut into tasks, a task's outcome read), _run (the run on the client:
reading, the window of tasks), _name_holds (output names held by batches on
the cluster), _in_order (Results handed on in input order), _guard (no
cluster started from a script's unguarded top level), _progress (the bar),
_results (Result, Summary, RunFailed).
"""

from ._client import DEFAULT_BATCH_SIZE, START_TIMEOUT, WINDOW_PER_THREAD, extract
from ._inputs import expand_sources, iter_sources
from ._outputs import KINDS
from ._results import Result, RunFailed, Summary
from ._task import RangeReader, run_batch

__all__ = ["extract", "Summary", "Result", "RunFailed", "RangeReader", "expand_sources", "iter_sources",
           "run_batch", "DEFAULT_BATCH_SIZE", "START_TIMEOUT", "WINDOW_PER_THREAD", "KINDS"]
