"""Previews and thumbnails of remote KPZ files, read at the link's speed.

A file costs two ranged GET requests and nothing else: its first 64 KiB,
then the picture's own range, which the kit finds in those first bytes
(``kpz._kpz.kit.locate``: the same rules and words as ``kpz preview``).
Many files are in flight at once over one pool of kept-alive connections
(aiohttp), so a batch of N files costs a few round trips, not 3 N::

    import kpz.remote

    # Blocking, for a script: results in input order.
    for got in kpz.remote.fetch(urls, max_in_flight=64):
        if got.ok:
            use(got.data)               # the preview's bytes, as kpz preview writes them
        else:
            print("kpz: %s: %s" % (got.url, got.words))

    # Or to a directory, named as kpz names its outputs (x.kpz -> x.preview.jpg).
    kpz.remote.fetch(urls, out_dir="previews")

    # async, in a web service: one Reader (one connection pool) for many calls.
    async with kpz.remote.Reader(max_in_flight=64) as reader:
        got = await reader.read("https://store.example/a.kpz")

Faults of real storage are handled so (defaults in :class:`Settings`):

- HTTP 429, 500, 502, 503 and 504, a connection refused, reset or closed in
  the middle of a body, and a timeout are retried with exponential backoff
  and jitter, ``tries`` times in all; then the file fails in words naming
  the cause (``HTTP 503 Service Unavailable after 4 tries``).
- 401, 403, 404, 416 and other client errors fail at once, in words.
- A server that ignores ``Range`` (200 with the whole body) is noticed: a
  body larger than the range asked is never read (``the server does not
  serve byte ranges``); a whole file no larger than the head is taken.
- A body longer than the range asked fails; a shorter one is asked again
  for the rest, within the same number of tries.
- A connect timeout and a read timeout bound a stalled server; one slow
  file never holds back the others (each file has its own tries).
- Redirects are followed ``max_redirects`` times, to the same scheme, host
  and port only unless ``other_hosts`` is set.
- Memory is bounded: at most ``max_in_flight`` files are in progress, each
  holding at most 64 KiB and its picture; a picture larger than
  ``max_picture`` bytes is refused in words.
- ``https://`` uses the system's CA store, or ``ca_file``.
- ``s3://bucket/key`` is read the same way from the store that
  ``Settings.s3`` or the environment names (``AWS_ENDPOINT_URL``, the
  profile ...), each request signed as it is sent (kpz._s3); the store's
  errors in its words (``NoSuchKey (HTTP 404): ...``), SlowDown and 5xx
  retried.

Nothing partial is ever written under a final name: outputs are written
whole or not at all (a temporary file renamed when complete).
"""

import asyncio
import dataclasses
import os
import random
import ssl
from typing import AsyncIterator, Iterable, List, Optional, Sequence, Tuple

from kpz import _s3
from kpz._kpz import HEAD_SIZE, kit

__all__ = ["Settings", "Result", "Reader", "read_many", "fetch", "fetch_async"]

# Statuses that say "try again later"; every other 4xx is the file's own.
_TRANSIENT = frozenset({408, 425, 429, 500, 502, 503, 504})
_REDIRECTS = frozenset({301, 302, 303, 307, 308})


@dataclasses.dataclass(frozen=True)
class Settings:
    """How a :class:`Reader` talks to the storage.

    max_in_flight: files in progress at once, and connections in the pool
        (measured: 64 keeps a link of 50 ms busy; see docs/PERFORMANCE.md).
    tries: attempts per range before a transient failure is final (>= 1).
    connect_timeout, read_timeout: seconds to connect, and to wait for any
        bytes of an answer (headers or body) before the attempt times out.
    backoff, backoff_max: the first wait before a retry in seconds, doubled
        each time up to backoff_max, each wait drawn between half and all of it.
    max_picture: the largest picture read, in bytes; larger ones are refused.
    max_redirects: redirects followed per request.
    other_hosts: follow redirects to another scheme, host or port.
    ca_file: a PEM file of the CAs to trust for https://, instead of the
        system's store.
    s3: where s3:// URLs are and how they are signed (kpz._s3.Options:
        endpoint, region, profile, unsigned); None: from the environment
        and the profile, as the AWS command line finds them.
    """

    max_in_flight: int = 64
    tries: int = 4
    connect_timeout: float = 10.0
    read_timeout: float = 30.0
    backoff: float = 0.25
    backoff_max: float = 8.0
    max_picture: int = 64 * 1024 * 1024
    max_redirects: int = 5
    other_hosts: bool = False
    ca_file: Optional[str] = None
    s3: Optional[_s3.Options] = None

    def __post_init__(self) -> None:
        if not isinstance(self.max_in_flight, int) or self.max_in_flight < 1:
            raise ValueError("kpz: max_in_flight is a whole number of at least 1, not %r"
                             % (self.max_in_flight,))
        if not isinstance(self.tries, int) or self.tries < 1:
            raise ValueError("kpz: tries is a whole number of at least 1, not %r" % (self.tries,))
        for name in ("connect_timeout", "read_timeout"):
            value = getattr(self, name)
            if not isinstance(value, (int, float)) or not value > 0:
                raise ValueError("kpz: %s is a number of seconds above 0, not %r" % (name, value))
        for name in ("backoff", "backoff_max"):
            value = getattr(self, name)
            if not isinstance(value, (int, float)) or value < 0:
                raise ValueError("kpz: %s is a number of seconds, 0 or more, not %r"
                                 % (name, value))
        if not isinstance(self.max_picture, int) or self.max_picture < 1:
            raise ValueError("kpz: max_picture is a number of bytes above 0, not %r"
                             % (self.max_picture,))
        if not isinstance(self.max_redirects, int) or self.max_redirects < 0:
            raise ValueError("kpz: max_redirects is a whole number, 0 or more, not %r"
                             % (self.max_redirects,))


@dataclasses.dataclass
class Result:
    """One file's outcome.

    ok: the picture was read (and written, with an output directory).
    data: the picture's bytes (None with an output directory or on failure).
    words: why it failed, in kpz's words ("" when ok).
    status: the exit status kpz gives such a failure (0 when ok; 1: the
        input; 3: the output).
    output: the file written, with an output directory.
    index: the file's place among the URLs given.
    requests: HTTP requests made for the file, retries included.
    received: body bytes received for the file, retries included.
    http_status: the HTTP status of the answer a failure came from (404,
        503, ...); None when it came from no answer (a timeout, a refused
        connection) or from the file's bytes (not a KPZ file, damaged).
    storage_failed: the failure is the storage's (an HTTP error, a timeout,
        a refused or broken connection, a reply not as asked), not the
        file's (not a KPZ file, damaged, a picture over max_picture) nor
        the output's.
    note: with upright, the summary's remark about the turn, as kpz counts
        it ("re-encoded at quality 95: ..."; "" for a lossless turn or none).
    """

    url: str
    ok: bool = False
    data: Optional[bytes] = dataclasses.field(default=None, repr=False)  # megabytes
    words: str = ""
    status: int = 0
    output: Optional[str] = None
    index: int = 0
    requests: int = 0
    received: int = 0
    http_status: Optional[int] = None
    storage_failed: bool = False
    note: str = ""


class _Failed(Exception):
    """A range that cannot be had: `words` say why; `transient` ones may be
    retried."""

    def __init__(self, words: str, transient: bool, http_status: Optional[int] = None,
                 storage: bool = True) -> None:
        super().__init__(words)
        self.words = words
        self.transient = transient
        self.http_status = http_status
        self.storage = storage


def _content_range(value: Optional[str]) -> Optional[Tuple[int, int, Optional[int]]]:
    """(first, last, total) of a Content-Range "bytes a-b/n" (n may be "*");
    None when it cannot be read."""
    if not value:
        return None
    unit, _, ranges = value.strip().partition(" ")
    if unit.lower() != "bytes":
        return None
    span, _, total = ranges.partition("/")
    first, _, last = span.partition("-")
    try:
        a, b = int(first), int(last)
        n = None if total.strip() == "*" else int(total)
    except ValueError:
        return None
    if a < 0 or b < a or (n is not None and b >= n):
        return None
    return a, b, n


def _origin(url) -> Tuple[str, str, Optional[int]]:
    return (url.scheme, url.host or "", url.port)


class Reader:
    """Reads the pictures of remote KPZ files over one connection pool.

    Use it as an async context manager (the pool is closed on exit). Give
    either a :class:`Settings` or its fields as keywords. `rng` draws the
    backoff's jitter (a test gives a seeded one)."""

    def __init__(self, settings: Optional[Settings] = None, *, rng: Optional[random.Random] = None,
                 store: Optional[_s3.Store] = None, **fields) -> None:
        if settings is not None and fields:
            raise TypeError("kpz: give Settings or its fields, not both")
        self.settings = settings if settings is not None else Settings(**fields)
        self._rng = rng if rng is not None else random.Random()
        # s3://: the store (made at the first s3:// URL unless given), or why
        # it cannot be used.
        self._store: Optional[_s3.Store] = store
        self._store_failed: Optional[_s3.StoreError] = None
        self._session = None
        self._files = None

    async def __aenter__(self) -> "Reader":
        import aiohttp

        s = self.settings
        # The system's store is aiohttp's own default, made once per process
        # at the first https:// connection (loading it costs tens of ms).
        context = ssl.create_default_context(cafile=s.ca_file) if s.ca_file else None
        connector = aiohttp.TCPConnector(limit=s.max_in_flight, limit_per_host=0, ssl=context,
                                         keepalive_timeout=30)
        timeout = aiohttp.ClientTimeout(total=None, sock_connect=s.connect_timeout,
                                        sock_read=s.read_timeout)
        # No compression: a range of a compressed body is not the file's.
        self._session = aiohttp.ClientSession(connector=connector, timeout=timeout,
                                              auto_decompress=False,
                                              headers={"Accept-Encoding": "identity"},
                                              request_class=_s3.request_class(self.store))
        self._files = asyncio.Semaphore(s.max_in_flight)
        return self

    async def __aexit__(self, *exc) -> None:
        if self._session is not None:
            await self._session.close()
            self._session = None

    def store(self) -> _s3.Store:
        """The store of s3:// URLs (kpz._s3.Store), resolved at the first
        call from Settings.s3 and the environment; StoreError (one line) when
        it cannot be used: no credentials, a profile that is not there."""
        if self._store is None:
            if self._store_failed is None:
                try:
                    self._store = _s3.Store(self.settings.s3)
                except _s3.StoreError as e:
                    self._store_failed = e
            if self._store is None:
                raise self._store_failed
        return self._store

    async def read(self, url: str, kind: str = "preview", *, upright: bool = False,
                   index: int = 0) -> Result:
        """The picture of `kind` ("preview" or "thumbnail") of the KPZ file
        at `url`, turned as the file asks with `upright`. Never raises for
        the file's own failures: they are in the result's words."""
        if kind not in ("preview", "thumbnail"):
            raise ValueError("kpz: kind is 'preview' or 'thumbnail', not %r" % (kind,))
        if self._session is None:
            raise RuntimeError("kpz: use the Reader as 'async with Reader(...) as reader'")
        r = Result(url=url, index=index)
        async with self._files:
            try:
                head, size = await self._range(r, 0, HEAD_SIZE, head=True)
                if size is None:
                    raise _Failed("the server tells no file size (Content-Range without a "
                                  "length)", False)
                found = kit.locate(head, size, kind, upright=upright)
                if not found.turns:
                    del head  # the turn reads the orientation from it again
                if not found.ok:
                    r.words, r.status = found.words, found.status
                    return r
                if found.length > self.settings.max_picture:
                    raise _Failed("the %s is %d bytes, more than the %d read at most "
                                  "(max_picture)" % (kind, found.length,
                                                     self.settings.max_picture), False,
                                  storage=False)
                data, _ = await self._range(r, found.offset, found.length, head=False,
                                            size=size)
                if found.turns:
                    # The turn as kpz makes it, with the summary's note: a
                    # decode and an encode, off the event loop that other
                    # files' reads share.
                    status, data, r.note, words = await asyncio.get_running_loop(
                    ).run_in_executor(None, kit.upright, head, data, kind)
                    del head
                    if status:
                        r.words, r.status = words, int(kit.ExitStatus.INPUT)
                        return r
            except _Failed as e:
                r.words, r.status = e.words, int(kit.ExitStatus.INPUT)
                r.http_status, r.storage_failed = e.http_status, e.storage
                return r
            except _s3.StoreError as e:
                r.words, r.status, r.storage_failed = str(e), int(kit.ExitStatus.INPUT), True
                return r
        r.ok, r.data = True, data
        return r

    async def put(self, url: str, data: bytes) -> str:
        """Sends `data` to `url` in one PUT: "" when the server took it (a
        2xx answer), else why not in words ("HTTP 405 Not Allowed",
        "connection refused", "timed out"). Not retried: a PUT that failed
        half way may have been taken. An s3:// URL is written by the
        store's client (signed, Content-Type image/jpeg) and retried when it
        may pass: the store makes a PUT whole or absent."""
        import aiohttp

        if self._session is None:
            raise RuntimeError("kpz: use the Reader as 'async with Reader(...) as reader'")
        if _s3.is_s3(url):  # s3://: signed, retried (a PUT is whole or absent), its words
            try:
                return await _s3.put(self, self.store(), url, data)
            except _s3.StoreError as e:
                return str(e)
        try:
            async with self._session.put(url, data=data, allow_redirects=False) as resp:
                if 200 <= resp.status < 300:
                    return ""
                return ("HTTP %d %s" % (resp.status, resp.reason or "")).strip()
        except asyncio.TimeoutError:
            return "timed out"
        except aiohttp.ClientConnectorError as e:
            return "connection refused" if isinstance(e.os_error, ConnectionRefusedError) \
                else "cannot connect (%s)" % (e.os_error.strerror or e.os_error,)
        except aiohttp.InvalidURL:
            return "not a URL that can be written to"
        except (aiohttp.ClientError, ConnectionError) as e:
            return "the connection failed (%s)" % (str(e) or type(e).__name__)

    async def _range(self, r: Result, start: int, length: int, *, head: bool,
                     size: Optional[int] = None) -> Tuple[bytes, Optional[int]]:
        """`length` bytes at `start` (for the head: up to `length`, fewer for
        a shorter file) and the file's size, retrying what may pass."""
        s = self.settings
        got = b""    # one reply's body as it came; joined only when a reply was short
        total = size
        failures = 0  # attempts that failed and may pass on a retry
        short = 0     # replies that brought only part of what was asked
        while True:
            want = length - len(got)
            try:
                part, total_now = await self._get(r, start + len(got), want, head and not got)
            except _Failed as e:
                if not e.transient:
                    raise
                failures += 1
                if failures >= s.tries:
                    raise _Failed("%s after %d tries" % (e.words, failures), False,
                                  e.http_status)
                await self._wait(failures)
                continue
            if total is not None and total_now is not None and total_now != total:
                raise _Failed("the file changed while it was read (its size went from %d to "
                              "%d bytes)" % (total, total_now), False)
            total = total_now if total_now is not None else total
            got = got + part if got else part
            # The head of a file shorter than the head ends at the file's end.
            end = length if not head or total is None else min(length, total)
            if len(got) >= end:
                return got, total
            # A short reply: the rest is asked for again, a bounded number of times.
            short += 1
            if short >= s.tries:
                raise _Failed("the server sent %d of the %d bytes asked for in %d replies"
                              % (len(got), end, short), False)

    async def _wait(self, failures: int) -> None:
        s = self.settings
        delay = min(s.backoff_max, s.backoff * (2 ** (failures - 1)))
        if delay > 0:
            await asyncio.sleep(delay * (0.5 + self._rng.random() / 2))

    async def _get(self, r: Result, start: int, length: int,
                   head: bool) -> Tuple[bytes, Optional[int]]:
        """One ranged GET (with its redirects): up to `length` bytes at
        `start` and the file's size from Content-Range."""
        import aiohttp
        from yarl import URL

        s = self.settings
        # s3://: the store's URL, its request signed when sent, no redirects.
        s3 = self.store() if _s3.is_s3(r.url) else None
        url = first = URL(r.url) if s3 is None else self._s3_url(s3, r.url)
        for _ in range(s.max_redirects + 1):
            r.requests += 1
            headers = {"Range": "bytes=%d-%d" % (start, start + length - 1)}
            if s3 is not None:
                headers.update(_s3.headers(s3, str(url)))
            try:
                async with self._session.get(url, headers=headers, allow_redirects=False) as resp:
                    if s3 is not None and resp.status == 416 and head and start == 0:
                        resp.release()  # no byte 0: an empty object (the kit tells what it is not)
                        return b"", 0
                    if s3 is not None and resp.status not in (200, 206):
                        words, transient = await _s3.read_error(resp)
                        raise _Failed(words, transient, resp.status)
                    if resp.status in _REDIRECTS:
                        target = resp.headers.get("Location")
                        if not target:
                            raise _Failed("HTTP %d %s without a Location"
                                          % (resp.status, resp.reason or ""), False)
                        url = url.join(URL(target))
                        if not s.other_hosts and _origin(url) != _origin(first):
                            raise _Failed("redirected to another host (%s), which is not "
                                          "followed" % (url.origin(),), False)
                        continue
                    return await self._body(r, resp, start, length, head)
            except _Failed:
                raise
            except asyncio.TimeoutError:
                raise _Failed("timed out", True) from None
            except aiohttp.ClientConnectorCertificateError as e:
                reason = getattr(e.certificate_error, "verify_message", "") or str(
                    e.certificate_error)
                raise _Failed("the server's certificate cannot be trusted (%s)" % reason,
                              False) from None
            except aiohttp.ClientSSLError as e:
                raise _Failed("the secure connection failed (%s)" % (e,), False) from None
            except aiohttp.ClientConnectorError as e:
                words = "connection refused" if isinstance(e.os_error, ConnectionRefusedError) \
                    else "cannot connect (%s)" % (e.os_error.strerror or e.os_error,)
                raise _Failed(words, True) from None
            except (aiohttp.ServerDisconnectedError, aiohttp.ClientPayloadError,
                    aiohttp.ClientOSError, ConnectionError):
                raise _Failed("the connection was closed in the middle of an answer",
                              True) from None
            except aiohttp.InvalidURL:
                raise _Failed("not a URL that can be read", False) from None
            except aiohttp.ClientResponseError as e:
                raise _Failed("a reply that cannot be read (%s)" % (e.message,), True) from None
        raise _Failed("too many redirects (more than %d)" % s.max_redirects, False)

    @staticmethod
    def _s3_url(store: _s3.Store, url: str):
        from yarl import URL

        try:
            bucket, key = _s3.split(url)
        except ValueError as e:
            raise _Failed(str(e), False) from None
        return URL(store.url(bucket, key), encoded=True)

    async def _body(self, r: Result, resp, start: int, length: int,
                    head: bool) -> Tuple[bytes, Optional[int]]:
        status = resp.status
        if status == 206:
            span = _content_range(resp.headers.get("Content-Range"))
            if span is None:
                raise _Failed("a partial reply without a readable Content-Range", False)
            first, last, total = span
            if first != start or last > start + length - 1:
                raise _Failed("the server sent bytes %d-%d for the range %d-%d"
                              % (first, last, start, start + length - 1), False)
            return await self._read(r, resp, last - first + 1), total
        if status == 200:
            # Range ignored: the whole file comes. Taken only when it is no
            # more than the head asked for (a small file); never read on.
            declared = resp.content_length
            if head and start == 0 and declared is not None and declared <= length:
                return await self._read(r, resp, declared), declared
            resp.close()  # the body is not read: the connection is dropped
            raise _Failed("the server does not serve byte ranges (HTTP 200 to a ranged "
                          "request)", False)
        words = "HTTP %d %s" % (status, resp.reason or "")
        resp.release()
        if status == 416 and head and start == 0:
            span = resp.headers.get("Content-Range", "")
            if span.replace(" ", "").lower() == "bytes*/0":
                return b"", 0  # an empty file: the kit tells what it is not
        if status == 416:
            raise _Failed(words.strip() + " (the file is shorter than its head)"
                          if head else words.strip(), False, status)
        raise _Failed(words.strip(), status in _TRANSIENT or status >= 500, status)

    async def _read(self, r: Result, resp, n: int) -> bytes:
        """At most `n` bytes of the body; more fails, fewer is returned short
        (the caller asks for the rest)."""
        declared = resp.content_length
        if declared is not None and declared <= n:
            # The parser stops at the declared length: the body is read
            # whole in one go, as large as the range and no larger.
            data = await resp.read()
            r.received += len(data)
            return data
        chunks = []
        have = 0
        while have <= n:  # each pass reads at least one byte or ends
            chunk = await resp.content.read(n + 1 - have)
            if not chunk:
                break
            chunks.append(chunk)
            have += len(chunk)
            r.received += len(chunk)
        if have > n:
            resp.close()
            raise _Failed("the server sent more bytes than the range asked for", False)
        return chunks[0] if len(chunks) == 1 else b"".join(chunks)


async def read_many(urls: Iterable[str], kind: str = "preview", *, upright: bool = False,
                    reader: Optional[Reader] = None,
                    settings: Optional[Settings] = None) -> AsyncIterator[Result]:
    """Reads every URL's picture, `max_in_flight` at a time, and yields each
    result as it is done (``result.index`` is its place among `urls`). The
    URLs are taken from the iterable as room frees up, so a long or endless
    iterable costs no more memory than the files in flight."""
    own = reader is None
    if own:
        reader = Reader(settings)
        await reader.__aenter__()
    # Each file's task puts its result on a queue as it ends: one wake per
    # file, whatever the number in flight.
    done: asyncio.Queue = asyncio.Queue()
    pending = set()

    def finished(task) -> None:
        pending.discard(task)
        done.put_nowait(task)

    try:
        limit = reader.settings.max_in_flight
        it = enumerate(urls)
        more = True
        while more or pending or not done.empty():
            # Results not yet taken count too: a slow consumer holds the reads back.
            while more and len(pending) + done.qsize() < limit:
                try:
                    i, url = next(it)
                except StopIteration:
                    more = False
                    break
                task = asyncio.ensure_future(reader.read(url, kind, upright=upright, index=i))
                pending.add(task)
                task.add_done_callback(finished)
            if not pending and done.empty():
                break
            task = await done.get()
            yield task.result()
    finally:
        for task in list(pending):
            task.cancel()
        if own:
            await reader.__aexit__(None, None, None)


def _output_name(url: str, kind: str, out_dir: str) -> str:
    from yarl import URL

    name = URL(url).path.rsplit("/", 1)[-1] or "index"
    suffix = ".preview.jpg" if kind == "preview" else ".thumb.jpg"
    return os.path.join(out_dir, kit.default_path(name, suffix, True))


async def fetch_async(urls: Sequence[str], kind: str = "preview", *, upright: bool = False,
                      out_dir: Optional[str] = None, sync: bool = False,
                      settings: Optional[Settings] = None, **fields) -> List[Result]:
    """The results of :func:`read_many` in input order. With `out_dir`,
    each picture is written there as kpz names it (``a.kpz`` ->
    ``a.preview.jpg``), whole or not at all, and not kept in memory; two
    URLs with one output name: the first in input order is written, the
    later ones fail in words."""
    if settings is not None and fields:
        raise TypeError("kpz: give Settings or its fields, not both")
    settings = settings if settings is not None else Settings(**fields)
    urls = list(urls)
    results: List[Optional[Result]] = [None] * len(urls)
    owners = {}
    if out_dir is not None:
        why = kit.make_output_directory(out_dir)
        if why:
            raise OSError("kpz: %s" % why)
        for i, url in enumerate(urls):
            owners.setdefault(_output_name(url, kind, out_dir), i)
    async for got in read_many(urls, kind, upright=upright, settings=settings):
        if out_dir is not None and got.ok:
            target = _output_name(got.url, kind, out_dir)
            if owners[target] != got.index:
                got.ok, got.status = False, int(kit.ExitStatus.OUTPUT)
                got.words = "not written: %s is already written by %s" % (
                    target, urls[owners[target]])
            else:
                why = await asyncio.get_running_loop().run_in_executor(
                    None, kit.write_file, target, got.data, sync)
                if why:
                    got.ok, got.status, got.words = False, int(kit.ExitStatus.OUTPUT), why
                else:
                    got.output = target
            got.data = None
        results[got.index] = got
    return [r for r in results if r is not None]


def fetch(urls: Sequence[str], kind: str = "preview", *, upright: bool = False,
          out_dir: Optional[str] = None, sync: bool = False,
          settings: Optional[Settings] = None, **fields) -> List[Result]:
    """Blocking :func:`fetch_async`: the results in input order."""
    return asyncio.run(fetch_async(urls, kind, upright=upright, out_dir=out_dir, sync=sync,
                                   settings=settings, **fields))
