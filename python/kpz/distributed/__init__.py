"""Previews from many files at once, over a Dask cluster.

    import kpz.distributed

    if __name__ == "__main__":
        summary = kpz.distributed.extract(["/data/shoot", "http://host/raw/*.kpz"],
                                          "/data/previews", recursive=True,
                                          scheduler="tcp://10.0.0.1:8786")
        print(summary.done, summary.failed)

Every worker reads with the kpz package: a local file (a path every worker
sees) as `kpz.screennail(path)` reads it, a remote one (any fsspec URL:
http(s)://, s3://, ... where the back end is installed) with two range reads,
the head (64 KiB) and the picture's own range, never the whole file.

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
"""

import errno
import os
import sys
import time
from typing import Any, Callable, Dict, Iterable, List, Optional, Sequence, Tuple, Union

import kpz
from kpz._kpz import kit

__all__ = ["extract", "Summary", "Result", "DEFAULT_BATCH_SIZE", "KINDS"]

# Files per task. Measured (docs/PERFORMANCE.md, "Bulk extraction over
# Dask"): the scheduler's cost per task is about a millisecond, a preview
# costs well under one; from a few dozen files per task on, that cost
# is a few per cent of the work. Smaller batches are used when the run is
# too short to give every worker thread several tasks.
DEFAULT_BATCH_SIZE = 64

# The kinds of picture: (suffix of the output name, noun in the summary).
KINDS = {"preview": (".preview.jpg", "preview"), "thumbnail": (".thumb.jpg", "thumbnail")}

# Exit statuses, as kpz's.
EXIT_INPUT = 1
EXIT_USAGE = 2
EXIT_OUTPUT = 3

_GLOB_CHARS = "*?["
_LOOPBACK = "127.0.0.1"
# Object stores: one PUT makes an object whole or leaves it absent.
_ATOMIC_PUT = {"s3", "s3a", "gs", "gcs", "abfs", "az", "adl"}


class Result:
    """What became of one input: `status` 0 done, else kpz's exit status
    (1 input, 2 usage, 3 output); `out` the tool's line for standard output
    ("wrote NAME (N bytes)"), `err` its line for standard error, `reason` the
    failure's words for the summary, `note` a remark counted by the summary."""

    __slots__ = ("index", "source", "output", "status", "out", "err", "reason", "note")

    def __init__(self, index: int, source: str, output: str, status: int = 0, out: str = "",
                 err: str = "", reason: str = "", note: str = "") -> None:
        self.index = index
        self.source = source
        self.output = output
        self.status = status
        self.out = out
        self.err = err
        self.reason = reason
        self.note = note

    def __repr__(self) -> str:
        return "Result(%r, status=%d)" % (self.source, self.status)


class Summary:
    """A run's end: counts and the tool's summary lines (render())."""

    def __init__(self, noun: str) -> None:
        self._summary = kit.Summary()
        self._noun = noun
        self.results: List[Result] = []

    def _add(self, r: Result) -> None:
        self.results.append(r)
        self._summary.add(r.status, r.reason)
        if r.status == 0 and r.note:
            self._summary.add_note(self._noun, r.note)

    @property
    def files(self) -> int:
        return self._summary.files

    @property
    def done(self) -> int:
        return self._summary.done

    @property
    def failed(self) -> int:
        return self._summary.failed

    @property
    def exit_status(self) -> int:
        """0 when nothing failed, else kpz's highest exit status among the files."""
        return self._summary.exit_status

    def render(self) -> str:
        """The summary's lines as kpz prints them on standard error."""
        return self._summary.render()


# ---------------------------------------------------------------------------
# Remote reads


class RangeReader:
    """A binary file object over one fsspec file whose every read is one range
    read (fs.cat_file(path, start, end)): kpz reads the head, then the
    picture's range, so a file costs two range reads, never the whole file.
    (fsspec's own file objects read ahead in blocks of megabytes.)"""

    def __init__(self, fs: Any, path: str, size: Optional[int] = None) -> None:
        self._fs = fs
        self._path = path
        self._size = size
        self._pos = 0
        self.name = path

    def _the_size(self) -> int:
        if self._size is None:
            self._size = int(self._fs.info(self._path)["size"])
        return self._size

    def seekable(self) -> bool:
        return True

    def readable(self) -> bool:
        return True

    def seek(self, offset: int, whence: int = 0) -> int:
        if whence == 0:
            self._pos = offset
        elif whence == 1:
            self._pos += offset
        else:
            self._pos = self._the_size() + offset
        return self._pos

    def tell(self) -> int:
        return self._pos

    def read(self, n: int = -1) -> bytes:
        size = self._the_size()
        start = min(self._pos, size)
        end = size if n is None or n < 0 else min(size, start + n)
        if end <= start:
            return b""
        data = self._fs.cat_file(self._path, start=start, end=end)
        self._pos = start + len(data)
        return data


# ---------------------------------------------------------------------------
# Inputs


def _is_url(s: str) -> bool:
    return "://" in s and not s.startswith("file://")


def _local(s: str) -> str:
    return s[len("file://"):] if s.startswith("file://") else s


def _remote_inputs(url: str, recursive: bool, normalised: List[str]) -> List[Tuple[str, str]]:
    """(url, error) pairs for one fsspec URL: a glob, a directory (ending in
    '/', or any directory of a store that has them) or one file."""
    import fsspec

    try:
        fs, path = fsspec.core.url_to_fs(url)
    except (ImportError, ValueError) as e:
        return [(url, "cannot read: %s" % e)]
    protocol = fs.protocol if isinstance(fs.protocol, str) else fs.protocol[0]
    web = protocol in ("http", "https")

    def url_of(p: str) -> str:
        return p if "://" in p else "%s://%s" % (protocol, p)

    try:
        if any(c in path for c in _GLOB_CHARS):
            found = sorted(fs.glob(path))
            return [(url_of(p), "") for p in found
                    if kit.extension_matches(p.rstrip("/").rsplit("/", 1)[-1], normalised)]
        if url.endswith("/") or (not web and fs.isdir(path)):
            if recursive:
                found = sorted(fs.find(path))
            else:
                found = sorted(e["name"] for e in fs.ls(path, detail=True)
                               if e.get("type") != "directory")
            return [(url_of(p), "") for p in found
                    if kit.extension_matches(p.rstrip("/").rsplit("/", 1)[-1], normalised)]
    except OSError as e:
        return [(url, "cannot read the directory: %s" % (e.strerror or e))]
    return [(url, "")]


def expand_sources(sources: Sequence[str], recursive: bool = False,
                   extensions: Sequence[str] = ()) -> List[Tuple[str, str]]:
    """The files named by `sources`, as kpz expands its arguments (directories
    give their files with the wanted extensions, -r enters subdirectories),
    local globs expanded, and fsspec URLs listed through their file system:
    (source, error) pairs in argument order."""
    normalised = kit.normalise_extensions(list(extensions))
    out: List[Tuple[str, str]] = []
    local: List[str] = []

    def flush() -> None:
        if local:
            out.extend(kit.expand_inputs(local, recursive, list(extensions)))
            local.clear()

    import glob

    for s in sources:
        s = os.fspath(s)
        if _is_url(s):
            flush()
            out.extend(_remote_inputs(s, recursive, normalised))
        else:
            s = _local(s)
            if any(c in s for c in _GLOB_CHARS) and not os.path.exists(s):
                matches = sorted(glob.glob(s))
                local.extend(matches if matches else [s])
            else:
                local.append(s)
    flush()
    return out


# ---------------------------------------------------------------------------
# Outputs


def _out_fs(out: str) -> Tuple[Optional[Any], str]:
    """(fs, root): fs None for a local directory."""
    if not _is_url(out):
        return None, _local(out)
    import fsspec

    return fsspec.core.url_to_fs(out)


def _join(root: str, name: str) -> str:
    return root.rstrip("/") + "/" + name


def _existing_outputs(fs: Optional[Any], root: str) -> set:
    """Names of the files now in the output directory (one listing)."""
    try:
        if fs is None:
            return set(os.listdir(root))
        return {p.rstrip("/").rsplit("/", 1)[-1] for p in fs.ls(root, detail=False)}
    except (OSError, ValueError):
        return set()


def _write_remote(fs: Any, path: str, data: bytes) -> None:
    protocol = fs.protocol if isinstance(fs.protocol, str) else fs.protocol[0]
    if protocol in _ATOMIC_PUT:
        fs.pipe_file(path, data)
        return
    head, _, name = path.rpartition("/")
    tmp = "%s/.%s.%d-%s" % (head, name, os.getpid(), os.urandom(4).hex())
    fs.pipe_file(tmp, data)
    try:
        fs.mv(tmp, path)
    except Exception:
        try:
            fs.rm(tmp)
        except Exception:
            pass
        raise


# ---------------------------------------------------------------------------
# The task a worker runs


# Errors of remote file systems often come without errno (fsspec's HTTP
# back end raises FileNotFoundError(url)): given the errno of their class,
# they read in kpz's words ("file not found").
_ERRNO_OF = [(FileNotFoundError, errno.ENOENT), (PermissionError, errno.EACCES),
             (IsADirectoryError, errno.EISDIR), (TimeoutError, errno.ETIMEDOUT),
             (ConnectionError, errno.ECONNRESET)]


def _input_failure(r: Result, exc: BaseException) -> Result:
    if isinstance(exc, OSError) and exc.errno is None:
        code = next((n for cls, n in _ERRNO_OF if isinstance(exc, cls)), errno.EIO)
        exc = type(exc)(code, os.strerror(code), r.source)
    words = kpz.error_words(exc)
    r.status = EXIT_INPUT
    r.err = "kpz: %s: %s\n" % (r.source, words)
    r.reason = words
    return r


def run_batch(items: Sequence[Tuple[int, str, str]], kind: str, upright: bool, out: str,
              sync: bool = False) -> List[Result]:
    """Runs one batch on a worker: items are (index, source, output name);
    inputs sharing an output name are in one batch, in input order, and the
    first of them that is written owns the name (as in kpz)."""
    fs, root = _out_fs(out)
    get = kpz.screennail if kind == "preview" else kpz.thumbnail
    fss: Dict[str, Any] = {}
    owners: Dict[str, str] = {}
    results = []
    for index, source, name in items:
        target = _join(root, name) if fs is not None else os.path.join(root, name)
        shown = (out.rstrip("/") + "/" + name) if fs is not None else target
        r = Result(index, source, shown)
        results.append(r)
        if fs is None and not upright and not _is_url(source):
            # A local file to a local directory: copied file to file by the
            # kit, exactly as kpz writes it (no bytes through Python).
            if target in owners:
                try:
                    get(source)  # an input that cannot be read reports its own error
                except (kpz.KpzError, OSError) as e:
                    _input_failure(r, e)
                    continue
                r.status = EXIT_OUTPUT
                r.err = "kpz: %s: not written: %s is already written by %s\n" % (
                    source, shown, owners[target])
                r.reason = "output already written by an earlier input"
                continue
            status, written, why, named = kit.copy_picture(source, target, kind, sync)
            if status:
                r.status = status
                r.err = "kpz: %s: %s\n" % (named, why)
                r.reason = why
                continue
            owners[target] = source
            r.out = "wrote %s (%d bytes)\n" % (shown, written)
            continue
        try:
            if _is_url(source):
                import fsspec

                protocol = source.split("://", 1)[0]
                sfs = fss.get(protocol)
                if sfs is None:
                    sfs, path = fsspec.core.url_to_fs(source)
                    fss[protocol] = sfs
                else:
                    path = sfs._strip_protocol(source)
                data = get(RangeReader(sfs, path), upright=upright)
            else:
                data = get(source, upright=upright)
        except (kpz.KpzError, OSError) as e:
            _input_failure(r, e)
            continue
        except Exception as e:  # a remote file system's own error
            r.status = EXIT_INPUT
            r.reason = "cannot read: %s" % (str(e) or type(e).__name__)
            r.err = "kpz: %s: %s\n" % (source, r.reason)
            continue
        if target in owners:
            r.status = EXIT_OUTPUT
            r.err = "kpz: %s: not written: %s is already written by %s\n" % (
                source, shown, owners[target])
            r.reason = "output already written by an earlier input"
            continue
        if fs is None:
            why = kit.write_file(target, data, sync)
        else:
            try:
                _write_remote(fs, target, data)
                why = ""
            except Exception as e:
                why = "cannot write the file: %s" % (getattr(e, "strerror", None) or e)
        if why:
            r.status = EXIT_OUTPUT
            r.err = "kpz: %s: %s\n" % (shown, why)
            r.reason = why
            continue
        owners[target] = source
        r.out = "wrote %s (%d bytes)\n" % (shown, len(data))
    return results


# ---------------------------------------------------------------------------
# The client


def _batches(jobs: List[Tuple[int, str, str]], size: int) -> List[List[Tuple[int, str, str]]]:
    """Cuts jobs into batches of about `size`, inputs sharing an output name
    kept together in input order."""
    groups: Dict[str, List[Tuple[int, str, str]]] = {}
    order: List[str] = []
    for job in jobs:
        key = job[2]
        if key not in groups:
            groups[key] = []
            order.append(key)
        groups[key].append(job)
    batches: List[List[Tuple[int, str, str]]] = []
    current: List[Tuple[int, str, str]] = []
    for key in order:
        current.extend(groups[key])
        if len(current) >= size:
            batches.append(current)
            current = []
    if current:
        batches.append(current)
    return batches


class _Progress:
    """kpz's progress bar on standard error, when it is a terminal and the run is long."""

    def __init__(self, total: int, stream: Any) -> None:
        self._total = total
        self._stream = stream
        self._enabled = stream is not None and hasattr(stream, "isatty") and stream.isatty()
        self._start = time.monotonic()
        self._last = 0.0
        self.shown = False

    def update(self, done: int) -> None:
        if not self._enabled:
            return
        now = time.monotonic()
        if not kit.progress_is_long(self._total, int((now - self._start) * 1000)):
            return
        if done < self._total and (now - self._last) * 1000 < kit.PROGRESS_REDRAW_MS:
            return
        self._last = now
        try:
            width = os.get_terminal_size(self._stream.fileno()).columns
        except (OSError, ValueError, AttributeError):
            width = 80
        self._stream.write("\r" + kit.progress_text(done, self._total, width))
        self._stream.flush()
        self.shown = True

    def clear(self) -> None:
        if self.shown:
            self._stream.write("\r\x1b[K")
            self._stream.flush()
            self.shown = False


def _is_main_guard(node: Any) -> bool:
    """True for the test of `if __name__ == "__main__":` (either order)."""
    import ast

    if not (isinstance(node, ast.Compare) and len(node.ops) == 1 and
            isinstance(node.ops[0], ast.Eq)):
        return False
    sides = [node.left, node.comparators[0]]
    names = [s.id for s in sides if isinstance(s, ast.Name)]
    texts = [s.value for s in sides if isinstance(s, ast.Constant)]
    return names == ["__name__"] and texts == ["__main__"]


def _unguarded_line() -> Optional[Tuple[str, int]]:
    """(file, line) of the main script's top-level statement that led to
    this call, when that statement is not under `if __name__ ==
    "__main__":`; else None (a guarded call, a call from a function that
    the script's guard calls, an interactive session or `python -c`)."""
    import ast
    import inspect

    main = sys.modules.get("__main__")
    path = getattr(main, "__file__", None)
    if not path:
        return None
    frame = inspect.currentframe()
    while frame is not None and not (frame.f_globals is vars(main) and
                                     frame.f_code.co_name == "<module>"):
        frame = frame.f_back
    if frame is None:
        return None
    line = frame.f_lineno
    try:
        with open(path, "rb") as f:
            tree = ast.parse(f.read(), path)
    except (OSError, SyntaxError, ValueError):
        return None
    for node in ast.walk(tree):
        if isinstance(node, ast.If) and _is_main_guard(node.test) and \
                node.lineno <= line <= (node.end_lineno or node.lineno):
            return None
    return path, line


def _refuse_recursive_start() -> None:
    """Raises, in words, rather than start a LocalCluster from the top level
    of a script that lacks `if __name__ == "__main__":`: Dask starts its
    worker processes by running the main module again ("spawn"), so each
    worker would start a cluster of its own, and so on without end. Checked
    in the script's own process (its source read), and in a worker process
    that imports the main module again (the module __mp_main__, in a process
    not named "MainProcess"), in case the first check could not tell."""
    import multiprocessing

    guard = 'put the calls under \'if __name__ == "__main__":\''
    unguarded = _unguarded_line()
    if unguarded is not None:
        raise RuntimeError(
            "kpz.distributed: %s, line %d: extract() starts a local cluster, whose worker "
            "processes run the main module again, from the top level of the script: %s"
            % (unguarded[0], unguarded[1], guard))
    main = sys.modules.get("__mp_main__")
    if main is not None and multiprocessing.current_process().name != "MainProcess":
        raise RuntimeError(
            "kpz.distributed: extract() was called while a worker process of the local "
            "cluster was importing the main module %s again: %s"
            % (getattr(main, "__file__", None) or "", guard))


def _make_client(client: Any, scheduler: Optional[str], workers: Optional[int],
                 threads_per_worker: Optional[int]) -> Tuple[Any, List[Any]]:
    """The client to use and what to close afterwards."""
    if client is not None:
        return client, []
    from distributed import Client, LocalCluster

    if scheduler:
        c = Client(scheduler)
        return c, [c]
    _refuse_recursive_start()
    n = workers or (os.cpu_count() or 1)
    # Every server of the cluster on the loopback interface only: the
    # scheduler's and the workers' HTTP servers (which Dask starts even
    # without a dashboard, on every interface unless told) included.
    cluster = LocalCluster(n_workers=n, threads_per_worker=threads_per_worker or 1,
                           processes=True, host=_LOOPBACK, dashboard_address=_LOOPBACK + ":0",
                           worker_dashboard_address=_LOOPBACK + ":0",
                           scheduler_kwargs={"dashboard": False})
    c = Client(cluster)
    return c, [c, cluster]


def extract(sources: Union[str, Sequence[str]], out: str, *, kind: str = "preview",
            upright: bool = False, client: Any = None, scheduler: Optional[str] = None,
            recursive: bool = False, extensions: Sequence[str] = (),
            batch_size: Optional[int] = None, skip_existing: bool = False, sync: bool = False,
            workers: Optional[int] = None, threads_per_worker: Optional[int] = None,
            on_result: Optional[Callable[[Result], None]] = None,
            progress: Any = None) -> Summary:
    """Writes the preview (kind="preview") or thumbnail (kind="thumbnail") of
    every file in `sources` into the directory `out` (local path or fsspec
    URL), named as `kpz preview -o OUT` names them, on a Dask cluster:
    `client` (a distributed.Client), else a new client of `scheduler`
    ("tcp://host:8786"), else a LocalCluster of `workers` processes (default:
    the number of processors) on 127.0.0.1, closed at the end.

    sources: files, directories (their files ending in `extensions`, default
    .kpz; `recursive` enters subdirectories), local globs, or fsspec URLs.
    Paths must name the same files on every worker.
    upright: turn each picture the right way up, as `kpz preview --upright`.
    batch_size: files per task (default DEFAULT_BATCH_SIZE, less for short runs).
    skip_existing: inputs whose output is already in `out` are not read again.
    sync: flush each local output to the disk before it is reported written.
    on_result: called on the client with every Result, in input order.
    progress: a stream for the progress bar (drawn when it is a terminal and
    the run is long), or None.

    Returns the Summary; it counts every input once. Errors of single files are
    in their Results, never raised; a cluster that cannot be reached raises
    Dask's own error (OSError, TimeoutError).
    """
    if kind not in KINDS:
        raise ValueError("kind is 'preview' or 'thumbnail', not %r" % (kind,))
    if isinstance(sources, (str, os.PathLike)):
        sources = [os.fspath(sources)]
    suffix, noun = KINDS[kind]
    summary = Summary(noun)
    entries = expand_sources(list(sources), recursive, extensions)

    fs, root = _out_fs(out)
    if fs is None:
        os.makedirs(root, exist_ok=True)
    else:
        try:
            fs.makedirs(root, exist_ok=True)
        except Exception:
            pass  # object stores have no directories
    existing = _existing_outputs(fs, root) if skip_existing else set()

    ready: Dict[int, Result] = {}
    jobs: List[Tuple[int, str, str]] = []
    for i, (source, error) in enumerate(entries):
        name = kit.default_path(source, suffix, True)
        if error:
            r = Result(i, source, "", EXIT_INPUT, err="kpz: %s: %s\n" % (source, error),
                       reason=error)
            ready[i] = r
        elif skip_existing and name in existing:
            ready[i] = Result(i, source, name,
                              note="already present, not written again (--skip-existing)")
        else:
            jobs.append((i, source, name))

    total = len(entries)
    delivered = 0
    bar = _Progress(total, progress)

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
        c, closers = _make_client(client, scheduler, workers, threads_per_worker)
        try:
            if batch_size is None:
                try:
                    threads = sum(c.nthreads().values()) or 1
                except Exception:
                    threads = 1
                # At least four tasks per worker thread, so that a slow or
                # lost worker is not waited for at the end.
                batch_size = max(1, min(DEFAULT_BATCH_SIZE, len(jobs) // (4 * threads)))
            from distributed import as_completed

            batches = _batches(jobs, max(1, int(batch_size)))
            # One message to the scheduler for all the tasks (client.map).
            futures = c.map(run_batch, batches, kind=kind, upright=upright, out=out, sync=sync,
                            pure=False, key=["kpz-%s-%d-%s" % (kind, n, os.urandom(4).hex())
                                             for n in range(len(batches))])
            for future in as_completed(futures):
                for r in future.result():
                    ready[r.index] = r
                del future
                deliver()
        finally:
            for closer in closers:
                closer.close()
    deliver()
    bar.clear()
    return summary
