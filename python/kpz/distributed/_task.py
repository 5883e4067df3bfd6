"""The task a worker runs: one batch of inputs, each read (a local path with
the kit, a remote one with two range reads) and its picture written to the
output directory, whole or not at all. The task's Results carry the tool's
lines and words."""

import asyncio
import errno
import os
import queue
from collections import Counter
from typing import Any, Iterator, List, Optional, Sequence, Tuple

import kpz
from kpz import _kpz
from kpz._claims import REASON, Claims
from kpz._kpz import kit

from ._inputs import is_url
from ._outputs import Output
from ._results import Result

_INPUT = kit.ExitStatus.INPUT
_OUTPUT = kit.ExitStatus.OUTPUT


class RangeReader:
    """A binary file object over one fsspec file whose every read is one range
    read (fs.cat_file(path, start, end)): kpz reads the head, then the
    picture's range, so a file costs two range reads, never the whole file.
    (fsspec's own file objects read ahead in blocks of megabytes.) The first
    read at the file's start is kept as `head`."""

    def __init__(self, fs: Any, path: str, size: Optional[int] = None) -> None:
        self._fs = fs
        self._path = path
        self._size = size
        self._pos = 0
        self.name = path
        self.head = b""

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
        if start == 0 and not self.head:
            self.head = data
        return data


# Errors of remote file systems often come without errno (fsspec's HTTP
# back end raises FileNotFoundError(url)): given the errno of their class,
# they read in kpz's words ("file not found").
_ERRNO_OF = [(FileNotFoundError, errno.ENOENT), (PermissionError, errno.EACCES),
             (IsADirectoryError, errno.EISDIR), (TimeoutError, errno.ETIMEDOUT),
             (ConnectionError, errno.ECONNRESET)]


def _words_of(source: str, exc: BaseException) -> str:
    if isinstance(exc, OSError) and exc.errno is None:
        code = next((n for cls, n in _ERRNO_OF if isinstance(exc, cls)), errno.EIO)
        exc = type(exc)(code, os.strerror(code), source)
    return kpz.error_words(exc)


def _picture(source: str, kind: str, upright: bool) -> Tuple[Optional[bytes], str, str]:
    """(picture, note, words): the picture of `source` as kpz writes it and
    the summary's note of its turn, or None and why not in kpz's words.

    By the package's one picture entry: a local path as kpz reads it, a
    remote one as a file object (RangeReader) read in two range reads (its
    head, then the picture's range), the head parsed once."""
    try:
        if is_url(source):
            import fsspec

            got = _kpz.picture(RangeReader(*fsspec.core.url_to_fs(source)),  # fs cached by fsspec
                               kind, upright=upright, detail=True)
        else:
            got = _kpz.picture(source, kind, upright=upright, detail=True)
    except (kpz.KpzError, OSError) as e:
        return None, "", _words_of(source, e)
    except (ValueError, ImportError) as e:  # a remote file system's own errors
        text = str(e)
        return None, "", "cannot read: %s" % (
            (text if len(text) <= 200 else text[:200] + "...") or type(e).__name__)
    except Exception as e:  # noqa: BLE001 - any other is this file's failure, not the batch's
        # Its type only: a message may hold the file's bytes.
        return None, "", "cannot read: an unforeseen failure (%s)" % type(e).__name__
    return got.data, got.note, ""


def is_web(source: str) -> bool:
    """True for an http(s):// or s3:// input, read through kpz.remote."""
    return source.startswith(("http://", "https://", "s3://"))


def _from_web(items: Sequence[Tuple[int, str, str]], kind: str, upright: bool,
              settings: Any) -> Iterator[Tuple[int, Any]]:
    """Reads the pictures of the http(s):// `items`, up to the settings'
    max_in_flight at once over the worker's connection pool, and yields
    (index, kpz.remote.Result) to the task's thread as each comes. No more
    than HANDED_OVER results wait for the task's thread: the reads wait for
    the writes, so no more than max_in_flight pictures (and those handed
    over) are held. Each result costs one wake of the task's thread and one
    of the loop's (a result taken frees its place), no thread between."""
    from kpz import remote

    from . import _pool

    urls = [source for _, source, _ in items]
    done = object()
    got: "queue.SimpleQueue[Any]" = queue.SimpleQueue()
    places: List[Tuple[asyncio.AbstractEventLoop, asyncio.Semaphore]] = []

    async def read_all(reader: "remote.Reader") -> None:
        free = asyncio.Semaphore(HANDED_OVER)
        places.append((asyncio.get_running_loop(), free))  # before the first result
        try:
            async for r in remote.read_many(urls, kind, upright=upright, reader=reader):
                await free.acquire()
                got.put((items[r.index][0], r))
        finally:
            got.put(done)

    reading = _pool.submit(settings, read_all)
    finished = False
    try:
        while True:
            item = got.get()
            if item is done:
                finished = True
                break
            yield item
            loop, free = places[0]
            loop.call_soon_threadsafe(free.release)
    finally:
        if not finished:
            reading.cancel()  # the task's thread stopped taking them: no reads wait for it
    reading.result()  # an error of the reading itself, raised in the task


# Results read and waiting for the task's thread to write them, at most.
HANDED_OVER = 2


def run_batch(items: Sequence[Tuple[int, str, str]], kind: str, upright: bool, out: str,
              sync: bool = False, remote: Any = None) -> List[Result]:
    """Runs one batch on a worker: items are (index, source, output name);
    inputs sharing an output name are in one batch, in input order, and the
    first of them that is written owns the name (as in kpz). http(s):// inputs
    are read through kpz.remote with the Settings `remote` (default
    Settings()), many at once; the others one after another."""
    if remote is None:
        from kpz.remote import Settings

        remote = Settings()
    output = Output(out, remote)
    results = {index: Result(index, source, output.shown(name)) for index, source, name in items}
    claims = Claims(kept=len(items))  # the first input written owns a name
    shared = {name for name, count in Counter(name for _, _, name in items).items() if count > 1}

    def put(index: int, source: str, name: str, data: bytes, note: str) -> None:
        r = results[index]
        refusal = claims.refusal(name, r.output)
        if refusal is not None:
            r.fail(_OUTPUT, source, refusal, REASON)
            return
        why = output.write(name, data, sync)
        if why:
            r.fail(_OUTPUT, r.output, why)
            return
        claims.wrote(name, source)
        r.out = kit.wrote_line(r.output, len(data))
        r.note = note

    # Files of the web whose output name is theirs alone: read many at once,
    # each written as it comes, holding no more than the reads in flight.
    web = [item for item in items if is_web(item[1]) and item[2] not in shared]
    if web:
        name_of = {index: (source, name) for index, source, name in web}
        for index, got in _from_web(web, kind, upright, remote):
            source, name = name_of[index]
            if got.ok:
                put(index, source, name, got.data, got.note)
            else:
                results[index].fail(kit.ExitStatus(got.status or int(_INPUT)), source, got.words)
            del got

    # The others in input order.
    for index, source, name in items:
        if is_web(source) and name not in shared:
            continue
        r = results[index]
        if output.local and not is_url(source):
            # A local file to a local directory: the kit's job for one input,
            # as kpz runs it (no bytes through Python).
            r.status, r.out, r.err, r.reason, r.note, wrote = kit.picture_job(
                source, output.path(name), kind, upright, sync,
                claims.refusal(name, r.output) or "")
            if wrote:
                claims.wrote(name, source)
            continue
        if is_web(source):
            got = [g for _, g in _from_web([(index, source, name)], kind, upright, remote)][0]
            data, note, why = (got.data, got.note, "") if got.ok else (None, "", got.words)
        else:
            data, note, why = _picture(source, kind, upright)
        if data is None:
            r.fail(_INPUT, source, why)  # an input that cannot be read reports its own error
            continue
        put(index, source, name, data, note)
    return [results[index] for index, _, _ in items]
